// Every prefix of real lines and reports, and many damaged copies of them, through the parsers: nothing may
// crash, read beyond the datagram (under the address sanitizer) or queue an impossible record.
#include "base/parameters.h"
#include "feed/feed.h"
#include "feed/inbox.h"
#include "line_fuzz.h"
#include "support/scratch.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

namespace ory {
namespace {

std::vector<std::string> corpus(std::string_view extension) {
  std::vector<std::string> inputs;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(ORY_SOURCE_DIR) / "tests/feed/corpus"))
    if (entry.path().extension() == extension) inputs.push_back(test::readFile(entry.path()));
  return inputs;
}

const std::uint8_t* bytes(const std::string& text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

// Damage of the kinds a broken sender makes: characters replaced, dropped or doubled, fields cut.
std::string damaged(std::string text, std::mt19937& random) {
  static constexpr char palette[] = {',', '-', '.', '0', '9',  'n',    'a', 'i',
                                     'f', 'e', '@', ' ', '\0', '\xff', '"'};
  const int changes = 1 + static_cast<int>(random() % 4);
  for (int i = 0; i < changes && !text.empty(); ++i) {
    const std::size_t at = random() % text.size();
    switch (random() % 4) {
    case 0:
      text[at] = palette[random() % sizeof(palette)];
      break;
    case 1:
      text.erase(at, 1 + random() % 8);
      break;
    case 2:
      text.insert(at, text.substr(at, 1 + random() % 12));
      break;
    default:
      text.resize(at);
      break;
    }
  }
  return text;
}

class LineCorpusTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    setRange(1e6);
    setReaderUserPosition(47, 8);
    setReaderParkAirport(47.4581, 8.5481, 1416);
    setQueueOpen(true);
    resetFeed();
  }
  void TearDown() override {
    clearReaderParkAirport();
    setQueueOpen(false);
    clearTrafficInbox();
  }
};

TEST_F(LineCorpusTest, theRealLinesOfTheCorpusAreTaken) {
  std::size_t taken = 0;
  for (const std::string& line : corpus(".txt")) {
    trafficReader.line = line;
    trafficReader.processData();
    std::lock_guard lock(feedLock);
    taken += trafficInbox.size();
    trafficInbox.clear();
  }
  EXPECT_GE(taken, 4u) << "cruise, helicopter, taxi at the park airport, and the line ending in a comma";
}

TEST_F(LineCorpusTest, everyPrefixOfALineOrReport) {
  for (const std::string& line : corpus(".txt"))
    for (std::size_t size = 0; size <= line.size(); ++size)
      test::feedTrafficLine(bytes(line), size);
  for (const std::string& report : corpus(".json"))
    for (std::size_t size = 0; size <= report.size(); ++size)
      test::feedWeatherReport(bytes(report), size);
}

TEST_F(LineCorpusTest, damagedLinesAndReports) {
  std::mt19937 random(20250204);
  for (const std::string& line : corpus(".txt"))
    for (int round = 0; round < 20000; ++round) {
      const std::string input = damaged(line, random);
      test::feedTrafficLine(bytes(input), input.size());
    }
  for (const std::string& report : corpus(".json"))
    for (int round = 0; round < 5000; ++round) {
      const std::string input = damaged(report, random);
      test::feedWeatherReport(bytes(input), input.size());
    }
}

} // namespace
} // namespace ory
