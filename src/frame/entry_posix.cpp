// The Linux entry: the same life as the Windows program behind the headless face. SIGINT and SIGTERM act as
// the window's close button.
#include "base/exceptions.h"
#include "base/log.h"
#include "base/paths.h"
#include "frame/window.h"
#include "os/instance.h"

#include <fmt/format.h>

#include <atomic>
#include <csignal>
#include <filesystem>

namespace {

std::atomic<bool> lf_closeWanted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void lf_onSignal(int) {
  lf_closeWanted = true;
}

int lf_messageLoop() {
  for (;;) {
    if (lf_closeWanted.exchange(false)) ory::onCloseRequest();
    switch (ory::nextPostedMessage(100)) {
    case ory::startMessage:
      ory::onStartMessage();
      break;
    case ory::endMessage:
      ory::onEndMessage();
      return 0;
    default:
      break;
    }
  }
}

} // namespace

int main() {
  if (!ory::claimSingleInstance("Local\\$Trovalyn_P3D$")) return -1;
  try {
    ory::openLog();
    std::filesystem::create_directories(ory::appDataProgramFolder());
  } catch (const std::exception& e) {
    fmt::print(stderr, "{}\n", e.what());
    return 1;
  }
  std::signal(SIGINT, lf_onSignal);
  std::signal(SIGTERM, lf_onSignal);
  ory::postWindowMessage(ory::startMessage);
  return lf_messageLoop();
}
