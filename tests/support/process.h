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
  // Starts program with arguments in folder; HOME is set to homeFolder; stdout and stderr go to output.
  ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
               const std::filesystem::path& folder, const std::filesystem::path& homeFolder,
               const std::filesystem::path& output);
  ~ChildProcess(); // kills a child that still runs
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  void signal(int signalNumber);
  // The exit code, or nothing when the child is still running after limit.
  std::optional<int> waitExit(std::chrono::milliseconds limit);
  bool running();

private:
  int pid = -1;
  std::optional<int> exitCode;
};

// Polls until predicate holds or limit passes; a costly predicate polls less often, so as not to take the CPU
// from the processes it watches.
bool eventually(const std::function<bool()>& predicate, std::chrono::milliseconds limit,
                std::chrono::milliseconds every = std::chrono::milliseconds(20));

} // namespace ory::test
