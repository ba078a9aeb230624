#include "simlink/simconnect/transport.h"

#include "os/pipes.h"
#include "os/sockets.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace ory {

namespace {

bool lf_socketSend(std::intptr_t handle, const void* data, std::size_t size) {
  return sendAll(handle, data, size);
}

long lf_socketReceive(std::intptr_t handle, void* buffer, std::size_t size, int timeoutMs) {
  const int ready = waitReadable(handle, timeoutMs);
  if (ready == 0) return 0;
  if (ready < 0) return -1;
  const long got = receiveSome(handle, buffer, size);
  return got > 0 ? got : -1;
}

// Closed with the simulator's records unread, the link would be reset, and a reset can cost the simulator
// the last calls it has not read yet: our side ends first, and what the simulator still sends is read away
// until it closes too, half a second at most.
void lf_socketClose(std::intptr_t handle) {
  endSending(handle);
  unsigned char unread[4096];
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
  while (std::chrono::steady_clock::now() < until && waitReadable(handle, 50) > 0 &&
         receiveSome(handle, unread, sizeof(unread)) > 0) {
  }
  closeSocket(handle);
}

bool lf_pipeSend(std::intptr_t handle, const void* data, std::size_t size) {
  return pipeWrite(handle, data, size);
}

// A pipe can't be waited on without overlapped reads; it is looked at once a millisecond instead.
long lf_pipeReceive(std::intptr_t handle, void* buffer, std::size_t size, int timeoutMs) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    const long available = pipeAvailable(handle);
    if (available < 0) return -1;
    if (available > 0) {
      const long got = pipeRead(handle, buffer, std::min(size, static_cast<std::size_t>(available)));
      return got > 0 ? got : -1;
    }
    if (std::chrono::steady_clock::now() >= until) return 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void lf_pipeClose(std::intptr_t handle) {
  closePipe(handle);
}

} // namespace

const Transport tcpTransport{"TCP", lf_socketSend, lf_socketReceive, lf_socketClose};
const Transport pipeTransport{"pipe", lf_pipeSend, lf_pipeReceive, lf_pipeClose};

Connection connectTo(const SimEndpoint& endpoint, std::uint32_t maxReceiveSize, bool disableNagle) {
  if (endpoint.protocol == SimProtocol::autoOrPipe) {
    const PipeHandle pipe = openPipeClient(endpoint.address);
    if (pipe == invalidPipe) return {};
    return {&pipeTransport, pipe};
  }
  static const bool socketsStarted = startSockets();
  (void)socketsStarted;
  const IpFamily family = endpoint.protocol == SimProtocol::ipv6 ? IpFamily::v6 : IpFamily::v4;
  const SocketHandle socket = connectTcp(endpoint.address, endpoint.port, family);
  if (socket == invalidSocket) return {};
  if (disableNagle) setNoDelay(socket, true);
  setReceiveBufferSize(socket, static_cast<int>(std::max<std::uint32_t>(maxReceiveSize, 65536)));
  return {&tcpTransport, socket};
}

void disconnect(Connection& connection) {
  if (connection.transport) connection.transport->close(connection.handle);
  connection = {};
}

} // namespace ory
