#include "os/utf.h"

#include <cstdint>

namespace ory {

namespace {

constexpr char32_t replacement = 0xFFFD;

// Decodes one code point at i and moves i past it.
char32_t lf_nextFromUtf8(std::string_view text, size_t& i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i++);
  if (lead < 0x80) return lead;
  int more = 0;
  char32_t cp = 0;
  if ((lead & 0xE0) == 0xC0) {
    more = 1;
    cp = lead & 0x1F;
  } else if ((lead & 0xF0) == 0xE0) {
    more = 2;
    cp = lead & 0x0F;
  } else if ((lead & 0xF8) == 0xF0) {
    more = 3;
    cp = lead & 0x07;
  } else {
    return replacement;
  }
  for (int k = 0; k < more; ++k) {
    if (i >= text.size() || (byte(i) & 0xC0) != 0x80) return replacement;
    cp = (cp << 6) | (byte(i++) & 0x3F);
  }
  const bool overlong = (more == 1 && cp < 0x80) || (more == 2 && cp < 0x800) || (more == 3 && cp < 0x10000);
  if (overlong || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return replacement;
  return cp;
}

char32_t lf_nextFromUtf16(std::u16string_view text, size_t& i) {
  const char16_t unit = text[i++];
  if (unit < 0xD800 || unit > 0xDFFF) return unit;
  if (unit > 0xDBFF || i >= text.size() || text[i] < 0xDC00 || text[i] > 0xDFFF) return replacement;
  const char16_t low = text[i++];
  return 0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) + (low - 0xDC00);
}

void lf_appendUtf8(std::string& out, char32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

template <typename Unit>
void lf_appendUtf16(std::basic_string<Unit>& out, char32_t cp) {
  if (cp < 0x10000) {
    out += static_cast<Unit>(cp);
    return;
  }
  cp -= 0x10000;
  out += static_cast<Unit>(0xD800 + (cp >> 10));
  out += static_cast<Unit>(0xDC00 + (cp & 0x3FF));
}

} // namespace

std::u16string utf8ToUtf16(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();)
    lf_appendUtf16(out, lf_nextFromUtf8(text, i));
  return out;
}

std::string utf16ToUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();)
    lf_appendUtf8(out, lf_nextFromUtf16(text, i));
  return out;
}

std::wstring utf8ToWide(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const char32_t cp = lf_nextFromUtf8(text, i);
    if constexpr (sizeof(wchar_t) == 2)
      lf_appendUtf16(out, cp);
    else
      out += static_cast<wchar_t>(cp);
  }
  return out;
}

std::string wideToUtf8(std::wstring_view text) {
  if constexpr (sizeof(wchar_t) == 2) {
    std::u16string_view units(reinterpret_cast<const char16_t*>(text.data()), text.size());
    return utf16ToUtf8(units);
  }
  std::string out;
  out.reserve(text.size());
  for (wchar_t c : text) {
    const auto cp = static_cast<char32_t>(c);
    lf_appendUtf8(out, cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF) ? replacement : cp);
  }
  return out;
}

bool isUtf8(std::string_view text) {
  constexpr std::string_view encodedReplacement = "\xEF\xBF\xBD";
  for (size_t i = 0; i < text.size();) {
    const size_t start = i;
    if (lf_nextFromUtf8(text, i) == replacement && text.substr(start, i - start) != encodedReplacement)
      return false;
  }
  return true;
}

std::string utf8OrAnsi(std::string_view text) {
  return isUtf8(text) ? std::string(text) : ansiToUtf8(text);
}

std::string_view utf8Prefix(std::string_view text, std::size_t characters) {
  for (size_t i = 0; i < text.size(); ++i) {
    const bool continuation = (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80;
    if (!continuation && characters-- == 0) return text.substr(0, i);
  }
  return text;
}

std::filesystem::path utf8ToPath(std::string_view text) {
  return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

} // namespace ory
