#pragma once
// Reading and writing text files: encoding detection, lines in any encoding, whole texts, XML documents, and
// the comma list of half-hour numbers of the airport files.

#include <bitset>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace pugi {
class xml_document;
}

namespace ory {

enum class FileEncoding : int {
  plain = 0,            // no mark: read as bytes
  unicode = 1,          // FF FE, UTF-16 little endian
  unicodeBigEndian = 2, // FE FF
  utf8WithBom = 3,      // EF BB (only two of the three bytes are looked at)
  utf8WithoutBom = 4,
  noneFound = 5, // the file could not be opened
};

std::string_view encodingName(FileEncoding encoding);
FileEncoding detectEncoding(const std::filesystem::path& path);

// Lines of a text file in whatever encoding, as UTF-8, without line ends; an empty last line is not added. A
// file without a mark that is no valid UTF-8 is read in the ANSI code page.
bool gf_readExtTextFileToStringVector(const std::filesystem::path& path, std::vector<std::string>& lines);
// Lines of a plain text file; null when it can't be opened or is empty.
std::unique_ptr<std::vector<std::string>> readPlainLines(const std::filesystem::path& path,
                                                         std::size_t reserve);
// text and a line end; false when the file can't be opened.
bool writeText(std::string_view text, const std::filesystem::path& path);
// Saves beside the target, forces it to the disk and then replaces the target, so that a crash, a power cut
// or a full disk never leaves half a file.
bool writeXmlFile(const pugi::xml_document& document, const std::filesystem::path& path);
// writeXmlFile, and a log line with the outcome.
bool saveXml(const pugi::xml_document& document, const std::filesystem::path& path);

using HalfHours = std::bitset<48>;
// "3,4,47": throws std::out_of_range for a number outside 0 to 47, std::invalid_argument for a non-number.
HalfHours readSlots(std::string_view text);
std::string slotsToText(const HalfHours& slots);

} // namespace ory
