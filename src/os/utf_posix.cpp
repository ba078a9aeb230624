#include "os/utf.h"

#include <algorithm>
#include <array>

namespace ory {

namespace {

// Windows-1252 from 0x80 to 0x9F; the five bytes it leaves free map to their C1 controls, as Windows maps
// them, so that every byte comes back as it went.
constexpr std::array<char32_t, 32> cp1252High = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

char lf_ansiByte(char32_t cp) {
  if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<char>(cp);
  const auto found = std::find(cp1252High.begin(), cp1252High.end(), cp);
  if (found == cp1252High.end()) return '?';
  return static_cast<char>(0x80 + (found - cp1252High.begin()));
}

} // namespace

std::string utf8ToAnsi(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const wchar_t c : utf8ToWide(text))
    out += lf_ansiByte(static_cast<char32_t>(c));
  return out;
}

std::string ansiToUtf8(std::string_view text) {
  std::wstring wide;
  wide.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    wide += static_cast<wchar_t>(byte >= 0x80 && byte < 0xA0 ? cp1252High[byte - 0x80] : byte);
  }
  return wideToUtf8(wide);
}

} // namespace ory
