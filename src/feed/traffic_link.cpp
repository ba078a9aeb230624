#include "feed/traffic_link.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/run.h"
#include "base/version.h"
#include "engine/geometry.h"
#include "feed/feed.h"
#include "feed/socket_errors.h"
#include "os/sockets.h"
#include "simlink/user_aircraft.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstring>
#include <filesystem>
#include <mutex>

namespace ory {

std::atomic<bool> rtConnected{false};
std::atomic<std::int64_t> simEpochSeconds{0};

namespace {

namespace fs = std::filesystem;

constexpr std::size_t receiveLimit = 8192;

std::atomic<SocketHandle> lf_listenSocket{invalidSocket};
std::atomic<SocketHandle> lf_clientSocket{invalidSocket};
std::atomic<bool> lf_socketsStarted{false};
// Held for every call on the two sockets except the waits for readability, so that the exit, which closes
// them from its own thread, never closes one under a running call.
std::mutex lf_linkLock;
std::array<char, 16384 + 1> lf_receiveBuffer{}; // one more for the end mark
std::mutex lf_stateLock;                        // the lost-traffic action and the user's position
std::function<void()> lf_trafficLostAction;

std::string lf_errorText() {
  return socketErrorText(lastSocketError());
}

// Under lf_linkLock.
void lf_closeSockets() {
  closeSocket(lf_clientSocket.exchange(invalidSocket));
  closeSocket(lf_listenSocket.exchange(invalidSocket));
  if (lf_socketsStarted.exchange(false)) stopSockets();
}

[[noreturn]] void lf_serverFailed(int number, const std::string& text) {
  std::lock_guard lock(lf_linkLock);
  lf_closeSockets();
  throw SysErrorException(number, text);
}

// Waits until the socket is readable; false once the exit has closed it. Short rounds, and the socket read
// anew in each, since the exit closes it from its own thread.
bool lf_waitReadable(const std::atomic<SocketHandle>& rawSocket) {
  constexpr int roundMs = 250;
  for (;;) {
    const SocketHandle socket = rawSocket;
    if (socket == invalidSocket) return false;
    const int ready = waitReadable(socket, roundMs);
    if (ready != 0) return ready > 0 && rawSocket == socket;
  }
}

// A failed send on the main loop: the live aircraft go, and the feed starts afresh when RealTraffic is back.
void lf_realTrafficGone() {
  display.rtLinkUp = false;
  repaintWindow();
  std::function<void()> action;
  {
    std::lock_guard lock(lf_stateLock);
    action = lf_trafficLostAction;
  }
  if (action) action();
  resetFeed();
  showMessage(fmt::format("{} RealTraffic gone? Wait for RealTraffic to re-connect ...", timeOfDay()), true);
}

} // namespace

void detectRealTraffic() {
  std::error_code error;
  const bool found = fs::exists(realTrafficMark(), error);
  if (error && error != std::errc::no_such_file_or_directory)
    throw fs::filesystem_error("exists", realTrafficMark(), error);
  rtDetected = found;
  showMessage(fmt::format("RealTraffic {}detected at this PC", found ? "" : "not "), true);
}

void openServer(std::string_view portText) {
  if (!startSockets())
    throw SysErrorException(0, fmt::format("WSAStartup failed with error {}", lf_errorText()));
  lf_socketsStarted = true;
  const ListenerOpening opening = openListener(portText);
  const std::string error = socketErrorText(opening.error);
  switch (opening.step) {
  case ListenerStep::resolve:
    lf_serverFailed(1, fmt::format("getaddrinfo failed with error {}", error));
  case ListenerStep::socket:
    lf_serverFailed(2, "socket failed with error " + error);
  case ListenerStep::blocking:
    lf_serverFailed(3, "ioctlsocket failed with error " + error);
  case ListenerStep::reuseAddress:
    lf_serverFailed(4, "setsockopt(SO_REUSEADDR) failed");
  case ListenerStep::bind:
    lf_serverFailed(5, fmt::format("Bind failed at port {} with error {}", portText, error));
  case ListenerStep::listen:
    lf_serverFailed(6, "listen failed with error " + error);
  case ListenerStep::ready:
    break;
  }
  std::lock_guard lock(lf_linkLock);
  lf_listenSocket = opening.socket;
}

bool waitForClient() {
  if (rtConnected) return false;
  // Blocks; closing the server socket from the exit ends the wait.
  if (!lf_waitReadable(lf_listenSocket)) return false;
  std::lock_guard lock(lf_linkLock);
  const SocketHandle listening = lf_listenSocket;
  if (listening == invalidSocket) return false;
  const SocketHandle client = acceptClient(listening);
  if (client == invalidSocket) return false;
  try {
    if (!setNoDelay(client, true))
      throw SysErrorException(7,
                              fmt::format("{} setsockopt failed with error {}", timeOfDay(), lf_errorText()));
  } catch (const SysErrorException& e) {
    closeSocket(client);
    logLine(fmt::format("waitForClient interrupted: {}", e.what()));
    return false;
  }
  lf_clientSocket = client;
  rtConnected = true;
  return true;
}

void handshake() {
  if (!rtDetected) return;
  showMessage(fmt::format("Waiting for RealTraffic to connect to {} ...", programName), true);
  resetFeed();
  // A RealTraffic that is gone again at once is waited for by the position's re-connection.
  if (waitForClient() && sendDataPacket("Qs999=version\r\n")) {
    takeVersionReply(receive());
    display.rtLinkUp = true;
    repaintWindow();
    logLine("RealTraffic connected");
  }
  clearMessage();
}

std::string receive() {
  if (!lf_waitReadable(lf_clientSocket)) return {};
  std::lock_guard lock(lf_linkLock);
  const long count = receiveSome(lf_clientSocket, lf_receiveBuffer.data(), receiveLimit);
  if (count < 0) {
    logLine(fmt::format("receive: {}", lf_errorText()));
    return {};
  }
  lf_receiveBuffer[static_cast<std::size_t>(count)] = '\0';
  return std::string(lf_receiveBuffer.data());
}

void takeVersionReply(std::string_view rawReply) {
  if (rawReply.empty()) {
    rtProfessional = false;
    showMessage("No RealTraffic version received?", true);
    return;
  }
  nlohmann::json reply;
  try {
    reply = nlohmann::json::parse(rawReply);
  } catch (const nlohmann::json::exception& e) {
    logLine(fmt::format("RealTraffic version reply not understood: {} in {}", e.what(), rawReply));
  }
  if (!reply.is_object()) {
    rtProfessional = false;
    showMessage("No RealTraffic version received?", true);
    return;
  }
  const auto version = reply.find("version");
  const std::string versionText = version == reply.end() ? "?"
                                  : version->is_string() ? version->get<std::string>()
                                                         : version->dump();
  const auto level = reply.find("level");
  rtProfessional = level == reply.end() || (level->is_number() && level->get<double>() == 2);
  const std::string status =
      fmt::format("RT{} edition: {}, archive: week {}", rtProfessional ? " prof" : " stnd", versionText,
                  display.archiveWeek.load());
  {
    std::lock_guard lock(windowTextLock);
    display.rtStatusText = status;
  }
  logLine(status);
}

bool sendDataPacket(std::string_view text) {
  std::lock_guard lock(lf_linkLock);
  if (sendAll(lf_clientSocket, text.data(), text.size())) return true;
  logLine(fmt::format("sendDataPacket to RealTraffic failed: {}", lf_errorText()));
  rtConnected = false;
  closeSocket(lf_clientSocket.exchange(invalidSocket));
  logLine("RealTraffic client socket closed");
  return false;
}

std::string positionLine(const UserPosition& user) {
  return fmt::format("Qs121={:.0f};{:.0f};{:.6f};{:.0f};{};{:.6f};{:.6f}\r\n", user.pitch * 100000.0,
                     user.bank * 100000.0, user.heading, user.altitude * 1000.0, user.groundVelocity * 1000.0,
                     user.lat * degToRad, user.lon * degToRad);
}

void sendUserPosition(const UserPosition& user) {
  if (!rtDetected) return;
  if (isNullPosition(user.lat, user.lon)) return;
  if (!rtConnected) {
    if (exitReason != ExitReason::notYetSet) return;
    if (!waitForClient()) return;
    display.rtLinkUp = true;
    repaintWindow();
    showMessage(fmt::format("{} RealTraffic re-connected", timeOfDay()), true);
    clearMessage();
    return;
  }
  if (!sendDataPacket(positionLine(user))) lf_realTrafficGone();
}

void sendSimTime() {
  const std::int64_t seconds = simEpochSeconds;
  if (seconds < 1 || !rtConnected || !rtProfessional) return;
  // The time may be the first to find RealTraffic gone; the position would then only find the link closed.
  if (!sendDataPacket(fmt::format("Qs123={}\r\n", seconds * 1000))) lf_realTrafficGone();
}

void closeLink() {
  shutdownSocket(lf_listenSocket); // ends an accept that holds the lock
  std::lock_guard lock(lf_linkLock);
  // rtConnected stays: after a restart the first send fails on the closed socket and clears it.
  if (rtConnected) {
    constexpr std::string_view bye = "exit\r\n";
    sendAll(lf_clientSocket, bye.data(), bye.size());
  }
  lf_closeSockets();
}

std::int64_t simEpochSecondsOf(std::int32_t year, std::int32_t dayOfYear, std::int64_t secondsOfDay) {
  const auto leapDaysBefore = [](std::int64_t y) { return y / 4 - y / 100 + y / 400; };
  const std::int64_t days = (static_cast<std::int64_t>(year) - 1970) * 365 + leapDaysBefore(year - 1) -
                            leapDaysBefore(1969) + (dayOfYear - 1);
  return days * 86400 + secondsOfDay;
}

void setTrafficLostAction(std::function<void()> action) {
  std::lock_guard lock(lf_stateLock);
  lf_trafficLostAction = std::move(action);
}

UserPosition userPosition() {
  const UserAircraft user = readUserAircraft();
  return {user.lat, user.lon, user.pitch, user.bank, user.heading, user.altitude, user.groundSpeed};
}

} // namespace ory
