#pragma once
// A connection to the simulator as a row of functions, one row per kind (TCP socket, named pipe), so that the
// client above reads and writes the same byte stream on every transport.

#include "simlink/simconnect/config.h"

#include <cstddef>
#include <cstdint>

namespace ory {

struct Transport {
  const char* name;                                                       // "TCP", "pipe"
  bool (*send)(std::intptr_t handle, const void* data, std::size_t size); // all of data, or false
  // Bytes read into buffer, waiting up to timeoutMs for the first; 0 when none came, -1 when closed or
  // failed.
  long (*receive)(std::intptr_t handle, void* buffer, std::size_t size, int timeoutMs);
  void (*close)(std::intptr_t handle);
};

extern const Transport tcpTransport;
extern const Transport pipeTransport;

struct Connection {
  const Transport* transport = nullptr; // null: not connected
  std::intptr_t handle = -1;
};

// Connects to endpoint, or gives an unconnected Connection; maxReceiveSize and disableNagle tune a socket.
Connection connectTo(const SimEndpoint& endpoint, std::uint32_t maxReceiveSize, bool disableNagle);
void disconnect(Connection& connection);

} // namespace ory
