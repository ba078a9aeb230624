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

Bytes fromHex(std::string_view HEX); // blanks allowed
std::uint32_t u32At(const Bytes& BYTES, std::size_t AT);
double f64At(const Bytes& BYTES, std::size_t AT);
std::string textAt(const Bytes& BYTES, std::size_t AT, std::size_t FIELD);

// A record as a server sends it: header with SIZE, VERSION 4 and ID, then PAYLOAD.
Bytes serverRecord(std::uint32_t ID, const Bytes& PAYLOAD, std::uint32_t VERSION = 4);
// The OPEN reply of a simulator named NAME with application version 5.3.17.28160.
Bytes openRecord(std::string_view NAME);
Bytes exceptionRecord(std::uint32_t EXCEPTION, std::uint32_t SEND_ID, std::uint32_t INDEX);

class WirePeer {
public:
  explicit WirePeer(IpFamily FAMILY = IpFamily::v4);
  ~WirePeer();
  WirePeer(const WirePeer&) = delete;
  WirePeer& operator=(const WirePeer&) = delete;

  std::uint16_t port() const { return listenPort; }
  bool accept(int TIMEOUT_MS = 5000);      // the next client; the previous one is closed
  Bytes readPacket(int TIMEOUT_MS = 5000); // one whole client packet, empty on timeout or close
  bool closedByClient(int TIMEOUT_MS = 2000);
  void send(const Bytes& BYTES);
  void drainUntilClosed(); // reads and drops everything the client sends, until it hangs up
  void closeClient();

private:
  bool readExactly(unsigned char* INTO, std::size_t SIZE, int TIMEOUT_MS);
  SocketHandle listener = invalidSocket;
  SocketHandle peer = invalidSocket;
  std::uint16_t listenPort = 0;
};

// Writes SimConnect.cfg into the current directory: section [SimConnect] with PROTOCOL, ADDRESS and PORT.
void writeSimConnectCfg(std::string_view PROTOCOL, std::string_view ADDRESS, std::uint16_t PORT,
                        std::string_view MORE = {});

// Opens a client against PEER (writing SimConnect.cfg), which answers the Open with ANSWER; null on failure.
SimConnectHandle openAgainst(WirePeer& PEER, const Bytes& ANSWER, Bytes* OPEN_PACKET = nullptr);

} // namespace ory::test
