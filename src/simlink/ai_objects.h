#pragma once
// The simulator thread's side of AI objects: creation, removal, and the freeze that takes a new object out of
// the simulator's own physics. Called from sendBatches and the dispatch, never from the engine.

#include "simlink/batches.h"

#include <cstdint>

namespace ory {

// AICreateNonATCAircraft, and a PendingCreate that binds the coming object to request's aircraft.
void createObject(const CreateRequest& request);
// AIRemoveObject; the user's aircraft and anything at or below its id is refused.
void removeObject(std::uint32_t objectId);
// Releases the object from AI control at once, and queues the three freezes for the next frame.
void freezeObject(std::uint32_t objectId);

} // namespace ory
