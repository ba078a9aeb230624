#pragma once
// Data updates: the program keeps input\dbase.xml, input\regcodesAIG\AIG-regcodes.xml and the airport archive
// current from the update server, and fetches a newer program's installer. Each item has a version.json
// beside it on the server; its installed version is a parameter. Every function takes the server's base
// address (updateServer in the program) and blocks: it runs on the start-up thread. A failed download or a
// bad file never stops the program, and leaves the item and its version as they were, so the next check tries
// again.

#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>

namespace ory {

// Downloads dbase.xml when the server's version is newer than DBASE_VERSION or the file is missing.
void checkDbase(std::string_view server);
// The same for AIG-regcodes.xml and AIG_VERSION; throws std::filesystem::filesystem_error when
// input\regcodesAIG can't be made.
void checkRegcodes(std::string_view server);
// "==> New version{s} for: {names}" for the items with a newer version on the server; empty when none.
std::string newVersionsText(std::string_view server);
// The button "Check version": the new versions or "up to date" in the message line; a new one empties
// DATA_CHECKED_AT_DATE, so that the next start downloads it.
void checkVersionNow(std::string_view server);

// airports\archive or one of its folders stock, ORBX and thirdparty is missing.
bool archiveFoldersMissing();
// Installs a newer archive into airports\archive; true when it did. Throws std::filesystem::filesystem_error
// when a folder of the archive can't be made.
bool checkArchive(std::string_view server);
// P3D_archive.txt and P3D_archive.csv into docs.
void downloadArchiveDocs(std::string_view server);

// Fetches a newer program's installer and unpacks it as install_new_version.exe in installPath; then throws
// UserErrorException 99, which tells the user to run it. Any failure is a message line, and the start goes
// on.
void checkProgram(std::string_view server, const std::filesystem::path& installPath);

// The date of a daily check as DATA_CHECKED_AT_DATE holds it: month, day and year ("NOV252026"), scrambled.
std::string checkDateText(std::time_t time);
// The checks before the aircraft database is read: the regcodes, and the database when today's check is due
// or the file is missing.
void checkDataAtStart(std::string_view server);
// The rest of the day's checks, once a day: program, regcodes and archive, with DATA_CHECKED_AT_DATE stored
// after them; on other starts only what is missing. A new archive switches SCAN_AIRPORTS on.
void checkDataOfTheDay(std::string_view server);

} // namespace ory
