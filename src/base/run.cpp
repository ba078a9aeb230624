#include "base/run.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"

#include <fmt/format.h>

#include <array>
#include <chrono>
#include <mutex>
#include <thread>

namespace ory {

std::atomic<std::int32_t> threadCount{0};
std::atomic<ExitReason> exitReason{ExitReason::notYetSet};
std::atomic<bool> exiting{false};
std::atomic<bool> userClosed{false};
std::atomic<bool> readerError{false};
std::atomic<bool> simRunning{false};
std::atomic<bool> secondTick{false};
std::atomic<bool> rtDetected{false};
std::atomic<bool> rtProfessional{false};
std::atomic<double> lastFeedTime{0.0};
std::atomic<std::int32_t> scanWorkerLimit{1};
std::atomic<std::int32_t> scanWorkers{0};
std::atomic<std::int32_t> simTick{0};
std::atomic<bool> renewalPending{false};
std::atomic<bool> renewalCollecting{false};
std::atomic<bool> flushPending{false};
std::atomic<bool> blockPending{false};
std::atomic<bool> clearNoMatchPending{false};
std::atomic<bool> reReadPending{false};
std::atomic<bool> navLightsPending{false};

namespace {

std::atomic<std::uint64_t> lf_nowSlot{(1ull << 32)};
std::mutex lf_threadLock;
std::stop_source lf_simulatorStop{std::nostopstate};
std::stop_source lf_mainLoopStop{std::nostopstate};

std::int32_t lf_decodeDay(std::string_view day) {
  static constexpr std::array<std::string_view, 7> days = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
  for (std::size_t i = 0; i < days.size(); ++i)
    if (days[i] == day) return static_cast<std::int32_t>(i + 1);
  throw SysErrorException(44, fmt::format("{} ?  lf_decodeDay", day));
}

std::int32_t lf_twoDigits(std::string_view text, std::size_t at) {
  const auto digit = [&](std::size_t k) { return text[k] == ' ' ? 0 : text[k] - '0'; };
  return digit(at) * 10 + digit(at + 1);
}

std::stop_source& lf_source(RunThread which) {
  return which == RunThread::simulator ? lf_simulatorStop : lf_mainLoopStop;
}

} // namespace

std::string_view exitReasonText(ExitReason reason) {
  static constexpr std::array<std::string_view, 6> texts = {"NOT_YET_SET", "SIM WAS CLOSED",  "RESTART",
                                                            "RESTART_IPP", "USER CLOSED SIM", "SYSTEM ERROR"};
  return texts.at(static_cast<std::size_t>(reason));
}

Slot slotOfTime(std::int64_t secondsSince1970) {
  // Read by position from the asctime text, "Www Mmm dd hh:mm:ss yyyy".
  const std::string text = utcText(static_cast<std::time_t>(secondsSince1970));
  const std::int32_t hour = lf_twoDigits(text, 11);
  const std::int32_t minute = lf_twoDigits(text, 14);
  return {lf_decodeDay(std::string_view(text).substr(0, 3)), (hour * 2 + (minute >= 30 ? 1 : 0)) % 48};
}

Slot currentSlot() {
  const auto feedSeconds = static_cast<std::int64_t>(lastFeedTime.load());
  if (rtProfessional && feedSeconds != 0) return slotOfTime(feedSeconds);
  return slotOfTime(static_cast<std::int64_t>(std::time(nullptr)));
}

void updateNowSlot() {
  const Slot slot = currentSlot();
  lf_nowSlot = (static_cast<std::uint64_t>(slot.day) << 32) | static_cast<std::uint32_t>(slot.halfHour);
}

Slot nowSlot() {
  const std::uint64_t packed = lf_nowSlot;
  return {static_cast<std::int32_t>(packed >> 32), static_cast<std::int32_t>(packed & 0xFFFFFFFFu)};
}

std::string slotText(Slot slot) {
  return fmt::format("day={} hh={}", slot.day, slot.halfHour);
}

void startRunThread(RunThread which, std::function<void(std::stop_token)> rawBody) {
  std::lock_guard lock(lf_threadLock);
  std::stop_source& source = lf_source(which);
  source = std::stop_source();
  startCountedThread([token = source.get_token(), body = std::move(rawBody)] { body(token); });
}

void startCountedThread(std::function<void()> body) {
  threadCount.fetch_add(1);
  try {
    std::thread([body = std::move(body)] {
      const CountedScope counted;
      body();
    }).detach();
  } catch (...) {
    threadCount.fetch_sub(1);
    throw;
  }
}

void stopRunThreads() {
  std::lock_guard lock(lf_threadLock);
  for (RunThread which : {RunThread::mainLoop, RunThread::simulator}) {
    std::stop_source& source = lf_source(which);
    if (source.stop_possible()) source.request_stop();
  }
}

void resetRunState() {
  secondTick = false;
  readerError = false;
  userClosed = false;
  rtProfessional = false;
  simRunning = false;
  exitReason = ExitReason::notYetSet;
}

} // namespace ory
