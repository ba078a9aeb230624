#pragma once
// The engine's records: every aircraft in the simulator is a ParkedAircraft; a real aircraft of the feed is a
// LiveAircraft, which adds its position block, its queue of future positions and the state of its movement.
// Plain records, kept by value, changed by free functions on the main loop's thread.

#include "feed/traffic_record.h"

#include <cmath>
#include <cstdint>
#include <deque>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace ory {

inline constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

// What every aircraft in the simulator has, parked or live.
struct ParkedAircraft {
  std::string airline;            // ICAO operator code; "PVT" for a private aircraft
  std::string type;               // ICAO type designator
  std::string origin;             // airport code, may be empty
  std::string destination;        // airport code, may be empty
  std::string callsign;           // a trailing '_' marks a ghost; at most 8 characters when created
  std::string callsignIn;         // the callsign pair of the stand couple this aircraft stands for
  std::string callsignOut;        //
  std::string regcode;            // registration, may be empty
  bool coupleSearched = false;    // the search for a coupled callsign has run
  std::uint32_t category = 0;     // 0 light, 1 to 3 transport sizes, 4 high performance, 5 helicopter
  bool cargo = false;             // aircraft of a cargo operator
  bool fsltlLivery = false;       // the livery's title holds "FSLTL_": reverse thrust on the landing roll
  double halfWingSpan = 0;        // nautical miles
  double staticCG = 0;            // feet, the model's "Static CG to Ground"
  double groundPitch = 0;         // radians, the model's "Static Pitch"
  double rotatePitch = 0;         // radians, at the end of the rotation
  double climbPitch = 0;          // radians, of the initial climb
  double groundTurnRate = 0;      // radians per tick
  double turnRate = 0;            // radians per tick, in force on the current ground segment
  double climbRate = 0;           // feet per tick
  double pushBackSpeed = 0;       // knots
  std::uint32_t hexid = 0;        // the key; up to 10000 a made-up id of a static parked aircraft
  std::int32_t flareSlots = 0;    // ticks of the flare
  std::int32_t onGroundSlots = 0; // ticks of the derotation
  std::int32_t rotateSlots = 0;   // ticks of the rotation
  std::int32_t climbSlots = 0;    // ticks of the climb-out pitch change
  std::string_view liveryTitle;   // into the livery table, which outlives every aircraft; empty until a match
  std::uint32_t objectId = 0;     // the simulator's object; 0 while there is none
  double standLat = 0;            // degrees, the reserved stand
  double standLon = 0;            // degrees
  double standHeading = 0;        // radians
  std::uint32_t arrivalTime = 0;  // weekday 1 to 7 in the low half, half hour 0 to 47 in the high half
  std::uint32_t liveHexid = 0;    // a parked aircraft: the real aircraft it stands for
  std::uint32_t standId = 0;      // 0 means no stand
  std::uint32_t state = 0;        // AircraftState
  std::uint32_t throttleState = 5; // throttle step 0 to 4 last sent, 5 unknown
  std::uint32_t flapsState = 4;    // flaps step 0 to 4 last sent
  bool onCargoStand = false;       // the reserved stand is a cargo stand
  bool isRealParked = false;       // parked aircraft created for a real aircraft on the stand
  bool removeOnCreated = false;    // removed as soon as its object exists
};

// NOLINTBEGIN(readability-identifier-naming): the states and phases keep their names from the log and docs.
enum AircraftState : std::uint32_t {
  Buffered = 0, // positions collect, no object
  Creating = 1, // a create is under way
  Alive = 2,    // flown by the engine
  Renewing = 3, // the old object goes, a new one follows
  Removing = 4, // the object goes, then the record
};

enum Phase : std::uint32_t {
  PushBack = 0,
  Waiting = 1, // after the push back, engines running
  Taxi = 2,
  TakeOff = 3,
  Airborne = 4,
  ToStand = 5,
  Parked = 6,
  New = 7, // no decision yet; Buffered only
};
// NOLINTEND(readability-identifier-naming)

inline constexpr std::uint32_t categoryHelicopter = 5;

// A real aircraft of the feed.
struct LiveAircraft : ParkedAircraft {
  // The position block, in the order of the simulator's position data.
  double lat = 0;           // degrees
  double lon = 0;           // degrees
  double pitch = 0;         // radians, negative nose up
  double bank = 0;          // radians
  double heading = 0;       // radians, 0 to 2 pi
  double altitude = 0;      // feet
  double verticalSpeed = 0; // feet per second
  double tas = 0;           // knots

  std::deque<PositionSlot> slots;  // the front is being left, the second is flown to
  double lastTimestamp = 0;        // seconds since 1970, of the last accepted record
  double lastCheckLat = 0;         // degrees, at the last test against parked aircraft
  double lastCheckLon = 0;         // degrees
  std::int64_t parkedSince = 0;    // steady clock milliseconds at the last sign of life on the stand
  std::int32_t predictedSlots = 0; // 0 normal; above 0 dead-reckoned segments still allowed; -1 none left
  std::uint32_t phase = New;
  std::uint32_t previousPhase = New;
  bool toDelete = false;          // dropped at the end of this tick, nothing sent to the simulator
  bool standConfirmed = false;    // parked and feed positions seen at the stand
  bool onGround = false;          // as the engine flies it
  bool hasFlightPlan = false;     // a flight plan file went to this object
  bool heldBack = false;          // creation delayed for the user's sake
  bool recreated = false;         // the object replaces one of an older livery
  double deltaLat = 0;            // degrees per tick along the current segment
  double deltaLon = 0;            // degrees per tick
  double deltaPitch = 0;          // radians per tick
  double deltaBank = 0;           // radians per tick
  double deltaHeading = 0;        // radians per tick
  double deltaAltitude = 0;       // feet per tick
  double targetVerticalSpeed = 0; // feet per minute
  double targetTas = 0;           // knots, negative in a push back

  // The ground curve: a quadratic Bezier from the origin (0, 0) over the control point to the end.
  double curveOriginLat = notANumber;    // degrees, the position at set-up
  double curveOriginLon = notANumber;    // degrees
  double curveStart = 0;                 // always 0
  double curveEndNorth = notANumber;     // metres from the origin
  double curveEndEast = notANumber;      // metres
  double curveEnd = 1;                   // always 1
  double curveControlEast = notANumber;  // metres; not a number: no curve
  double curveControlNorth = notANumber; // metres
  double curveT = notANumber;            // 0 to 0.999999 along the curve
  double curveStep = notANumber;         // share of the curve's length covered per tick
  double curveLength = 0;                // metres along the curve
  double curveAngle = notANumber;        // radians of turn the curve was chosen for

  PositionSlot secondLeg;                 // held second leg of a push back
  double lastStandSearchLat = 0;          // degrees, the last arrival search
  double lastStandSearchLon = 0;          // degrees
  std::int32_t earlyWindow = 1000;        // ticks the second slot's time may move earlier
  std::int32_t lateWindow = 1000;         // ticks it may move later
  std::int32_t pushBackStage = 0;         // 2 first leg, 1 second leg, 0 done
  std::int32_t countDown = 1;             // on the runway the tick counter of take-off and landing
  std::int32_t driftCount = 0;            // times a parked feed position moved further from the stand
  double targetHeading = 0;               // radians
  double altitudeAboveGround = 2500;      // feet, from the simulator
  double radioHeight = 0;                 // feet, approach height over the airport
  double landingHeading = 0;              // radians, at touch down
  double departMinDistance = 0;           // nautical miles, 900 after a push back
  double driftFirst = 0;                  // nautical miles from the stand while parked, first
  double driftLast = 0;                   // nautical miles, last
  double curveAngleLeft = 0;              // degrees of turn still to do on the current curve
  std::optional<double> keptHeading;      // radians, carried over a renewal
  bool pushBackSide = false;              // which way the tail swings
  bool pushBackSideKnown = false;         //
  std::optional<double> airportElevation; // feet, the flare's height reference
  std::int32_t flareStage = 0;            // 0 none, 1 to 4
  bool approaching = false;               // descending to an airport, within 10 nautical miles
  bool justLanded = false;                // touched down; decides on a tow later
  bool towed = false;                     // moved by a tug
  bool climbing = false;                  // the climb configuration has been set once
  bool departing = false;                 // left the stand area for the runway, or in the air
  bool highLightsSet = false;             // the lights of the passage through 10000 feet, upward
  bool lowLightsSet = false;              // and downward
  bool derotating = false;                // after touch down, pitch still going to groundPitch
  bool rollOut = false;                   // on the landing roll
  bool startMoving = false;               // the feed shows the parked aircraft leaving the stand
  bool curveHeadingSlew = false;          // no curve on this segment: the heading slews to the next bearing
};

inline bool hasCurve(const LiveAircraft& aircraft) {
  return !std::isnan(aircraft.curveControlEast) && !std::isnan(aircraft.curveControlNorth);
}

// A phase change keeps the phase before it.
inline void setPhase(LiveAircraft& aircraft, std::uint32_t phase) {
  aircraft.previousPhase = aircraft.phase;
  aircraft.phase = phase;
}

// The windows of retiming sink by 100 ticks, to 1000 at the least.
inline void narrowWindows(LiveAircraft& aircraft) {
  aircraft.earlyWindow = aircraft.earlyWindow > 1100 ? aircraft.earlyWindow - 100 : 1000;
  aircraft.lateWindow = aircraft.lateWindow > 1100 ? aircraft.lateWindow - 100 : 1000;
}

} // namespace ory
