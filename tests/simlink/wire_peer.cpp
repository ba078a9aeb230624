#include "wire_peer.h"

#include "support/scratch.h"

#include <fmt/format.h>

#include <cstring>
#include <thread>

namespace ory::test {

Bytes fromHex(std::string_view HEX) {
  Bytes bytes;
  std::string digits;
  for (const char c : HEX)
    if (c != ' ' && c != '\n') digits += c;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes.push_back(static_cast<unsigned char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  return bytes;
}

std::uint32_t u32At(const Bytes& BYTES, std::size_t AT) {
  std::uint32_t value = 0;
  if (AT + 4 <= BYTES.size()) std::memcpy(&value, BYTES.data() + AT, 4);
  return value;
}

double f64At(const Bytes& BYTES, std::size_t AT) {
  double value = 0;
  if (AT + 8 <= BYTES.size()) std::memcpy(&value, BYTES.data() + AT, 8);
  return value;
}

std::string textAt(const Bytes& BYTES, std::size_t AT, std::size_t FIELD) {
  if (AT + FIELD > BYTES.size()) return "<beyond the packet>";
  const auto* first = reinterpret_cast<const char*>(BYTES.data() + AT);
  return std::string(first, strnlen(first, FIELD));
}

namespace {
void lf_put(Bytes& OUT, std::uint32_t VALUE) {
  const std::size_t at = OUT.size();
  OUT.resize(at + 4);
  std::memcpy(OUT.data() + at, &VALUE, 4);
}
} // namespace

Bytes serverRecord(std::uint32_t ID, const Bytes& PAYLOAD, std::uint32_t VERSION) {
  Bytes record;
  lf_put(record, static_cast<std::uint32_t>(12 + PAYLOAD.size()));
  lf_put(record, VERSION);
  lf_put(record, ID);
  record.insert(record.end(), PAYLOAD.begin(), PAYLOAD.end());
  return record;
}

Bytes openRecord(std::string_view NAME) {
  Bytes payload(256, 0);
  std::memcpy(payload.data(), NAME.data(), std::min<std::size_t>(NAME.size(), 255));
  for (const std::uint32_t v : {5u, 3u, 17u, 28160u, 5u, 3u, 0u, 0u, 0u, 0u})
    lf_put(payload, v);
  return serverRecord(2, payload);
}

Bytes exceptionRecord(std::uint32_t EXCEPTION, std::uint32_t SEND_ID, std::uint32_t INDEX) {
  Bytes payload;
  for (const std::uint32_t v : {EXCEPTION, SEND_ID, INDEX})
    lf_put(payload, v);
  return serverRecord(1, payload);
}

WirePeer::WirePeer(IpFamily FAMILY) {
  startSockets();
  listener = openTcpServer(0, FAMILY);
  listenPort = localPort(listener);
}

WirePeer::~WirePeer() {
  closeSocket(peer);
  closeSocket(listener);
}

bool WirePeer::accept(int TIMEOUT_MS) {
  closeClient();
  if (waitReadable(listener, TIMEOUT_MS) != 1) return false;
  peer = acceptClient(listener);
  return peer != invalidSocket;
}

bool WirePeer::readExactly(unsigned char* INTO, std::size_t SIZE, int TIMEOUT_MS) {
  while (SIZE > 0) {
    if (waitReadable(peer, TIMEOUT_MS) != 1) return false;
    const long got = receiveSome(peer, INTO, SIZE);
    if (got <= 0) return false;
    INTO += got;
    SIZE -= static_cast<std::size_t>(got);
  }
  return true;
}

Bytes WirePeer::readPacket(int TIMEOUT_MS) {
  Bytes packet(4);
  if (!readExactly(packet.data(), 4, TIMEOUT_MS)) return {};
  const std::uint32_t size = u32At(packet, 0);
  if (size < 4 || size > 1'000'000) return {};
  packet.resize(size);
  if (!readExactly(packet.data() + 4, size - 4, TIMEOUT_MS)) return {};
  return packet;
}

bool WirePeer::closedByClient(int TIMEOUT_MS) {
  unsigned char byte = 0;
  return waitReadable(peer, TIMEOUT_MS) == 1 && receiveSome(peer, &byte, 1) == 0;
}

void WirePeer::send(const Bytes& BYTES) {
  sendAll(peer, BYTES.data(), BYTES.size());
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

void writeSimConnectCfg(std::string_view PROTOCOL, std::string_view ADDRESS, std::uint16_t PORT,
                        std::string_view MORE) {
  writeBytes("SimConnect.cfg", fmt::format("[SimConnect]\nProtocol={}\nAddress={}\nPort={}\n{}", PROTOCOL,
                                           ADDRESS, PORT, MORE));
}

SimConnectHandle openAgainst(WirePeer& PEER, const Bytes& ANSWER, Bytes* OPEN_PACKET) {
  writeSimConnectCfg("IPv4", "127.0.0.1", PEER.port());
  std::thread server([&] {
    if (!PEER.accept()) return;
    const Bytes open = PEER.readPacket();
    if (OPEN_PACKET) *OPEN_PACKET = open;
    PEER.send(ANSWER);
  });
  SimConnectHandle sim = nullptr;
  SimConnect_Open(&sim, "Trovalyn_P3D", nullptr, 0, nullptr, 0);
  server.join();
  return sim;
}

} // namespace ory::test
