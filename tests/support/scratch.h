#pragma once
// A scratch program folder per test: a fresh temporary directory that is the current directory and HOME (so
// %APPDATA% lies inside it), with the docs folder the program wants. Removed afterwards.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace ory::test {

class ScratchFolder {
public:
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::filesystem::path& path() const { return root; }

private:
  std::filesystem::path root;
  std::filesystem::path previousFolder;
  std::string previousHome;
};

// A fixture that runs every test in its own scratch folder.
class InScratchFolder : public ::testing::Test {
protected:
  ScratchFolder scratch;
};

std::string readFile(const std::filesystem::path& path);
void writeBytes(const std::filesystem::path& path, std::string_view bytes);
std::vector<std::string> fileLines(const std::filesystem::path& path);
// Log.txt as far as written; flushed first, so that the test can go on logging.
std::string logText();
bool logHas(std::string_view text);
// The value of parameter name in parameters.xml, "<absent>" when it has no element there.
std::string parameterInFile(std::string_view name);
std::filesystem::path realData(std::string_view relative); // a file of the shared real data
std::uint16_t freeTcpPort();                               // a loopback port nobody listens on just now
// Puts the data files dataprep made at build time (input/dbase.xml, input/fixes.xml, airports_p3d.xml) into
// the program folder folder.
void installPreparedData(const std::filesystem::path& folder);
// What an earlier run leaves in folder (also the HOME of the run): parameters.xml with the simulator's
// install path and the scans switched off, and a liveries file, so that a start goes straight on to the
// simulator.
void presetEarlierRun(const std::filesystem::path& folder, std::string_view installPath);
// An earlier run as above, the prepared data, RealTraffic installed, and parameters.xml naming a free port
// for its link, followed by the parameter lines of extra; the port.
std::uint16_t presetRealTrafficRun(const std::filesystem::path& folder, std::string_view extra = {});

} // namespace ory::test
