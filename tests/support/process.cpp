#include "support/process.h"

#include <fcntl.h>
#include <signal.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace ory::test {

ChildProcess::ChildProcess(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                           const std::filesystem::path& folder, const std::filesystem::path& homeFolder,
                           const std::filesystem::path& output) {
  std::vector<std::string> words{program.string()};
  words.insert(words.end(), arguments.begin(), arguments.end());
  pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid > 0) return;
  // The child: only async-signal-safe work until exec.
  const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (out >= 0) {
    dup2(out, 1);
    dup2(out, 2);
  }
  if (chdir(folder.c_str()) != 0) _exit(126);
  setenv("HOME", homeFolder.c_str(), 1);
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  execv(argv[0], argv.data());
  _exit(127);
}

ChildProcess::~ChildProcess() {
  if (running()) {
    kill(pid, SIGKILL);
    waitExit(std::chrono::seconds(5));
  }
}

void ChildProcess::signal(int signalNumber) {
  if (running()) kill(pid, signalNumber);
}

bool ChildProcess::running() {
  if (exitCode || pid <= 0) return false;
  int status = 0;
  const int done = waitpid(pid, &status, WNOHANG);
  if (done == 0) return true;
  exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return false;
}

std::optional<int> ChildProcess::waitExit(std::chrono::milliseconds limit) {
  eventually([this] { return !running(); }, limit);
  return exitCode;
}

bool eventually(const std::function<bool()>& predicate, std::chrono::milliseconds limit,
                std::chrono::milliseconds every) {
  const auto end = std::chrono::steady_clock::now() + limit;
  for (;;) {
    if (predicate()) return true;
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(every);
  }
}

} // namespace ory::test
