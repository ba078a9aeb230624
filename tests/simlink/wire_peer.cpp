#include "wire_peer.h"

#include "support/scratch.h"

#include <fmt/format.h>

#include <cstring>
#include <thread>

namespace ory::test {

Bytes fromHex(std::string_view hex) {
  Bytes bytes;
  std::string digits;
  for (const char c : hex)
    if (c != ' ' && c != '\n') digits += c;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes.push_back(static_cast<unsigned char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  return bytes;
}

std::uint32_t u32At(const Bytes& bytes, std::size_t at) {
  std::uint32_t value = 0;
  if (at + 4 <= bytes.size()) std::memcpy(&value, bytes.data() + at, 4);
  return value;
}

double f64At(const Bytes& bytes, std::size_t at) {
  double value = 0;
  if (at + 8 <= bytes.size()) std::memcpy(&value, bytes.data() + at, 8);
  return value;
}

std::string textAt(const Bytes& bytes, std::size_t at, std::size_t field) {
  if (at + field > bytes.size()) return "<beyond the packet>";
  const auto* first = reinterpret_cast<const char*>(bytes.data() + at);
  return std::string(first, strnlen(first, field));
}

namespace {
void lf_put(Bytes& out, std::uint32_t value) {
  const std::size_t at = out.size();
  out.resize(at + 4);
  std::memcpy(out.data() + at, &value, 4);
}
} // namespace

Bytes serverRecord(std::uint32_t id, const Bytes& payload, std::uint32_t version) {
  Bytes record;
  lf_put(record, static_cast<std::uint32_t>(12 + payload.size()));
  lf_put(record, version);
  lf_put(record, id);
  record.insert(record.end(), payload.begin(), payload.end());
  return record;
}

Bytes openRecord(std::string_view name) {
  Bytes payload(256, 0);
  std::memcpy(payload.data(), name.data(), std::min<std::size_t>(name.size(), 255));
  for (const std::uint32_t v : {5u, 3u, 17u, 28160u, 5u, 3u, 0u, 0u, 0u, 0u})
    lf_put(payload, v);
  return serverRecord(2, payload);
}

Bytes exceptionRecord(std::uint32_t exception, std::uint32_t sendId, std::uint32_t index) {
  Bytes payload;
  for (const std::uint32_t v : {exception, sendId, index})
    lf_put(payload, v);
  return serverRecord(1, payload);
}

WirePeer::WirePeer(IpFamily family) {
  startSockets();
  listener = openTcpServer(0, family);
  listenPort = localPort(listener);
}

WirePeer::~WirePeer() {
  closeSocket(peer);
  closeSocket(listener);
}

bool WirePeer::accept(int timeoutMs) {
  closeClient();
  if (waitReadable(listener, timeoutMs) != 1) return false;
  peer = acceptClient(listener);
  return peer != invalidSocket;
}

bool WirePeer::readExactly(unsigned char* into, std::size_t size, int timeoutMs) {
  while (size > 0) {
    if (waitReadable(peer, timeoutMs) != 1) return false;
    const long got = receiveSome(peer, into, size);
    if (got <= 0) return false;
    into += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

Bytes WirePeer::readPacket(int timeoutMs) {
  Bytes packet(4);
  if (!readExactly(packet.data(), 4, timeoutMs)) return {};
  const std::uint32_t size = u32At(packet, 0);
  if (size < 4 || size > 1'000'000) return {};
  packet.resize(size);
  if (!readExactly(packet.data() + 4, size - 4, timeoutMs)) return {};
  return packet;
}

bool WirePeer::closedByClient(int timeoutMs) {
  unsigned char byte = 0;
  return waitReadable(peer, timeoutMs) == 1 && receiveSome(peer, &byte, 1) == 0;
}

void WirePeer::send(const Bytes& bytes) {
  sendAll(peer, bytes.data(), bytes.size());
}

void WirePeer::drainUntilClosed() {
  std::vector<unsigned char> buffer(1 << 16);
  while (receiveSome(peer, buffer.data(), buffer.size()) > 0) {
  }
}

void WirePeer::closeClient() {
  closeSocket(peer);
  peer = invalidSocket;
}

void writeSimConnectCfg(std::string_view protocol, std::string_view address, std::uint16_t port,
                        std::string_view more) {
  writeBytes("SimConnect.cfg", fmt::format("[SimConnect]\nProtocol={}\nAddress={}\nPort={}\n{}", protocol,
                                           address, port, more));
}

SimConnectHandle openAgainst(WirePeer& peer, const Bytes& answer, Bytes* openPacket) {
  writeSimConnectCfg("IPv4", "127.0.0.1", peer.port());
  std::thread server([&] {
    if (!peer.accept()) return;
    const Bytes open = peer.readPacket();
    if (openPacket) *openPacket = open;
    peer.send(answer);
  });
  SimConnectHandle sim = nullptr;
  SimConnect_Open(&sim, "Trovalyn_P3D", nullptr, 0, nullptr, 0);
  server.join();
  return sim;
}

} // namespace ory::test
