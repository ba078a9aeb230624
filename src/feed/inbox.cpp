#include "feed/inbox.h"

namespace ory {

std::mutex feedLock;
std::deque<TrafficRecord> trafficInbox;
bool queueOpen = false;

void setQueueOpen(bool open) {
  std::lock_guard lock(feedLock);
  queueOpen = open;
}

bool isQueueOpen() {
  std::lock_guard lock(feedLock);
  return queueOpen;
}

std::size_t takeTraffic(std::vector<TrafficRecord>& out, std::size_t max) {
  std::lock_guard lock(feedLock);
  std::size_t moved = 0;
  for (; moved < max && !trafficInbox.empty(); ++moved) {
    out.push_back(std::move(trafficInbox.front()));
    trafficInbox.pop_front();
  }
  return moved;
}

void clearTrafficInbox() {
  std::lock_guard lock(feedLock);
  trafficInbox.clear();
}

} // namespace ory
