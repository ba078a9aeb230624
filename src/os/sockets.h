#pragma once
// TCP and UDP sockets over Winsock 2.2 or POSIX. Error numbers are Winsock's (WSAE...); POSIX maps errno to
// them, so that both builds report a failure with the same number and text.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace ory {

using SocketHandle = std::intptr_t; // SOCKET on Windows, a descriptor on POSIX
inline constexpr SocketHandle invalidSocket = -1;

bool startSockets();   // WSAStartup(2.2); true on POSIX
void stopSockets();    // WSACleanup, once for every startSockets that succeeded
int lastSocketError(); // the Winsock number of the last failure on this thread

enum class IpFamily { any, v4, v6 };

// Listening on any address of FAMILY (any: IPv6 and IPv4 on one socket); PORT 0 picks a free one (localPort).
SocketHandle openTcpServer(std::uint16_t PORT, IpFamily FAMILY = IpFamily::v4); // invalid on failure

// The steps of opening a listening TCP socket, so that a failure is told by its step.
enum class ListenerStep { resolve, socket, blocking, reuseAddress, bind, listen, ready };
struct ListenerOpening {
  SocketHandle socket = invalidSocket;       // valid only when step is ready
  ListenerStep step = ListenerStep::resolve; // the step that failed, or ready
  int error = 0;                             // Winsock number of the failure
};
// getaddrinfo(no host, SERVICE, passive IPv4 TCP), blocking mode, SO_REUSEADDR, bind, listen(SOMAXCONN).
ListenerOpening openListener(std::string_view SERVICE);

SocketHandle acceptClient(SocketHandle SERVER); // blocks until a peer connects or SERVER closes
// By name or address, trying the addresses of FAMILY in the resolver's order.
SocketHandle connectTcp(std::string_view HOST, std::uint16_t PORT, IpFamily FAMILY = IpFamily::any);
std::uint16_t localPort(SocketHandle SOCKET);     // the port a socket is bound to, 0 on failure
SocketHandle openUdpReceiver(std::uint16_t PORT); // bound to any IPv4 address
SocketHandle openUdpSender();
SocketHandle openUdpSocket(); // unbound, for bindSocket
// Binds to PORT on 127.0.0.1, or on every IPv4 address.
bool bindSocket(SocketHandle SOCKET, std::uint16_t PORT, bool LOOPBACK_ONLY);

// All of DATA, or false on failure.
bool sendAll(SocketHandle SOCKET, const void* DATA, std::size_t SIZE);
// One datagram to HOST (IPv4 text) at PORT.
bool sendDatagram(SocketHandle SOCKET, std::string_view HOST, std::uint16_t PORT, const void* DATA,
                  std::size_t SIZE);
// Bytes received (at most SIZE), 0 when the peer closed, -1 on failure.
long receiveSome(SocketHandle SOCKET, void* BUFFER, std::size_t SIZE);
// 1 when readable, 0 after TIMEOUT_MS, -1 on failure.
int waitReadable(SocketHandle SOCKET, int TIMEOUT_MS);
// The indexes of SOCKETS that are readable or closed, waiting up to TIMEOUT_MS for the first; empty after the
// time or on failure.
std::vector<std::size_t> readableSockets(std::span<const SocketHandle> SOCKETS, int TIMEOUT_MS);

bool setNoDelay(SocketHandle SOCKET, bool ON); // false on failure
void setReceiveBufferSize(SocketHandle SOCKET, int BYTES);
void shutdownSocket(SocketHandle SOCKET); // ends both directions, wakes a blocked peer call
void closeSocket(SocketHandle SOCKET);

} // namespace ory
