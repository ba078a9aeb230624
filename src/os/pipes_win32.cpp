#include "os/pipes.h"
#include "os/utf.h"

#include <windows.h>

namespace ory {

namespace {
thread_local int lf_lastError = 0;
HANDLE lf_raw(PipeHandle PIPE) {
  return reinterpret_cast<HANDLE>(PIPE);
}
} // namespace

PipeHandle openPipeClient(std::string_view NAME) {
  const std::wstring name = utf8ToWide(NAME);
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

bool pipeWrite(PipeHandle PIPE, const void* DATA, std::size_t SIZE) {
  const auto* bytes = static_cast<const char*>(DATA);
  while (SIZE > 0) {
    DWORD written = 0;
    if (!WriteFile(lf_raw(PIPE), bytes, static_cast<DWORD>(SIZE), &written, nullptr) || written == 0) {
      lf_lastError = static_cast<int>(GetLastError());
      return false;
    }
    bytes += written;
    SIZE -= written;
  }
  return true;
}

long pipeAvailable(PipeHandle PIPE) {
  DWORD available = 0;
  if (!PeekNamedPipe(lf_raw(PIPE), nullptr, 0, nullptr, &available, nullptr)) {
    lf_lastError = static_cast<int>(GetLastError());
    return -1;
  }
  return static_cast<long>(available);
}

long pipeRead(PipeHandle PIPE, void* BUFFER, std::size_t SIZE) {
  DWORD got = 0;
  if (ReadFile(lf_raw(PIPE), BUFFER, static_cast<DWORD>(SIZE), &got, nullptr)) return static_cast<long>(got);
  lf_lastError = static_cast<int>(GetLastError());
  return lf_lastError == ERROR_BROKEN_PIPE ? 0 : -1;
}

void closePipe(PipeHandle PIPE) {
  if (PIPE != invalidPipe) CloseHandle(lf_raw(PIPE));
}

} // namespace ory
