#include "server.h"

#include "engine/geometry.h"
#include "simlink/simconnect/simconnect.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <thread>

namespace ory {

namespace {

using Json = nlohmann::json;
using Bytes = std::vector<unsigned char>;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t maxObjects = 1000;  // AI objects, as the simulator limits them
constexpr std::uint32_t maxRadius = 200000; // metres of a request by type
constexpr std::uint32_t maxPacket = 65536;

std::string lf_lower(std::string_view TEXT) {
  std::string lower(TEXT);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return lower;
}

// The trace holds texts as UTF-8; SimConnect strings are Latin-1.
std::string lf_utf8(std::string_view LATIN1) {
  std::string text;
  for (const char c : LATIN1) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      text += c;
    } else {
      text += static_cast<char>(0xC0 | (byte >> 6));
      text += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return text;
}

Json lf_line(Server& S, std::string_view KIND) {
  return Json{{"kind", KIND},
              {"t", std::round(S.scenarioTime * 1000) / 1000},
              {"sim", std::round(S.world.simTime * 1000) / 1000}};
}

void lf_trace(Server& S, Json LINE) {
  traceLine(S.trace, std::move(LINE));
}

// ------------------------------------------------------------------------------------------------------------
// Records to a client

void lf_record(Client& C, std::uint32_t ID, const Bytes& PAYLOAD) {
  Bytes record;
  ByteWriter w{record};
  w.u32(static_cast<std::uint32_t>(recordHeaderSize + PAYLOAD.size()));
  w.u32(C.protocol);
  w.u32(ID);
  w.raw(PAYLOAD.data(), PAYLOAD.size());
  C.outbox.push_back(std::move(record));
}

void lf_exception(Server& S, Client& C, std::uint32_t EXCEPTION, std::uint32_t SEND_ID, std::uint32_t INDEX) {
  Bytes payload;
  ByteWriter w{payload};
  w.u32(EXCEPTION);
  w.u32(SEND_ID);
  w.u32(INDEX);
  lf_record(C, SIMCONNECT_RECV_ID_EXCEPTION, payload);
  Json line = lf_line(S, "exception");
  line.update({{"client", C.number}, {"exception", EXCEPTION}, {"sendId", SEND_ID}, {"index", INDEX}});
  if (S.inCall)
    S.exceptionLines.push_back(std::move(line));
  else
    lf_trace(S, line);
}

// An event record: group, event, data, then EXTRA, and Prepar3D's trailing dwFlags in its longer shape.
void lf_event(Server& S, Client& C, std::uint32_t RECORD_ID, std::uint32_t EVENT_ID, std::uint32_t DATA,
              const Bytes& EXTRA = {}) {
  Bytes payload;
  ByteWriter w{payload};
  w.u32(SIMCONNECT_UNKNOWN_GROUP);
  w.u32(EVENT_ID);
  w.u32(DATA);
  w.raw(EXTRA.data(), EXTRA.size());
  if (S.scenario.p3dShapes && RECORD_ID != SIMCONNECT_RECV_ID_EVENT_FILENAME) w.u32(0);
  lf_record(C, RECORD_ID, payload);
}

// Sends a system event to every client that subscribed to NAME.
void lf_systemEvent(Server& S, std::string_view NAME, std::uint32_t RECORD_ID, std::uint32_t DATA,
                    const Bytes& EXTRA = {}) {
  for (auto& client : S.clients) {
    if (!client->opened || client->gone) continue;
    for (const auto& [eventId, name] : client->subscriptions)
      if (name == NAME) lf_event(S, *client, RECORD_ID, eventId, DATA, EXTRA);
  }
  if (NAME == "frame") return;
  Json line = lf_line(S, "event");
  line.update({{"event", NAME}, {"data", DATA}});
  lf_trace(S, line);
}

void lf_objectEvent(Server& S, std::string_view NAME, std::uint32_t OBJECT_ID) {
  Bytes type;
  ByteWriter{type}.u32(SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT);
  lf_systemEvent(S, NAME, SIMCONNECT_RECV_ID_EVENT_OBJECT_ADDREMOVE, OBJECT_ID, type);
}

void lf_simState(Server& S) {
  const std::uint32_t running = S.world.paused ? 0 : 1;
  lf_systemEvent(S, "sim", SIMCONNECT_RECV_ID_EVENT, running);
  lf_systemEvent(S, running ? "simstart" : "simstop", SIMCONNECT_RECV_ID_EVENT, 0);
  lf_systemEvent(S, "pause", SIMCONNECT_RECV_ID_EVENT, 1 - running);
}

// ------------------------------------------------------------------------------------------------------------
// Data blocks

std::size_t lf_typeSize(std::uint32_t TYPE) {
  switch (TYPE) {
  case SIMCONNECT_DATATYPE_INT32:
  case SIMCONNECT_DATATYPE_FLOAT32:
    return 4;
  case SIMCONNECT_DATATYPE_INT64:
  case SIMCONNECT_DATATYPE_FLOAT64:
    return 8;
  case SIMCONNECT_DATATYPE_STRING8:
    return 8;
  case SIMCONNECT_DATATYPE_STRING32:
    return 32;
  case SIMCONNECT_DATATYPE_STRING64:
    return 64;
  case SIMCONNECT_DATATYPE_STRING128:
    return 128;
  case SIMCONNECT_DATATYPE_STRING256:
    return 256;
  case SIMCONNECT_DATATYPE_STRING260:
    return 260;
  default:
    return 0; // STRINGV varies; other types are not served
  }
}

bool lf_servedType(std::uint32_t TYPE) {
  return TYPE == SIMCONNECT_DATATYPE_STRINGV || lf_typeSize(TYPE) > 0;
}

void lf_putValue(ByteWriter& W, std::uint32_t TYPE, const SimValue& VALUE) {
  switch (TYPE) {
  case SIMCONNECT_DATATYPE_INT32:
    W.u32(static_cast<std::uint32_t>(static_cast<std::int32_t>(VALUE.number)));
    return;
  case SIMCONNECT_DATATYPE_INT64: {
    const auto value = static_cast<std::int64_t>(VALUE.number);
    W.raw(&value, 8);
    return;
  }
  case SIMCONNECT_DATATYPE_FLOAT32:
    W.f32(static_cast<float>(VALUE.number));
    return;
  case SIMCONNECT_DATATYPE_FLOAT64:
    W.f64(VALUE.number);
    return;
  case SIMCONNECT_DATATYPE_STRINGV: {
    // NUL-terminated, padded with zeros to a multiple of four bytes.
    W.raw(VALUE.text.data(), VALUE.text.size());
    W.zeros(4 - VALUE.text.size() % 4);
    return;
  }
  default:
    W.text(VALUE.text, lf_typeSize(TYPE));
    return;
  }
}

Bytes lf_block(Server& S, const std::vector<ServedDatum>& DATUMS, const SimObject& OBJECT) {
  Bytes block;
  ByteWriter w{block};
  for (const ServedDatum& datum : DATUMS)
    lf_putValue(w, datum.type, readSimVar(S.world, OBJECT, datum.name, datum.unit));
  return block;
}

void lf_sendData(Server& S, Client& C, std::uint32_t RECORD_ID, const DataRequest& REQUEST,
                 const SimObject& OBJECT, const Bytes& BLOCK, std::uint32_t ENTRY, std::uint32_t OUT_OF) {
  Bytes payload;
  ByteWriter w{payload};
  for (const std::uint32_t v : {REQUEST.requestId, OBJECT.id, REQUEST.defineId,
                                RECORD_ID == SIMCONNECT_RECV_ID_SIMOBJECT_DATA ? REQUEST.flags : 0u, ENTRY,
                                OUT_OF, static_cast<std::uint32_t>(C.definitions[REQUEST.defineId].size())})
    w.u32(v);
  w.raw(BLOCK.data(), BLOCK.size());
  lf_record(C, RECORD_ID, payload);
  Json line = lf_line(S, "data");
  line.update({{"client", C.number},
               {"request", REQUEST.requestId},
               {"object", OBJECT.id},
               {"define", REQUEST.defineId}});
  lf_trace(S, line);
}

// Answers a request on one object; with flag CHANGED only when the block differs from the last one.
void lf_answer(Server& S, Client& C, DataRequest& REQUEST) {
  SimObject* object = findObject(S.world, REQUEST.objectId == 0 ? S.scenario.userObjectId : REQUEST.objectId);
  if (!object) return;
  const Bytes block = lf_block(S, C.definitions[REQUEST.defineId], *object);
  if ((REQUEST.flags & SIMCONNECT_DATA_REQUEST_FLAG_CHANGED) && block == REQUEST.lastBlock) return;
  REQUEST.lastBlock = block;
  lf_sendData(S, C, SIMCONNECT_RECV_ID_SIMOBJECT_DATA, REQUEST, *object, block, 1, 1);
}

// ------------------------------------------------------------------------------------------------------------
// Calls

struct Call {
  std::uint32_t type = 0;
  std::uint32_t sendId = 0;
  ByteReader args; // the arguments, after the 16-byte header
};

Json lf_callLine(Server& S, const Client& C, const Call& CALL) {
  Json line = lf_line(S, "call");
  line.update({{"client", C.number}, {"sendId", CALL.sendId}, {"call", simCallName(CALL.type)}});
  return line;
}

void lf_open(Server& S, Client& C, const Call& CALL, std::uint32_t PROTOCOL) {
  C.protocol = PROTOCOL;
  C.name = CALL.args.text(0, nameField);
  Json line = lf_callLine(S, C, CALL);
  line.update(
      {{"name", lf_utf8(C.name)},
       {"protocol", PROTOCOL},
       {"version", {CALL.args.u32(264), CALL.args.u32(268), CALL.args.u32(272), CALL.args.u32(276)}}});
  lf_trace(S, line);
  const auto& accepted = S.scenario.protocols;
  if (std::find(accepted.begin(), accepted.end(), PROTOCOL) == accepted.end()) {
    lf_exception(S, C, SIMCONNECT_EXCEPTION_VERSION_MISMATCH, CALL.sendId, 0);
    return;
  }
  C.opened = true;
  S.started = true;
  Bytes payload;
  ByteWriter w{payload};
  w.text(S.scenario.simulatorName, nameField);
  for (const std::uint32_t v : S.scenario.appVersion)
    w.u32(v);
  for (const std::uint32_t v : S.scenario.simConnectVersion)
    w.u32(v);
  w.u32(0);
  w.u32(0);
  lf_record(C, SIMCONNECT_RECV_ID_OPEN, payload);
}

const std::vector<std::string> systemEventNames = {
    "sim",        "objectadded",     "objectremoved",  "frame",
    "pauseframe", "positionchanged", "flightloaded",   "pause",
    "simstart",   "simstop",         "1sec",           "4sec",
    "6hz",        "crashed",         "aircraftloaded", "flightplanactivated",
    "paused",     "unpaused"};

void lf_subscribe(Server& S, Client& C, const Call& CALL, Json& LINE) {
  const std::uint32_t eventId = CALL.args.u32(0);
  const std::string name = lf_lower(CALL.args.text(4, nameField));
  LINE.update({{"event", eventId}, {"name", name}});
  if (std::find(systemEventNames.begin(), systemEventNames.end(), name) == systemEventNames.end()) {
    lf_exception(S, C, SIMCONNECT_EXCEPTION_NAME_UNRECOGNIZED, CALL.sendId, 2);
    return;
  }
  C.subscriptions[eventId] = name;
  // As the simulator does, "Sim" tells its state at once.
  if (name == "sim") lf_event(S, C, SIMCONNECT_RECV_ID_EVENT, eventId, S.world.paused ? 0 : 1);
}

void lf_addDatum(Server& S, Client& C, const Call& CALL, Json& LINE) {
  const ServedDatum datum{CALL.args.text(4, nameField), CALL.args.text(260, nameField), CALL.args.u32(516)};
  LINE.update(
      {{"define", CALL.args.u32(0)}, {"datum", datum.name}, {"unit", datum.unit}, {"type", datum.type}});
  if (!knownSimVar(datum.name))
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_NAME_UNRECOGNIZED, CALL.sendId, 2);
  if (!unitFits(datum.name, datum.unit))
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_NAME_UNRECOGNIZED, CALL.sendId, 3);
  if (!lf_servedType(datum.type))
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_INVALID_DATA_TYPE, CALL.sendId, 4);
  C.definitions[CALL.args.u32(0)].push_back(datum);
}

SimObject* lf_object(Server& S, Client& C, const Call& CALL, std::uint32_t OBJECT_ID, std::uint32_t INDEX) {
  SimObject* object = findObject(S.world, OBJECT_ID == 0 ? S.scenario.userObjectId : OBJECT_ID);
  if (!object) lf_exception(S, C, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, CALL.sendId, INDEX);
  return object;
}

void lf_requestData(Server& S, Client& C, const Call& CALL, Json& LINE) {
  DataRequest request{CALL.args.u32(0), CALL.args.u32(4), CALL.args.u32(8), CALL.args.u32(12),
                      CALL.args.u32(16)};
  LINE.update({{"request", request.requestId},
               {"define", request.defineId},
               {"object", request.objectId},
               {"period", request.period},
               {"flags", request.flags}});
  if (!C.definitions.contains(request.defineId))
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, CALL.sendId, 2);
  if (!lf_object(S, C, CALL, request.objectId, 3)) return;
  if (request.period > SIMCONNECT_PERIOD_SECOND)
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_INVALID_ENUM, CALL.sendId, 4);
  C.requests.erase(request.requestId);
  if (request.period == SIMCONNECT_PERIOD_NEVER) return;
  if (request.period == SIMCONNECT_PERIOD_ONCE) return lf_answer(S, C, request);
  C.requests[request.requestId] = request;
}

// By type: the user's aircraft counts as an aircraft; a radius of 0 gives the user alone. No match sends
// nothing.
void lf_requestByType(Server& S, Client& C, const Call& CALL, Json& LINE) {
  DataRequest request{CALL.args.u32(0), CALL.args.u32(4), 0, SIMCONNECT_PERIOD_ONCE, 0};
  const std::uint32_t radius = CALL.args.u32(8);
  const std::uint32_t type = CALL.args.u32(12);
  LINE.update(
      {{"request", request.requestId}, {"define", request.defineId}, {"radius", radius}, {"type", type}});
  if (!C.definitions.contains(request.defineId))
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, CALL.sendId, 2);
  if (radius > maxRadius) return lf_exception(S, C, SIMCONNECT_EXCEPTION_OUT_OF_BOUNDS, CALL.sendId, 3);
  const SimObject& user = userObject(S.world);
  std::vector<const SimObject*> found;
  for (const SimObject& object : S.world.objects) {
    const bool isUser = object.user;
    const bool typeFits = type == SIMCONNECT_SIMOBJECT_TYPE_USER       ? isUser
                          : type == SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT ? true
                          : type == SIMCONNECT_SIMOBJECT_TYPE_ALL      ? !isUser
                                                                       : false;
    const bool near =
        radius == 0 ? isUser : distanceNm(user.lat, user.lon, object.lat, object.lon) * metresPerNm <= radius;
    if (typeFits && (near || type == SIMCONNECT_SIMOBJECT_TYPE_USER)) found.push_back(&object);
  }
  LINE["found"] = found.size();
  for (std::size_t i = 0; i < found.size(); ++i)
    lf_sendData(S, C, SIMCONNECT_RECV_ID_SIMOBJECT_DATA_BYTYPE, request, *found[i],
                lf_block(S, C.definitions[request.defineId], *found[i]), static_cast<std::uint32_t>(i + 1),
                static_cast<std::uint32_t>(found.size()));
}

void lf_setData(Server& S, Client& C, const Call& CALL, Json& LINE) {
  const std::uint32_t defineId = CALL.args.u32(0);
  const std::uint32_t objectId = CALL.args.u32(4);
  const std::uint32_t flags = CALL.args.u32(8);
  const std::uint32_t count = std::max(1u, CALL.args.u32(12));
  const std::uint32_t unitSize = CALL.args.u32(16);
  LINE.update({{"define", defineId},
               {"object", objectId},
               {"flags", flags},
               {"count", count},
               {"unitSize", unitSize}});
  if (!C.definitions.contains(defineId))
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, CALL.sendId, 1);
  SimObject* object = lf_object(S, C, CALL, objectId, 2);
  if (!object) return;
  if (flags != SIMCONNECT_DATA_SET_FLAG_DEFAULT)
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_ILLEGAL_OPERATION, CALL.sendId, 3);
  const std::vector<ServedDatum>& datums = C.definitions[defineId];
  std::size_t size = 0;
  for (const ServedDatum& datum : datums)
    size += lf_typeSize(datum.type);
  if (count != 1 || unitSize != size || !CALL.args.has(20, size))
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_INVALID_DATA_SIZE, CALL.sendId, 5);
  std::size_t at = 20;
  Json values = Json::object();
  for (const ServedDatum& datum : datums) {
    double value = 0;
    switch (datum.type) {
    case SIMCONNECT_DATATYPE_INT32:
      value = static_cast<std::int32_t>(CALL.args.u32(at));
      break;
    case SIMCONNECT_DATATYPE_INT64:
      value = static_cast<double>(CALL.args.i64(at));
      break;
    case SIMCONNECT_DATATYPE_FLOAT32:
      value = CALL.args.f32(at);
      break;
    case SIMCONNECT_DATATYPE_FLOAT64:
      value = CALL.args.f64(at);
      break;
    default:
      break;
    }
    if (writeSimVar(*object, datum.name, datum.unit, value)) values[datum.name] = value;
    at += lf_typeSize(datum.type);
  }
  LINE["values"] = values;
}

void lf_transmit(Server& S, Client& C, const Call& CALL, Json& LINE) {
  const std::uint32_t objectId = CALL.args.u32(0);
  const std::uint32_t eventId = CALL.args.u32(4);
  const std::uint32_t data = CALL.args.u32(8);
  LINE.update({{"object", objectId},
               {"event", eventId},
               {"data", data},
               {"group", CALL.args.u32(12)},
               {"flags", CALL.args.u32(16)}});
  const auto mapped = C.mappedEvents.find(eventId);
  if (mapped == C.mappedEvents.end())
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, CALL.sendId, 2);
  LINE["name"] = mapped->second;
  SimObject* object = lf_object(S, C, CALL, objectId, 1);
  if (object) LINE["modelled"] = applySimEvent(*object, mapped->second, data);
}

void lf_create(Server& S, Client& C, const Call& CALL, Json& LINE) {
  PendingCreate create;
  create.client = C.number;
  create.sendId = CALL.sendId;
  create.title = CALL.args.text(0, nameField);
  create.tailNumber = CALL.args.text(256, tailNumberField);
  const std::size_t init = 256 + tailNumberField;
  create.lat = CALL.args.f64(init);
  create.lon = CALL.args.f64(init + 8);
  create.altitude = CALL.args.f64(init + 16);
  create.pitch = CALL.args.f64(init + 24);
  create.bank = CALL.args.f64(init + 32);
  create.heading = CALL.args.f64(init + 40);
  create.onGround = CALL.args.u32(init + 48) != 0;
  create.speed = static_cast<std::int32_t>(CALL.args.u32(init + 52)) > 0 ? CALL.args.u32(init + 52) : 0;
  create.requestId = CALL.args.u32(init + 56);
  create.due = S.scenarioTime + S.scenario.createDelay;
  LINE.update({{"title", lf_utf8(create.title)},
               {"tail", lf_utf8(create.tailNumber)},
               {"lat", create.lat},
               {"lon", create.lon},
               {"alt", create.altitude},
               {"heading", create.heading},
               {"onGround", create.onGround},
               {"request", create.requestId}});
  S.pendingCreates.push_back(create);
}

// The flight plan's file must exist; a path of the Windows program under Wine ("Z:\...") is looked up here
// too.
bool lf_planExists(const std::string& PATH) {
  std::string path = PATH + ".pln";
  if (std::filesystem::exists(path)) return true;
  if (path.size() > 2 && path[1] == ':') path = path.substr(2);
  std::replace(path.begin(), path.end(), '\\', '/');
  return std::filesystem::exists(path);
}

void lf_aiCall(Server& S, Client& C, const Call& CALL, Json& LINE) {
  const std::uint32_t objectId = CALL.args.u32(0);
  LINE["object"] = objectId;
  SimObject* object = lf_object(S, C, CALL, objectId, 1);
  if (!object) return;
  if (object->user)
    return lf_exception(S, C, SIMCONNECT_EXCEPTION_OPERATION_INVALID_FOR_OBJECT_TYPE, CALL.sendId, 1);
  switch (static_cast<SimCall>(CALL.type)) {
  case SimCall::aiReleaseControl:
    object->released = true;
    return;
  case SimCall::aiRemoveObject: {
    const std::uint32_t id = object->id;
    std::erase_if(S.world.objects, [&](const SimObject& O) { return O.id == id; });
    lf_objectEvent(S, "objectremoved", id);
    return;
  }
  default: {
    const std::string path = CALL.args.text(4, pathField);
    LINE["path"] = lf_utf8(path);
    if (!lf_planExists(path)) lf_exception(S, C, SIMCONNECT_EXCEPTION_LOAD_FLIGHTPLAN_FAILED, CALL.sendId, 2);
    return;
  }
  }
}

void lf_handle(Server& S, Client& C, const Call& CALL) {
  Json line = lf_callLine(S, C, CALL);
  S.inCall = true;
  const ByteReader& a = CALL.args;
  switch (static_cast<SimCall>(CALL.type)) {
  case SimCall::mapClientEventToSimEvent:
    C.mappedEvents[a.u32(0)] = a.text(4, nameField);
    line.update({{"event", a.u32(0)}, {"name", a.text(4, nameField)}});
    break;
  case SimCall::transmitClientEvent:
    lf_transmit(S, C, CALL, line);
    break;
  case SimCall::addClientEventToNotificationGroup:
    line.update({{"group", a.u32(0)}, {"event", a.u32(4)}, {"maskable", a.u32(8)}});
    break;
  case SimCall::setNotificationGroupPriority:
    line.update({{"group", a.u32(0)}, {"priority", a.u32(4)}});
    break;
  case SimCall::addToDataDefinition:
    lf_addDatum(S, C, CALL, line);
    break;
  case SimCall::clearDataDefinition:
    line["define"] = a.u32(0);
    if (C.definitions.erase(a.u32(0)) == 0)
      lf_exception(S, C, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, CALL.sendId, 1);
    break;
  case SimCall::requestDataOnSimObject:
    lf_requestData(S, C, CALL, line);
    break;
  case SimCall::requestDataOnSimObjectType:
    lf_requestByType(S, C, CALL, line);
    break;
  case SimCall::setDataOnSimObject:
    lf_setData(S, C, CALL, line);
    break;
  case SimCall::subscribeToSystemEvent:
    lf_subscribe(S, C, CALL, line);
    break;
  case SimCall::unsubscribeFromSystemEvent:
    line["event"] = a.u32(0);
    if (C.subscriptions.erase(a.u32(0)) == 0)
      lf_exception(S, C, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, CALL.sendId, 1);
    break;
  case SimCall::aiCreateNonAtcAircraft:
    lf_create(S, C, CALL, line);
    break;
  case SimCall::aiReleaseControl:
  case SimCall::aiRemoveObject:
  case SimCall::aiSetAircraftFlightPlan:
    lf_aiCall(S, C, CALL, line);
    break;
  default:
    break;
  }
  // The line comes before the exceptions the call caused, so a reader sees cause and effect in order.
  S.inCall = false;
  lf_trace(S, line);
  for (Json& exception : S.exceptionLines)
    lf_trace(S, std::move(exception));
  S.exceptionLines.clear();
}

void lf_packet(Server& S, Client& C, const unsigned char* DATA, std::uint32_t SIZE) {
  const ByteReader packet{DATA, SIZE};
  const std::uint32_t type = packet.u32(8) & ~callMark;
  const Call call{type, packet.u32(12), ByteReader{DATA + callHeaderSize, SIZE - callHeaderSize}};
  if (static_cast<SimCall>(type) == SimCall::open && SIZE >= simCallSize(type)) {
    lf_open(S, C, call, packet.u32(4));
    return;
  }
  if (!C.opened) {
    C.protocol = packet.u32(4);
    lf_trace(S, lf_callLine(S, C, call));
    lf_exception(S, C, SIMCONNECT_EXCEPTION_UNOPENED, call.sendId, 0);
    return;
  }
  if (simCallSize(type) == 0) {
    lf_trace(S, lf_callLine(S, C, call));
    lf_exception(S, C, SIMCONNECT_EXCEPTION_ERROR, call.sendId, SIMCONNECT_UNKNOWN_INDEX);
    return;
  }
  if (SIZE < simCallSize(type)) {
    lf_trace(S, lf_callLine(S, C, call));
    lf_exception(S, C, SIMCONNECT_EXCEPTION_SIZE_MISMATCH, call.sendId, 0);
    return;
  }
  lf_handle(S, C, call);
}

// ------------------------------------------------------------------------------------------------------------
// Connections

void lf_accept(Server& S) {
  const SocketHandle socket = acceptClient(S.listener);
  if (socket == invalidSocket) return;
  auto client = std::make_unique<Client>();
  client->number = S.nextClient++;
  client->socket = socket;
  client->input.minSize = static_cast<std::uint32_t>(callHeaderSize);
  client->input.maxSize = maxPacket;
  if (S.scenario.writes == WriteMode::split) setNoDelay(socket, true);
  Json line = lf_line(S, "connect");
  line["client"] = client->number;
  lf_trace(S, line);
  S.clients.push_back(std::move(client));
}

void lf_read(Server& S, Client& C) {
  unsigned char buffer[65536];
  const long got = receiveSome(C.socket, buffer, sizeof(buffer));
  if (got <= 0) {
    C.gone = true;
    return;
  }
  appendBytes(C.input, buffer, static_cast<std::size_t>(got));
  for (;;) {
    const TakenRecord taken = takeRecord(C.input);
    if (taken.status == TakeStatus::needMore) return;
    if (taken.status == TakeStatus::badSize) {
      Json line = lf_line(S, "badPacket");
      line.update({{"client", C.number},
                   {"size", taken.size},
                   {"bytes", hexSample(taken.data, pendingBytes(C.input))}});
      lf_trace(S, line);
      C.gone = true;
      return;
    }
    lf_packet(S, C, taken.data, taken.size);
  }
}

void lf_writeOut(Server& S, Client& C) {
  if (C.outbox.empty() || C.gone) return;
  bool sent = true;
  if (S.scenario.writes == WriteMode::coalesce) {
    Bytes all;
    for (const Bytes& record : C.outbox)
      all.insert(all.end(), record.begin(), record.end());
    sent = sendAll(C.socket, all.data(), all.size());
  } else {
    for (const Bytes& record : C.outbox) {
      if (S.scenario.writes == WriteMode::whole) {
        sent = sent && sendAll(C.socket, record.data(), record.size());
        continue;
      }
      for (std::size_t at = 0; at < record.size() && sent;) {
        const std::size_t piece = std::min<std::size_t>(record.size() - at, 1 + S.pieces() % 7);
        sent = sendAll(C.socket, record.data() + at, piece);
        at += piece;
      }
    }
  }
  C.outbox.clear();
  if (!sent) C.gone = true;
}

void lf_drop(Server& S, Client& C) {
  closeSocket(C.socket);
  Json line = lf_line(S, "disconnect");
  line["client"] = C.number;
  lf_trace(S, line);
  // The objects a client made leave with it.
  std::vector<std::uint32_t> orphans;
  for (const SimObject& object : S.world.objects)
    if (object.owner == C.number) orphans.push_back(object.id);
  std::erase_if(S.world.objects, [&](const SimObject& O) { return O.owner == C.number; });
  std::erase_if(S.pendingCreates, [&](const PendingCreate& P) { return P.client == C.number; });
  C.subscriptions.clear();
  for (const std::uint32_t id : orphans)
    lf_objectEvent(S, "objectremoved", id);
}

void lf_dropGone(Server& S) {
  for (auto& client : S.clients)
    if (client->gone) lf_drop(S, *client);
  std::erase_if(S.clients, [](const std::unique_ptr<Client>& C) { return C->gone; });
}

Client* lf_client(Server& S, std::uint32_t NUMBER) {
  for (auto& client : S.clients)
    if (client->number == NUMBER && !client->gone) return client.get();
  return nullptr;
}

// ------------------------------------------------------------------------------------------------------------
// Frames and the timeline

void lf_makeObjects(Server& S) {
  std::vector<PendingCreate> due;
  std::erase_if(S.pendingCreates, [&](const PendingCreate& P) {
    if (P.due > S.scenarioTime) return false;
    due.push_back(P);
    return true;
  });
  for (const PendingCreate& create : due) {
    Client* client = lf_client(S, create.client);
    if (!client) continue;
    const auto installed =
        std::find_if(S.scenario.titles.begin(), S.scenario.titles.end(),
                     [&](const InstalledTitle& T) { return lf_lower(T.title) == lf_lower(create.title); });
    if (installed == S.scenario.titles.end()) {
      lf_exception(S, *client, SIMCONNECT_EXCEPTION_CREATE_OBJECT_FAILED, create.sendId, 1);
      continue;
    }
    if (S.world.objects.size() > maxObjects) {
      lf_exception(S, *client, SIMCONNECT_EXCEPTION_TOO_MANY_OBJECTS, create.sendId, 0);
      continue;
    }
    SimObject& object =
        addObject(S.world, installed->title, create.tailNumber, create.lat, create.lon,
                  create.onGround ? std::optional<double>() : create.altitude, create.heading * degToRad,
                  create.speed, installed->staticCg, installed->staticPitch);
    object.owner = create.client;
    object.pitch = create.onGround ? object.staticPitch : create.pitch * degToRad;
    object.bank = create.bank * degToRad;
    Bytes assigned;
    ByteWriter w{assigned};
    w.u32(create.requestId);
    w.u32(object.id);
    lf_record(*client, SIMCONNECT_RECV_ID_ASSIGNED_OBJECT_ID, assigned);
    Json line = lf_line(S, "created");
    line.update({{"client", create.client}, {"object", object.id}, {"tail", lf_utf8(object.atcId)}});
    lf_trace(S, line);
    lf_objectEvent(S, "objectadded", object.id);
  }
}

void lf_periodicRequests(Server& S, bool NEW_SECOND) {
  for (auto& client : S.clients) {
    if (!client->opened || client->gone) continue;
    for (auto& [id, request] : client->requests) {
      const bool frameRequest = request.period == SIMCONNECT_PERIOD_VISUAL_FRAME ||
                                (request.period == SIMCONNECT_PERIOD_SIM_FRAME && !S.world.paused);
      if (frameRequest || (request.period == SIMCONNECT_PERIOD_SECOND && NEW_SECOND))
        lf_answer(S, *client, request);
    }
  }
}

Json lf_objectState(const World& W, const SimObject& O) {
  return Json{{"id", O.id},
              {"user", O.user},
              {"atcId", lf_utf8(O.atcId)},
              {"lat", O.lat},
              {"lon", O.lon},
              {"alt", std::round(O.altitude * 100) / 100},
              {"agl", std::round(aboveGround(W, O) * 100) / 100},
              {"onGround", onGround(W, O)},
              {"pitch", O.pitch},
              {"bank", O.bank},
              {"heading", O.heading},
              {"tas", O.tas},
              {"released", O.released},
              {"frozen", {O.freezeLatLon, O.freezeAltitude, O.freezeAttitude}},
              {"lights", O.lights},
              {"gear", O.gearDown},
              {"flaps", O.flaps},
              {"spoilers", O.spoilers},
              {"throttle", O.throttle},
              {"engines", O.engines}};
}

void lf_frame(Server& S) {
  const double dt = 1.0 / S.scenario.frameRate;
  const auto secondBefore = static_cast<std::int64_t>(std::floor(S.world.simTime));
  S.scenarioTime += dt;
  ++S.frames;
  stepWorld(S.world, dt);
  lf_makeObjects(S);
  Bytes rates;
  ByteWriter w{rates};
  w.f32(static_cast<float>(S.scenario.reportedFrameRate));
  w.f32(1.0f);
  lf_systemEvent(S, "frame", SIMCONNECT_RECV_ID_EVENT_FRAME, 0, rates);
  const bool newSecond = static_cast<std::int64_t>(std::floor(S.world.simTime)) != secondBefore;
  if (newSecond) lf_systemEvent(S, "1sec", SIMCONNECT_RECV_ID_EVENT, 0);
  lf_periodicRequests(S, newSecond);
  Json line = lf_line(S, "state");
  line["frame"] = S.frames;
  line["paused"] = S.world.paused;
  line["objects"] = Json::array();
  for (const SimObject& object : S.world.objects)
    line["objects"].push_back(lf_objectState(S.world, object));
  lf_trace(S, line);
}

void lf_quitAll(Server& S) {
  for (auto& client : S.clients) {
    if (!client->opened || client->gone) continue;
    lf_record(*client, SIMCONNECT_RECV_ID_QUIT, {});
    lf_writeOut(S, *client);
    client->gone = true;
  }
  lf_dropGone(S);
}

void lf_removeAi(Server& S, const std::function<bool(const SimObject&)>& WHICH) {
  std::vector<std::uint32_t> removed;
  for (const SimObject& object : S.world.objects)
    if (!object.user && WHICH(object)) removed.push_back(object.id);
  std::erase_if(S.world.objects, [&](const SimObject& O) { return !O.user && WHICH(O); });
  for (const std::uint32_t id : removed)
    lf_objectEvent(S, "objectremoved", id);
}

void lf_cutRecord(Server& S) {
  Bytes half;
  ByteWriter w{half};
  w.u32(24);
  w.u32(4);
  w.u32(SIMCONNECT_RECV_ID_EVENT);
  w.u32(SIMCONNECT_UNKNOWN_GROUP);
  for (auto& client : S.clients) {
    if (!client->opened || client->gone) continue;
    lf_writeOut(S, *client);
    sendAll(client->socket, half.data(), half.size());
    client->gone = true;
  }
  lf_dropGone(S);
}

void lf_play(Server& S, const TimelineEntry& E) {
  Json line = lf_line(S, "timeline");
  line.update({{"do", E.what}, {"text", lf_utf8(E.text)}});
  lf_trace(S, line);
  if (E.what == "pause" || E.what == "resume") {
    S.world.paused = E.what == "pause";
    lf_simState(S);
  } else if (E.what == "teleport") {
    moveUser(S.world, *E.moveTo);
  } else if (E.what == "positionChanged") {
    if (E.moveTo) moveUser(S.world, *E.moveTo);
    lf_systemEvent(S, "positionchanged", SIMCONNECT_RECV_ID_EVENT, 0);
  } else if (E.what == "flightLoaded") {
    lf_removeAi(S, [](const SimObject&) { return true; });
    if (E.moveTo) moveUser(S.world, *E.moveTo);
    Bytes file;
    ByteWriter w{file};
    w.text(E.text, pathField);
    w.u32(0);
    lf_systemEvent(S, "flightloaded", SIMCONNECT_RECV_ID_EVENT_FILENAME, 0, file);
  } else if (E.what == "removeObject") {
    lf_removeAi(S, [&](const SimObject& O) { return O.atcId == E.text; });
  } else if (E.what == "garbage") {
    const Bytes bytes = [&] {
      Bytes b;
      for (std::size_t i = 0; i + 1 < E.text.size(); i += 2)
        b.push_back(static_cast<unsigned char>(std::stoi(E.text.substr(i, 2), nullptr, 16)));
      return b;
    }();
    for (auto& client : S.clients)
      if (client->opened && !client->gone) client->outbox.push_back(bytes);
  } else if (E.what == "cutRecord") {
    lf_cutRecord(S);
  } else if (E.what == "quit") {
    S.endReason = "quit";
  }
}

void lf_timeline(Server& S) {
  while (S.nextTraffic < S.scenario.traffic.size() && S.scenario.traffic[S.nextTraffic].t <= S.scenarioTime) {
    const TrafficObject& t = S.scenario.traffic[S.nextTraffic++];
    const SimObject& object =
        addObject(S.world, t.title, t.atcId, t.lat, t.lon, t.altitude, t.heading * degToRad, t.speed, 6, 0);
    Json line = lf_line(S, "traffic");
    line.update({{"object", object.id}, {"atcId", lf_utf8(t.atcId)}});
    lf_trace(S, line);
    lf_objectEvent(S, "objectadded", object.id);
  }
  while (S.nextTimeline < S.scenario.timeline.size() &&
         S.scenario.timeline[S.nextTimeline].t <= S.scenarioTime)
    lf_play(S, S.scenario.timeline[S.nextTimeline++]);
  if (S.scenario.duration > 0 && S.scenarioTime >= S.scenario.duration && S.endReason.empty())
    S.endReason = "duration";
}

void lf_pollSockets(Server& S, int TIMEOUT_MS) {
  std::vector<SocketHandle> sockets{S.listener};
  for (const auto& client : S.clients)
    sockets.push_back(client->socket);
  for (const std::size_t ready : readableSockets(sockets, TIMEOUT_MS)) {
    if (ready == 0)
      lf_accept(S);
    else
      lf_read(S, *S.clients[ready - 1]);
  }
}

} // namespace

Server::Server(Scenario SCENARIO) : scenario(std::move(SCENARIO)), world(scenario) {}

bool startServer(Server& SERVER, std::uint16_t PORT) {
  startSockets();
  SERVER.listener = openTcpServer(PORT, IpFamily::any);
  return SERVER.listener != invalidSocket;
}

std::uint16_t serverPort(const Server& SERVER) {
  return localPort(SERVER.listener);
}

void runServer(Server& SERVER, const std::atomic<bool>& STOP) {
  Server& S = SERVER;
  const auto period =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / S.scenario.frameRate));
  auto nextFrame = Clock::now() + period;
  while (!STOP && S.endReason.empty()) {
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(nextFrame - Clock::now());
    lf_pollSockets(S, static_cast<int>(std::clamp<std::int64_t>(wait.count(), 0, 5)));
    const auto now = Clock::now();
    if (now >= nextFrame) {
      // Frames run on a fixed grid; far behind it, the grid is laid anew rather than racing to catch up.
      nextFrame = now - nextFrame > 5 * period ? now + period : nextFrame + period;
      if (S.started) {
        lf_frame(S);
        lf_timeline(S);
      }
    }
    for (auto& client : S.clients)
      lf_writeOut(S, *client);
    lf_dropGone(S);
  }
  if (S.endReason.empty()) S.endReason = "stopped";
  lf_quitAll(S);
  closeSocket(S.listener);
  Json line = lf_line(S, "end");
  line.update({{"reason", S.endReason}, {"frames", S.frames}});
  lf_trace(S, line);
}

} // namespace ory
