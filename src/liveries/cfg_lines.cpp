#include "liveries/cfg_lines.h"

namespace ory {

namespace {

// The classes of the "C" locale, which std::regex uses unless told otherwise.
bool lf_isSpace(char C) {
  return C == ' ' || (C >= '\t' && C <= '\r');
}

bool lf_isDigit(char C) {
  return C >= '0' && C <= '9';
}

bool lf_isWord(char C) {
  return lf_isDigit(C) || (C >= 'a' && C <= 'z') || (C >= 'A' && C <= 'Z') || C == '_';
}

// What '.' matches: anything but a line end.
bool lf_isLineEnd(char C) {
  return C == '\n' || C == '\r';
}

char lf_lower(char C) {
  return C >= 'A' && C <= 'Z' ? static_cast<char>(C - 'A' + 'a') : C;
}

std::string_view lf_skipSpace(std::string_view TEXT) {
  while (!TEXT.empty() && lf_isSpace(TEXT.front()))
    TEXT.remove_prefix(1);
  return TEXT;
}

std::string_view lf_trimSpace(std::string_view TEXT) {
  TEXT = lf_skipSpace(TEXT);
  while (!TEXT.empty() && lf_isSpace(TEXT.back()))
    TEXT.remove_suffix(1);
  return TEXT;
}

// Consumes PREFIX, given in lower case, ignoring case; false when TEXT doesn't start with it.
bool lf_eatNoCase(std::string_view& TEXT, std::string_view PREFIX) {
  if (TEXT.size() < PREFIX.size()) return false;
  for (std::size_t i = 0; i < PREFIX.size(); ++i)
    if (lf_lower(TEXT[i]) != PREFIX[i]) return false;
  TEXT.remove_prefix(PREFIX.size());
  return true;
}

bool lf_hasLineEnd(std::string_view TEXT) {
  for (const char c : TEXT)
    if (lf_isLineEnd(c)) return true;
  return false;
}

bool lf_allWord(std::string_view TEXT) {
  for (const char c : TEXT)
    if (!lf_isWord(c)) return false;
  return !TEXT.empty();
}

} // namespace

std::optional<std::string_view> cfgKeyValue(std::string_view LINE, std::string_view KEY) {
  std::string_view rest = lf_skipSpace(LINE);
  if (!lf_eatNoCase(rest, KEY)) return std::nullopt;
  rest = lf_skipSpace(rest);
  if (rest.empty() || rest.front() != '=') return std::nullopt;
  // (.*\S) takes everything between the blanks; '.' stops at a line end, which only \s may then follow.
  const std::string_view value = lf_trimSpace(rest.substr(1));
  if (value.empty() || lf_hasLineEnd(value)) return std::nullopt;
  return value;
}

std::optional<std::string_view> fltsimHeaderDigits(std::string_view LINE) {
  std::string_view rest = lf_trimSpace(LINE);
  if (!lf_eatNoCase(rest, "[fltsim.") || rest.size() < 2 || rest.back() != ']') return std::nullopt;
  const std::string_view digits = rest.substr(0, rest.size() - 1);
  for (const char c : digits)
    if (!lf_isDigit(c)) return std::nullopt;
  return digits;
}

std::optional<std::string_view> ivaoFolderType(std::string_view PATH_TEXT) {
  // The last three components are fixed by the pattern: ...\IVAO_MTL\IVAO_<word>\aircraft?cfg
  constexpr std::string_view file = "aircraft?cfg";
  if (PATH_TEXT.size() < file.size() + 1 || lf_hasLineEnd(PATH_TEXT)) return std::nullopt;
  const std::string_view last = PATH_TEXT.substr(PATH_TEXT.size() - file.size());
  for (std::size_t i = 0; i < file.size(); ++i)
    if (file[i] != '?' && lf_lower(last[i]) != file[i]) return std::nullopt;
  std::string_view rest = PATH_TEXT.substr(0, PATH_TEXT.size() - file.size());
  if (rest.back() != '\\') return std::nullopt;
  rest.remove_suffix(1);
  const std::size_t folderStart = rest.rfind('\\');
  if (folderStart == std::string_view::npos) return std::nullopt;
  std::string_view folder = rest.substr(folderStart + 1);
  if (!lf_eatNoCase(folder, "ivao_") || !lf_allWord(folder)) return std::nullopt;
  rest = rest.substr(0, folderStart);
  constexpr std::string_view parent = "\\ivao_mtl";
  if (rest.size() < parent.size() + 1) return std::nullopt;
  std::string_view tail = rest.substr(rest.size() - parent.size());
  if (!lf_eatNoCase(tail, parent)) return std::nullopt;
  return folder;
}

std::optional<std::string_view> ivaoTitleAirline(std::string_view TITLE) {
  const std::string_view rest = lf_skipSpace(TITLE);
  if (rest.size() < 3 || !lf_allWord(rest.substr(0, 3)) || lf_hasLineEnd(rest)) return std::nullopt;
  return rest.substr(0, 3);
}

} // namespace ory
