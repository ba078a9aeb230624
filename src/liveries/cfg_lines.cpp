#include "liveries/cfg_lines.h"

namespace ory {

namespace {

// The classes of the "c" locale, which std::regex uses unless told otherwise.
bool lf_isSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool lf_isDigit(char c) {
  return c >= '0' && c <= '9';
}

bool lf_isWord(char c) {
  return lf_isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

// What '.' matches: anything but a line end.
bool lf_isLineEnd(char c) {
  return c == '\n' || c == '\r';
}

char lf_lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string_view lf_skipSpace(std::string_view text) {
  while (!text.empty() && lf_isSpace(text.front()))
    text.remove_prefix(1);
  return text;
}

std::string_view lf_trimSpace(std::string_view text) {
  text = lf_skipSpace(text);
  while (!text.empty() && lf_isSpace(text.back()))
    text.remove_suffix(1);
  return text;
}

// Consumes prefix, given in lower case, ignoring case; false when text doesn't start with it.
bool lf_eatNoCase(std::string_view& text, std::string_view prefix) {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i)
    if (lf_lower(text[i]) != prefix[i]) return false;
  text.remove_prefix(prefix.size());
  return true;
}

bool lf_hasLineEnd(std::string_view text) {
  for (const char c : text)
    if (lf_isLineEnd(c)) return true;
  return false;
}

bool lf_allWord(std::string_view text) {
  for (const char c : text)
    if (!lf_isWord(c)) return false;
  return !text.empty();
}

} // namespace

std::optional<std::string_view> cfgKeyValue(std::string_view line, std::string_view key) {
  std::string_view rest = lf_skipSpace(line);
  if (!lf_eatNoCase(rest, key)) return std::nullopt;
  rest = lf_skipSpace(rest);
  if (rest.empty() || rest.front() != '=') return std::nullopt;
  // (.*\S) takes everything between the blanks; '.' stops at a line end, which only \s may then follow.
  const std::string_view value = lf_trimSpace(rest.substr(1));
  if (value.empty() || lf_hasLineEnd(value)) return std::nullopt;
  return value;
}

std::optional<std::string_view> fltsimHeaderDigits(std::string_view line) {
  std::string_view rest = lf_trimSpace(line);
  if (!lf_eatNoCase(rest, "[fltsim.") || rest.size() < 2 || rest.back() != ']') return std::nullopt;
  const std::string_view digits = rest.substr(0, rest.size() - 1);
  for (const char c : digits)
    if (!lf_isDigit(c)) return std::nullopt;
  return digits;
}

std::optional<std::string_view> ivaoFolderType(std::string_view pathText) {
  // The last three components are fixed by the pattern: ...\IVAO_MTL\IVAO_<word>\aircraft?cfg
  constexpr std::string_view file = "aircraft?cfg";
  if (pathText.size() < file.size() + 1 || lf_hasLineEnd(pathText)) return std::nullopt;
  const std::string_view last = pathText.substr(pathText.size() - file.size());
  for (std::size_t i = 0; i < file.size(); ++i)
    if (file[i] != '?' && lf_lower(last[i]) != file[i]) return std::nullopt;
  std::string_view rest = pathText.substr(0, pathText.size() - file.size());
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

std::optional<std::string_view> ivaoTitleAirline(std::string_view title) {
  const std::string_view rest = lf_skipSpace(title);
  if (rest.size() < 3 || !lf_allWord(rest.substr(0, 3)) || lf_hasLineEnd(rest)) return std::nullopt;
  return rest.substr(0, 3);
}

} // namespace ory
