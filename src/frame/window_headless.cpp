// The headless face: no window; the message and error lines go to standard output, and posted messages wait
// in a queue for the entry's loop.
#include "frame/window.h"

#include <fmt/format.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>

namespace ory {

namespace {
std::mutex lf_queueLock;
std::condition_variable lf_queueSignal;
std::deque<unsigned> lf_queue;
} // namespace

void paintMessageBand(std::string_view text, bool errorLine) {
  if (text.empty()) return;
  fmt::print("{}: {}\n", errorLine ? "error" : "message", text);
  std::fflush(stdout);
}

void showBool(const BoolParameter&) {}
void showInt(const IntParameter&) {}
void showFloat(const FloatParameter&) {}
void showText(const TextParameter&) {}
void clearEdit(const Control&) {}
void enableControl(const Control&, bool) {}
void setTopmost(bool) {}
void repaintWindow() {}

void postWindowMessage(unsigned message) {
  // Notified under the lock: the waiter may end the process as soon as it has the message.
  std::lock_guard lock(lf_queueLock);
  lf_queue.push_back(message);
  lf_queueSignal.notify_one();
}

bool windowExists() {
  return true;
}

unsigned nextPostedMessage(int timeoutMs) {
  std::unique_lock lock(lf_queueLock);
  if (!lf_queueSignal.wait_for(lock, std::chrono::milliseconds(timeoutMs), [] { return !lf_queue.empty(); }))
    return 0;
  const unsigned message = lf_queue.front();
  lf_queue.pop_front();
  return message;
}

} // namespace ory
