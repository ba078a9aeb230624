#pragma once
// The shared state of a run: exit reasons, the flags with which threads stop, the thread count that is the
// rendezvous of the exit (no thread is ever joined), the clock slot of the statistics, and the way out.

#include <atomic>
#include <cstdint>
#include <functional>
#include <stop_token>
#include <string>
#include <string_view>

namespace ory {

enum class ExitReason : std::int32_t {
  notYetSet = 0,
  simWasClosed = 1,
  restart = 2,
  restartIpp = 3, // the user typed the simulator's install path
  userClosedSim = 4,
  systemError = 5,
};
std::string_view exitReasonText(ExitReason reason); // "NOT_YET_SET" ... "SYSTEM ERROR"

extern std::atomic<std::int32_t> threadCount;     // running threads besides the message thread
extern std::atomic<ExitReason> exitReason;        // written only by requestExit, and reset by a restart
extern std::atomic<bool> exiting;                 // FinalExit runs; every long wait polls it
extern std::atomic<bool> userClosed;              // reason 4 reached its step in FinalExit
extern std::atomic<bool> readerError;             // a reader thread ended with an exception
extern std::atomic<bool> simRunning;              // the simulator reports a running flight
extern std::atomic<bool> secondTick;              // one simulator second has passed; consumed by mainLoop
extern std::atomic<bool> rtDetected;              // RealTraffic is installed on this PC
extern std::atomic<bool> rtProfessional;          // RealTraffic level 2 or no level: nowSlot follows the feed
extern std::atomic<double> lastFeedTime;          // seconds since 1970 of the newest traffic line
extern std::atomic<std::int32_t> scanWorkerLimit; // hardware concurrency, read at each start
extern std::atomic<std::int32_t> scanWorkers;     // running scan workers, held below scanWorkerLimit
extern std::atomic<std::int32_t> simTick;         // engine ticks of 10 ms, only while a flight runs

// Work wanted by the window or the simulator link, done and cleared by the main loop.
extern std::atomic<bool> renewalPending;
extern std::atomic<bool> renewalCollecting;
extern std::atomic<bool> flushPending;
extern std::atomic<bool> blockPending;
extern std::atomic<bool> clearNoMatchPending;
extern std::atomic<bool> reReadPending;
extern std::atomic<bool> navLightsPending;

// A thread is counted by the thread that starts it, before the start: the exit's wait must not miss a thread
// that is only starting. startCountedThread does both, and the count goes back when BODY returns or throws.
void startCountedThread(std::function<void()> body);

// Gives back, on every way out of its scope, the count that the starting thread took for this one.
class CountedScope {
public:
  CountedScope() = default;
  ~CountedScope() { threadCount.fetch_sub(1); }
  CountedScope(const CountedScope&) = delete;
  CountedScope& operator=(const CountedScope&) = delete;
};

// Weekday 1 (Monday) to 7 and half-hour index 0 to 47, UTC.
struct Slot {
  std::int32_t day = 1;
  std::int32_t halfHour = 0;
  bool operator==(const Slot&) const = default;
};
Slot slotOfTime(std::int64_t secondsSince1970);
Slot currentSlot(); // the feed's clock with a professional feed, else the system clock
void updateNowSlot();
Slot nowSlot();
std::string slotText(Slot slot); // "day={} hh={}"

// The simulator and main-loop threads end by a stop token; neither is joined.
enum class RunThread { simulator, mainLoop };
void startRunThread(RunThread which, std::function<void(std::stop_token)> body);
void stopRunThreads(); // the main loop first, then the simulator

// Asks for the way out, or for a restart after seconds; the first request wins.
void requestExit(ExitReason reason, int seconds);
// In the catch-all block at the top of a thread body: sorts the exception in hand.
void reportException(std::string_view where);

// The flags of the run back to those of a fresh start; a restart calls it.
void resetRunState();

} // namespace ory
