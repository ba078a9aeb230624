#pragma once
// Small text helpers of the data readers: comma lists, fields, the boolean test of the data files, and paths
// as UTF-8 text for messages.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

// text without leading and trailing blanks, tabs, carriage returns and line feeds.
std::string_view trimBlanks(std::string_view text);
// The trimmed, non-empty tokens of a comma-separated list.
std::vector<std::string_view> splitTrimmed(std::string_view text);
// Every field between SEPARATORs, untrimmed; an empty text gives one empty field.
std::vector<std::string_view> splitFields(std::string_view text, char separator);
// True when the first character is one of 1, t, T, y, Y.
bool isTrueText(std::string_view text);
std::string pathText(const std::filesystem::path& path);
// std::stod and std::stof with the texts "invalid stod argument" and "stod argument out of range" (and stof).
double textToDouble(const std::string& text);
float textToFloat(const std::string& text);

} // namespace ory
