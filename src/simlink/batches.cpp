#include "simlink/batches.h"

namespace ory {

std::mutex batchLock;
PositionBatch positionBatch;
std::vector<ObjectEvent> eventBatch;
std::vector<CreateRequest> createBatch;
std::vector<std::uint32_t> removeBatch;

std::mutex commandLock;
std::vector<SimCommand> simCommands;

void pushSimCommand(const SimCommand& command) {
  std::lock_guard lock(commandLock);
  simCommands.push_back(command);
}

void takeSimCommands(std::vector<SimCommand>& into) {
  std::lock_guard lock(commandLock);
  into.swap(simCommands);
}

void resetBatches() {
  {
    std::lock_guard lock(batchLock);
    positionBatch.engineHalf.clear();
  }
  dropSimulatorBatches();
}

void dropSimulatorBatches() {
  {
    std::lock_guard lock(batchLock);
    positionBatch.simulatorHalf.clear();
    eventBatch.clear();
    createBatch.clear();
    removeBatch.clear();
  }
  std::lock_guard lock(commandLock);
  simCommands.clear();
}

} // namespace ory
