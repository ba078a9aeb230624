#pragma once
// A connection to the simulator as a row of functions, one row per kind (TCP socket, named pipe), so that the
// client above reads and writes the same byte stream on every transport.

#include "simlink/simconnect/config.h"

#include <cstddef>
#include <cstdint>

namespace ory {

struct Transport {
  const char* name;                                                       // "TCP", "pipe"
  bool (*send)(std::intptr_t HANDLE, const void* DATA, std::size_t SIZE); // all of DATA, or false
  // Bytes read into BUFFER, waiting up to TIMEOUT_MS for the first; 0 when none came, -1 when closed or
  // failed.
  long (*receive)(std::intptr_t HANDLE, void* BUFFER, std::size_t SIZE, int TIMEOUT_MS);
  void (*close)(std::intptr_t HANDLE);
};

extern const Transport tcpTransport;
extern const Transport pipeTransport;

struct Connection {
  const Transport* transport = nullptr; // null: not connected
  std::intptr_t handle = -1;
};

// Connects to ENDPOINT, or gives an unconnected Connection; MAX_RECEIVE_SIZE and DISABLE_NAGLE tune a socket.
Connection connectTo(const SimEndpoint& ENDPOINT, std::uint32_t MAX_RECEIVE_SIZE, bool DISABLE_NAGLE);
void disconnect(Connection& CONNECTION);

} // namespace ory
