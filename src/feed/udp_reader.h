#pragma once
// The datagram loop that both readers of RealTraffic share: the traffic reader on UDP 49005 and the QNH
// reader on UDP 49004. One object of each lives as long as the process; each runs on a detached thread of its
// own.

#include "os/sockets.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ory {

inline constexpr std::uint16_t trafficPort = 49005;
inline constexpr std::uint16_t weatherPort = 49004;
inline constexpr std::size_t datagramBufferSize = 16384;

class UdpReader {
public:
  // name as in "{} connected"; threadName as in "The {} has stopped with an error: {}".
  UdpReader(std::string_view name, std::string_view threadName) : name(name), threadName(threadName) {}
  virtual ~UdpReader() = default;
  UdpReader(const UdpReader&) = delete;
  UdpReader& operator=(const UdpReader&) = delete;

  virtual void processData() = 0; // called with line set
  virtual void onConnected() = 0; // the socket is bound: set the window's marks
  virtual void onStopped() = 0;   // the loop has ended

  std::string_view line;                             // the datagram in hand, up to its first zero byte
  std::atomic<bool> stopFlag{false};                 // set by the exit; the loop ends on it
  std::atomic<std::int32_t> packetCount{0};          // datagrams received; read by feedWatchdog
  std::array<char, datagramBufferSize + 1> buffer{}; // one more for the end mark
  std::string lastLine;                              // the previous datagram, for the repeat filter
  std::atomic<SocketHandle> socket{invalidSocket};
  const std::string_view name;
  const std::string_view threadName;
};

// The thread body: socket, bind (127.0.0.1 when RealTraffic runs on this PC, else every address), receive
// loop. A set-up failure sets readerError.
void readerThread(UdpReader& reader, std::uint16_t port);
void startReaderThread(UdpReader& reader, std::uint16_t port); // detached
// Stop flag and the socket shut down; the reader's thread then closes it and ends within a quarter second.
void stopReader(UdpReader& reader);
// One received datagram of count bytes in buffer: counted, cut at its first zero byte, passed through the
// repeat filter (only when RealTraffic isn't on this PC) to processData.
void takeDatagram(UdpReader& reader, std::size_t count);

} // namespace ory
