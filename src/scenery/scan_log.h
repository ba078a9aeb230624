#pragma once
// The messages of an airport scan. Workers add to one list under a lock; the driver writes it to a file at
// the end, so that the program's log stays short.

#include <filesystem>
#include <string>
#include <vector>

namespace ory {

void scanLog(std::string text);
std::vector<std::string> scanLogLines(); // a copy, in the order of arrival
void clearScanLog();                     // and keeps room for 2048 lines
bool writeScanLog(const std::filesystem::path& path);

} // namespace ory
