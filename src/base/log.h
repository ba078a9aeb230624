#pragma once
// Log.txt in the program's folder, with the two older generations Log0.txt and Log00.txt. No levels, no time
// stamps: a warning is a line with the prefix "===> ". Lines reach the disk at the next flush.

#include <ctime>
#include <string>
#include <string_view>

namespace ory {

inline constexpr std::string_view warningPrefix = "===> ";

void openLog();  // rotates the generations and writes the first line; throws SysErrorException 40
void closeLog(); // flushes and closes; later lines are dropped
bool logIsOpen();
void logLine(std::string_view text);
void logLineFlushed(std::string_view text);
void logWarning(std::string_view text);
void flushLog();

std::string timeOfDay();               // "hh:mm:ss", UTC
std::string utcText(std::time_t time); // asctime form without the line end

} // namespace ory
