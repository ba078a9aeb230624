#include "os/sockets.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace ory {

namespace {

thread_local int lf_lastError = 0;

int lf_toWinsock(int errnoValue) {
  switch (errnoValue) {
  case EINTR:
    return 10004;
  case EBADF:
    return 10009;
  case EACCES:
    return 10013;
  case EFAULT:
    return 10014;
  case EINVAL:
    return 10022;
  case EMFILE:
    return 10024;
  case EAGAIN:
    return 10035;
  case EINPROGRESS:
    return 10036;
  case EALREADY:
    return 10037;
  case ENOTSOCK:
    return 10038;
  case EDESTADDRREQ:
    return 10039;
  case EMSGSIZE:
    return 10040;
  case EPROTOTYPE:
    return 10041;
  case ENOPROTOOPT:
    return 10042;
  case EPROTONOSUPPORT:
    return 10043;
  case EOPNOTSUPP:
    return 10045;
  case EAFNOSUPPORT:
    return 10047;
  case EADDRINUSE:
    return 10048;
  case EADDRNOTAVAIL:
    return 10049;
  case ENETDOWN:
    return 10050;
  case ENETUNREACH:
    return 10051;
  case ENETRESET:
    return 10052;
  case ECONNABORTED:
    return 10053;
  case ECONNRESET:
    return 10054;
  case EPIPE:
    return 10054;
  case ENOBUFS:
    return 10055;
  case EISCONN:
    return 10056;
  case ENOTCONN:
    return 10057;
  case ESHUTDOWN:
    return 10058;
  case ETIMEDOUT:
    return 10060;
  case ECONNREFUSED:
    return 10061;
  case ELOOP:
    return 10062;
  case ENAMETOOLONG:
    return 10063;
  case EHOSTDOWN:
    return 10064;
  case EHOSTUNREACH:
    return 10065;
  default:
    return errnoValue;
  }
}

SocketHandle lf_fail() {
  lf_lastError = lf_toWinsock(errno);
  return invalidSocket;
}

// getaddrinfo's own codes to the Winsock numbers that its Windows twin returns.
int lf_resolveError(int code) {
  switch (code) {
  case EAI_AGAIN:
    return 11002;
  case EAI_BADFLAGS:
    return 10022;
  case EAI_FAIL:
    return 11003;
  case EAI_FAMILY:
    return 10047;
  case EAI_MEMORY:
    return 8;
  case EAI_NONAME:
    return 11001;
  case EAI_SERVICE:
    return 10109;
  case EAI_SOCKTYPE:
    return 10044;
  case EAI_SYSTEM:
    return lf_toWinsock(errno);
  default:
    return 11003;
  }
}

ListenerOpening lf_listenerFailed(ListenerOpening opening, ListenerStep step) {
  opening.error = lf_toWinsock(errno);
  lf_lastError = opening.error;
  opening.step = step;
  if (opening.socket != invalidSocket) close(static_cast<int>(opening.socket));
  opening.socket = invalidSocket;
  return opening;
}

SocketHandle lf_bound(int type, std::uint16_t port, IpFamily family) {
  const bool v6 = family != IpFamily::v4;
  const int fd = socket(v6 ? AF_INET6 : AF_INET, type | SOCK_CLOEXEC, 0);
  if (fd < 0) return lf_fail();
  const int yes = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
  sockaddr_storage storage{};
  socklen_t length = 0;
  if (v6) {
    const int v6Only = family == IpFamily::v6 ? 1 : 0;
    setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &v6Only, sizeof(v6Only));
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
  if (bind(fd, reinterpret_cast<sockaddr*>(&storage), length) != 0) {
    const SocketHandle failed = lf_fail();
    close(fd);
    return failed;
  }
  return fd;
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
  return true;
}
void stopSockets() {}
int lastSocketError() {
  return lf_lastError;
}

SocketHandle openTcpServer(std::uint16_t port, IpFamily family) {
  const SocketHandle server = lf_bound(SOCK_STREAM, port, family);
  if (server == invalidSocket) return server;
  if (listen(static_cast<int>(server), 8) != 0) {
    const SocketHandle failed = lf_fail();
    close(static_cast<int>(server));
    return failed;
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
    opening.error = lf_resolveError(code);
    lf_lastError = opening.error;
    return opening;
  }
  const int fd = socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC, found->ai_protocol);
  if (fd < 0) {
    freeaddrinfo(found);
    return lf_listenerFailed(opening, ListenerStep::socket);
  }
  opening.socket = fd;
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) != 0) {
    freeaddrinfo(found);
    return lf_listenerFailed(opening, ListenerStep::blocking);
  }
  const int yes = 1;
  if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) != 0) {
    freeaddrinfo(found);
    return lf_listenerFailed(opening, ListenerStep::reuseAddress);
  }
  const int bound = bind(fd, found->ai_addr, found->ai_addrlen);
  freeaddrinfo(found);
  if (bound != 0) return lf_listenerFailed(opening, ListenerStep::bind);
  if (listen(fd, SOMAXCONN) != 0) return lf_listenerFailed(opening, ListenerStep::listen);
  opening.step = ListenerStep::ready;
  return opening;
}

SocketHandle acceptClient(SocketHandle server) {
  const int client = accept4(static_cast<int>(server), nullptr, nullptr, SOCK_CLOEXEC);
  return client < 0 ? lf_fail() : client;
}

SocketHandle connectTcp(std::string_view rawHost, std::uint16_t rawPort, IpFamily family) {
  addrinfo hints{};
  hints.ai_family = lf_familyHint(family);
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const std::string host(rawHost);
  const std::string port = std::to_string(rawPort);
  if (getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) {
    lf_lastError = 11001; // WSAHOST_NOT_FOUND
    return invalidSocket;
  }
  SocketHandle result = invalidSocket;
  for (addrinfo* a = found; a && result == invalidSocket; a = a->ai_next) {
    const int fd = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
    if (fd < 0) {
      lf_fail();
      continue;
    }
    if (connect(fd, a->ai_addr, a->ai_addrlen) == 0) {
      result = fd;
    } else {
      lf_fail();
      close(fd);
    }
  }
  freeaddrinfo(found);
  return result;
}

std::uint16_t localPort(SocketHandle socket) {
  sockaddr_storage storage{};
  socklen_t length = sizeof(storage);
  if (getsockname(static_cast<int>(socket), reinterpret_cast<sockaddr*>(&storage), &length) != 0) {
    lf_fail();
    return 0;
  }
  if (storage.ss_family == AF_INET6) return ntohs(reinterpret_cast<sockaddr_in6&>(storage).sin6_port);
  return ntohs(reinterpret_cast<sockaddr_in&>(storage).sin_port);
}

SocketHandle openUdpReceiver(std::uint16_t port) {
  return lf_bound(SOCK_DGRAM, port, IpFamily::v4);
}

SocketHandle openUdpSender() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  return fd < 0 ? lf_fail() : fd;
}

SocketHandle openUdpSocket() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP);
  return fd < 0 ? lf_fail() : fd;
}

// No SO_REUSEADDR: a port taken by another reader must fail here, not share the datagrams.
bool bindSocket(SocketHandle socket, std::uint16_t port, bool loopbackOnly) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(loopbackOnly ? INADDR_LOOPBACK : INADDR_ANY);
  if (bind(static_cast<int>(socket), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0)
    return true;
  lf_fail();
  return false;
}

bool sendAll(SocketHandle socket, const void* data, std::size_t size) {
  const auto* bytes = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t sent = send(static_cast<int>(socket), bytes, size, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) {
      lf_fail();
      return false;
    }
    bytes += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

bool sendDatagram(SocketHandle socket, std::string_view host, std::uint16_t port, const void* data,
                  std::size_t size) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  if (inet_pton(AF_INET, std::string(host).c_str(), &address.sin_addr) != 1) {
    lf_lastError = 10022;
    return false;
  }
  const ssize_t sent =
      sendto(static_cast<int>(socket), data, size, 0, reinterpret_cast<sockaddr*>(&address), sizeof(address));
  if (sent < 0) lf_fail();
  return sent == static_cast<ssize_t>(size);
}

long receiveSome(SocketHandle socket, void* buffer, std::size_t size) {
  for (;;) {
    const ssize_t got = recv(static_cast<int>(socket), buffer, size, 0);
    if (got >= 0) return static_cast<long>(got);
    if (errno == EINTR) continue;
    lf_fail();
    return -1;
  }
}

int waitReadable(SocketHandle socket, int timeoutMs) {
  pollfd p{static_cast<int>(socket), POLLIN, 0};
  const int ready = poll(&p, 1, timeoutMs);
  if (ready < 0) {
    if (errno == EINTR) return 0;
    lf_fail();
    return -1;
  }
  if (ready > 0 && (p.revents & POLLNVAL)) {
    lf_lastError = 10038;
    return -1;
  }
  return ready > 0 ? 1 : 0;
}

std::vector<std::size_t> readableSockets(std::span<const SocketHandle> sockets, int timeoutMs) {
  std::vector<pollfd> polls;
  polls.reserve(sockets.size());
  for (const SocketHandle s : sockets)
    polls.push_back({static_cast<int>(s), POLLIN, 0});
  std::vector<std::size_t> ready;
  const int count = poll(polls.data(), polls.size(), timeoutMs);
  if (count < 0) {
    if (errno != EINTR) lf_fail();
    return ready;
  }
  for (std::size_t i = 0; i < polls.size(); ++i)
    if (polls[i].revents != 0) ready.push_back(i);
  return ready;
}

bool setNoDelay(SocketHandle socket, bool on) {
  const int value = on ? 1 : 0;
  if (setsockopt(static_cast<int>(socket), IPPROTO_TCP, TCP_NODELAY, &value, sizeof(value)) == 0) return true;
  lf_fail();
  return false;
}

void setReceiveBufferSize(SocketHandle socket, int bytes) {
  setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
}

void shutdownSocket(SocketHandle socket) {
  if (socket != invalidSocket) shutdown(static_cast<int>(socket), SHUT_RDWR);
}

void endSending(SocketHandle socket) {
  if (socket != invalidSocket) shutdown(static_cast<int>(socket), SHUT_WR);
}

void closeSocket(SocketHandle socket) {
  if (socket == invalidSocket) return;
  shutdown(static_cast<int>(socket), SHUT_RDWR);
  close(static_cast<int>(socket));
}

} // namespace ory
