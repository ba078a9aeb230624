#pragma once
// What the simulator might send, fed straight through the client's reassembly and record checks into the
// session's dispatch, as the simulator thread would get it: for the fuzz target and the corpus test.

#include <cstddef>

namespace ory::test {

// Prepares the session for feeding: no exits, a known user object.
void prepareRecordFeed();
// Feeds bytes; a UserErrorException of the dispatch is caught as the simulator thread catches it. False when
// the stream can't be framed any further. Leaves the batches and commands empty again.
bool feedRecords(const unsigned char* bytes, std::size_t size);
// Commands the last feed produced, before they were thrown away.
std::size_t lastFeedCommands();

} // namespace ory::test
