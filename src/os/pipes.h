#pragma once
// The client end of a Windows named pipe in byte mode. POSIX has no such pipes: every open fails there.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ory {

using PipeHandle = std::intptr_t; // HANDLE on Windows
inline constexpr PipeHandle invalidPipe = -1;

// Opens name ("\\server\pipe\name") for reading and writing; a busy pipe is waited for up to 5 s at a time.
// Invalid on failure, with the system's error number in lastPipeError.
PipeHandle openPipeClient(std::string_view name);
int lastPipeError();
bool pipeWrite(PipeHandle pipe, const void* data, std::size_t size); // all of data, or false
// Bytes waiting to be read without blocking; -1 when the pipe is broken or closed by the server.
long pipeAvailable(PipeHandle pipe);
// At most size bytes, blocking until at least one is there; 0 when closed, -1 on failure.
long pipeRead(PipeHandle pipe, void* buffer, std::size_t size);
void closePipe(PipeHandle pipe);

} // namespace ory
