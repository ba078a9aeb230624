#pragma once
// The byte level of the SimConnect protocol, shared by our client and the simulator stand-in: call numbers,
// the little-endian packing of fields, and the reassembly of records from a byte stream.
//
// A client packet is a 16-byte header (size, protocol, 0xF0000000 | call number, send id) and the call's
// arguments in the order of the SDK's parameters, handle left out, packed without padding. Strings are fixed
// fields, NUL-padded, truncated to one byte less than the field. What the server sends is a 12-byte header
// (size, version, record id) and a SIMCONNECT_RECV_* record. (FSX SP2 wire format, as documented by lc0277's
// jsimconnect notes and the SDK's SimConnect.h.)

#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ory {

static_assert(std::endian::native == std::endian::little,
              "the wire is little-endian, and so is every target");

// The call numbers of client packets, without the 0xF0000000 mark.
enum class SimCall : std::uint32_t {
  open = 0x01,
  mapClientEventToSimEvent = 0x04,
  transmitClientEvent = 0x05,
  addClientEventToNotificationGroup = 0x07,
  setNotificationGroupPriority = 0x09,
  addToDataDefinition = 0x0C,
  clearDataDefinition = 0x0D,
  requestDataOnSimObject = 0x0E,
  requestDataOnSimObjectType = 0x0F,
  setDataOnSimObject = 0x10,
  subscribeToSystemEvent = 0x17,
  unsubscribeFromSystemEvent = 0x18,
  aiCreateNonAtcAircraft = 0x29,
  aiReleaseControl = 0x2B,
  aiRemoveObject = 0x2C,
  aiSetAircraftFlightPlan = 0x2D,
};
inline constexpr std::uint32_t callMark = 0xF0000000u;
inline constexpr std::size_t callHeaderSize = 16;
inline constexpr std::size_t recordHeaderSize = 12;
inline constexpr std::size_t nameField = 256; // event, datum, unit, title and application names
inline constexpr std::size_t pathField = 260; // MAX_PATH
inline constexpr std::size_t tailNumberField = 12;

// "SimConnect_AddToDataDefinition" for a call number, "call 0x.." for others.
std::string simCallName(std::uint32_t call);
// The size of a packet of call without variable data, 0 for calls not in SimCall.
std::size_t simCallSize(std::uint32_t call);

// Appends little-endian fields to OUT.
struct ByteWriter {
  std::vector<unsigned char>& out;
  void u32(std::uint32_t value) { raw(&value, 4); }
  void f32(float value) { raw(&value, 4); }
  void f64(double value) { raw(&value, 8); }
  void raw(const void* data, std::size_t size);
  void text(std::string_view text, std::size_t field); // NUL-padded, at most field - 1 bytes of text
  void zeros(std::size_t size) { out.insert(out.end(), size, 0); }
  void patchU32(std::size_t at, std::uint32_t value); // rewrites a field already written
};

// Reads fields of a byte block; a read beyond its end gives zeros (and `has` tells beforehand).
struct ByteReader {
  const unsigned char* data = nullptr;
  std::size_t size = 0;
  bool has(std::size_t at, std::size_t length) const { return at <= size && length <= size - at; }
  std::uint32_t u32(std::size_t at) const;
  std::int64_t i64(std::size_t at) const;
  float f32(std::size_t at) const;
  double f64(std::size_t at) const;
  std::string text(std::size_t at, std::size_t field) const;     // up to the first NUL within the field
  std::string utf8Text(std::size_t at, std::size_t field) const; // text in the ANSI code page, as UTF-8
};

// Reassembly of size-prefixed records from a byte stream: TCP and pipes deliver them split or run together.
struct RecordStream {
  std::vector<unsigned char> bytes;
  std::size_t start = 0;         // first byte not yet taken
  std::uint32_t minSize = 12;    // the header: 12 for server records, 16 for client packets
  std::uint32_t maxSize = 65536; // the largest record accepted
};

enum class TakeStatus {
  record,   // one complete record in `data`, `size` bytes; valid until the next append
  needMore, // the next record is not complete yet
  badSize,  // the size field is below minSize or above maxSize: the stream can't be framed any further
};
struct TakenRecord {
  TakeStatus status = TakeStatus::needMore;
  const unsigned char* data = nullptr; // the record, or for badSize the bytes at the bad size field
  std::uint32_t size = 0;              // bytes of the record, or for badSize the size field read
};

void appendBytes(RecordStream& stream, const void* data, std::size_t size);
TakenRecord takeRecord(RecordStream& stream);
std::size_t pendingBytes(const RecordStream& stream);

// The least size of a server record of id that the client knows (FSX ids 0 to 26), 0 for unknown ids.
std::uint32_t minimumRecordSize(std::uint32_t id);

enum class RecordVerdict {
  deliver,   // a known id, at least as long as its record type; trailing bytes (longer P3D shapes) allowed
  unknownId, // skipped
  tooShort,  // skipped
};
// What to do with a complete server record of size bytes (at least the 12-byte header).
RecordVerdict checkRecord(const unsigned char* record, std::uint32_t size);

// Up to max bytes as hex pairs, for log lines about bad input.
std::string hexSample(const unsigned char* data, std::size_t size, std::size_t max = 32);

} // namespace ory
