#pragma once
// The server end of a loopback connection for the client's tests: it accepts the client, reads its packets
// whole and sends it raw bytes, so that tests see the wire exactly as a simulator would.

#include "os/sockets.h"
#include "simlink/simconnect/simconnect.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ory::test {

using Bytes = std::vector<unsigned char>;

Bytes fromHex(std::string_view hex); // blanks allowed
std::uint32_t u32At(const Bytes& bytes, std::size_t at);
double f64At(const Bytes& bytes, std::size_t at);
std::string textAt(const Bytes& bytes, std::size_t at, std::size_t field);

// A record as a server sends it: header with size, version 4 and id, then payload.
Bytes serverRecord(std::uint32_t id, const Bytes& payload, std::uint32_t version = 4);
// The OPEN reply of a simulator named name with application version 5.3.17.28160.
Bytes openRecord(std::string_view name);
Bytes exceptionRecord(std::uint32_t exception, std::uint32_t sendId, std::uint32_t index);

class WirePeer {
public:
  explicit WirePeer(IpFamily family = IpFamily::v4);
  ~WirePeer();
  WirePeer(const WirePeer&) = delete;
  WirePeer& operator=(const WirePeer&) = delete;

  std::uint16_t port() const { return listenPort; }
  bool accept(int timeoutMs = 5000);      // the next client; the previous one is closed
  Bytes readPacket(int timeoutMs = 5000); // one whole client packet, empty on timeout or close
  bool closedByClient(int timeoutMs = 2000);
  void send(const Bytes& bytes);
  void drainUntilClosed(); // reads and drops everything the client sends, until it hangs up
  void closeClient();

private:
  bool readExactly(unsigned char* into, std::size_t size, int timeoutMs);
  SocketHandle listener = invalidSocket;
  SocketHandle peer = invalidSocket;
  std::uint16_t listenPort = 0;
};

// Writes SimConnect.cfg into the current directory: section [SimConnect] with protocol, address and port.
void writeSimConnectCfg(std::string_view protocol, std::string_view address, std::uint16_t port,
                        std::string_view more = {});

// Opens a client against peer (writing SimConnect.cfg), which answers the Open with answer; null on failure.
SimConnectHandle openAgainst(WirePeer& peer, const Bytes& answer, Bytes* openPacket = nullptr);

} // namespace ory::test
