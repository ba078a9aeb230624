// pipe-relay port [pipe]: serves one connection of the simulator's named pipe under Wine and relays its bytes
// both ways to the native stand-in on 127.0.0.1:port, so that the program's pipe transport talks to a real
// server. It prints "serving <pipe>" once the pipe exists, and ends when either side hangs up.
#include <windows.h>

#include <cstdio>
#include <string>
#include <winsock2.h>
#include <ws2tcpip.h>

namespace {

constexpr DWORD lf_bufferSize = 65536;

bool lf_sendAll(SOCKET to, const char* data, DWORD size) {
  while (size > 0) {
    const int sent = send(to, data, static_cast<int>(size), 0);
    if (sent <= 0) return false;
    data += sent;
    size -= static_cast<DWORD>(sent);
  }
  return true;
}

bool lf_writeAll(HANDLE pipe, const char* data, DWORD size) {
  while (size > 0) {
    DWORD written = 0;
    if (!WriteFile(pipe, data, size, &written, nullptr) || written == 0) return false;
    data += written;
    size -= written;
  }
  return true;
}

SOCKET lf_connect(const wchar_t* port) {
  ADDRINFOW hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  ADDRINFOW* found = nullptr;
  if (GetAddrInfoW(L"127.0.0.1", port, &hints, &found) != 0) return INVALID_SOCKET;
  SOCKET stand = socket(found->ai_family, found->ai_socktype, found->ai_protocol);
  if (stand != INVALID_SOCKET && connect(stand, found->ai_addr, static_cast<int>(found->ai_addrlen)) != 0) {
    closesocket(stand);
    stand = INVALID_SOCKET;
  }
  FreeAddrInfoW(found);
  return stand;
}

// One thread, no overlapped I/O: the pipe is peeked before it is read, the socket waited on for a
// millisecond.
void lf_relay(HANDLE pipe, SOCKET stand) {
  static char buffer[lf_bufferSize];
  for (;;) {
    DWORD available = 0;
    if (!PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr)) return;
    if (available > 0) {
      DWORD got = 0;
      if (!ReadFile(pipe, buffer, available < lf_bufferSize ? available : lf_bufferSize, &got, nullptr) ||
          !lf_sendAll(stand, buffer, got))
        return;
    }
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(stand, &readable);
    timeval wait{0, 1000};
    const int ready = select(0, &readable, nullptr, nullptr, &wait);
    if (ready < 0) return;
    if (ready == 0) continue;
    const int got = recv(stand, buffer, static_cast<int>(lf_bufferSize), 0);
    if (got <= 0 || !lf_writeAll(pipe, buffer, static_cast<DWORD>(got))) return;
  }
}

} // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc < 2) {
    std::fwprintf(stderr, L"usage: pipe-relay PORT [PIPE]\n");
    return 2;
  }
  const std::wstring name = argc > 2 ? argv[2] : L"\\\\.\\pipe\\Lockheed Martin Prepar3D v5\\SimConnect";
  const HANDLE pipe =
      CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1,
                       lf_bufferSize, lf_bufferSize, 0, nullptr);
  if (pipe == INVALID_HANDLE_VALUE) {
    std::fwprintf(stderr, L"pipe-relay: CreateNamedPipe failed with %lu\n", GetLastError());
    return 1;
  }
  std::wprintf(L"serving %ls\n", name.c_str());
  std::fflush(stdout);
  if (!ConnectNamedPipe(pipe, nullptr) && GetLastError() != ERROR_PIPE_CONNECTED) return 1;
  WSADATA winsock;
  if (WSAStartup(MAKEWORD(2, 2), &winsock) != 0) return 1;
  const SOCKET stand = lf_connect(argv[1]);
  if (stand == INVALID_SOCKET) {
    std::fwprintf(stderr, L"pipe-relay: no stand-in on port %ls\n", argv[1]);
    return 1;
  }
  lf_relay(pipe, stand);
  closesocket(stand);
  FlushFileBuffers(pipe); // the stand-in's last records (its quit) reach the program before the pipe closes
  CloseHandle(pipe);
  WSACleanup();
  return 0;
}
