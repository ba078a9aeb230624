#include "simlink/batches.h"

namespace ory {

std::mutex batchLock;
PositionBatch positionBatch;
std::vector<ObjectEvent> eventBatch;
std::vector<CreateRequest> createBatch;
std::vector<std::uint32_t> removeBatch;

std::mutex commandLock;
std::vector<SimCommand> simCommands;

void pushSimCommand(const SimCommand& COMMAND) {
  std::lock_guard lock(commandLock);
  simCommands.push_back(COMMAND);
}

void takeSimCommands(std::vector<SimCommand>& INTO) {
  std::lock_guard lock(commandLock);
  INTO.swap(simCommands);
}

void resetBatches() {
  {
    std::lock_guard lock(batchLock);
    positionBatch.engineHalf.clear();
    positionBatch.simulatorHalf.clear();
    eventBatch.clear();
    createBatch.clear();
    removeBatch.clear();
  }
  std::lock_guard lock(commandLock);
  simCommands.clear();
}

} // namespace ory
