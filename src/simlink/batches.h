#pragma once
// What the engine hands to the simulator thread, and what comes back. The engine fills the batches under the
// batch lock; the simulator thread sends them at its next "Frame" (sendBatches). Everything the simulator
// tells about aircraft comes back as a SimCommand under the command lock. Neither side ever waits long for
// the other: the sections under both locks are a few pushes long.

#include "simlink/frame_clock.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// One aircraft's position block, as data definition 402 lays it out, and the object it goes to.
struct ObjectPosition {
  double lat = 0;           // degrees
  double lon = 0;           // degrees
  double pitch = 0;         // radians, negative nose up
  double bank = 0;          // radians
  double heading = 0;       // radians true, 0 to 2 pi
  double altitude = 0;      // feet
  double verticalSpeed = 0; // feet per second
  double tas = 0;           // knots, true airspeed
  std::uint32_t objectId = 0;
  double latRate = 0; // degrees per second over the last tick, to place the block at a frame's own time
  double lonRate = 0; // degrees per second, the short way round
};

// An object to create: the simulator's init position and who it is.
struct CreateRequest {
  double lat = 0;      // degrees
  double lon = 0;      // degrees
  double altitude = 0; // feet
  double pitch = 0;    // degrees, negative nose up
  double bank = 0;     // degrees
  double heading = 0;  // degrees true
  bool onGround = false;
  std::string callsign;         // the tail number; it comes back as "ATC ID"
  std::string_view liveryTitle; // a view into the livery table, which outlives every aircraft
  std::uint32_t hexid = 0;      // up to 10000 for a parked aircraft
};

// A client event for one object: lights, gear, flaps, spoilers, throttle, engines, freezes.
struct ObjectEvent {
  std::uint32_t objectId = 0;
  std::uint32_t eventId = 0; // 207 to 223
  std::uint32_t data = 0;
};

// The spoilers handle and both throttle levers of an object's model (data definition 401), in percent.
struct ModelControls {
  std::uint32_t objectId = 0;
  double spoilers = 0; // percent
  double throttle = 0; // percent, negative for reverse; both levers
};

// The message from the simulator thread to the engine; the codes are those of the dispatch (session.h).
struct SimCommand {
  std::uint32_t objectId = 0;
  std::uint32_t value = 0;
  std::uint32_t reserved = 0;
  std::uint32_t code = 0;
  double a = 0;
  double b = 0;
};

enum SimCommandCode : std::uint32_t {
  commandLiveAdded = 0, // a new object's "ATC ID" named a live aircraft: value hexid, b altitude above ground
  commandParkedAdded = 1, // the same for a parked aircraft: value hexid up to 10000
  commandRemoved = 2,     // "ObjectRemoved" of an aircraft
  commandInRange = 3,     // value "SIM ON GROUND", a "Ground Altitude", b "Plane Alt Above Ground"
  commandGeometry = 4,    // a static CG (feet), b static pitch (radians)
  commandBlocked = 5,     // sent by nobody; the engine's handling stands ready
  commandNotCreated = 6,  // the simulator refused a create: value hexid
};

// The two halves of the position batch: the engine fills its own and swaps it, under the batch lock, with the
// simulator's, which sendBatches empties.
struct PositionBatch {
  std::vector<ObjectPosition> engineHalf;    // the engine's alone
  std::vector<ObjectPosition> simulatorHalf; // under the batch lock
  SteadyTime simulatorTime{}; // the tick that filled the simulator's half, under the batch lock
};

extern std::mutex batchLock;
extern PositionBatch positionBatch;
extern std::vector<ObjectEvent> eventBatch;      // under the batch lock
extern std::vector<CreateRequest> createBatch;   // under the batch lock
extern std::vector<std::uint32_t> removeBatch;   // object ids, under the batch lock
extern std::vector<ModelControls> controlsBatch; // under the batch lock

extern std::mutex commandLock;
extern std::vector<SimCommand> simCommands; // under the command lock; pushed here, drained by the engine

void pushSimCommand(const SimCommand& command);
// Swaps simCommands with into (which should be empty) under the command lock: the engine drains its copy.
void takeSimCommands(std::vector<SimCommand>& into);
// All batches and commands emptied, as at the start of a run.
void resetBatches();
// What waits for objects that the simulator took away: everything but the engine's half of the position
// batch, which only the engine touches.
void dropSimulatorBatches();

} // namespace ory
