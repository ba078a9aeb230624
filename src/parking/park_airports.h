#pragma once
// Park airports: static parking runs at one airport at a time, the park airport. Its candidates are the
// user's list (airports\my_park_airports.txt) and the user's add-on airports; the nearest one in range is
// chosen from the air, the airport under the user from the ground. This file also keeps the stand the user
// holds free. Everything runs on the main-loop thread (and on the start-up thread before that one starts).

#include <atomic>
#include <cstdint>
#include <list>
#include <string>

namespace ory {

// One line of my_park_airports.txt, or an add-on airport.
struct ParkAirportEntry {
  std::string code;    // ICAO
  std::string stand;   // id of the stand reserved for the user there; may be empty
  double lat = 0;      // degrees
  double lon = 0;      // degrees
  double distance = 0; // nautical miles from the user at the last sort
};

extern std::list<ParkAirportEntry> parkAirports; // ascending by distance: the first is the nearest
extern std::string reservedStand;                // id of the stand kept free for the user; may be empty
extern std::atomic<bool> calculating;            // static parked aircraft are being chosen or created
extern bool openPending;                         // a park airport is chosen; the next step opens it
extern bool softLearningAllowed;                 // the park airport's statistics are poor enough to guess

// Reads the list anew, adds the add-on airports and sorts by the user's distance. False when the file had
// errors, each of which is logged; a wrong syntax or a doubled airport stops the reading there.
bool readParkAirports();
// Writes the first entry with its stand into the file.
void updateParkAirports();
// The step of every 16 seconds: opens a chosen airport, or chooses one, or checks that the user still sees
// it.
void checkParkAirport(bool first);
// Reads the park airport's file; empty on success, else the text to log.
std::string openParkAirport();
// The id of the stand within 55 metres of the point while the user is on the ground, nearest first; empty
// when none.
std::string standBelowPoint(double lat, double lon);
// The reserved stand and the stand below the user are kept free.
void markReserved();
// The list read anew; with report, a changed stand of the park airport becomes the reserved one. The text to
// show.
std::string checkReservedStand(bool report);
// Every parked aircraft goes, live ones on stands too, and the park airport is closed.
void flushStatics();
// Closes the park airport (saving what was learned) and forgets it.
void resetParkAirport();
// Parked aircraft are being chosen and made: the parking controls must not change meanwhile.
void beginCalculating();
// The parked aircraft are chosen and made: the parking controls may change again.
void endCalculating();

// The job of every 5 seconds: an aircraft standing on the reserved stand is removed.
void clearReservedStand();
// "Re-read", when pressed and no calculation runs.
void serveReRead();
// Nautical miles from the point to the first airport of the list; 10,000 with an empty list.
double firstParkAirportDistance(double lat, double lon);
// All of this file's state back to a fresh start, without saving; for a restart.
void forgetParkAirports();

} // namespace ory
