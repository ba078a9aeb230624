#include "feed/inbox.h"

namespace ory {

std::mutex feedLock;
std::deque<TrafficRecord> trafficInbox;
bool queueOpen = false;

void setQueueOpen(bool OPEN) {
  std::lock_guard lock(feedLock);
  queueOpen = OPEN;
}

bool isQueueOpen() {
  std::lock_guard lock(feedLock);
  return queueOpen;
}

std::size_t takeTraffic(std::vector<TrafficRecord>& OUT, std::size_t MAX) {
  std::lock_guard lock(feedLock);
  std::size_t moved = 0;
  for (; moved < MAX && !trafficInbox.empty(); ++moved) {
    OUT.push_back(std::move(trafficInbox.front()));
    trafficInbox.pop_front();
  }
  return moved;
}

void clearTrafficInbox() {
  std::lock_guard lock(feedLock);
  trafficInbox.clear();
}

} // namespace ory
