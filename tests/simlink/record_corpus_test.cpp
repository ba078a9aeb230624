// Every record the session reads, whole, cut short in the stream, and with a size field that lies about its
// length: nothing is read beyond a record (the address sanitizer build runs this too), and short data make no
// command.
#include "record_feed.h"
#include "wire_peer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace ory {
namespace {

using test::Bytes;

Bytes lf_payload(std::initializer_list<std::uint32_t> words, std::size_t padding = 0) {
  Bytes bytes;
  for (const std::uint32_t word : words)
    for (int i = 0; i < 4; ++i)
      bytes.push_back(static_cast<unsigned char>(word >> (8 * i)));
  bytes.insert(bytes.end(), padding, 0);
  return bytes;
}

Bytes lf_data(std::uint32_t recordId, std::uint32_t request, std::uint32_t object, std::size_t rawBlock) {
  Bytes block(rawBlock, 0);
  if (rawBlock >= 56) std::memcpy(block.data() + 24, "DLH4AB", 6);
  Bytes payload = lf_payload({request, object, 0, 0, 1, 1, 1});
  payload.insert(payload.end(), block.begin(), block.end());
  return test::serverRecord(recordId, payload);
}

// One of every record id the dispatch reads, each producing a command where it can.
std::vector<Bytes> lf_corpus() {
  return {
      test::openRecord("Lockheed Martin\xae Prepar3D\xae v5"),
      test::exceptionRecord(22, 7, 1),
      test::exceptionRecord(3, 7, 1),
      test::exceptionRecord(5, 1, 0),
      test::serverRecord(4, lf_payload({0xFFFFFFFF, 201, 1})),
      test::serverRecord(4, lf_payload({0xFFFFFFFF, 205, 0}, 4)),   // the longer shape
      test::serverRecord(6, lf_payload({0xFFFFFFFF, 206, 0}, 264)), // resets the user's state
      test::serverRecord(5, lf_payload({0xFFFFFFFF, 203, 42, 2})),
      test::serverRecord(5, lf_payload({0xFFFFFFFF, 202, 43, 2})),
      test::serverRecord(7, lf_payload({0xFFFFFFFF, 204, 0, 0x42280000, 0x3F800000})),
      lf_data(8, 102, 42, 16),
      lf_data(8, 106, 1, 40),
      lf_data(8, 107, 1, 32),
      lf_data(8, 108, 1, 8),
      lf_data(8, 109, 1, 96),
      lf_data(9, 101, 43, 56),
      lf_data(9, 101, 44, 56),
      test::serverRecord(12, lf_payload({104, 43})),
      test::serverRecord(10, lf_payload({1}, 5)),
      test::serverRecord(99, lf_payload({1, 2})),
      test::serverRecord(3, {}),
  };
}

class RecordCorpus : public ::testing::Test {
protected:
  void SetUp() override { test::prepareRecordFeed(); }
  bool feedExactly(const Bytes& bytes) {
    // A buffer of exactly this size, so the sanitizer sees any read past its end.
    const std::unique_ptr<unsigned char[]> exact(new unsigned char[bytes.size() + (bytes.empty() ? 1 : 0)]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    return test::feedRecords(exact.get(), bytes.size());
  }
};

// Every cut of the stream waits for more; the whole of it gives its commands.
TEST_F(RecordCorpus, EveryPrefixOfTheStreamIsSafeAndTheWholeGivesItsCommands) {
  Bytes stream;
  for (const Bytes& record : lf_corpus())
    stream.insert(stream.end(), record.begin(), record.end());
  for (std::size_t length = 0; length <= stream.size(); ++length)
    EXPECT_TRUE(feedExactly(Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(length))));
  // Removed 42, static data of 42, in range 44 (43 was just added and belongs to nobody).
  EXPECT_EQ(test::lastFeedCommands(), 3u);
}

TEST_F(RecordCorpus, ASizeFieldThatClaimsLessIsReadNoFurther) {
  for (const Bytes& record : lf_corpus()) {
    for (std::uint32_t size = 12; size < record.size(); ++size) {
      Bytes shorter(record.begin(), record.begin() + size);
      std::memcpy(shorter.data(), &size, 4);
      EXPECT_TRUE(feedExactly(shorter));
      const std::uint32_t id = test::u32At(record, 8);
      if (id == 8 || id == 9) {
        EXPECT_EQ(test::lastFeedCommands(), 0u) << "data record " << id << " cut to " << size << " bytes";
      }
    }
  }
}

TEST_F(RecordCorpus, SizeFieldsBelowTheHeaderOrAboveTheLimitEndTheStream) {
  for (const std::uint32_t size : {0u, 4u, 11u, 41089u, 0xFFFFFFFFu}) {
    Bytes record = test::serverRecord(3, {});
    std::memcpy(record.data(), &size, 4);
    EXPECT_FALSE(feedExactly(record)) << size;
  }
}

} // namespace
} // namespace ory
