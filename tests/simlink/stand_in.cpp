#include "stand_in.h"

#include "support/scratch.h"
#include "wire_peer.h"

#include <csignal>
#include <fstream>
#include <stdexcept>

namespace ory::test {

using namespace std::chrono_literals;

StandIn::StandIn(const std::string& scenario, const std::string& name, std::uint16_t port) {
  const std::filesystem::path folder = std::filesystem::current_path();
  traceFile = folder / (name + ".jsonl");
  outputFile = folder / (name + ".out");
  writeBytes(folder / (name + ".json"), scenario);
  // A stand-in before this one may have left its files; their port is not this one's.
  std::filesystem::remove(outputFile);
  std::filesystem::remove(traceFile);
  child = std::make_unique<ChildProcess>(SIMSTAND_EXE,
                                         std::vector<std::string>{"--scenario", name + ".json", "--trace",
                                                                  traceFile.string(), "--port",
                                                                  std::to_string(port)},
                                         folder, folder, outputFile);
  const std::string prefix = "listening on ";
  if (!eventually([&] { return readFile(outputFile).find('\n') != std::string::npos; }, 10s) ||
      readFile(outputFile).rfind(prefix, 0) != 0)
    throw std::runtime_error("simstand did not start: " + readFile(outputFile));
  listenPort = static_cast<std::uint16_t>(std::stoi(readFile(outputFile).substr(prefix.size())));
}

StandIn::~StandIn() {
  stop(SIGTERM);
}

std::optional<int> StandIn::stop(int signalNumber) {
  if (child->running()) child->signal(signalNumber);
  return child->waitExit(5s);
}

std::string StandIn::output() const {
  return readFile(outputFile);
}

std::vector<nlohmann::json> StandIn::trace() const {
  std::vector<nlohmann::json> lines;
  std::ifstream in(traceFile);
  for (std::string line; std::getline(in, line);)
    if (auto parsed = nlohmann::json::parse(line, nullptr, false); parsed.is_object())
      lines.push_back(parsed);
  return lines;
}

bool StandIn::waitForTrace(const std::function<bool(const nlohmann::json&)>& predicate,
                           std::chrono::milliseconds limit) const {
  return eventually(
      [&] {
        for (const nlohmann::json& line : trace())
          if (predicate(line)) return true;
        return false;
      },
      limit);
}

void StandIn::writeSimConnectCfg() const {
  test::writeSimConnectCfg("IPv4", "127.0.0.1", listenPort);
}

} // namespace ory::test
