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

void lf_say(std::string_view text) {
  std::cout << text << std::endl;
}

double lf_secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double lf_unixNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void lf_reply(Session& s, std::string_view text) {
  if (!sendAll(s.link, text.data(), text.size())) lf_say("the version reply could not be sent");
}

void lf_takeLine(Session& s, std::string_view line) {
  if (s.record.is_open()) s.record << fmt::format("{:.3f} {}", lf_secondsSince(s.begun), line) << std::endl;
  if (line == "Qs999=version") {
    lf_reply(s, nlohmann::json{{"version", s.options.version}, {"level", s.options.level}}.dump());
    lf_say(fmt::format("version request answered with level {}", s.options.level));
  } else if (line.starts_with("Qs121=")) {
    s.positionSeen = true;
    ++s.positions;
  } else if (line.starts_with("Qs123=")) {
    ++s.times;
  } else if (line == "exit") {
    s.programLeft = true;
    lf_say("exit received");
  } else {
    lf_say(fmt::format("unknown line: {}", line));
  }
}

void lf_closeLink(Session& s, Clock::time_point retryAt) {
  closeSocket(s.link);
  s.link = invalidSocket;
  s.pending.clear();
  s.reconnectAt = retryAt;
}

void lf_tryConnect(Session& s) {
  s.link = connectTcp(s.options.host, s.options.port);
  if (s.link == invalidSocket) {
    s.reconnectAt = Clock::now() + 200ms;
    return;
  }
  setNoDelay(s.link, true);
  lf_say(s.everConnected ? "re-connected"
                         : fmt::format("connected to {}:{}", s.options.host, s.options.port));
  s.everConnected = true;
}

void lf_receive(Session& s) {
  char chunk[4096];
  const long got = receiveSome(s.link, chunk, sizeof(chunk));
  if (got <= 0) {
    if (!s.programLeft) lf_say("the program closed the link");
    lf_closeLink(s, Clock::now() + 200ms);
    return;
  }
  s.pending.append(chunk, static_cast<std::size_t>(got));
  for (std::size_t end = s.pending.find('\n'); end != std::string::npos; end = s.pending.find('\n')) {
    std::string line = s.pending.substr(0, end);
    s.pending.erase(0, end + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lf_takeLine(s, line);
  }
}

// Serves the link until deadline: answers, records, and connects again after a loss, as RealTraffic does.
void lf_serve(Session& s, Clock::time_point deadline) {
  while (Clock::now() < deadline) {
    if (s.link == invalidSocket) {
      if (s.programLeft || !s.options.link) {
        std::this_thread::sleep_until(deadline);
        return;
      }
      if (Clock::now() >= s.reconnectAt) lf_tryConnect(s);
      if (s.link == invalidSocket) std::this_thread::sleep_until(std::min(deadline, s.reconnectAt));
      continue;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    const int ready = waitReadable(s.link, static_cast<int>(std::clamp<long long>(left.count(), 1, 1000)));
    if (ready > 0) lf_receive(s);
    if (ready < 0) lf_closeLink(s, Clock::now() + 200ms);
  }
}

// Serves the link until condition holds or the program has left.
template <typename Condition>
void lf_serveUntil(Session& s, Condition condition) {
  while (!condition() && !(s.programLeft && s.link == invalidSocket))
    lf_serve(s, Clock::now() + 50ms);
}

} // namespace

int playCapture(const PlayOptions& options) {
  const std::vector<CaptureEntry> entries = readCapture(options.capture);
  if (!startSockets()) {
    std::cerr << "feedplay: sockets unavailable\n";
    return 1;
  }
  Session session{options};
  if (!options.record.empty()) session.record.open(options.record, std::ios::trunc);
  const SocketHandle udp = openUdpSender();
  if (options.link) {
    lf_say(fmt::format("waiting for the program at {}:{}", options.host, options.port));
    lf_serveUntil(session, [&] { return session.link != invalidSocket; });
    if (!options.startAtOnce) lf_serveUntil(session, [&] { return session.positionSeen; });
  }
  const Clock::time_point start = Clock::now();
  int traffic = 0;
  int weather = 0;
  for (const CaptureEntry& entry : entries) {
    if (session.programLeft) break;
    const auto due = start + std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(entry.offset / options.speed));
    lf_serve(session, due);
    if (entry.kind == CaptureKind::drop) {
      lf_say(fmt::format("dropping the link for {} s", entry.awaySeconds));
      lf_closeLink(session, Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                               std::chrono::duration<double>(entry.awaySeconds)));
      continue;
    }
    const bool isTraffic = entry.kind == CaptureKind::traffic;
    const std::string payload = isTraffic ? retimedLine(entry.payload, lf_unixNow()) : entry.payload;
    sendDatagram(udp, options.udpHost, isTraffic ? options.trafficPort : options.weatherPort, payload.data(),
                 payload.size());
    ++(isTraffic ? traffic : weather);
  }
  lf_say(fmt::format("played {} traffic lines and {} weather reports", traffic, weather));
  if (options.link) {
    if (options.linger < 0)
      lf_serveUntil(session, [] { return false; });
    else
      lf_serve(session, Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(options.linger)));
  }
  lf_say(fmt::format("received {} positions and {} times", session.positions, session.times));
  closeSocket(session.link);
  closeSocket(udp);
  stopSockets();
  return 0;
}

} // namespace ory
