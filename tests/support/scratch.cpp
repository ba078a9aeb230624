#include "support/scratch.h"

#include "base/log.h"
#include "base/parameters.h"
#include "os/sockets.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

namespace ory::test {

ScratchFolder::ScratchFolder() {
  std::random_device seed;
  const auto tag = std::to_string(seed()) + std::to_string(seed());
  root = std::filesystem::temp_directory_path() / ("trovalyn-test-" + tag);
  std::filesystem::create_directories(root / "docs");
  previousFolder = std::filesystem::current_path();
  const char* home = std::getenv("HOME");
  previousHome = home ? home : "";
  setenv("HOME", root.c_str(), 1);
  std::filesystem::current_path(root);
}

ScratchFolder::~ScratchFolder() {
  std::filesystem::current_path(previousFolder);
  setenv("HOME", previousHome.c_str(), 1);
  std::error_code ignored;
  std::filesystem::remove_all(root, ignored);
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::filesystem::path& path, std::string_view bytes) {
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::vector<std::string> fileLines(const std::filesystem::path& path) {
  std::vector<std::string> lines;
  std::ifstream in(path, std::ios::binary);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

std::string logText() {
  flushLog();
  return readFile("Log.txt");
}

bool logHas(std::string_view text) {
  return logText().find(text) != std::string::npos;
}

std::filesystem::path realData(std::string_view relative) {
  return std::filesystem::path(ORY_REAL_DATA_DIR) / std::filesystem::path(relative);
}

void installPreparedData(const std::filesystem::path& folder) {
  const std::filesystem::path data = ORY_PREPARED_DATA_DIR;
  const auto options = std::filesystem::copy_options::overwrite_existing;
  std::filesystem::create_directories(folder / "input");
  std::filesystem::copy_file(data / "dbase" / "dbase.xml", folder / "input" / "dbase.xml", options);
  std::filesystem::copy_file(data / "fixes.xml", folder / "input" / "fixes.xml", options);
  std::filesystem::copy_file(data / "airports_p3d.xml", folder / "airports_p3d.xml", options);
}

std::uint16_t freeTcpPort() {
  const SocketHandle probe = openTcpServer(0);
  const std::uint16_t port = localPort(probe);
  closeSocket(probe);
  return port;
}

void presetEarlierRun(const std::filesystem::path& folder, std::string_view installPath) {
  writeBytes(folder / "AppData/Roaming/Trovalyn_P3D/parameters.xml",
             "<?xml version=\"1.0\"?>\n<parameters>\n  <parameter name=\"SIM_INSTALL_PATH\" value=\"" +
                 std::string(installPath) +
                 "\" />\n  <parameter name=\"SCAN_LIVERIES\" value=\"false\" />\n"
                 "  <parameter name=\"SCAN_AIRPORTS\" value=\"false\" />\n</parameters>\n");
  writeBytes(folder / "output/LiveriesScanned.xml",
             R"(<liveries><liv airl="KLM" type="B738" title="KLM 737" atcid="" /></liveries>)");
}

std::string parameterInFile(std::string_view name) {
  pugi::xml_document document;
  document.load_file(parametersPath().c_str());
  for (pugi::xml_node node : document.child("parameters").children("parameter"))
    if (node.attribute("name").as_string() == name) return node.attribute("value").as_string();
  return "<absent>";
}

std::uint16_t presetRealTrafficRun(const std::filesystem::path& folder, std::string_view extra) {
  presetEarlierRun(folder, "/opt/Prepar3D v5");
  installPreparedData(folder);
  writeBytes(folder / "AppData/Roaming/InsideSystems/RealTraffic.jar", "PK");
  const std::uint16_t port = freeTcpPort();
  const std::filesystem::path parametersFile = folder / "AppData/Roaming/Trovalyn_P3D/parameters.xml";
  std::string parameters = readFile(parametersFile);
  parameters.insert(parameters.find("</parameters>"),
                    fmt::format("  <parameter name=\"PORT_NUMBER\" value=\"{}\" />\n{}", port, extra));
  writeBytes(parametersFile, parameters);
  return port;
}

} // namespace ory::test
