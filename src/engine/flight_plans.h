#pragma once
// Small flight plan files for objects whose feed names both airports, so that the simulator's ATC displays
// and add-ons can show where they fly. The plan only informs: the engine still moves the object. The files
// are throwaway, one per object, in a folder of their own. Main loop's thread.

#include "engine/aircraft.h"

#include <filesystem>

namespace ory {

// %APPDATA%\Trovalyn_P3D\orig_dest
std::filesystem::path flightPlanFolder();
// The plan of the aircraft at path; false when it can't be written.
bool writeFlightPlan(const std::filesystem::path& path, const LiveAircraft& aircraft);
// A plan for the aircraft's new object, when origin and destination are both known.
void planFor(LiveAircraft& aircraft);
// The aircraft's plan file goes with its object; a file system failure is thrown as filesystem_error.
void deletePlan(LiveAircraft& aircraft);
// The folder and everything in it; at the end of the program and before a start.
void gf_removeFlightPlanFolder();
// An empty folder for the plans of a new run.
void prepareFlightPlanFolder();
// Once a day: plan files that no live object holds any more go.
void flightPlanBookkeeping();

} // namespace ory
