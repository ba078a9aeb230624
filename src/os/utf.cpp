#include "os/utf.h"

#include <cstdint>

namespace ory {

namespace {

constexpr char32_t replacement = 0xFFFD;

// Decodes one code point at I and moves I past it.
char32_t lf_nextFromUtf8(std::string_view TEXT, size_t& I) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(TEXT[k]); };
  const unsigned char lead = byte(I++);
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
    if (I >= TEXT.size() || (byte(I) & 0xC0) != 0x80) return replacement;
    cp = (cp << 6) | (byte(I++) & 0x3F);
  }
  const bool overlong = (more == 1 && cp < 0x80) || (more == 2 && cp < 0x800) || (more == 3 && cp < 0x10000);
  if (overlong || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return replacement;
  return cp;
}

char32_t lf_nextFromUtf16(std::u16string_view TEXT, size_t& I) {
  const char16_t unit = TEXT[I++];
  if (unit < 0xD800 || unit > 0xDFFF) return unit;
  if (unit > 0xDBFF || I >= TEXT.size() || TEXT[I] < 0xDC00 || TEXT[I] > 0xDFFF) return replacement;
  const char16_t low = TEXT[I++];
  return 0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) + (low - 0xDC00);
}

void lf_appendUtf8(std::string& OUT, char32_t CP) {
  if (CP < 0x80) {
    OUT += static_cast<char>(CP);
  } else if (CP < 0x800) {
    OUT += static_cast<char>(0xC0 | (CP >> 6));
    OUT += static_cast<char>(0x80 | (CP & 0x3F));
  } else if (CP < 0x10000) {
    OUT += static_cast<char>(0xE0 | (CP >> 12));
    OUT += static_cast<char>(0x80 | ((CP >> 6) & 0x3F));
    OUT += static_cast<char>(0x80 | (CP & 0x3F));
  } else {
    OUT += static_cast<char>(0xF0 | (CP >> 18));
    OUT += static_cast<char>(0x80 | ((CP >> 12) & 0x3F));
    OUT += static_cast<char>(0x80 | ((CP >> 6) & 0x3F));
    OUT += static_cast<char>(0x80 | (CP & 0x3F));
  }
}

template <typename Unit>
void lf_appendUtf16(std::basic_string<Unit>& OUT, char32_t CP) {
  if (CP < 0x10000) {
    OUT += static_cast<Unit>(CP);
    return;
  }
  CP -= 0x10000;
  OUT += static_cast<Unit>(0xD800 + (CP >> 10));
  OUT += static_cast<Unit>(0xDC00 + (CP & 0x3FF));
}

} // namespace

std::u16string utf8ToUtf16(std::string_view TEXT) {
  std::u16string out;
  out.reserve(TEXT.size());
  for (size_t i = 0; i < TEXT.size();)
    lf_appendUtf16(out, lf_nextFromUtf8(TEXT, i));
  return out;
}

std::string utf16ToUtf8(std::u16string_view TEXT) {
  std::string out;
  out.reserve(TEXT.size());
  for (size_t i = 0; i < TEXT.size();)
    lf_appendUtf8(out, lf_nextFromUtf16(TEXT, i));
  return out;
}

std::wstring utf8ToWide(std::string_view TEXT) {
  std::wstring out;
  out.reserve(TEXT.size());
  for (size_t i = 0; i < TEXT.size();) {
    const char32_t cp = lf_nextFromUtf8(TEXT, i);
    if constexpr (sizeof(wchar_t) == 2)
      lf_appendUtf16(out, cp);
    else
      out += static_cast<wchar_t>(cp);
  }
  return out;
}

std::string wideToUtf8(std::wstring_view TEXT) {
  if constexpr (sizeof(wchar_t) == 2) {
    std::u16string_view units(reinterpret_cast<const char16_t*>(TEXT.data()), TEXT.size());
    return utf16ToUtf8(units);
  }
  std::string out;
  out.reserve(TEXT.size());
  for (wchar_t c : TEXT) {
    const auto cp = static_cast<char32_t>(c);
    lf_appendUtf8(out, cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF) ? replacement : cp);
  }
  return out;
}

std::filesystem::path utf8ToPath(std::string_view TEXT) {
  return std::filesystem::path(std::u8string(TEXT.begin(), TEXT.end()));
}

} // namespace ory
