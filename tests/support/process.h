#pragma once
// A child process for integration tests: the program or a stand-in started with its own working folder and
// environment, its standard output in a file, stopped by signal, waited for with a limit.

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ory::test {

class ChildProcess {
public:
  // Starts PROGRAM with ARGUMENTS in FOLDER; HOME is set to HOME_FOLDER; stdout and stderr go to OUTPUT.
  ChildProcess(const std::filesystem::path& PROGRAM, const std::vector<std::string>& ARGUMENTS,
               const std::filesystem::path& FOLDER, const std::filesystem::path& HOME_FOLDER,
               const std::filesystem::path& OUTPUT);
  ~ChildProcess(); // kills a child that still runs
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void signal(int SIGNAL_NUMBER);
  // The exit code, or nothing when the child is still running after LIMIT.
  std::optional<int> waitExit(std::chrono::milliseconds LIMIT);
  bool running();

private:
  int pid = -1;
  std::optional<int> exitCode;
};

// Polls until PREDICATE holds or LIMIT passes.
bool eventually(const std::function<bool()>& PREDICATE, std::chrono::milliseconds LIMIT);

} // namespace ory::test
