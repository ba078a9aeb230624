#include "simlink/simconnect/wire.h"

#include "os/utf.h"
#include "simlink/simconnect/simconnect.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace ory {

namespace {

struct CallInfo {
  SimCall call;
  std::string_view name;
  std::size_t size; // bytes without variable data
};

constexpr std::array<CallInfo, 16> calls = {{
    {SimCall::open, "SimConnect_Open", 296},
    {SimCall::mapClientEventToSimEvent, "SimConnect_MapClientEventToSimEvent", 276},
    {SimCall::transmitClientEvent, "SimConnect_TransmitClientEvent", 36},
    {SimCall::addClientEventToNotificationGroup, "SimConnect_AddClientEventToNotificationGroup", 28},
    {SimCall::setNotificationGroupPriority, "SimConnect_SetNotificationGroupPriority", 24},
    {SimCall::addToDataDefinition, "SimConnect_AddToDataDefinition", 544},
    {SimCall::clearDataDefinition, "SimConnect_ClearDataDefinition", 20},
    {SimCall::requestDataOnSimObject, "SimConnect_RequestDataOnSimObject", 48},
    {SimCall::requestDataOnSimObjectType, "SimConnect_RequestDataOnSimObjectType", 32},
    {SimCall::setDataOnSimObject, "SimConnect_SetDataOnSimObject", 36},
    {SimCall::subscribeToSystemEvent, "SimConnect_SubscribeToSystemEvent", 276},
    {SimCall::unsubscribeFromSystemEvent, "SimConnect_UnsubscribeFromSystemEvent", 20},
    {SimCall::aiCreateNonAtcAircraft, "SimConnect_AICreateNonATCAircraft", 344},
    {SimCall::aiReleaseControl, "SimConnect_AIReleaseControl", 24},
    {SimCall::aiRemoveObject, "SimConnect_AIRemoveObject", 24},
    {SimCall::aiSetAircraftFlightPlan, "SimConnect_AISetAircraftFlightPlan", 284},
}};

const CallInfo* lf_call(std::uint32_t call) {
  for (const CallInfo& info : calls)
    if (static_cast<std::uint32_t>(info.call) == call) return &info;
  return nullptr;
}

} // namespace

std::string simCallName(std::uint32_t call) {
  const CallInfo* info = lf_call(call);
  return info ? std::string(info->name) : fmt::format("call 0x{:02X}", call);
}

std::size_t simCallSize(std::uint32_t call) {
  const CallInfo* info = lf_call(call);
  return info ? info->size : 0;
}

void ByteWriter::raw(const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  out.insert(out.end(), bytes, bytes + size);
}

void ByteWriter::text(std::string_view text, std::size_t field) {
  const std::size_t length = std::min(text.size(), field - 1);
  raw(text.data(), length);
  zeros(field - length);
}

void ByteWriter::patchU32(std::size_t at, std::uint32_t value) {
  std::memcpy(out.data() + at, &value, 4);
}

std::uint32_t ByteReader::u32(std::size_t at) const {
  std::uint32_t value = 0;
  if (has(at, 4)) std::memcpy(&value, data + at, 4);
  return value;
}

std::int64_t ByteReader::i64(std::size_t at) const {
  std::int64_t value = 0;
  if (has(at, 8)) std::memcpy(&value, data + at, 8);
  return value;
}

float ByteReader::f32(std::size_t at) const {
  float value = 0;
  if (has(at, 4)) std::memcpy(&value, data + at, 4);
  return value;
}

double ByteReader::f64(std::size_t at) const {
  double value = 0;
  if (has(at, 8)) std::memcpy(&value, data + at, 8);
  return value;
}

std::string ByteReader::text(std::size_t at, std::size_t field) const {
  if (at >= size) return {};
  const auto* first = reinterpret_cast<const char*>(data + at);
  const std::size_t room = std::min(field, size - at);
  return std::string(first, strnlen(first, room));
}

std::string ByteReader::utf8Text(std::size_t at, std::size_t field) const {
  return ansiToUtf8(text(at, field));
}

void appendBytes(RecordStream& stream, const void* data, std::size_t size) {
  // Taken bytes are dropped once they are the larger part, so the buffer stays near one record's size.
  if (stream.start > 0 && stream.start >= stream.bytes.size() / 2) {
    stream.bytes.erase(stream.bytes.begin(),
                       stream.bytes.begin() + static_cast<std::ptrdiff_t>(stream.start));
    stream.start = 0;
  }
  const auto* bytes = static_cast<const unsigned char*>(data);
  stream.bytes.insert(stream.bytes.end(), bytes, bytes + size);
}

TakenRecord takeRecord(RecordStream& stream) {
  TakenRecord taken;
  const std::size_t available = pendingBytes(stream);
  if (available < 4) return taken;
  const unsigned char* first = stream.bytes.data() + stream.start;
  std::uint32_t size = 0;
  std::memcpy(&size, first, 4);
  if (size < stream.minSize || size > stream.maxSize) return {TakeStatus::badSize, first, size};
  if (available < size) return taken;
  stream.start += size;
  return {TakeStatus::record, first, size};
}

std::size_t pendingBytes(const RecordStream& stream) {
  return stream.bytes.size() - stream.start;
}

std::uint32_t minimumRecordSize(std::uint32_t id) {
  switch (id) {
  case SIMCONNECT_RECV_ID_EXCEPTION:
    return sizeof(SIMCONNECT_RECV_EXCEPTION);
  case SIMCONNECT_RECV_ID_OPEN:
    return sizeof(SIMCONNECT_RECV_OPEN);
  case SIMCONNECT_RECV_ID_EVENT:
  case SIMCONNECT_RECV_ID_EVENT_WEATHER_MODE:
  case SIMCONNECT_RECV_ID_EVENT_MULTIPLAYER_SERVER_STARTED:
  case SIMCONNECT_RECV_ID_EVENT_MULTIPLAYER_CLIENT_STARTED:
  case SIMCONNECT_RECV_ID_EVENT_MULTIPLAYER_SESSION_ENDED:
    return sizeof(SIMCONNECT_RECV_EVENT);
  case SIMCONNECT_RECV_ID_EVENT_OBJECT_ADDREMOVE:
    return sizeof(SIMCONNECT_RECV_EVENT_OBJECT_ADDREMOVE);
  case SIMCONNECT_RECV_ID_EVENT_FILENAME:
    return sizeof(SIMCONNECT_RECV_EVENT_FILENAME);
  case SIMCONNECT_RECV_ID_EVENT_FRAME:
    return sizeof(SIMCONNECT_RECV_EVENT_FRAME);
  case SIMCONNECT_RECV_ID_SIMOBJECT_DATA:
  case SIMCONNECT_RECV_ID_SIMOBJECT_DATA_BYTYPE:
  case SIMCONNECT_RECV_ID_CLIENT_DATA:
    return sizeof(SIMCONNECT_RECV_SIMOBJECT_DATA);
  case SIMCONNECT_RECV_ID_ASSIGNED_OBJECT_ID:
    return sizeof(SIMCONNECT_RECV_ASSIGNED_OBJECT_ID);
  default:
    return id <= SIMCONNECT_RECV_ID_EVENT_RACE_LAP ? static_cast<std::uint32_t>(recordHeaderSize) : 0;
  }
}

RecordVerdict checkRecord(const unsigned char* record, std::uint32_t size) {
  const std::uint32_t minimum = minimumRecordSize(ByteReader{record, size}.u32(8));
  if (minimum == 0) return RecordVerdict::unknownId;
  return size < minimum ? RecordVerdict::tooShort : RecordVerdict::deliver;
}

std::string hexSample(const unsigned char* data, std::size_t size, std::size_t max) {
  std::string text;
  for (std::size_t i = 0; i < std::min(size, max); ++i)
    text += fmt::format("{}{:02x}", i == 0 ? "" : " ", data[i]);
  if (size > max) text += " ...";
  return text;
}

} // namespace ory
