#include "simlink/simconnect/wire.h"

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

const CallInfo* lf_call(std::uint32_t CALL) {
  for (const CallInfo& info : calls)
    if (static_cast<std::uint32_t>(info.call) == CALL) return &info;
  return nullptr;
}

} // namespace

std::string simCallName(std::uint32_t CALL) {
  const CallInfo* info = lf_call(CALL);
  return info ? std::string(info->name) : fmt::format("call 0x{:02X}", CALL);
}

std::size_t simCallSize(std::uint32_t CALL) {
  const CallInfo* info = lf_call(CALL);
  return info ? info->size : 0;
}

void ByteWriter::raw(const void* DATA, std::size_t SIZE) {
  const auto* bytes = static_cast<const unsigned char*>(DATA);
  out.insert(out.end(), bytes, bytes + SIZE);
}

void ByteWriter::text(std::string_view TEXT, std::size_t FIELD) {
  const std::size_t length = std::min(TEXT.size(), FIELD - 1);
  raw(TEXT.data(), length);
  zeros(FIELD - length);
}

void ByteWriter::patchU32(std::size_t AT, std::uint32_t VALUE) {
  std::memcpy(out.data() + AT, &VALUE, 4);
}

std::uint32_t ByteReader::u32(std::size_t AT) const {
  std::uint32_t value = 0;
  if (has(AT, 4)) std::memcpy(&value, data + AT, 4);
  return value;
}

std::int64_t ByteReader::i64(std::size_t AT) const {
  std::int64_t value = 0;
  if (has(AT, 8)) std::memcpy(&value, data + AT, 8);
  return value;
}

float ByteReader::f32(std::size_t AT) const {
  float value = 0;
  if (has(AT, 4)) std::memcpy(&value, data + AT, 4);
  return value;
}

double ByteReader::f64(std::size_t AT) const {
  double value = 0;
  if (has(AT, 8)) std::memcpy(&value, data + AT, 8);
  return value;
}

std::string ByteReader::text(std::size_t AT, std::size_t FIELD) const {
  if (AT >= size) return {};
  const auto* first = reinterpret_cast<const char*>(data + AT);
  const std::size_t room = std::min(FIELD, size - AT);
  return std::string(first, strnlen(first, room));
}

void appendBytes(RecordStream& STREAM, const void* DATA, std::size_t SIZE) {
  // Taken bytes are dropped once they are the larger part, so the buffer stays near one record's size.
  if (STREAM.start > 0 && STREAM.start >= STREAM.bytes.size() / 2) {
    STREAM.bytes.erase(STREAM.bytes.begin(),
                       STREAM.bytes.begin() + static_cast<std::ptrdiff_t>(STREAM.start));
    STREAM.start = 0;
  }
  const auto* bytes = static_cast<const unsigned char*>(DATA);
  STREAM.bytes.insert(STREAM.bytes.end(), bytes, bytes + SIZE);
}

TakenRecord takeRecord(RecordStream& STREAM) {
  TakenRecord taken;
  const std::size_t available = pendingBytes(STREAM);
  if (available < 4) return taken;
  const unsigned char* first = STREAM.bytes.data() + STREAM.start;
  std::uint32_t size = 0;
  std::memcpy(&size, first, 4);
  if (size < STREAM.minSize || size > STREAM.maxSize) return {TakeStatus::badSize, first, size};
  if (available < size) return taken;
  STREAM.start += size;
  return {TakeStatus::record, first, size};
}

std::size_t pendingBytes(const RecordStream& STREAM) {
  return STREAM.bytes.size() - STREAM.start;
}

std::uint32_t minimumRecordSize(std::uint32_t ID) {
  switch (ID) {
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
    return ID <= SIMCONNECT_RECV_ID_EVENT_RACE_LAP ? static_cast<std::uint32_t>(recordHeaderSize) : 0;
  }
}

RecordVerdict checkRecord(const unsigned char* RECORD, std::uint32_t SIZE) {
  const std::uint32_t minimum = minimumRecordSize(ByteReader{RECORD, SIZE}.u32(8));
  if (minimum == 0) return RecordVerdict::unknownId;
  return SIZE < minimum ? RecordVerdict::tooShort : RecordVerdict::deliver;
}

std::string hexSample(const unsigned char* DATA, std::size_t SIZE, std::size_t MAX) {
  std::string text;
  for (std::size_t i = 0; i < std::min(SIZE, MAX); ++i)
    text += fmt::format("{}{:02x}", i == 0 ? "" : " ", DATA[i]);
  if (SIZE > MAX) text += " ...";
  return text;
}

} // namespace ory
