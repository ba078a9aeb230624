#include "stand_in.h"

#include "support/scratch.h"
#include "wire_peer.h"

#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace ory::test {

bool waitUntil(const std::function<bool()>& CONDITION, int TIMEOUT_MS) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(TIMEOUT_MS);
  while (!CONDITION()) {
    if (std::chrono::steady_clock::now() >= until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

ChildProcess::ChildProcess(const std::vector<std::string>& ARGS, const std::filesystem::path& OUTPUT_FILE) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  int pipeEnds[2] = {-1, -1};
  if (OUTPUT_FILE.empty()) {
    if (pipe2(pipeEnds, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], 1);
  } else {
    posix_spawn_file_actions_addopen(&actions, 1, OUTPUT_FILE.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  }
  std::vector<char*> argv;
  for (const std::string& arg : ARGS)
    argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  const int failed = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (pipeEnds[1] >= 0) close(pipeEnds[1]);
  output = pipeEnds[0];
  if (failed != 0) throw std::runtime_error(fmt::format("cannot start {}", ARGS[0]));
}

ChildProcess::~ChildProcess() {
  if (!ended) {
    terminate();
    if (!waitForExit(10000)) {
      kill(pid, SIGKILL);
      waitForExit(5000);
    }
  }
  if (output >= 0) close(output);
}

std::string ChildProcess::readLine(int TIMEOUT_MS) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(TIMEOUT_MS);
  for (;;) {
    const std::size_t end = pending.find('\n');
    if (end != std::string::npos) {
      std::string line = pending.substr(0, end);
      pending.erase(0, end + 1);
      return line;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
    pollfd p{output, POLLIN, 0};
    if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0) return {};
    char buffer[4096];
    const ssize_t got = read(output, buffer, sizeof(buffer));
    if (got <= 0) return {};
    pending.append(buffer, static_cast<std::size_t>(got));
  }
}

bool ChildProcess::waitForExit(int TIMEOUT_MS) {
  return ended || waitUntil(
                      [&] {
                        int raw = 0;
                        if (waitpid(pid, &raw, WNOHANG) != pid) return false;
                        ended = true;
                        status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
                        return true;
                      },
                      TIMEOUT_MS);
}

void ChildProcess::terminate() {
  if (!ended) kill(pid, SIGTERM);
}

StandIn::StandIn(const std::string& SCENARIO, const std::string& NAME)
    : traceFile(std::filesystem::current_path() / (NAME + ".jsonl")), child([&] {
        writeBytes(NAME + ".json", SCENARIO);
        return std::vector<std::string>{
            SIMSTAND_EXE, "--scenario", NAME + ".json", "--trace", traceFile.string(), "--port", "0"};
      }()) {
  const std::string first = child.readLine(10000);
  if (first.rfind("listening on ", 0) != 0) throw std::runtime_error("simstand did not start: " + first);
  listenPort = static_cast<std::uint16_t>(std::stoi(first.substr(13)));
}

std::vector<nlohmann::json> StandIn::trace() const {
  std::vector<nlohmann::json> lines;
  std::ifstream in(traceFile);
  for (std::string line; std::getline(in, line);)
    if (auto parsed = nlohmann::json::parse(line, nullptr, false); parsed.is_object())
      lines.push_back(parsed);
  return lines;
}

void StandIn::writeSimConnectCfg() const {
  test::writeSimConnectCfg("IPv4", "127.0.0.1", listenPort);
}

} // namespace ory::test
