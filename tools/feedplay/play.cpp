#include "play.h"

#include "capture.h"
#include "os/sockets.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <thread>

namespace ory {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

struct Session {
  const PlayOptions& options;
  SocketHandle link = invalidSocket;
  std::string pending; // received text without its line end yet
  std::ofstream record;
  Clock::time_point begun = Clock::now();
  Clock::time_point reconnectAt{}; // when to try the link again
  bool everConnected = false;
  bool programLeft = false; // "exit" came
  bool positionSeen = false;
  int positions = 0;
  int times = 0;
};

void lf_say(std::string_view TEXT) {
  std::cout << TEXT << std::endl;
}

double lf_secondsSince(Clock::time_point START) {
  return std::chrono::duration<double>(Clock::now() - START).count();
}

double lf_unixNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void lf_reply(Session& S, std::string_view TEXT) {
  if (!sendAll(S.link, TEXT.data(), TEXT.size())) lf_say("the version reply could not be sent");
}

void lf_takeLine(Session& S, std::string_view LINE) {
  if (S.record.is_open()) S.record << fmt::format("{:.3f} {}", lf_secondsSince(S.begun), LINE) << std::endl;
  if (LINE == "Qs999=version") {
    lf_reply(S, nlohmann::json{{"version", S.options.version}, {"level", S.options.level}}.dump());
    lf_say(fmt::format("version request answered with level {}", S.options.level));
  } else if (LINE.starts_with("Qs121=")) {
    S.positionSeen = true;
    ++S.positions;
  } else if (LINE.starts_with("Qs123=")) {
    ++S.times;
  } else if (LINE == "exit") {
    S.programLeft = true;
    lf_say("exit received");
  } else {
    lf_say(fmt::format("unknown line: {}", LINE));
  }
}

void lf_closeLink(Session& S, Clock::time_point RETRY_AT) {
  closeSocket(S.link);
  S.link = invalidSocket;
  S.pending.clear();
  S.reconnectAt = RETRY_AT;
}

void lf_tryConnect(Session& S) {
  S.link = connectTcp(S.options.host, S.options.port);
  if (S.link == invalidSocket) {
    S.reconnectAt = Clock::now() + 200ms;
    return;
  }
  setNoDelay(S.link, true);
  lf_say(S.everConnected ? "re-connected"
                         : fmt::format("connected to {}:{}", S.options.host, S.options.port));
  S.everConnected = true;
}

void lf_receive(Session& S) {
  char chunk[4096];
  const long got = receiveSome(S.link, chunk, sizeof(chunk));
  if (got <= 0) {
    if (!S.programLeft) lf_say("the program closed the link");
    lf_closeLink(S, Clock::now() + 200ms);
    return;
  }
  S.pending.append(chunk, static_cast<std::size_t>(got));
  for (std::size_t end = S.pending.find('\n'); end != std::string::npos; end = S.pending.find('\n')) {
    std::string line = S.pending.substr(0, end);
    S.pending.erase(0, end + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lf_takeLine(S, line);
  }
}

// Serves the link until DEADLINE: answers, records, and connects again after a loss, as RealTraffic does.
void lf_serve(Session& S, Clock::time_point DEADLINE) {
  while (Clock::now() < DEADLINE) {
    if (S.link == invalidSocket) {
      if (S.programLeft || !S.options.link) {
        std::this_thread::sleep_until(DEADLINE);
        return;
      }
      if (Clock::now() >= S.reconnectAt) lf_tryConnect(S);
      if (S.link == invalidSocket) std::this_thread::sleep_until(std::min(DEADLINE, S.reconnectAt));
      continue;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(DEADLINE - Clock::now());
    const int ready = waitReadable(S.link, static_cast<int>(std::clamp<long long>(left.count(), 1, 1000)));
    if (ready > 0) lf_receive(S);
    if (ready < 0) lf_closeLink(S, Clock::now() + 200ms);
  }
}

// Serves the link until CONDITION holds or the program has left.
template <typename Condition>
void lf_serveUntil(Session& S, Condition CONDITION) {
  while (!CONDITION() && !(S.programLeft && S.link == invalidSocket))
    lf_serve(S, Clock::now() + 50ms);
}

} // namespace

int playCapture(const PlayOptions& OPTIONS) {
  const std::vector<CaptureEntry> entries = readCapture(OPTIONS.capture);
  if (!startSockets()) {
    std::cerr << "feedplay: sockets unavailable\n";
    return 1;
  }
  Session session{OPTIONS};
  if (!OPTIONS.record.empty()) session.record.open(OPTIONS.record, std::ios::trunc);
  const SocketHandle udp = openUdpSender();
  if (OPTIONS.link) {
    lf_say(fmt::format("waiting for the program at {}:{}", OPTIONS.host, OPTIONS.port));
    lf_serveUntil(session, [&] { return session.link != invalidSocket; });
    if (!OPTIONS.startAtOnce) lf_serveUntil(session, [&] { return session.positionSeen; });
  }
  const Clock::time_point start = Clock::now();
  int traffic = 0;
  int weather = 0;
  for (const CaptureEntry& entry : entries) {
    if (session.programLeft) break;
    const auto due = start + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(entry.offset / OPTIONS.speed));
    lf_serve(session, due);
    if (entry.kind == CaptureKind::drop) {
      lf_say(fmt::format("dropping the link for {} s", entry.awaySeconds));
      lf_closeLink(session, Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                               std::chrono::duration<double>(entry.awaySeconds)));
      continue;
    }
    const bool isTraffic = entry.kind == CaptureKind::traffic;
    const std::string payload = isTraffic ? retimedLine(entry.payload, lf_unixNow()) : entry.payload;
    sendDatagram(udp, OPTIONS.udpHost, isTraffic ? OPTIONS.trafficPort : OPTIONS.weatherPort, payload.data(),
                 payload.size());
    ++(isTraffic ? traffic : weather);
  }
  lf_say(fmt::format("played {} traffic lines and {} weather reports", traffic, weather));
  if (OPTIONS.link) {
    if (OPTIONS.linger < 0)
      lf_serveUntil(session, [] { return false; });
    else
      lf_serve(session, Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(OPTIONS.linger)));
  }
  lf_say(fmt::format("received {} positions and {} times", session.positions, session.times));
  closeSocket(session.link);
  closeSocket(udp);
  stopSockets();
  return 0;
}

} // namespace ory
