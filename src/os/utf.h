#pragma once
// UTF-8 in memory, UTF-16 and the ANSI code page only at the edges (Win32 calls, files, SimConnect). Bad
// sequences become U+FFFD.

#include <filesystem>
#include <string>
#include <string_view>

namespace ory {

std::u16string utf8ToUtf16(std::string_view text);
std::string utf16ToUtf8(std::u16string_view text);
// The platform's wide text: UTF-16 on Windows, UTF-32 elsewhere.
std::wstring utf8ToWide(std::string_view text);
std::string wideToUtf8(std::wstring_view text);
// True when text is well-formed UTF-8 (plain ASCII is).
bool isUtf8(std::string_view text);
// The system's ANSI code page, in which the simulator reads aircraft.cfg and SimConnect carries text:
// Windows-1252 outside Windows. A character the code page lacks becomes '?'.
std::string utf8ToAnsi(std::string_view text);
std::string ansiToUtf8(std::string_view text);
// Text of unknown 8-bit encoding: as it is when it is UTF-8, else from the ANSI code page.
std::string utf8OrAnsi(std::string_view text);
// The first characters (code points, not bytes) of UTF-8 text.
std::string_view utf8Prefix(std::string_view text, std::size_t characters);
// A path from UTF-8 text, whatever the platform's own path encoding.
std::filesystem::path utf8ToPath(std::string_view text);

} // namespace ory
