#pragma once
// TCP and UDP sockets over Winsock 2.2 or POSIX. Error numbers are Winsock's (WSAE...); POSIX maps errno to
// them, so that both builds report a failure with the same number and text.

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace ory {

using SocketHandle = std::intptr_t; // socket on Windows, a descriptor on POSIX
inline constexpr SocketHandle invalidSocket = -1;

bool startSockets();   // WSAStartup(2.2); true on POSIX
void stopSockets();    // WSACleanup, once for every startSockets that succeeded
int lastSocketError(); // the Winsock number of the last failure on this thread

enum class IpFamily { any, v4, v6 };

// Listening on any address of family (any: IPv6 and IPv4 on one socket); port 0 picks a free one (localPort).
SocketHandle openTcpServer(std::uint16_t port, IpFamily family = IpFamily::v4); // invalid on failure

// The steps of opening a listening TCP socket, so that a failure is told by its step.
enum class ListenerStep { resolve, socket, blocking, reuseAddress, bind, listen, ready };
struct ListenerOpening {
  SocketHandle socket = invalidSocket;       // valid only when step is ready
  ListenerStep step = ListenerStep::resolve; // the step that failed, or ready
  int error = 0;                             // Winsock number of the failure
};
// getaddrinfo(no host, service, passive IPv4 TCP), blocking mode, SO_REUSEADDR, bind, listen(SOMAXCONN).
ListenerOpening openListener(std::string_view service);

SocketHandle acceptClient(SocketHandle server); // blocks until a peer connects or server closes
// By name or address, trying the addresses of family in the resolver's order.
SocketHandle connectTcp(std::string_view host, std::uint16_t port, IpFamily family = IpFamily::any);
std::uint16_t localPort(SocketHandle socket);     // the port a socket is bound to, 0 on failure
SocketHandle openUdpReceiver(std::uint16_t port); // bound to any IPv4 address
SocketHandle openUdpSender();
SocketHandle openUdpSocket(); // unbound, for bindSocket
// Binds to port on 127.0.0.1, or on every IPv4 address.
bool bindSocket(SocketHandle socket, std::uint16_t port, bool loopbackOnly);

// All of data, or false on failure.
bool sendAll(SocketHandle socket, const void* data, std::size_t size);
// One datagram to host (IPv4 text) at port.
bool sendDatagram(SocketHandle socket, std::string_view host, std::uint16_t port, const void* data,
                  std::size_t size);
// Bytes received (at most size), 0 when the peer closed, -1 on failure.
long receiveSome(SocketHandle socket, void* buffer, std::size_t size);
// 1 when readable, 0 after timeoutMs, -1 on failure.
int waitReadable(SocketHandle socket, int timeoutMs);
// The indexes of sockets that are readable or closed, waiting up to timeoutMs for the first; empty after the
// time or on failure.
std::vector<std::size_t> readableSockets(std::span<const SocketHandle> sockets, int timeoutMs);

bool setNoDelay(SocketHandle socket, bool on); // false on failure
void setReceiveBufferSize(SocketHandle socket, int bytes);
void shutdownSocket(SocketHandle socket); // ends both directions, wakes a blocked peer call
void endSending(SocketHandle socket);     // ends our direction: the peer reads all we sent, then the end
void closeSocket(SocketHandle socket);

} // namespace ory
