#pragma once
// A thin owner of libzip's archives: the archive and the program installer are read through it, and the tool
// that prepares the server's files writes through it.

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct zip; // libzip's zip_t

namespace ory {

struct ZipClose {
  void operator()(zip* archive) const;
};
// Closed, without writing anything, when it goes out of scope.
using ZipArchive = std::unique_ptr<zip, ZipClose>;

// Opens an existing zip for reading; empty, with the reason in whyNot, when it can't.
ZipArchive openZip(const std::filesystem::path& path, std::string& whyNot);
bool isZipFile(const std::filesystem::path& path); // opens as a zip
// The entries' names in their stored order.
std::vector<std::string> zipEntryNames(const ZipArchive& archive);
// Entry index written to target, first beside it and then in its place, so a failure leaves no part of it: 0
// on success, libzip's error code when the entry can't be read (ZIP_ER_CRC for damaged data, ...),
// zipTooLarge for an entry of more than maxBytes, or zipWriteFailed.
inline constexpr int zipWriteFailed = -1;
inline constexpr int zipTooLarge = -2;
inline constexpr int zipNoEntry = 9; // ZIP_ER_NOENT: the zip is empty
int extractZipEntry(const ZipArchive& archive, std::uint64_t index, const std::filesystem::path& target,
                    std::uint64_t maxBytes);
std::string zipErrorText(int code);

// A new zip at path with these entries (name, bytes) in this order, compressed; throws std::runtime_error.
void writeZip(const std::filesystem::path& path,
              const std::vector<std::pair<std::string, std::string>>& entries);

} // namespace ory
