#include "os/pipes.h"
#include "os/utf.h"

#include <windows.h>

namespace ory {

namespace {
thread_local int lf_lastError = 0;
HANDLE lf_raw(PipeHandle pipe) {
  return reinterpret_cast<HANDLE>(pipe);
}
} // namespace

PipeHandle openPipeClient(std::string_view rawName) {
  const std::wstring name = utf8ToWide(rawName);
  for (;;) {
    const HANDLE pipe =
        CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (pipe != INVALID_HANDLE_VALUE) return reinterpret_cast<PipeHandle>(pipe);
    lf_lastError = static_cast<int>(GetLastError());
    if (lf_lastError != ERROR_PIPE_BUSY || !WaitNamedPipeW(name.c_str(), 5000)) return invalidPipe;
  }
}

int lastPipeError() {
  return lf_lastError;
}

bool pipeWrite(PipeHandle pipe, const void* data, std::size_t size) {
  const auto* bytes = static_cast<const char*>(data);
  while (size > 0) {
    DWORD written = 0;
    if (!WriteFile(lf_raw(pipe), bytes, static_cast<DWORD>(size), &written, nullptr) || written == 0) {
      lf_lastError = static_cast<int>(GetLastError());
      return false;
    }
    bytes += written;
    size -= written;
  }
  return true;
}

long pipeAvailable(PipeHandle pipe) {
  DWORD available = 0;
  if (!PeekNamedPipe(lf_raw(pipe), nullptr, 0, nullptr, &available, nullptr)) {
    lf_lastError = static_cast<int>(GetLastError());
    return -1;
  }
  return static_cast<long>(available);
}

long pipeRead(PipeHandle pipe, void* buffer, std::size_t size) {
  DWORD got = 0;
  if (ReadFile(lf_raw(pipe), buffer, static_cast<DWORD>(size), &got, nullptr)) return static_cast<long>(got);
  lf_lastError = static_cast<int>(GetLastError());
  return lf_lastError == ERROR_BROKEN_PIPE ? 0 : -1;
}

void closePipe(PipeHandle pipe) {
  if (pipe != invalidPipe) CloseHandle(lf_raw(pipe));
}

} // namespace ory
