#pragma once
// The simulator stand-in as a process of its own for the tests: started on a free port in the test's scratch
// folder with a scenario given as text, its trace read back as JSON, stopped by SIGTERM so that the trace
// ends.

#include "support/process.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ory::test {

class StandIn {
public:
  // Runs simstand with scenario (JSON text) as name.json, tracing to name.jsonl in the current folder, on
  // port (0: a free one).
  explicit StandIn(const std::string& scenario, const std::string& name = "stand", std::uint16_t port = 0);
  ~StandIn();
  StandIn(const StandIn&) = delete;
  StandIn& operator=(const StandIn&) = delete;

  std::uint16_t port() const { return listenPort; }
  std::vector<nlohmann::json> trace() const; // every whole line written so far
  std::string output() const;                // what it printed
  // Waits up to limit for a trace line that predicate accepts.
  bool waitForTrace(const std::function<bool(const nlohmann::json&)>& predicate,
                    std::chrono::milliseconds limit) const;
  void writeSimConnectCfg() const; // SimConnect.cfg in the current folder: IPv4 to this stand-in
  // Stops it as Ctrl-C or a service manager would; its exit code.
  std::optional<int> stop(int signalNumber);

private:
  std::filesystem::path traceFile;
  std::filesystem::path outputFile;
  std::unique_ptr<ChildProcess> child;
  std::uint16_t listenPort = 0;
};

} // namespace ory::test
