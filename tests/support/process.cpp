#include "support/process.h"

#include <fcntl.h>
#include <signal.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace ory::test {

ChildProcess::ChildProcess(const std::filesystem::path& PROGRAM, const std::vector<std::string>& ARGUMENTS,
                           const std::filesystem::path& FOLDER, const std::filesystem::path& HOME_FOLDER,
                           const std::filesystem::path& OUTPUT) {
  std::vector<std::string> words{PROGRAM.string()};
  words.insert(words.end(), ARGUMENTS.begin(), ARGUMENTS.end());
  pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid > 0) return;
  // The child: only async-signal-safe work until exec.
  const int out = open(OUTPUT.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (out >= 0) {
    dup2(out, 1);
    dup2(out, 2);
  }
  if (chdir(FOLDER.c_str()) != 0) _exit(126);
  setenv("HOME", HOME_FOLDER.c_str(), 1);
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

void ChildProcess::signal(int SIGNAL_NUMBER) {
  if (running()) kill(pid, SIGNAL_NUMBER);
}

bool ChildProcess::running() {
  if (exitCode || pid <= 0) return false;
  int status = 0;
  const int done = waitpid(pid, &status, WNOHANG);
  if (done == 0) return true;
  exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return false;
}

std::optional<int> ChildProcess::waitExit(std::chrono::milliseconds LIMIT) {
  eventually([this] { return !running(); }, LIMIT);
  return exitCode;
}

bool eventually(const std::function<bool()>& PREDICATE, std::chrono::milliseconds LIMIT) {
  const auto end = std::chrono::steady_clock::now() + LIMIT;
  for (;;) {
    if (PREDICATE()) return true;
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

} // namespace ory::test
