#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/paths.h"
#include "base/version.h"
#include "liveries/dbase.h"
#include "support/process.h"
#include "support/scratch.h"
#include "updates/download.h"
#include "updates/server_paths.h"
#include "updates/updates.h"
#include "updates/zip_file.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <memory>
#include <optional>
#include <random>

namespace ory {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr std::string_view installerBytes = "MZ\x90 the installer of version 9.0.0, as the release packs it";

// The update server's files, made once by `dataprep serve-tree` from the real data: data version 2.0.0,
// program version 9.0.0 with its installer.
fs::path servedRoot; // the suite's own folder below the system's temporary one
fs::path servedBase; // the served tree in it

// The update server on loopback, over a copy of the served files that the test may change.
class UpdateServer {
public:
  explicit UpdateServer(const std::vector<std::string>& cutPaths = {}) {
    fs::copy(servedBase, tree, fs::copy_options::recursive);
    std::vector<std::string> arguments{ORY_SERVE_SCRIPT, tree.string()};
    for (const std::string& path : cutPaths)
      arguments.insert(arguments.end(), {"--cut", path});
    process = std::make_unique<test::ChildProcess>("/usr/bin/python3", arguments, ".", fs::current_path(),
                                                   "server.out");
    EXPECT_TRUE(test::eventually([] { return !test::fileLines("server.out").empty(); }, 10s));
    url = "http://127.0.0.1:" + test::fileLines("server.out").at(0);
  }
  fs::path served(std::string_view serverPath) const { return tree / fs::path(serverPath.substr(1)); }
  void offer(std::string_view versionPath, std::string_view text) const {
    test::writeBytes(served(versionPath), text);
  }

  const fs::path tree = "server";
  std::string url;

private:
  std::unique_ptr<test::ChildProcess> process;
};

class UpdatesTest : public test::InScratchFolder {
protected:
  static void SetUpTestSuite() {
    // Each test runs in a process of its own, several at once: each serves a tree of its own.
    servedRoot = fs::temp_directory_path() / fmt::format("trovalyn-served-{:x}", std::random_device()());
    servedBase = servedRoot / "tree";
    fs::create_directories(servedRoot);
    test::writeBytes(servedRoot / "install.exe", installerBytes);
    test::ChildProcess dataprep(DATAPREP_PROGRAM,
                                {"serve-tree", servedBase.string(), "--registrations",
                                 test::realData("adsb/sample_hex_registry_subset.csv").string(), "--version",
                                 "2.0.0", "--program-version", "9.0.0", "--installer",
                                 (servedRoot / "install.exe").string()},
                                servedRoot, servedRoot, servedRoot / "dataprep.out");
    // Minutes, for the sanitizer builds on a loaded machine.
    ASSERT_EQ(dataprep.waitExit(300s), 0) << test::readFile(servedRoot / "dataprep.out");
  }
  // Only the suite's own folder goes, whatever failed before.
  static void TearDownTestSuite() {
    if (!servedRoot.empty()) fs::remove_all(servedRoot);
  }

  void SetUp() override {
    openLog();
    loadParameters();
    PROGRAM_INSTALL_PATH.value = fs::current_path().string();
  }
  void TearDown() override {
    closeLog();
    clearDbase();
  }

  // Nothing of a download is left in the working folder or beside a target.
  static void expectNoWorkingFiles() {
    for (const auto& entry : fs::recursive_directory_iterator(".")) {
      const std::string name = entry.path().filename().string();
      if (entry.path().string().starts_with("./server")) continue;
      EXPECT_FALSE(name.ends_with(".part") || name.ends_with(".saving") || name == "version.json" ||
                   name.ends_with(".zip"))
          << entry.path();
    }
  }
};

std::string lf_shownMessage() {
  const std::lock_guard hold(windowTextLock);
  return display.messageText;
}

// Version texts: three numbers, or the JSON of version.json; anything else is refused.
TEST(Versions, textsAndJson) {
  struct Case {
    std::string_view text;
    std::optional<Version> expected; // nothing: refused
  };
  const Case cases[] = {
      {"1.2.3", Version{1, 2, 3}},
      {"10.0.0", Version{10, 0, 0}},
      {"", Version{}},
      {R"({"major": 2, "minor": 0, "patch": 7})", Version{2, 0, 7}},
      {"1.2", std::nullopt},
      {"1x2x3", std::nullopt},
      {"garbage", std::nullopt},
      {R"({"major": 2, "minor": 0})", std::nullopt},
      {"99999999999.0.0", std::nullopt},
  };
  for (const Case& c : cases) {
    if (c.expected) {
      EXPECT_EQ(parseVersion(c.text), *c.expected) << c.text;
    } else {
      EXPECT_ANY_THROW(parseVersion(c.text)) << c.text;
      EXPECT_EQ(versionOrZero(c.text), Version{}) << c.text;
    }
  }
  EXPECT_LT(parseVersion("8.8.0"), parseVersion("10.0.0")); // by number, not by text
}

// A fresh installation gets every item, and the same versions again bring nothing; a deleted file or archive
// folder is fetched again.
TEST_F(UpdatesTest, aFreshInstallGetsEverythingOnceAndWhatGoesMissingAgain) {
  const UpdateServer server;
  server.offer(programVersionPath, R"({"major": 8, "minor": 8, "patch": 0})"); // this program's own

  checkDataAtStart(server.url);
  ASSERT_TRUE(readDbase());
  checkDataOfTheDay(server.url);

  EXPECT_EQ(test::readFile(dbaseFile), test::readFile(server.served(dbasePayloadPath)));
  EXPECT_EQ(test::readFile(aigRegcodesFile), test::readFile(server.served(regcodesPayloadPath)));
  EXPECT_NE(test::readFile(archiveFolder / "stock/KTST.xml").find("Testfield Regional"), std::string::npos);
  EXPECT_TRUE(fs::exists(archiveFolder / "ORBX/LEAR.xml"));
  EXPECT_TRUE(fs::exists(archiveFolder / "thirdparty/ARV187/LEAB.xml"));
  for (std::string_view doc : archiveDocs)
    EXPECT_EQ(test::readFile(docsFolder / doc), test::readFile(server.served(docsPath) / doc));
  EXPECT_EQ(DBASE_VERSION.value, "2.0.0");
  EXPECT_EQ(AIG_VERSION.value, "2.0.0");
  EXPECT_EQ(ARCHIVE_VERSION.value, "2.0.0");
  EXPECT_TRUE(SCAN_AIRPORTS.value) << "a new archive asks for a scan";
  EXPECT_EQ(DATA_CHECKED_AT_DATE.value, checkDateText(std::time(nullptr)));
  EXPECT_FALSE(fs::exists(installNewVersionFile));
  const std::string log = test::logText();
  EXPECT_NE(log.find("archive.zip extracted 3 files"), std::string::npos) << log;
  EXPECT_NE(log.find("Archive has been updated to version 2.0.0"), std::string::npos);
  EXPECT_NE(log.find("P3D_archive.csv downloaded"), std::string::npos);
  EXPECT_EQ(log.find(warningPrefix), std::string::npos) << log;
  expectNoWorkingFiles();

  // The same versions: nothing comes, even when the server's files changed.
  const std::string laterEdition = test::readFile(dbaseFile) + "<!-- a later edition -->\n";
  test::writeBytes(server.served(dbasePayloadPath), laterEdition);
  test::writeBytes(server.served(archivePayloadPath), "not a zip");
  checkDataAtStart(server.url);
  checkDataOfTheDay(server.url);
  checkDbase(server.url);
  EXPECT_FALSE(checkArchive(server.url));
  EXPECT_NE(test::readFile(dbaseFile), laterEdition);
  EXPECT_EQ(newVersionsText(server.url), "");
  checkVersionNow(server.url);
  EXPECT_EQ(lf_shownMessage(), "Trovalyn_P3D is up to date");

  // A deleted file is fetched again at once, the version being the same; so is a deleted archive folder.
  fs::remove(dbaseFile);
  checkDbase(server.url);
  EXPECT_EQ(test::readFile(dbaseFile), laterEdition);
  fs::remove_all(archiveFolder / "ORBX");
  test::writeBytes(server.served(archivePayloadPath),
                   test::readFile(servedBase / archivePayloadPath.substr(1)));
  EXPECT_TRUE(archiveFoldersMissing());
  EXPECT_TRUE(checkArchive(server.url));
  EXPECT_TRUE(fs::exists(archiveFolder / "ORBX/LEAR.xml"));

  // A newer version that is no database (XML, but without its sections) is refused.
  server.offer(dbaseVersionPath, "2.0.1");
  test::writeBytes(server.served(dbasePayloadPath), "<dbase/>");
  checkDbase(server.url);
  EXPECT_EQ(test::readFile(dbaseFile), laterEdition);
  EXPECT_EQ(DBASE_VERSION.value, "2.0.0");
  EXPECT_TRUE(test::logHas("/downloads/dbase/dbase.xml\" => \"input/dbase.xml\" is not a valid file"));

  server.offer(archiveVersionPath, R"({"major": 3, "minor": 0, "patch": 0})");
  EXPECT_EQ(newVersionsText(server.url), "==> New versions for: dbase.xml, archive");
  checkVersionNow(server.url);
  EXPECT_EQ(lf_shownMessage(), "==> New versions for: dbase.xml, archive  ( exit Trovalyn_P3D and restart )");
  EXPECT_EQ(DATA_CHECKED_AT_DATE.value, "") << "the next start downloads them";
}

// A server that is out of reach, or says what is no version, costs warnings; the start goes on with what it
// has.
TEST_F(UpdatesTest, aServerOutOfReachCostsWarningsOnly) {
  DBASE_VERSION.value = "1.0.0";
  test::writeBytes(dbaseFile, "<old/>");
  checkDataAtStart("http://127.0.0.1:1");
  EXPECT_FALSE(checkArchive("http://127.0.0.1:1"));
  EXPECT_NO_THROW(checkDataOfTheDay("http://127.0.0.1:1"));
  EXPECT_EQ(test::readFile(dbaseFile), "<old/>");
  EXPECT_EQ(DBASE_VERSION.value, "1.0.0");
  for (std::string_view warning :
       {"No AIG regcodes version info found at the Trovalyn server?",
        "No dbase version info found at the Trovalyn server?", "Program Version file not found?",
        "No archive version info found at the Trovalyn server?",
        "downloading \"http://127.0.0.1:1/downloads/dbase/version.json\" failed"})
    EXPECT_TRUE(test::logHas(fmt::format("{}{}", warningPrefix, warning))) << warning;

  const UpdateServer server;
  server.offer(dbaseVersionPath, "1.2");
  checkDbase(server.url);
  EXPECT_TRUE(test::logHas("\"" + server.url + "/downloads/dbase/version.json\" holds no version"));
  EXPECT_EQ(test::readFile(dbaseFile), "<old/>");
  expectNoWorkingFiles();
}

// A download that is cut off, answered with an error, or not what it should be, leaves the old file and its
// version.
TEST_F(UpdatesTest, aBrokenDownloadLeavesTheOldFile) {
  const UpdateServer server({std::string(dbasePayloadPath), std::string(archivePayloadPath)});
  test::writeBytes(dbaseFile, "<old/>");
  test::writeBytes(aigRegcodesFile, "<old/>");
  DBASE_VERSION.value = "1.0.0";
  AIG_VERSION.value = "1.0.0";
  ARCHIVE_VERSION.value = "1.0.0";

  checkDbase(server.url); // the connection closes half-way
  EXPECT_TRUE(test::logHas("downloading dbase.xml failed?"));
  fs::remove(server.served(regcodesPayloadPath)); // 404
  checkRegcodes(server.url);
  test::writeBytes(server.served(regcodesPayloadPath), "<html><body>Maintenance</body>"); // no XML
  checkRegcodes(server.url);
  EXPECT_TRUE(test::logHas("is not a valid file, left out"));
  EXPECT_FALSE(checkArchive(server.url));
  EXPECT_TRUE(test::logHas("Downloading archive files version 2.0.0 failed"));

  EXPECT_EQ(test::readFile(dbaseFile), "<old/>");
  EXPECT_EQ(test::readFile(aigRegcodesFile), "<old/>");
  EXPECT_EQ(DBASE_VERSION.value, "1.0.0");
  EXPECT_EQ(AIG_VERSION.value, "1.0.0");
  EXPECT_EQ(ARCHIVE_VERSION.value, "1.0.0");
  EXPECT_FALSE(fs::exists(archiveFolder / stockWord));
  expectNoWorkingFiles();
}

// Entries land by kind and publisher; only airport files count; a name that could lead outside airports is
// refused and the rest goes on.
TEST_F(UpdatesTest, archiveEntriesLandInTheirFoldersAndNoneOutside) {
  const UpdateServer server;
  checkDbase(server.url);
  ASSERT_TRUE(readDbase()); // the publishers
  const fs::path outside = fs::current_path() / "outside";
  fs::create_directories(outside / "deeper");
  const std::vector<std::pair<std::string, std::string>> entries = {
      {"archive/stock/", ""},
      {"archive/stock/EDDM.xml", "<stock/>"},
      {"archive\\ORBX\\YBBN.xml", "<orbx/>"},
      {"archive/thirdparty/Aerosoft/EDDF.xml", "<aerosoft/>"},
      {"archive/thirdparty/NoSuchMaker_KXYZ.xml", "<unknown/>"},
      {"archive/stock/readme.txt", "not an airport"},
      {"../evil1.xml", "<evil/>"},
      {"archive/../../evil2.xml", "<evil/>"},
      {(outside / "evil3.xml").string(), "<evil/>"},
      {"C:\\evil4.xml", "<evil/>"},
      {"C:evil5.xml", "<evil/>"},
      {"..\\outside\\evil6.xml", "<evil/>"},
      {"archive/thirdparty/../../../outside/evil7.xml", "<evil/>"},
      {"\\\\server\\share\\evil8.xml", "<evil/>"},
  };
  writeZip(server.served(archivePayloadPath), entries);

  EXPECT_TRUE(checkArchive(server.url));
  EXPECT_EQ(test::readFile(archiveFolder / "stock/EDDM.xml"), "<stock/>");
  EXPECT_EQ(test::readFile(archiveFolder / "ORBX/YBBN.xml"), "<orbx/>");
  EXPECT_EQ(test::readFile(archiveFolder / "thirdparty/Aerosoft/EDDF.xml"), "<aerosoft/>");
  EXPECT_EQ(test::readFile(archiveFolder / "thirdparty/unknown/NoSuchMaker_KXYZ.xml"), "<unknown/>");
  EXPECT_FALSE(fs::exists(archiveFolder / "stock/readme.txt"));
  const std::string log = test::logText();
  EXPECT_NE(log.find("===> pub archive/thirdparty/NoSuchMaker_KXYZ.xml not found"), std::string::npos);
  EXPECT_NE(log.find("archive.zip extracted 4 files"), std::string::npos) << log;
  std::size_t refused = 0;
  for (std::size_t at = log.find("refused"); at != std::string::npos; at = log.find("refused", at + 1))
    ++refused;
  EXPECT_EQ(refused, 8u) << log;
  for (const auto& entry : fs::recursive_directory_iterator("."))
    if (entry.path().filename().string().find("evil") != std::string::npos) ADD_FAILURE() << entry.path();
  EXPECT_FALSE(fs::exists(fs::current_path().parent_path() / "evil1.xml"));
}

// A newer program is unpacked beside this one and stops the start; an equal one, or a failure, lets it go on,
// never with a stale installer left behind.
TEST_F(UpdatesTest, aNewerProgramIsUnpackedOrNothingIsLeft) {
  const UpdateServer server;
  const fs::path exe = fs::current_path() / installNewVersionFile;
  const fs::path zip = server.served(releasePath) / installerName({9, 0, 0});

  test::writeBytes(exe, "stale");
  try {
    checkProgram(server.url, fs::current_path());
    ADD_FAILURE() << "no exception";
  } catch (const UserErrorException& error) {
    EXPECT_EQ(error.number, 99);
    EXPECT_EQ(std::string(error.what()),
              fmt::format("New version 9.0.0 available. Exit here, and run as administrator:   \"{}\"",
                          exe.string()));
  }
  EXPECT_EQ(test::readFile(exe), installerBytes);
  EXPECT_TRUE(test::logHas(fmt::format("downloaded {}", installerName({9, 0, 0}))));

  struct Case {
    std::string_view what;
    std::string_view offered; // version_P3D.json
    std::string zipBytes;     // the served installer zip; empty: none
    std::string_view shown;   // the message line afterwards; empty: none
  };
  // The first entry's data begins after its local header of 30 bytes, its name and its extra field.
  std::string damaged = test::readFile(zip);
  const auto field = [&](std::size_t at) {
    return static_cast<std::size_t>(static_cast<unsigned char>(damaged[at])) |
           static_cast<std::size_t>(static_cast<unsigned char>(damaged[at + 1])) << 8;
  };
  damaged[30 + field(26) + field(28) + 2] ^= 0x55;
  const Case cases[] = {
      {"an equal version", "8.8.0", test::readFile(zip), ""},
      {"a first entry that can't be read", "9.0.0", damaged,
       "download/extract of the new version failed? Try manually via my website"},
      {"no installer on the server", "9.0.0", "",
       "download/extract of the new version failed? Try manually via my website"},
  };
  for (const Case& c : cases) {
    test::writeBytes(exe, "stale");
    clearMessage();
    server.offer(programVersionPath, c.offered);
    if (c.zipBytes.empty())
      fs::remove(zip);
    else
      test::writeBytes(zip, c.zipBytes);
    EXPECT_NO_THROW(checkProgram(server.url, fs::current_path())) << c.what;
    EXPECT_EQ(lf_shownMessage(), c.shown) << c.what;
    EXPECT_EQ(fs::exists(exe), c.shown.empty()) << c.what << ": only an equal version keeps the old file";
  }
  EXPECT_TRUE(test::logHas("extracting error code : "));
  EXPECT_TRUE(test::logHas("Downloading program installer file version 9.0.0 failed"));
  expectNoWorkingFiles();
}

} // namespace
} // namespace ory
