#include "feed/udp_reader.h"

#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/run.h"
#include "feed/socket_errors.h"

#include <fmt/format.h>

#include <cstring>
#include <thread>

namespace ory {

namespace {

void lf_closeReaderSocket(UdpReader& READER) {
  closeSocket(READER.socket.exchange(invalidSocket));
}

// recvfrom is the only buffer: the loop does nothing but take datagrams. The wait is cut into short rounds,
// so that a stop is seen even where a shut-down datagram socket doesn't wake it; this thread alone closes its
// socket, so that no other thread closes it under a running receive.
void lf_receiveLoop(UdpReader& READER) {
  constexpr int roundMs = 250;
  while (!READER.stopFlag) {
    const SocketHandle socket = READER.socket;
    if (socket == invalidSocket) break;
    const int ready = waitReadable(socket, roundMs);
    if (ready < 0) break;
    if (ready == 0) continue;
    const long count = receiveSome(socket, READER.buffer.data(), datagramBufferSize);
    if (count >= static_cast<long>(datagramBufferSize))
      logLine(fmt::format("buffer overrun: {} bytes", count));
    else if (count > 0)
      takeDatagram(READER, static_cast<std::size_t>(count));
  }
  lf_closeReaderSocket(READER);
  READER.onStopped();
}

void lf_setUp(UdpReader& READER, std::uint16_t PORT) {
  const SocketHandle socket = openUdpSocket();
  if (socket == invalidSocket)
    throw SysErrorException(
        31, fmt::format("failed to create the socket with error: {}", socketErrorText(lastSocketError())));
  READER.socket = socket;
  // A RealTraffic on another PC must be heard; one on this PC is served on loopback only.
  if (!bindSocket(socket, PORT, rtDetected))
    throw SysErrorException(
        32, fmt::format("bind to stream socket failed with error: {}", socketErrorText(lastSocketError())));
}

} // namespace

void takeDatagram(UdpReader& READER, std::size_t COUNT) {
  READER.buffer[COUNT] = '\0';
  const char* start = READER.buffer.data();
  const void* zero = std::memchr(start, '\0', COUNT);
  READER.line = std::string_view(start, zero ? static_cast<const char*>(zero) - start : COUNT);
  READER.packetCount.fetch_add(1, std::memory_order_relaxed);
  if (!rtDetected) {
    // Another PC's RealTraffic may send every report twice.
    if (READER.line == READER.lastLine) return;
    READER.lastLine.assign(READER.line);
  }
  READER.processData();
}

void readerThread(UdpReader& READER, std::uint16_t PORT) {
  ThreadCounter counted;
  bool started = false;
  try {
    if (!startSockets())
      throw SysErrorException(30, fmt::format("WSA startup error: {}", socketErrorText(lastSocketError())));
    started = true;
    lf_setUp(READER, PORT);
    READER.onConnected();
    logLine(fmt::format("{} connected", READER.name));
    lf_receiveLoop(READER);
  } catch (const std::exception& e) {
    lf_closeReaderSocket(READER);
    logLine(fmt::format("{} disconnected", READER.name));
    showMessage(fmt::format("The {} has stopped with an error: {}", READER.threadName, e.what()), true);
    readerError = true;
  }
  if (started) stopSockets();
}

void startReaderThread(UdpReader& READER, std::uint16_t PORT) {
  std::thread([&READER, PORT] { readerThread(READER, PORT); }).detach();
}

void stopReader(UdpReader& READER) {
  READER.stopFlag = true;
  shutdownSocket(READER.socket); // wakes the wait at once where it can; the reader closes the socket
}

} // namespace ory
