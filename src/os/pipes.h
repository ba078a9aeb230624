#pragma once
// The client end of a Windows named pipe in byte mode. POSIX has no such pipes: every open fails there.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ory {

using PipeHandle = std::intptr_t; // HANDLE on Windows
inline constexpr PipeHandle invalidPipe = -1;

// Opens NAME ("\\server\pipe\name") for reading and writing; a busy pipe is waited for up to 5 s at a time.
// Invalid on failure, with the system's error number in lastPipeError.
PipeHandle openPipeClient(std::string_view NAME);
int lastPipeError();
bool pipeWrite(PipeHandle PIPE, const void* DATA, std::size_t SIZE); // all of DATA, or false
// Bytes waiting to be read without blocking; -1 when the pipe is broken or closed by the server.
long pipeAvailable(PipeHandle PIPE);
// At most SIZE bytes, blocking until at least one is there; 0 when closed, -1 on failure.
long pipeRead(PipeHandle PIPE, void* BUFFER, std::size_t SIZE);
void closePipe(PipeHandle PIPE);

} // namespace ory
