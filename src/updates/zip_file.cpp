#include "updates/zip_file.h"

#include "liveries/text_tokens.h"

#include <fmt/format.h>
#include <zip.h>

#include <fstream>
#include <stdexcept>

namespace ory {

namespace {

struct ZipFileClose {
  void operator()(zip_file_t* file) const { zip_fclose(file); }
};

// The entry's bytes streamed into out, so that a large entry never has to fit in memory.
int lf_copyEntry(zip* archive, std::uint64_t index, std::uint64_t maxBytes, std::ofstream& out) {
  zip_stat_t stat;
  zip_stat_init(&stat);
  if (zip_stat_index(archive, index, 0, &stat) != 0) return zip_error_code_zip(zip_get_error(archive));
  if ((stat.valid & ZIP_STAT_SIZE) != 0 && stat.size > maxBytes) return zipTooLarge;
  const std::unique_ptr<zip_file_t, ZipFileClose> file(zip_fopen_index(archive, index, 0));
  if (!file) return zip_error_code_zip(zip_get_error(archive));
  char buffer[65536];
  for (;;) {
    const zip_int64_t read = zip_fread(file.get(), buffer, sizeof buffer);
    if (read < 0) return zip_error_code_zip(zip_file_get_error(file.get()));
    if (read == 0) return 0;
    if (!out.write(buffer, read)) return zipWriteFailed;
  }
}

} // namespace

std::string zipErrorText(int code) {
  if (code == zipWriteFailed) return "the file could not be written";
  if (code == zipTooLarge) return "the entry is larger than allowed";
  zip_error_t error;
  zip_error_init_with_code(&error, code);
  std::string text = zip_error_strerror(&error);
  zip_error_fini(&error);
  return text;
}

void ZipClose::operator()(zip* archive) const {
  zip_discard(archive);
}

ZipArchive openZip(const std::filesystem::path& path, std::string& whyNot) {
  int code = 0;
  ZipArchive archive(zip_open(pathText(path).c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &code));
  if (!archive) whyNot = zipErrorText(code);
  return archive;
}

bool isZipFile(const std::filesystem::path& path) {
  std::string ignored;
  return static_cast<bool>(openZip(path, ignored));
}

std::vector<std::string> zipEntryNames(const ZipArchive& archive) {
  std::vector<std::string> names;
  const zip_int64_t count = zip_get_num_entries(archive.get(), 0);
  for (zip_int64_t index = 0; index < count; ++index) {
    const char* name = zip_get_name(archive.get(), static_cast<zip_uint64_t>(index), ZIP_FL_ENC_GUESS);
    names.emplace_back(name ? name : "");
  }
  return names;
}

int extractZipEntry(const ZipArchive& archive, std::uint64_t index, const std::filesystem::path& target,
                    std::uint64_t maxBytes) {
  std::filesystem::path beside = target;
  beside += ".saving";
  std::ofstream out(beside, std::ios::binary | std::ios::trunc);
  int code = out ? lf_copyEntry(archive.get(), index, maxBytes, out) : zipWriteFailed;
  out.close();
  std::error_code error;
  if (code == 0 && !out) code = zipWriteFailed;
  if (code == 0) std::filesystem::rename(beside, target, error);
  if (code == 0 && error) code = zipWriteFailed;
  if (code != 0) std::filesystem::remove(beside, error);
  return code;
}

void writeZip(const std::filesystem::path& path,
              const std::vector<std::pair<std::string, std::string>>& entries) {
  int code = 0;
  ZipArchive archive(zip_open(pathText(path).c_str(), ZIP_CREATE | ZIP_TRUNCATE, &code));
  if (!archive) throw std::runtime_error(fmt::format("can't make {}: {}", path.string(), zipErrorText(code)));
  for (const auto& [name, bytes] : entries) {
    zip_source_t* source = zip_source_buffer(archive.get(), bytes.data(), bytes.size(), 0);
    if (!source || zip_file_add(archive.get(), name.c_str(), source, ZIP_FL_ENC_UTF_8) < 0) {
      zip_source_free(source);
      throw std::runtime_error(
          fmt::format("can't add {} to {}: {}", name, path.string(), zip_strerror(archive.get())));
    }
  }
  if (zip_close(archive.get()) != 0)
    throw std::runtime_error(fmt::format("can't write {}: {}", path.string(), zip_strerror(archive.get())));
  archive.release(); // zip_close freed it
}

} // namespace ory
