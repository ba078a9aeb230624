#pragma once
// The user's aircraft as the simulator reports it. The simulator thread writes the raw block from the data
// answers; the engine (and the traffic link) take a copy of it in one go, once a second, with
// readUserAircraft.

#include "simlink/simconnect/simconnect.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace ory {

// The raw data of definition 403, in its order.
struct UserAircraft {
  double lat = 0;                 // degrees; 0 to 0.0009 with lon 0 to 0.05 means no position yet
  double lon = 0;                 // degrees
  double pitch = 0;               // radians, negative nose up
  double bank = 0;                // radians
  double heading = 0;             // radians true
  double altitude = 0;            // feet above sea level, never negative
  double aboveGround = 0;         // feet
  double groundSpeed = 0;         // knots
  std::int64_t zuluTime = 0;      // seconds of the UTC day
  std::int64_t zuluDayOfYear = 0; // 1 to 366
  std::int64_t zuluYear = 0;
  std::int64_t lightStates = 0; // bit mask of the lights
};

UserAircraft readUserAircraft();                  // a copy of the raw block
void writeUserAircraft(const UserAircraft& user); // the simulator thread's answer 109, and resets
extern std::atomic<std::uint32_t> userObjectId;   // the object id of the user's aircraft, 0 while unknown
extern std::atomic<bool> userOnGround;            // "SIM ON GROUND" of the user's aircraft
extern std::atomic<bool> userOnGroundKnown;       // userOnGround holds a report of a known position
std::string userTitle();                          // "TITLE", empty while unknown
std::string userModel();                  // the type from "ATC MODEL" (or the title), empty while unknown
std::optional<double> userHalfWingSpan(); // nautical miles, from the model answer; empty before it
std::uint32_t userCategory();             // of the user's type, numbered as an aircraft's category

// The engine's copy of the user block, replaced by the raw one once a second (userSecondWork). Only the main
// loop's thread writes and reads it; after a reset it is zero from the next second on.
const UserAircraft& engineUser();
// The engine tick's work once a second: ask for the user's position, tell RealTraffic where the user is
// ("Qs121"), and take the raw block as the engine's copy.
void userSecondWork();

// The requests about the user; each takes the batch lock, and a failure counts in reportRequestError.
void requestUserOnGround(); // 108, every simulator second: it paces the program's slow beat
void requestUserPosition(); // 109, once
void requestUserIdentity(); // 106 and 107, once
void requestRange(std::uint32_t radiusMetres); // 101, every aircraft within the radius, once

// The data answers of requests 106 to 109 (the dispatch hands them over).
void onUserTitle(const SIMCONNECT_RECV_SIMOBJECT_DATA* data);
void onUserModel(const SIMCONNECT_RECV_SIMOBJECT_DATA* data);
void onUserOnGround(const SIMCONNECT_RECV_SIMOBJECT_DATA* data);
void onUserPosition(const SIMCONNECT_RECV_SIMOBJECT_DATA* data);

// The state reset on "FlightLoaded", a new file, and when the simulator thread ends: the user's block, the
// batches and commands of objects the simulator took away (nothing is removed), QNH 1013, the range from
// LATERAL_RANGE, the simulator's version; and whatever the other subsystems registered with onUserStateReset
// (their queues, tables and park airport).
void userStateReset();
void onUserStateReset(void (*reset)());

} // namespace ory
