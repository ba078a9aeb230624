#include "simlink/simconnect/transport.h"

#include "os/pipes.h"
#include "os/sockets.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace ory {

namespace {

bool lf_socketSend(std::intptr_t HANDLE, const void* DATA, std::size_t SIZE) {
  return sendAll(HANDLE, DATA, SIZE);
}

long lf_socketReceive(std::intptr_t HANDLE, void* BUFFER, std::size_t SIZE, int TIMEOUT_MS) {
  const int ready = waitReadable(HANDLE, TIMEOUT_MS);
  if (ready == 0) return 0;
  if (ready < 0) return -1;
  const long got = receiveSome(HANDLE, BUFFER, SIZE);
  return got > 0 ? got : -1;
}

void lf_socketClose(std::intptr_t HANDLE) {
  closeSocket(HANDLE);
}

bool lf_pipeSend(std::intptr_t HANDLE, const void* DATA, std::size_t SIZE) {
  return pipeWrite(HANDLE, DATA, SIZE);
}

// A pipe can't be waited on without overlapped reads; it is looked at once a millisecond instead.
long lf_pipeReceive(std::intptr_t HANDLE, void* BUFFER, std::size_t SIZE, int TIMEOUT_MS) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(TIMEOUT_MS);
  for (;;) {
    const long available = pipeAvailable(HANDLE);
    if (available < 0) return -1;
    if (available > 0) {
      const long got = pipeRead(HANDLE, BUFFER, std::min(SIZE, static_cast<std::size_t>(available)));
      return got > 0 ? got : -1;
    }
    if (std::chrono::steady_clock::now() >= until) return 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void lf_pipeClose(std::intptr_t HANDLE) {
  closePipe(HANDLE);
}

} // namespace

const Transport tcpTransport{"TCP", lf_socketSend, lf_socketReceive, lf_socketClose};
const Transport pipeTransport{"pipe", lf_pipeSend, lf_pipeReceive, lf_pipeClose};

Connection connectTo(const SimEndpoint& ENDPOINT, std::uint32_t MAX_RECEIVE_SIZE, bool DISABLE_NAGLE) {
  if (ENDPOINT.protocol == SimProtocol::autoOrPipe) {
    const PipeHandle pipe = openPipeClient(ENDPOINT.address);
    if (pipe == invalidPipe) return {};
    return {&pipeTransport, pipe};
  }
  static const bool socketsStarted = startSockets();
  (void)socketsStarted;
  const IpFamily family = ENDPOINT.protocol == SimProtocol::ipv6 ? IpFamily::v6 : IpFamily::v4;
  const SocketHandle socket = connectTcp(ENDPOINT.address, ENDPOINT.port, family);
  if (socket == invalidSocket) return {};
  if (DISABLE_NAGLE) setNoDelay(socket, true);
  setReceiveBufferSize(socket, static_cast<int>(std::max<std::uint32_t>(MAX_RECEIVE_SIZE, 65536)));
  return {&tcpTransport, socket};
}

void disconnect(Connection& CONNECTION) {
  if (CONNECTION.transport) CONNECTION.transport->close(CONNECTION.handle);
  CONNECTION = {};
}

} // namespace ory
