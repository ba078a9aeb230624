#include "os/utf.h"

#include <windows.h>

namespace ory {

std::string utf8ToAnsi(std::string_view text) {
  const std::wstring wide = utf8ToWide(text);
  if (wide.empty()) return {};
  // No best fit: a character the code page lacks is '?', not a look-alike. A UTF-8 code page takes neither
  // flag nor default character.
  const bool utf8CodePage = GetACP() == CP_UTF8;
  const DWORD flags = utf8CodePage ? 0 : WC_NO_BEST_FIT_CHARS;
  const char* unknown = utf8CodePage ? nullptr : "?";
  const int length = static_cast<int>(wide.size());
  const int size = WideCharToMultiByte(CP_ACP, flags, wide.data(), length, nullptr, 0, unknown, nullptr);
  if (size <= 0) return {};
  std::string out(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(CP_ACP, flags, wide.data(), length, out.data(), size, unknown, nullptr);
  return out;
}

std::string ansiToUtf8(std::string_view text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  const int size = MultiByteToWideChar(CP_ACP, 0, text.data(), length, nullptr, 0);
  if (size <= 0) return {};
  std::wstring wide(static_cast<size_t>(size), L'\0');
  MultiByteToWideChar(CP_ACP, 0, text.data(), length, wide.data(), size);
  return wideToUtf8(wide);
}

} // namespace ory
