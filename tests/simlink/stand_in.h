#pragma once
// Child processes for the tests that run the stand-in (and the program itself): started with posix_spawn in
// the test's scratch folder, stopped by SIGTERM, never left behind.

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ory::test {

class ChildProcess {
public:
  // Starts ARGS[0] with ARGS; its standard output goes to a pipe (readLine) or to OUTPUT_FILE.
  ChildProcess(const std::vector<std::string>& ARGS, const std::filesystem::path& OUTPUT_FILE = {});
  ~ChildProcess(); // SIGTERM, then SIGKILL after 10 seconds
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  std::string readLine(int TIMEOUT_MS);   // the next line of standard output, empty on timeout
  bool waitForExit(int TIMEOUT_MS);       // true once it ended; exitCode() tells how
  int exitCode() const { return status; } // -1 while running or after a signal
  void terminate();                       // SIGTERM

private:
  pid_t pid = -1;
  int output = -1;
  int status = -1;
  bool ended = false;
  std::string pending;
};

// The stand-in on a free port with SCENARIO (JSON text), tracing to trace.jsonl in the current folder.
class StandIn {
public:
  explicit StandIn(const std::string& SCENARIO, const std::string& NAME = "stand");
  std::uint16_t port() const { return listenPort; }
  std::vector<nlohmann::json> trace() const; // every line written so far
  // Waits up to TIMEOUT_MS for a trace line that PREDICATE accepts.
  template <typename Predicate>
  bool waitForTrace(Predicate PREDICATE, int TIMEOUT_MS) const;
  ChildProcess& process() { return child; }
  void writeSimConnectCfg() const; // SimConnect.cfg in the current folder, IPv4 to this stand-in

private:
  std::filesystem::path traceFile;
  ChildProcess child;
  std::uint16_t listenPort = 0;
};

bool waitUntil(const std::function<bool()>& CONDITION, int TIMEOUT_MS);

template <typename Predicate>
bool StandIn::waitForTrace(Predicate PREDICATE, int TIMEOUT_MS) const {
  return waitUntil(
      [&] {
        for (const nlohmann::json& line : trace())
          if (PREDICATE(line)) return true;
        return false;
      },
      TIMEOUT_MS);
}

} // namespace ory::test
