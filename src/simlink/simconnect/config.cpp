#include "simlink/simconnect/config.h"

#include "base/log.h"
#include "os/folders.h"
#include "os/registry.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>

namespace ory {

namespace {

constexpr std::string_view fileName = "SimConnect.cfg";
constexpr std::string_view registryKey = "SOFTWARE\\Lockheed Martin\\Prepar3D v";
constexpr std::string_view defaultPipe = "Lockheed Martin Prepar3D v5\\SimConnect";

std::string lf_lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
  return lower;
}

std::string_view lf_trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
    text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
    text.remove_suffix(1);
  return text;
}

std::optional<std::uint32_t> lf_number(std::string_view text) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return {};
  return value;
}

void lf_applyProtocol(SimConnectConfig& config, std::string_view rawValue) {
  const std::string value = lf_lower(rawValue);
  if (value == "ipv4")
    config.protocol = SimProtocol::ipv4;
  else if (value == "ipv6")
    config.protocol = SimProtocol::ipv6;
  else if (value == "pipe" || value == "auto")
    config.protocol = SimProtocol::autoOrPipe;
  else
    logLine(fmt::format("SimConnect.cfg: unknown Protocol \"{}\", Auto taken", rawValue));
}

void lf_apply(SimConnectConfig& config, std::string_view rawKey, std::string_view value) {
  const std::string key = lf_lower(rawKey);
  if (key == "protocol") {
    lf_applyProtocol(config, value);
  } else if (key == "address") {
    config.address = value;
  } else if (key == "port") {
    config.port = value;
  } else if (key == "maxreceivesize") {
    const auto size = lf_number(value);
    if (!size)
      logLine(fmt::format("SimConnect.cfg: MaxReceiveSize \"{}\" is no number", value));
    else
      config.maxReceiveSize = std::max(config.maxReceiveSize, *size);
  } else if (key == "disablenagle") {
    config.disableNagle = lf_number(value).value_or(0) != 0;
  }
}

std::optional<std::uint16_t> lf_port(std::string_view text) {
  const auto number = lf_number(text);
  if (!number || *number == 0 || *number > 65535) return {};
  return static_cast<std::uint16_t>(*number);
}

// An IP endpoint when a port is known: the section's own if it is a number, else the published one.
void lf_addIp(std::vector<SimEndpoint>& plan, const SimConnectConfig& config, SimProtocol protocol,
              std::string (*published)(SimProtocol)) {
  std::string portText = config.port;
  if (portText.empty() || (config.protocol == SimProtocol::autoOrPipe && !lf_port(portText)))
    portText = published(protocol);
  if (portText.empty()) return;
  const auto port = lf_port(portText);
  if (!port) {
    logLine(fmt::format("SimConnect: port \"{}\" is no port number", portText));
    return;
  }
  const std::string host = config.address.empty() ? "localhost" : config.address;
  plan.push_back({protocol, host, *port});
}

} // namespace

std::string SimEndpoint::text() const {
  if (protocol == SimProtocol::autoOrPipe) return address;
  return protocol == SimProtocol::ipv6 ? fmt::format("[{}]:{}", address, port)
                                       : fmt::format("{}:{}", address, port);
}

SimConnectConfig parseSimConnectConfig(std::string_view text, std::uint32_t configIndex) {
  const std::string wanted = configIndex == 0 ? "[simconnect]" : fmt::format("[simconnect.{}]", configIndex);
  SimConnectConfig config;
  bool inSection = false;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    line = lf_trim(line.substr(0, line.find(';')));
    if (line.empty()) continue;
    if (line.front() == '[') {
      inSection = lf_lower(line) == wanted;
      continue;
    }
    const std::size_t equals = line.find('=');
    if (!inSection || equals == std::string_view::npos) continue;
    lf_apply(config, lf_trim(line.substr(0, equals)), lf_trim(line.substr(equals + 1)));
  }
  return config;
}

std::vector<std::filesystem::path> simConnectConfigCandidates() {
  return {publicDocumentsFolder() / fileName, documentsFolder() / fileName,
          std::filesystem::current_path() / fileName};
}

SimConnectConfig readSimConnectConfig(std::uint32_t configIndex) {
  for (const std::filesystem::path& candidate : simConnectConfigCandidates()) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(candidate, error)) continue;
    std::ifstream in(candidate, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    SimConnectConfig config = parseSimConnectConfig(text, configIndex);
    config.file = candidate;
    return config;
  }
  return {};
}

std::string publishedPort(SimProtocol protocol) {
  const std::string_view value =
      protocol == SimProtocol::ipv6 ? "SimConnect_Port_IPv6" : "SimConnect_Port_IPv4";
  // Prepar3D v5 publishes its ports; v6 is asked when v5 has none.
  for (const char version : {'5', '6'}) {
    const auto port =
        readRegistryText(RegistryRoot::currentUser, fmt::format("{}{}", registryKey, version), value);
    if (port && !port->empty()) return port->substr(0, 20);
  }
  return {};
}

std::vector<SimEndpoint> connectionPlan(const SimConnectConfig& config,
                                        std::string (*published)(SimProtocol)) {
  std::vector<SimEndpoint> plan;
  if (config.protocol == SimProtocol::ipv4 || config.protocol == SimProtocol::ipv6) {
    lf_addIp(plan, config, config.protocol, published);
    return plan;
  }
  const std::string server = config.address.empty() ? "." : config.address;
  const bool namedPipe = !config.port.empty() && !lf_port(config.port);
  plan.push_back({SimProtocol::autoOrPipe,
                  fmt::format("\\\\{}\\pipe\\{}", server, namedPipe ? config.port : std::string(defaultPipe)),
                  0});
  lf_addIp(plan, config, SimProtocol::ipv6, published);
  lf_addIp(plan, config, SimProtocol::ipv4, published);
  return plan;
}

} // namespace ory
