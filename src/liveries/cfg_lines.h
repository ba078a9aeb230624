#pragma once
// The lines of aircraft.cfg as the reader sees them. Each matcher behaves exactly like the regular expression
// in its comment (ECMAScript grammar, ignoring case, matched against the whole text) and gives its value
// group, or nothing; they are written out by hand because the reader tests every line of thousands of files.

#include <optional>
#include <string_view>

namespace ory {

// `\s*(key)\s*=\s*(.*\S)\s*` with key in lower case: the value, never empty.
std::optional<std::string_view> cfgKeyValue(std::string_view line, std::string_view key);
// `\s*(\[fltsim\.)(\d+)\]\s*`: the section number's digits.
std::optional<std::string_view> fltsimHeaderDigits(std::string_view line);
// `.+\\IVAO_MTL\\IVAO_(\w+)\\aircraft.cfg$` on a path written with backslashes: the folder's type.
std::optional<std::string_view> ivaoFolderType(std::string_view pathText);
// `\s*(\w\w\w).*$` on a title: its first three word characters, the airline.
std::optional<std::string_view> ivaoTitleAirline(std::string_view title);

} // namespace ory
