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

void lf_closeReaderSocket(UdpReader& reader) {
  closeSocket(reader.socket.exchange(invalidSocket));
}

// recvfrom is the only buffer: the loop does nothing but take datagrams. The wait is cut into short rounds,
// so that a stop is seen even where a shut-down datagram socket doesn't wake it; this thread alone closes its
// socket, so that no other thread closes it under a running receive.
void lf_receiveLoop(UdpReader& reader) {
  constexpr int roundMs = 250;
  while (!reader.stopFlag) {
    const SocketHandle socket = reader.socket;
    if (socket == invalidSocket) break;
    const int ready = waitReadable(socket, roundMs);
    if (ready < 0) break;
    if (ready == 0) continue;
    const long count = receiveSome(socket, reader.buffer.data(), datagramBufferSize);
    if (count >= static_cast<long>(datagramBufferSize))
      logLine(fmt::format("buffer overrun: {} bytes", count));
    else if (count > 0)
      takeDatagram(reader, static_cast<std::size_t>(count));
  }
  lf_closeReaderSocket(reader);
  reader.onStopped();
}

void lf_setUp(UdpReader& reader, std::uint16_t port) {
  const SocketHandle socket = openUdpSocket();
  if (socket == invalidSocket)
    throw SysErrorException(
        31, fmt::format("failed to create the socket with error: {}", socketErrorText(lastSocketError())));
  reader.socket = socket;
  // A RealTraffic on another PC must be heard; one on this PC is served on loopback only.
  if (!bindSocket(socket, port, rtDetected))
    throw SysErrorException(
        32, fmt::format("bind to stream socket failed with error: {}", socketErrorText(lastSocketError())));
}

} // namespace

void takeDatagram(UdpReader& reader, std::size_t count) {
  reader.buffer[count] = '\0';
  const char* start = reader.buffer.data();
  const void* zero = std::memchr(start, '\0', count);
  reader.line = std::string_view(start, zero ? static_cast<const char*>(zero) - start : count);
  reader.packetCount.fetch_add(1, std::memory_order_relaxed);
  if (!rtDetected) {
    // Another PC's RealTraffic may send every report twice.
    if (reader.line == reader.lastLine) return;
    reader.lastLine.assign(reader.line);
  }
  reader.processData();
}

void readerThread(UdpReader& reader, std::uint16_t port) {
  bool started = false;
  try {
    if (!startSockets())
      throw SysErrorException(30, fmt::format("WSA startup error: {}", socketErrorText(lastSocketError())));
    started = true;
    lf_setUp(reader, port);
    reader.onConnected();
    logLine(fmt::format("{} connected", reader.name));
    lf_receiveLoop(reader);
  } catch (const std::exception& e) {
    lf_closeReaderSocket(reader);
    logLine(fmt::format("{} disconnected", reader.name));
    showMessage(fmt::format("The {} has stopped with an error: {}", reader.threadName, e.what()), true);
    readerError = true;
  }
  if (started) stopSockets();
}

void startReaderThread(UdpReader& reader, std::uint16_t port) {
  startCountedThread([&reader, port] { readerThread(reader, port); });
}

void stopReader(UdpReader& reader) {
  reader.stopFlag = true;
  shutdownSocket(reader.socket); // wakes the wait at once where it can; the reader closes the socket
}

} // namespace ory
