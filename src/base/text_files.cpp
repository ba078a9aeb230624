#include "base/text_files.h"

#include "base/log.h"
#include "os/durable_file.h"
#include "os/utf.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <cerrno>
#include <charconv>
#include <fstream>
#include <system_error>

namespace ory {

namespace {

void lf_pushLine(std::vector<std::string>& lines, std::string line) {
  if (!line.empty() && line.back() == '\r') line.pop_back();
  lines.push_back(std::move(line));
}

// Splits at '\n'; a final line end adds no empty line.
void lf_splitLines(std::string_view text, std::vector<std::string>& lines) {
  std::size_t start = 0;
  while (start < text.size()) {
    const auto end = text.find('\n', start);
    if (end == std::string_view::npos) {
      lf_pushLine(lines, std::string(text.substr(start)));
      return;
    }
    lf_pushLine(lines, std::string(text.substr(start, end - start)));
    start = end + 1;
  }
}

std::string lf_readAll(std::ifstream& in) {
  in.seekg(0, std::ios::end);
  const auto size = in.tellg();
  in.seekg(0, std::ios::beg);
  std::string bytes(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  return bytes;
}

void lf_logCannotOpen(const std::filesystem::path& path) {
  logLine(fmt::format("cannot open file {} for character encoding, err: {}", path.string(),
                      std::error_code(errno, std::generic_category()).message()));
}

// The encoding told by the first two bytes; only two of the three bytes of a UTF-8 mark are looked at.
FileEncoding lf_encodingOf(std::string_view bytes) {
  if (bytes.size() < 2) return FileEncoding::plain;
  const auto first = static_cast<unsigned char>(bytes[0]);
  const auto second = static_cast<unsigned char>(bytes[1]);
  if (first == 0xFF && second == 0xFE) return FileEncoding::unicode;
  if (first == 0xFE && second == 0xFF) return FileEncoding::unicodeBigEndian;
  if (first == 0xEF && second == 0xBB) return FileEncoding::utf8WithBom;
  return FileEncoding::plain;
}

std::string lf_utf16ToUtf8(std::string_view bytes, bool bigEnd) {
  std::u16string units;
  units.reserve(bytes.size() / 2);
  for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
    const auto first = static_cast<unsigned char>(bytes[i]);
    const auto second = static_cast<unsigned char>(bytes[i + 1]);
    units += static_cast<char16_t>(bigEnd ? (first << 8) | second : (second << 8) | first);
  }
  return utf16ToUtf8(units);
}

} // namespace

std::string_view encodingName(FileEncoding encoding) {
  switch (encoding) {
  case FileEncoding::unicode:
    return "Unicode";
  case FileEncoding::unicodeBigEndian:
    return "Unicode_big_endian";
  case FileEncoding::utf8WithBom:
    return "UTF8_with_BOM";
  case FileEncoding::utf8WithoutBom:
    return "UTF8_without_BOM";
  case FileEncoding::noneFound:
    return "none_found";
  case FileEncoding::plain:
    break;
  }
  return "";
}

FileEncoding detectEncoding(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    lf_logCannotOpen(path);
    return FileEncoding::noneFound;
  }
  char mark[2]{};
  in.read(mark, 2);
  return lf_encodingOf(std::string_view(mark, static_cast<std::size_t>(in.gcount())));
}

bool gf_readExtTextFileToStringVector(const std::filesystem::path& path, std::vector<std::string>& lines) {
  try {
    // One opening of the file: the scans read thousands of them.
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      lf_logCannotOpen(path);
      return false;
    }
    const std::string bytes = lf_readAll(in);
    switch (const FileEncoding encoding = lf_encodingOf(bytes)) {
    case FileEncoding::unicode:
    case FileEncoding::unicodeBigEndian:
      lf_splitLines(lf_utf16ToUtf8(bytes, encoding == FileEncoding::unicodeBigEndian), lines);
      break;
    case FileEncoding::utf8WithBom:
      lf_splitLines(std::string_view(bytes).substr(3), lines);
      break;
    default:
      // Without a mark: UTF-8 when it reads as such, else the ANSI code page, as Windows programs write.
      lf_splitLines(utf8OrAnsi(bytes), lines);
      break;
    }
    return true;
  } catch (const std::exception& e) {
    logLine(fmt::format("gf_readExtTextFileToStringVector {}", e.what()));
    return false;
  }
}

std::unique_ptr<std::vector<std::string>> readPlainLines(const std::filesystem::path& path,
                                                         std::size_t reserve) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return nullptr;
  auto lines = std::make_unique<std::vector<std::string>>();
  lines->reserve(reserve);
  for (std::string line; std::getline(in, line);)
    lf_pushLine(*lines, std::move(line));
  if (lines->empty()) return nullptr;
  return lines;
}

bool writeText(std::string_view text, const std::filesystem::path& path) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) return false;
  out << text << '\n';
  return static_cast<bool>(out.flush());
}

bool writeXmlFile(const pugi::xml_document& document, const std::filesystem::path& path) {
  std::filesystem::path beside = path;
  beside += ".saving";
  if (document.save_file(beside.c_str()) && replaceFileDurably(beside, path)) return true;
  std::error_code error;
  std::filesystem::remove(beside, error);
  return false;
}

bool saveXml(const pugi::xml_document& document, const std::filesystem::path& path) {
  if (!writeXmlFile(document, path)) {
    logLine(fmt::format("could not save to \"{}\"", path.string()));
    return false;
  }
  logLine(fmt::format("\"{}\" saved", path.string()));
  return true;
}

HalfHours readSlots(std::string_view text) {
  HalfHours slots;
  while (!text.empty()) {
    const auto comma = text.find(',');
    std::string_view item = text.substr(0, comma);
    text = comma == std::string_view::npos ? std::string_view() : text.substr(comma + 1);
    while (!item.empty() && item.front() == ' ')
      item.remove_prefix(1);
    while (!item.empty() && item.back() == ' ')
      item.remove_suffix(1);
    if (item.empty()) continue;
    int number = 0;
    const auto [end, status] = std::from_chars(item.data(), item.data() + item.size(), number);
    if (status != std::errc() || end != item.data() + item.size())
      throw std::invalid_argument(fmt::format("half hour \"{}\" is not a number", item));
    if (number < 0 || number > 47)
      throw std::out_of_range(fmt::format("half hour {} is not in 0 to 47", number));
    slots.set(static_cast<std::size_t>(number));
  }
  return slots;
}

std::string slotsToText(const HalfHours& slots) {
  std::string text;
  for (std::size_t i = 0; i < slots.size(); ++i)
    if (slots.test(i)) text += fmt::format("{},", i);
  if (!text.empty()) text.pop_back();
  return text;
}

} // namespace ory
