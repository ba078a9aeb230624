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

std::string lf_lower(std::string_view TEXT) {
  std::string lower(TEXT);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
  return lower;
}

std::string_view lf_trim(std::string_view TEXT) {
  while (!TEXT.empty() && (TEXT.front() == ' ' || TEXT.front() == '\t'))
    TEXT.remove_prefix(1);
  while (!TEXT.empty() && (TEXT.back() == ' ' || TEXT.back() == '\t' || TEXT.back() == '\r'))
    TEXT.remove_suffix(1);
  return TEXT;
}

std::optional<std::uint32_t> lf_number(std::string_view TEXT) {
  std::uint32_t value = 0;
  const auto [end, error] = std::from_chars(TEXT.data(), TEXT.data() + TEXT.size(), value);
  if (error != std::errc() || end != TEXT.data() + TEXT.size()) return {};
  return value;
}

void lf_applyProtocol(SimConnectConfig& CONFIG, std::string_view VALUE) {
  const std::string value = lf_lower(VALUE);
  if (value == "ipv4")
    CONFIG.protocol = SimProtocol::ipv4;
  else if (value == "ipv6")
    CONFIG.protocol = SimProtocol::ipv6;
  else if (value == "pipe" || value == "auto")
    CONFIG.protocol = SimProtocol::autoOrPipe;
  else
    logLine(fmt::format("SimConnect.cfg: unknown Protocol \"{}\", Auto taken", VALUE));
}

void lf_apply(SimConnectConfig& CONFIG, std::string_view KEY, std::string_view VALUE) {
  const std::string key = lf_lower(KEY);
  if (key == "protocol") {
    lf_applyProtocol(CONFIG, VALUE);
  } else if (key == "address") {
    CONFIG.address = VALUE;
  } else if (key == "port") {
    CONFIG.port = VALUE;
  } else if (key == "maxreceivesize") {
    const auto size = lf_number(VALUE);
    if (!size)
      logLine(fmt::format("SimConnect.cfg: MaxReceiveSize \"{}\" is no number", VALUE));
    else
      CONFIG.maxReceiveSize = std::max(CONFIG.maxReceiveSize, *size);
  } else if (key == "disablenagle") {
    CONFIG.disableNagle = lf_number(VALUE).value_or(0) != 0;
  }
}

std::optional<std::uint16_t> lf_port(std::string_view TEXT) {
  const auto number = lf_number(TEXT);
  if (!number || *number == 0 || *number > 65535) return {};
  return static_cast<std::uint16_t>(*number);
}

// An IP endpoint when a port is known: the section's own if it is a number, else the published one.
void lf_addIp(std::vector<SimEndpoint>& PLAN, const SimConnectConfig& CONFIG, SimProtocol PROTOCOL,
              std::string (*PUBLISHED)(SimProtocol)) {
  std::string portText = CONFIG.port;
  if (portText.empty() || (CONFIG.protocol == SimProtocol::autoOrPipe && !lf_port(portText)))
    portText = PUBLISHED(PROTOCOL);
  if (portText.empty()) return;
  const auto port = lf_port(portText);
  if (!port) {
    logLine(fmt::format("SimConnect: port \"{}\" is no port number", portText));
    return;
  }
  const std::string host = CONFIG.address.empty() ? "localhost" : CONFIG.address;
  PLAN.push_back({PROTOCOL, host, *port});
}

} // namespace

std::string SimEndpoint::text() const {
  if (protocol == SimProtocol::autoOrPipe) return address;
  return protocol == SimProtocol::ipv6 ? fmt::format("[{}]:{}", address, port)
                                       : fmt::format("{}:{}", address, port);
}

SimConnectConfig parseSimConnectConfig(std::string_view TEXT, std::uint32_t CONFIG_INDEX) {
  const std::string wanted =
      CONFIG_INDEX == 0 ? "[simconnect]" : fmt::format("[simconnect.{}]", CONFIG_INDEX);
  SimConnectConfig config;
  bool inSection = false;
  while (!TEXT.empty()) {
    const std::size_t end = TEXT.find('\n');
    std::string_view line = TEXT.substr(0, end);
    TEXT = end == std::string_view::npos ? std::string_view() : TEXT.substr(end + 1);
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

SimConnectConfig readSimConnectConfig(std::uint32_t CONFIG_INDEX) {
  for (const std::filesystem::path& candidate : simConnectConfigCandidates()) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(candidate, error)) continue;
    std::ifstream in(candidate, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    SimConnectConfig config = parseSimConnectConfig(text, CONFIG_INDEX);
    config.file = candidate;
    return config;
  }
  return {};
}

std::string publishedPort(SimProtocol PROTOCOL) {
  const std::string_view value =
      PROTOCOL == SimProtocol::ipv6 ? "SimConnect_Port_IPv6" : "SimConnect_Port_IPv4";
  // Prepar3D v5 publishes its ports; v6 is asked when v5 has none.
  for (const char version : {'5', '6'}) {
    const auto port =
        readRegistryText(RegistryRoot::currentUser, fmt::format("{}{}", registryKey, version), value);
    if (port && !port->empty()) return port->substr(0, 20);
  }
  return {};
}

std::vector<SimEndpoint> connectionPlan(const SimConnectConfig& CONFIG,
                                        std::string (*PUBLISHED)(SimProtocol)) {
  std::vector<SimEndpoint> plan;
  if (CONFIG.protocol == SimProtocol::ipv4 || CONFIG.protocol == SimProtocol::ipv6) {
    lf_addIp(plan, CONFIG, CONFIG.protocol, PUBLISHED);
    return plan;
  }
  const std::string server = CONFIG.address.empty() ? "." : CONFIG.address;
  const bool namedPipe = !CONFIG.port.empty() && !lf_port(CONFIG.port);
  plan.push_back({SimProtocol::autoOrPipe,
                  fmt::format("\\\\{}\\pipe\\{}", server, namedPipe ? CONFIG.port : std::string(defaultPipe)),
                  0});
  lf_addIp(plan, CONFIG, SimProtocol::ipv6, PUBLISHED);
  lf_addIp(plan, CONFIG, SimProtocol::ipv4, PUBLISHED);
  return plan;
}

} // namespace ory
