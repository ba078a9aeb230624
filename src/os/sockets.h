#pragma once
// TCP and UDP sockets over Winsock 2.2 or POSIX. Error numbers are Winsock's (WSAE...); POSIX maps errno to
// them, so that both builds report a failure with the same number and text.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ory {

using SocketHandle = std::intptr_t; // SOCKET on Windows, a descriptor on POSIX
inline constexpr SocketHandle invalidSocket = -1;

bool startSockets();   // WSAStartup(2.2); true on POSIX
int lastSocketError(); // the Winsock number of the last failure on this thread

SocketHandle openTcpServer(std::uint16_t PORT); // any IPv4 address, listening; invalid on failure
SocketHandle acceptClient(SocketHandle SERVER); // blocks until a peer connects or SERVER closes
SocketHandle connectTcp(std::string_view HOST, std::uint16_t PORT); // IPv4 or IPv6, by name or address
SocketHandle openUdpReceiver(std::uint16_t PORT);                   // bound to any IPv4 address
SocketHandle openUdpSender();

// All of DATA, or false on failure.
bool sendAll(SocketHandle SOCKET, const void* DATA, std::size_t SIZE);
// One datagram to HOST (IPv4 text) at PORT.
bool sendDatagram(SocketHandle SOCKET, std::string_view HOST, std::uint16_t PORT, const void* DATA,
                  std::size_t SIZE);
// Bytes received (at most SIZE), 0 when the peer closed, -1 on failure.
long receiveSome(SocketHandle SOCKET, void* BUFFER, std::size_t SIZE);
// 1 when readable, 0 after TIMEOUT_MS, -1 on failure.
int waitReadable(SocketHandle SOCKET, int TIMEOUT_MS);

void setNoDelay(SocketHandle SOCKET, bool ON);
void setReceiveBufferSize(SocketHandle SOCKET, int BYTES);
void shutdownSocket(SocketHandle SOCKET); // ends both directions, wakes a blocked peer call
void closeSocket(SocketHandle SOCKET);

} // namespace ory
