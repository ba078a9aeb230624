#include "os/sockets.h"

#include <string>
#include <winsock2.h>
#include <ws2tcpip.h>

namespace ory {

namespace {

SOCKET lf_raw(SocketHandle socketHandle) {
  return static_cast<SOCKET>(socketHandle);
}
SocketHandle lf_handle(SOCKET raw) {
  return raw == INVALID_SOCKET ? invalidSocket : static_cast<SocketHandle>(raw);
}

SocketHandle lf_bound(int type, int protocol, std::uint16_t port, IpFamily family) {
  const bool v6 = family != IpFamily::v4;
  const SOCKET s = socket(v6 ? AF_INET6 : AF_INET, type, protocol);
  if (s == INVALID_SOCKET) return invalidSocket;
  sockaddr_storage storage{};
  int length = 0;
  if (v6) {
    const DWORD v6Only = family == IpFamily::v6 ? 1 : 0;
    setsockopt(s, IPPROTO_IPV6, IPV6_V6ONLY, reinterpret_cast<const char*>(&v6Only), sizeof(v6Only));
    auto& address = reinterpret_cast<sockaddr_in6&>(storage);
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    address.sin6_addr = in6addr_any;
    length = sizeof(address);
  } else {
    auto& address = reinterpret_cast<sockaddr_in&>(storage);
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    length = sizeof(address);
  }
  if (bind(s, reinterpret_cast<sockaddr*>(&storage), length) == SOCKET_ERROR) {
    const int error = WSAGetLastError();
    closesocket(s);
    WSASetLastError(error);
    return invalidSocket;
  }
  return lf_handle(s);
}

int lf_familyHint(IpFamily family) {
  switch (family) {
  case IpFamily::v4:
    return AF_INET;
  case IpFamily::v6:
    return AF_INET6;
  default:
    return AF_UNSPEC;
  }
}

} // namespace

bool startSockets() {
  WSADATA data{};
  const int result = WSAStartup(MAKEWORD(2, 2), &data);
  if (result == 0) return true;
  WSASetLastError(result); // WSAStartup returns its error instead of setting it
  return false;
}

void stopSockets() {
  WSACleanup();
}

int lastSocketError() {
  return WSAGetLastError();
}

SocketHandle openTcpServer(std::uint16_t port, IpFamily family) {
  const SocketHandle server = lf_bound(SOCK_STREAM, IPPROTO_TCP, port, family);
  if (server == invalidSocket) return server;
  if (listen(lf_raw(server), 8) == SOCKET_ERROR) {
    const int error = WSAGetLastError();
    closesocket(lf_raw(server));
    WSASetLastError(error);
    return invalidSocket;
  }
  return server;
}

ListenerOpening openListener(std::string_view rawService) {
  ListenerOpening opening;
  addrinfo hints{};
  hints.ai_flags = AI_PASSIVE;
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo* found = nullptr;
  const std::string service(rawService);
  if (const int code = getaddrinfo(nullptr, service.c_str(), &hints, &found); code != 0) {
    opening.error = code;
    return opening;
  }
  const auto fail = [&](ListenerStep step) {
    opening.error = WSAGetLastError();
    opening.step = step;
    if (found) freeaddrinfo(found);
    if (opening.socket != invalidSocket) closesocket(lf_raw(opening.socket));
    opening.socket = invalidSocket;
    WSASetLastError(opening.error);
    return opening;
  };
  const SOCKET s = socket(found->ai_family, found->ai_socktype, found->ai_protocol);
  if (s == INVALID_SOCKET) return fail(ListenerStep::socket);
  opening.socket = lf_handle(s);
  u_long nonBlocking = 0; // the server blocks in accept on purpose
  if (ioctlsocket(s, FIONBIO, &nonBlocking) == SOCKET_ERROR) return fail(ListenerStep::blocking);
  const BOOL yes = TRUE;
  if (setsockopt(s, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&yes), sizeof(yes)) ==
      SOCKET_ERROR)
    return fail(ListenerStep::reuseAddress);
  if (bind(s, found->ai_addr, static_cast<int>(found->ai_addrlen)) == SOCKET_ERROR)
    return fail(ListenerStep::bind);
  freeaddrinfo(found);
  found = nullptr;
  if (listen(s, SOMAXCONN) == SOCKET_ERROR) return fail(ListenerStep::listen);
  opening.step = ListenerStep::ready;
  return opening;
}

SocketHandle acceptClient(SocketHandle server) {
  return lf_handle(accept(lf_raw(server), nullptr, nullptr));
}

SocketHandle connectTcp(std::string_view rawHost, std::uint16_t rawPort, IpFamily family) {
  addrinfo hints{};
  hints.ai_family = lf_familyHint(family);
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo* found = nullptr;
  const std::string host(rawHost);
  const std::string port = std::to_string(rawPort);
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

std::uint16_t localPort(SocketHandle socketHandle) {
  sockaddr_storage storage{};
  int length = sizeof(storage);
  if (getsockname(lf_raw(socketHandle), reinterpret_cast<sockaddr*>(&storage), &length) == SOCKET_ERROR)
    return 0;
  if (storage.ss_family == AF_INET6) return ntohs(reinterpret_cast<sockaddr_in6&>(storage).sin6_port);
  return ntohs(reinterpret_cast<sockaddr_in&>(storage).sin_port);
}

SocketHandle openUdpReceiver(std::uint16_t port) {
  return lf_bound(SOCK_DGRAM, IPPROTO_UDP, port, IpFamily::v4);
}

SocketHandle openUdpSender() {
  return lf_handle(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
}

SocketHandle openUdpSocket() {
  return lf_handle(socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
}

bool bindSocket(SocketHandle socketHandle, std::uint16_t port, bool loopbackOnly) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(loopbackOnly ? INADDR_LOOPBACK : INADDR_ANY);
  return bind(lf_raw(socketHandle), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != SOCKET_ERROR;
}

bool sendAll(SocketHandle socketHandle, const void* data, std::size_t size) {
  const auto* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const int sent = send(lf_raw(socketHandle), bytes, static_cast<int>(size), 0);
    if (sent == SOCKET_ERROR || sent == 0) return false;
    bytes += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

bool sendDatagram(SocketHandle socketHandle, std::string_view host, std::uint16_t port, const void* data,
                  std::size_t size) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (inet_pton(AF_INET, std::string(host).c_str(), &address.sin_addr) != 1) {
    WSASetLastError(WSAEINVAL);
    return false;
  }
  const int sent = sendto(lf_raw(socketHandle), static_cast<const char*>(data), static_cast<int>(size), 0,
                          reinterpret_cast<sockaddr*>(&address), sizeof(address));
  return sent == static_cast<int>(size);
}

long receiveSome(SocketHandle socketHandle, void* buffer, std::size_t size) {
  const int got = recv(lf_raw(socketHandle), static_cast<char*>(buffer), static_cast<int>(size), 0);
  return got == SOCKET_ERROR ? -1 : got;
}

int waitReadable(SocketHandle socketHandle, int timeoutMs) {
  WSAPOLLFD p{lf_raw(socketHandle), POLLRDNORM, 0};
  const int ready = WSAPoll(&p, 1, timeoutMs);
  if (ready == SOCKET_ERROR) return -1;
  if (ready > 0 && (p.revents & POLLNVAL)) {
    WSASetLastError(WSAENOTSOCK);
    return -1;
  }
  return ready > 0 ? 1 : 0;
}

std::vector<std::size_t> readableSockets(std::span<const SocketHandle> sockets, int timeoutMs) {
  std::vector<WSAPOLLFD> polls;
  polls.reserve(sockets.size());
  for (const SocketHandle s : sockets)
    polls.push_back({lf_raw(s), POLLRDNORM, 0});
  std::vector<std::size_t> ready;
  if (WSAPoll(polls.data(), static_cast<ULONG>(polls.size()), timeoutMs) == SOCKET_ERROR) return ready;
  for (std::size_t i = 0; i < polls.size(); ++i)
    if (polls[i].revents != 0) ready.push_back(i);
  return ready;
}

bool setNoDelay(SocketHandle socketHandle, bool on) {
  const char value = on ? 1 : 0; // Winsock takes a one-byte value for TCP_NODELAY
  return setsockopt(lf_raw(socketHandle), IPPROTO_TCP, TCP_NODELAY, &value, sizeof(value)) != SOCKET_ERROR;
}

void setReceiveBufferSize(SocketHandle socketHandle, int bytes) {
  setsockopt(lf_raw(socketHandle), SOL_SOCKET, SO_RCVBUF, reinterpret_cast<const char*>(&bytes),
             sizeof(bytes));
}

void shutdownSocket(SocketHandle socketHandle) {
  if (socketHandle != invalidSocket) shutdown(lf_raw(socketHandle), SD_BOTH);
}

void endSending(SocketHandle socketHandle) {
  if (socketHandle != invalidSocket) shutdown(lf_raw(socketHandle), SD_SEND);
}

void closeSocket(SocketHandle socketHandle) {
  if (socketHandle == invalidSocket) return;
  shutdown(lf_raw(socketHandle), SD_BOTH);
  closesocket(lf_raw(socketHandle));
}

} // namespace ory
