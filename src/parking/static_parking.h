#pragma once
// Static parking: which aircraft stand on which stands of the park airport now. The stand statistics become
// a queue of aircraft to create, when the park airport opens and every 20 minutes after, and the picture is
// kept apart from the live traffic: an aircraft heard in the feed is not shown parked as well. "Fit" n means
// the statistics saw the aircraft on the stand n half hours before now; the search takes fit 0 for all
// stands, then fit 1, and so on, until enough stands are filled or MAX_FIT is passed.
//
// The search runs in steps, one per main-loop pass, each a slice of one fit's pass over the stands of some
// tens of thousands of statistics, so that even the largest airport never holds the 10 ms beat. Everything
// runs on the main-loop thread.

#include "base/run.h"
#include "base/week_slots.h"
#include "parking/stands.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// An aircraft waiting in creationQueue to be made.
struct StaticRequest {
  std::uint32_t liveHexid = 0; // the real aircraft it stands for; 0 for a statistic
  std::int32_t fit = 0;        // half hours
  std::string airline;
  std::string type;
  std::uint32_t standId = 0;
  std::string callsignIn;
  std::string callsignOut;
  std::string regcode;
  bool isRealParked = false; // false for a statistic
  bool staysNextHalfHour = false;
};

extern std::vector<StaticRequest> creationQueue; // the freshest at the end, made first
extern std::int32_t wantedStands;                // computeWanted's last answer

// Half wingspan of the type in nautical miles: its own, else its category's mean (NaN when unknown).
double aircraftRadius(std::string_view type);
// The stand takes an aircraft of radius r (nautical miles) up to 1.8 metres wider than itself and not much
// smaller; for fake options only.
bool standFits(const Stand& stand, double radius);
// The number of stands to fill at parking_percentage.
std::int32_t computeWanted();

// PARK_FAKE: one made-up soft option of the present half hour for every stand, chosen by the first letter of
// the airport code and the kind of stand. Never saved.
void addFakeOptions(std::vector<Stand>& stands, std::string_view airportCode, Slot now);

// The first calculation after the park airport opened, and the renewal every 20 minutes after. Both set
// calculating; stepStaticParking does the rest.
void startStaticParking();
void renewStaticParking();
// One step of a running calculation; false when none runs (any more).
bool stepStaticParking();
bool staticParkingRunning();
// The main loop's renewal: every 1,200 seconds it is asked for, and it runs in two steps of 15 seconds,
// the first letting the feed tell which callsigns fly.
void serveRenewal(std::int32_t secondCount);
// A live aircraft appeared on the stand: what waits to be parked there is given up.
void dropQueuedOn(std::uint32_t standId);
// The mean age of what is parked, live and static, in hours for the window.
void refreshFitAverages();
// The calculation given up and the queue emptied: nothing more is made.
void stopStaticParking();
// All of this file's state back to a fresh start.
void resetStaticParking();

} // namespace ory
