#include "os/sockets.h"

#include <string>
#include <winsock2.h>
#include <ws2tcpip.h>

namespace ory {

namespace {

SOCKET lf_raw(SocketHandle SOCKET_HANDLE) {
  return static_cast<SOCKET>(SOCKET_HANDLE);
}
SocketHandle lf_handle(SOCKET RAW) {
  return RAW == INVALID_SOCKET ? invalidSocket : static_cast<SocketHandle>(RAW);
}

SocketHandle lf_bound(int TYPE, int PROTOCOL, std::uint16_t PORT) {
  const SOCKET s = socket(AF_INET, TYPE, PROTOCOL);
  if (s == INVALID_SOCKET) return invalidSocket;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(PORT);
  address.sin_addr.s_addr = htonl(INADDR_ANY);
  if (bind(s, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == SOCKET_ERROR) {
    const int error = WSAGetLastError();
    closesocket(s);
    WSASetLastError(error);
    return invalidSocket;
  }
  return lf_handle(s);
}

} // namespace

bool startSockets() {
  WSADATA data{};
  return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

int lastSocketError() {
  return WSAGetLastError();
}

SocketHandle openTcpServer(std::uint16_t PORT) {
  const SocketHandle server = lf_bound(SOCK_STREAM, IPPROTO_TCP, PORT);
  if (server == invalidSocket) return server;
  if (listen(lf_raw(server), 1) == SOCKET_ERROR) {
    const int error = WSAGetLastError();
    closesocket(lf_raw(server));
    WSASetLastError(error);
    return invalidSocket;
  }
  return server;
}

SocketHandle acceptClient(SocketHandle SERVER) {
  return lf_handle(accept(lf_raw(SERVER), nullptr, nullptr));
}

SocketHandle connectTcp(std::string_view HOST, std::uint16_t PORT) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo* found = nullptr;
  const std::string host(HOST);
  const std::string port = std::to_string(PORT);
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) return invalidSocket;
  SocketHandle result = invalidSocket;
  for (addrinfo* a = found; a && result == invalidSocket; a = a->ai_next) {
    const SOCKET s = socket(a->ai_family, a->ai_socktype, a->ai_protocol);
    if (s == INVALID_SOCKET) continue;
    if (connect(s, a->ai_addr, static_cast<int>(a->ai_addrlen)) == 0) {
      result = lf_handle(s);
    } else {
      const int error = WSAGetLastError();
      closesocket(s);
      WSASetLastError(error);
    }
  }
  freeaddrinfo(found);
  return result;
}

SocketHandle openUdpReceiver(std::uint16_t PORT) {
  return lf_bound(SOCK_DGRAM, IPPROTO_UDP, PORT);
}

SocketHandle openUdpSender() {
  return lf_handle(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
}

bool sendAll(SocketHandle SOCKET_HANDLE, const void* DATA, std::size_t SIZE) {
  const auto* bytes = static_cast<const char*>(DATA);
  while (SIZE > 0) {
    const int sent = send(lf_raw(SOCKET_HANDLE), bytes, static_cast<int>(SIZE), 0);
    if (sent == SOCKET_ERROR || sent == 0) return false;
    bytes += sent;
    SIZE -= static_cast<std::size_t>(sent);
  }
  return true;
}

bool sendDatagram(SocketHandle SOCKET_HANDLE, std::string_view HOST, std::uint16_t PORT, const void* DATA,
                  std::size_t SIZE) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(PORT);
  if (inet_pton(AF_INET, std::string(HOST).c_str(), &address.sin_addr) != 1) {
    WSASetLastError(WSAEINVAL);
    return false;
  }
  const int sent = sendto(lf_raw(SOCKET_HANDLE), static_cast<const char*>(DATA), static_cast<int>(SIZE), 0,
                          reinterpret_cast<sockaddr*>(&address), sizeof(address));
  return sent == static_cast<int>(SIZE);
}

long receiveSome(SocketHandle SOCKET_HANDLE, void* BUFFER, std::size_t SIZE) {
  const int got = recv(lf_raw(SOCKET_HANDLE), static_cast<char*>(BUFFER), static_cast<int>(SIZE), 0);
  return got == SOCKET_ERROR ? -1 : got;
}

int waitReadable(SocketHandle SOCKET_HANDLE, int TIMEOUT_MS) {
  WSAPOLLFD p{lf_raw(SOCKET_HANDLE), POLLRDNORM, 0};
  const int ready = WSAPoll(&p, 1, TIMEOUT_MS);
  if (ready == SOCKET_ERROR) return -1;
  if (ready > 0 && (p.revents & POLLNVAL)) {
    WSASetLastError(WSAENOTSOCK);
    return -1;
  }
  return ready > 0 ? 1 : 0;
}

void setNoDelay(SocketHandle SOCKET_HANDLE, bool ON) {
  const BOOL value = ON ? TRUE : FALSE;
  setsockopt(lf_raw(SOCKET_HANDLE), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&value),
             sizeof(value));
}

void setReceiveBufferSize(SocketHandle SOCKET_HANDLE, int BYTES) {
  setsockopt(lf_raw(SOCKET_HANDLE), SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&BYTES),
             sizeof(BYTES));
}

void shutdownSocket(SocketHandle SOCKET_HANDLE) {
  if (SOCKET_HANDLE != invalidSocket) shutdown(lf_raw(SOCKET_HANDLE), SD_BOTH);
}

void closeSocket(SocketHandle SOCKET_HANDLE) {
  if (SOCKET_HANDLE == invalidSocket) return;
  shutdown(lf_raw(SOCKET_HANDLE), SD_BOTH);
  closesocket(lf_raw(SOCKET_HANDLE));
}

} // namespace ory
