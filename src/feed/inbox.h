#pragma once
// The hand-over of traffic records from the traffic reader to the engine, under the feed lock. The feed lock
// is never held while the batch lock or the command lock is taken.

#include "feed/traffic_record.h"

#include <cstddef>
#include <deque>
#include <mutex>
#include <vector>

namespace ory {

extern std::mutex feedLock;
extern std::deque<TrafficRecord> trafficInbox; // under feedLock: the reader pushes at the back
extern bool queueOpen;                         // under feedLock: records may be queued

void setQueueOpen(bool open); // takes the feed lock
bool isQueueOpen();           // takes the feed lock
// Moves up to max records from the front of the inbox to the back of out; gives the number moved.
std::size_t takeTraffic(std::vector<TrafficRecord>& out, std::size_t max);
void clearTrafficInbox();

} // namespace ory
