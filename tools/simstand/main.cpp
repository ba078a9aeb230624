// simstand: the simulator stand-in. A SimConnect server that plays a scenario and traces every call and every
// object's state per frame. See README.md.
#include "scenario.h"
#include "server.h"

#include <fmt/format.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

std::atomic<bool> lf_stop{false};
extern "C" void lf_onSignal(int) {
  lf_stop = true;
}

int lf_usage() {
  fmt::print(stderr, "usage: simstand --scenario FILE --trace FILE [--port N]\n");
  return 2;
}

} // namespace

int main(int argc, char** argv) {
  std::string scenarioFile, traceFile;
  long port = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (i + 1 >= argc) return lf_usage();
    if (arg == "--scenario")
      scenarioFile = argv[++i];
    else if (arg == "--trace")
      traceFile = argv[++i];
    else if (arg == "--port")
      port = std::strtol(argv[++i], nullptr, 10);
    else
      return lf_usage();
  }
  if (scenarioFile.empty() || traceFile.empty() || port < 0 || port > 65535) return lf_usage();
  try {
    ory::Server server(ory::loadScenario(scenarioFile));
    if (!ory::openTrace(server.trace, traceFile)) {
      fmt::print(stderr, "simstand: cannot write {}\n", traceFile);
      return 1;
    }
    if (!ory::startServer(server, static_cast<std::uint16_t>(port))) {
      fmt::print(stderr, "simstand: cannot listen on port {}\n", port);
      return 1;
    }
    std::signal(SIGINT, lf_onSignal);
    std::signal(SIGTERM, lf_onSignal);
    std::signal(SIGPIPE, SIG_IGN);
    fmt::print("listening on {}\n", ory::serverPort(server));
    std::fflush(stdout);
    ory::runServer(server, lf_stop);
    fmt::print("simstand: {} after {} frames\n", server.endReason, server.frames);
  } catch (const std::exception& e) {
    fmt::print(stderr, "simstand: {}\n", e.what());
    return 1;
  }
  return 0;
}
