#include "record_feed.h"

#include "base/exceptions.h"
#include "base/run.h"
#include "simlink/batches.h"
#include "simlink/session.h"
#include "simlink/simconnect/wire.h"
#include "simlink/user_aircraft.h"

#include <vector>

namespace ory::test {

namespace {
std::size_t lf_commands = 0;
} // namespace

void prepareRecordFeed() {
  exiting = true; // a restart or stop the records ask for is not started
  resetSimLink();
  userStateReset();
  userObjectId = 1;
}

bool feedRecords(const unsigned char* bytes, std::size_t size) {
  RecordStream stream;
  stream.maxSize = 41088;
  appendBytes(stream, bytes, size);
  bool framed = true;
  for (;;) {
    const TakenRecord taken = takeRecord(stream);
    if (taken.status == TakeStatus::needMore) break;
    if (taken.status == TakeStatus::badSize) {
      framed = false;
      break;
    }
    if (checkRecord(taken.data, taken.size) != RecordVerdict::deliver) continue;
    // The record alone in a buffer of its own size, so that a read beyond it trips the address sanitizer.
    const std::vector<unsigned char> record(taken.data, taken.data + taken.size);
    try {
      simDispatch(reinterpret_cast<const SIMCONNECT_RECV*>(record.data()), taken.size, nullptr);
    } catch (const UserErrorException&) {
    }
  }
  std::vector<SimCommand> commands;
  takeSimCommands(commands);
  lf_commands = commands.size();
  resetSimLink();
  userObjectId = 1;
  return framed;
}

std::size_t lastFeedCommands() {
  return lf_commands;
}

} // namespace ory::test
