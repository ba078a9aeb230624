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

std::string lf_lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  return lower;
}

// The trace holds texts as UTF-8; SimConnect strings are Latin-1.
std::string lf_utf8(std::string_view latin1) {
  std::string text;
  for (const char c : latin1) {
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

Json lf_line(Server& s, std::string_view kind) {
  return Json{{"kind", kind},
              {"t", std::round(s.scenarioTime * 1000) / 1000},
              {"sim", std::round(s.world.simTime * 1000) / 1000}};
}

void lf_trace(Server& s, Json line) {
  traceLine(s.trace, std::move(line));
}

// ------------------------------------------------------------------------------------------------------------
// Records to a client

void lf_record(Client& c, std::uint32_t id, const Bytes& payload) {
  Bytes record;
  ByteWriter w{record};
  w.u32(static_cast<std::uint32_t>(recordHeaderSize + payload.size()));
  w.u32(c.protocol);
  w.u32(id);
  w.raw(payload.data(), payload.size());
  c.outbox.push_back(std::move(record));
}

void lf_exception(Server& s, Client& c, std::uint32_t exception, std::uint32_t sendId, std::uint32_t index) {
  Bytes payload;
  ByteWriter w{payload};
  w.u32(exception);
  w.u32(sendId);
  w.u32(index);
  lf_record(c, SIMCONNECT_RECV_ID_EXCEPTION, payload);
  Json line = lf_line(s, "exception");
  line.update({{"client", c.number}, {"exception", exception}, {"sendId", sendId}, {"index", index}});
  if (s.inCall)
    s.exceptionLines.push_back(std::move(line));
  else
    lf_trace(s, line);
}

// An event record: group, event, data, then extra, and Prepar3D's trailing dwFlags in its longer shape.
void lf_event(Server& s, Client& c, std::uint32_t recordId, std::uint32_t eventId, std::uint32_t data,
              const Bytes& extra = {}) {
  Bytes payload;
  ByteWriter w{payload};
  w.u32(SIMCONNECT_UNKNOWN_GROUP);
  w.u32(eventId);
  w.u32(data);
  w.raw(extra.data(), extra.size());
  if (s.scenario.p3dShapes && recordId != SIMCONNECT_RECV_ID_EVENT_FILENAME) w.u32(0);
  lf_record(c, recordId, payload);
}

// Sends a system event to every client that subscribed to name.
void lf_systemEvent(Server& s, std::string_view name, std::uint32_t recordId, std::uint32_t data,
                    const Bytes& extra = {}) {
  for (auto& client : s.clients) {
    if (!client->opened || client->gone) continue;
    for (const auto& [eventId, subscribed] : client->subscriptions)
      if (subscribed == name) lf_event(s, *client, recordId, eventId, data, extra);
  }
  if (name == "frame") return;
  Json line = lf_line(s, "event");
  line.update({{"event", name}, {"data", data}});
  lf_trace(s, line);
}

void lf_objectEvent(Server& s, std::string_view name, std::uint32_t objectId) {
  Bytes type;
  ByteWriter{type}.u32(SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT);
  lf_systemEvent(s, name, SIMCONNECT_RECV_ID_EVENT_OBJECT_ADDREMOVE, objectId, type);
}

void lf_simState(Server& s) {
  const std::uint32_t running = s.world.paused ? 0 : 1;
  lf_systemEvent(s, "sim", SIMCONNECT_RECV_ID_EVENT, running);
  lf_systemEvent(s, running ? "simstart" : "simstop", SIMCONNECT_RECV_ID_EVENT, 0);
  lf_systemEvent(s, "pause", SIMCONNECT_RECV_ID_EVENT, 1 - running);
}

// ------------------------------------------------------------------------------------------------------------
// Data blocks

std::size_t lf_typeSize(std::uint32_t type) {
  switch (type) {
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

bool lf_servedType(std::uint32_t type) {
  return type == SIMCONNECT_DATATYPE_STRINGV || lf_typeSize(type) > 0;
}

void lf_putValue(ByteWriter& w, std::uint32_t type, const SimValue& rawValue) {
  switch (type) {
  case SIMCONNECT_DATATYPE_INT32:
    w.u32(static_cast<std::uint32_t>(static_cast<std::int32_t>(rawValue.number)));
    return;
  case SIMCONNECT_DATATYPE_INT64: {
    const auto value = static_cast<std::int64_t>(rawValue.number);
    w.raw(&value, 8);
    return;
  }
  case SIMCONNECT_DATATYPE_FLOAT32:
    w.f32(static_cast<float>(rawValue.number));
    return;
  case SIMCONNECT_DATATYPE_FLOAT64:
    w.f64(rawValue.number);
    return;
  case SIMCONNECT_DATATYPE_STRINGV: {
    // NUL-terminated, padded with zeros to a multiple of four bytes.
    w.raw(rawValue.text.data(), rawValue.text.size());
    w.zeros(4 - rawValue.text.size() % 4);
    return;
  }
  default:
    w.text(rawValue.text, lf_typeSize(type));
    return;
  }
}

Bytes lf_block(Server& s, const std::vector<ServedDatum>& datums, const SimObject& object) {
  Bytes block;
  ByteWriter w{block};
  for (const ServedDatum& datum : datums)
    lf_putValue(w, datum.type, readSimVar(s.world, object, datum.name, datum.unit));
  return block;
}

void lf_sendData(Server& s, Client& c, std::uint32_t recordId, const DataRequest& request,
                 const SimObject& object, const Bytes& block, std::uint32_t entry, std::uint32_t outOf) {
  Bytes payload;
  ByteWriter w{payload};
  for (const std::uint32_t v : {request.requestId, object.id, request.defineId,
                                recordId == SIMCONNECT_RECV_ID_SIMOBJECT_DATA ? request.flags : 0u, entry,
                                outOf, static_cast<std::uint32_t>(c.definitions[request.defineId].size())})
    w.u32(v);
  w.raw(block.data(), block.size());
  lf_record(c, recordId, payload);
  Json line = lf_line(s, "data");
  line.update({{"client", c.number},
               {"request", request.requestId},
               {"object", object.id},
               {"define", request.defineId}});
  lf_trace(s, line);
}

// Answers a request on one object; with flag CHANGED only when the block differs from the last one.
void lf_answer(Server& s, Client& c, DataRequest& request) {
  SimObject* object = findObject(s.world, request.objectId == 0 ? s.scenario.userObjectId : request.objectId);
  if (!object) return;
  const Bytes block = lf_block(s, c.definitions[request.defineId], *object);
  if ((request.flags & SIMCONNECT_DATA_REQUEST_FLAG_CHANGED) && block == request.lastBlock) return;
  request.lastBlock = block;
  lf_sendData(s, c, SIMCONNECT_RECV_ID_SIMOBJECT_DATA, request, *object, block, 1, 1);
}

// ------------------------------------------------------------------------------------------------------------
// Calls

struct Call {
  std::uint32_t type = 0;
  std::uint32_t sendId = 0;
  ByteReader args; // the arguments, after the 16-byte header
};

Json lf_callLine(Server& s, const Client& c, const Call& call) {
  Json line = lf_line(s, "call");
  line.update({{"client", c.number}, {"sendId", call.sendId}, {"call", simCallName(call.type)}});
  return line;
}

void lf_open(Server& s, Client& c, const Call& call, std::uint32_t protocol) {
  c.protocol = protocol;
  c.name = call.args.text(0, nameField);
  Json line = lf_callLine(s, c, call);
  line.update(
      {{"name", lf_utf8(c.name)},
       {"protocol", protocol},
       {"version", {call.args.u32(264), call.args.u32(268), call.args.u32(272), call.args.u32(276)}}});
  lf_trace(s, line);
  const auto& accepted = s.scenario.protocols;
  if (std::find(accepted.begin(), accepted.end(), protocol) == accepted.end()) {
    lf_exception(s, c, SIMCONNECT_EXCEPTION_VERSION_MISMATCH, call.sendId, 0);
    return;
  }
  c.opened = true;
  s.started = true;
  Bytes payload;
  ByteWriter w{payload};
  w.text(s.scenario.simulatorName, nameField);
  for (const std::uint32_t v : s.scenario.appVersion)
    w.u32(v);
  for (const std::uint32_t v : s.scenario.simConnectVersion)
    w.u32(v);
  w.u32(0);
  w.u32(0);
  lf_record(c, SIMCONNECT_RECV_ID_OPEN, payload);
}

const std::vector<std::string> systemEventNames = {
    "sim",        "objectadded",     "objectremoved",  "frame",
    "pauseframe", "positionchanged", "flightloaded",   "pause",
    "simstart",   "simstop",         "1sec",           "4sec",
    "6hz",        "crashed",         "aircraftloaded", "flightplanactivated",
    "paused",     "unpaused"};

void lf_subscribe(Server& s, Client& c, const Call& call, Json& line) {
  const std::uint32_t eventId = call.args.u32(0);
  const std::string name = lf_lower(call.args.text(4, nameField));
  line.update({{"event", eventId}, {"name", name}});
  if (std::find(systemEventNames.begin(), systemEventNames.end(), name) == systemEventNames.end()) {
    lf_exception(s, c, SIMCONNECT_EXCEPTION_NAME_UNRECOGNIZED, call.sendId, 2);
    return;
  }
  c.subscriptions[eventId] = name;
  // As the simulator does, "Sim" tells its state at once.
  if (name == "sim") lf_event(s, c, SIMCONNECT_RECV_ID_EVENT, eventId, s.world.paused ? 0 : 1);
}

void lf_addDatum(Server& s, Client& c, const Call& call, Json& line) {
  const ServedDatum datum{call.args.text(4, nameField), call.args.text(260, nameField), call.args.u32(516)};
  line.update(
      {{"define", call.args.u32(0)}, {"datum", datum.name}, {"unit", datum.unit}, {"type", datum.type}});
  if (!knownSimVar(datum.name))
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_NAME_UNRECOGNIZED, call.sendId, 2);
  if (!unitFits(datum.name, datum.unit))
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_NAME_UNRECOGNIZED, call.sendId, 3);
  if (!lf_servedType(datum.type))
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_INVALID_DATA_TYPE, call.sendId, 4);
  c.definitions[call.args.u32(0)].push_back(datum);
}

SimObject* lf_object(Server& s, Client& c, const Call& call, std::uint32_t objectId, std::uint32_t index) {
  SimObject* object = findObject(s.world, objectId == 0 ? s.scenario.userObjectId : objectId);
  if (!object) lf_exception(s, c, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, call.sendId, index);
  return object;
}

void lf_requestData(Server& s, Client& c, const Call& call, Json& line) {
  DataRequest request{call.args.u32(0), call.args.u32(4), call.args.u32(8), call.args.u32(12),
                      call.args.u32(16)};
  line.update({{"request", request.requestId},
               {"define", request.defineId},
               {"object", request.objectId},
               {"period", request.period},
               {"flags", request.flags}});
  if (!c.definitions.contains(request.defineId))
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, call.sendId, 2);
  if (!lf_object(s, c, call, request.objectId, 3)) return;
  if (request.period > SIMCONNECT_PERIOD_SECOND)
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_INVALID_ENUM, call.sendId, 4);
  c.requests.erase(request.requestId);
  if (request.period == SIMCONNECT_PERIOD_NEVER) return;
  if (request.period == SIMCONNECT_PERIOD_ONCE) return lf_answer(s, c, request);
  c.requests[request.requestId] = request;
}

// By type: the user's aircraft counts as an aircraft; a radius of 0 gives the user alone. No match sends
// nothing.
void lf_requestByType(Server& s, Client& c, const Call& call, Json& line) {
  DataRequest request{call.args.u32(0), call.args.u32(4), 0, SIMCONNECT_PERIOD_ONCE, 0};
  const std::uint32_t radius = call.args.u32(8);
  const std::uint32_t type = call.args.u32(12);
  line.update(
      {{"request", request.requestId}, {"define", request.defineId}, {"radius", radius}, {"type", type}});
  if (!c.definitions.contains(request.defineId))
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, call.sendId, 2);
  if (radius > maxRadius) return lf_exception(s, c, SIMCONNECT_EXCEPTION_OUT_OF_BOUNDS, call.sendId, 3);
  const SimObject& user = userObject(s.world);
  std::vector<const SimObject*> found;
  for (const SimObject& object : s.world.objects) {
    const bool isUser = object.user;
    const bool typeFits = type == SIMCONNECT_SIMOBJECT_TYPE_USER       ? isUser
                          : type == SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT ? true
                          : type == SIMCONNECT_SIMOBJECT_TYPE_ALL      ? !isUser
                                                                       : false;
    const bool near =
        radius == 0 ? isUser : distanceNm(user.lat, user.lon, object.lat, object.lon) * metresPerNm <= radius;
    if (typeFits && (near || type == SIMCONNECT_SIMOBJECT_TYPE_USER)) found.push_back(&object);
  }
  line["found"] = found.size();
  for (std::size_t i = 0; i < found.size(); ++i)
    lf_sendData(s, c, SIMCONNECT_RECV_ID_SIMOBJECT_DATA_BYTYPE, request, *found[i],
                lf_block(s, c.definitions[request.defineId], *found[i]), static_cast<std::uint32_t>(i + 1),
                static_cast<std::uint32_t>(found.size()));
}

void lf_setData(Server& s, Client& c, const Call& call, Json& line) {
  const std::uint32_t defineId = call.args.u32(0);
  const std::uint32_t objectId = call.args.u32(4);
  const std::uint32_t flags = call.args.u32(8);
  const std::uint32_t count = std::max(1u, call.args.u32(12));
  const std::uint32_t unitSize = call.args.u32(16);
  line.update({{"define", defineId},
               {"object", objectId},
               {"flags", flags},
               {"count", count},
               {"unitSize", unitSize}});
  if (!c.definitions.contains(defineId))
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, call.sendId, 1);
  SimObject* object = lf_object(s, c, call, objectId, 2);
  if (!object) return;
  if (flags != SIMCONNECT_DATA_SET_FLAG_DEFAULT)
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_ILLEGAL_OPERATION, call.sendId, 3);
  const std::vector<ServedDatum>& datums = c.definitions[defineId];
  std::size_t size = 0;
  for (const ServedDatum& datum : datums)
    size += lf_typeSize(datum.type);
  if (count != 1 || unitSize != size || !call.args.has(20, size))
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_INVALID_DATA_SIZE, call.sendId, 5);
  std::size_t at = 20;
  Json values = Json::object();
  for (const ServedDatum& datum : datums) {
    double value = 0;
    switch (datum.type) {
    case SIMCONNECT_DATATYPE_INT32:
      value = static_cast<std::int32_t>(call.args.u32(at));
      break;
    case SIMCONNECT_DATATYPE_INT64:
      value = static_cast<double>(call.args.i64(at));
      break;
    case SIMCONNECT_DATATYPE_FLOAT32:
      value = call.args.f32(at);
      break;
    case SIMCONNECT_DATATYPE_FLOAT64:
      value = call.args.f64(at);
      break;
    default:
      break;
    }
    if (writeSimVar(*object, datum.name, datum.unit, value)) values[datum.name] = value;
    at += lf_typeSize(datum.type);
  }
  line["values"] = values;
}

void lf_transmit(Server& s, Client& c, const Call& call, Json& line) {
  const std::uint32_t objectId = call.args.u32(0);
  const std::uint32_t eventId = call.args.u32(4);
  const std::uint32_t data = call.args.u32(8);
  line.update({{"object", objectId},
               {"event", eventId},
               {"data", data},
               {"group", call.args.u32(12)},
               {"flags", call.args.u32(16)}});
  const auto mapped = c.mappedEvents.find(eventId);
  if (mapped == c.mappedEvents.end())
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, call.sendId, 2);
  line["name"] = mapped->second;
  SimObject* object = lf_object(s, c, call, objectId, 1);
  if (object) line["modelled"] = applySimEvent(*object, mapped->second, data);
}

void lf_create(Server& s, Client& c, const Call& call, Json& line) {
  PendingCreate create;
  create.client = c.number;
  create.sendId = call.sendId;
  create.title = call.args.text(0, nameField);
  create.tailNumber = call.args.text(256, tailNumberField);
  const std::size_t init = 256 + tailNumberField;
  create.lat = call.args.f64(init);
  create.lon = call.args.f64(init + 8);
  create.altitude = call.args.f64(init + 16);
  create.pitch = call.args.f64(init + 24);
  create.bank = call.args.f64(init + 32);
  create.heading = call.args.f64(init + 40);
  create.onGround = call.args.u32(init + 48) != 0;
  create.speed = static_cast<std::int32_t>(call.args.u32(init + 52)) > 0 ? call.args.u32(init + 52) : 0;
  create.requestId = call.args.u32(init + 56);
  create.due = s.scenarioTime + s.scenario.createDelay;
  line.update({{"title", lf_utf8(create.title)},
               {"tail", lf_utf8(create.tailNumber)},
               {"lat", create.lat},
               {"lon", create.lon},
               {"alt", create.altitude},
               {"heading", create.heading},
               {"onGround", create.onGround},
               {"request", create.requestId}});
  s.pendingCreates.push_back(create);
}

// The flight plan's file must exist; a path of the Windows program under Wine ("Z:\...") is looked up here
// too.
bool lf_planExists(const std::string& rawPath) {
  std::string path = rawPath + ".pln";
  if (std::filesystem::exists(path)) return true;
  if (path.size() > 2 && path[1] == ':') path = path.substr(2);
  std::replace(path.begin(), path.end(), '\\', '/');
  return std::filesystem::exists(path);
}

void lf_aiCall(Server& s, Client& c, const Call& call, Json& line) {
  const std::uint32_t objectId = call.args.u32(0);
  line["object"] = objectId;
  SimObject* object = lf_object(s, c, call, objectId, 1);
  if (!object) return;
  if (object->user)
    return lf_exception(s, c, SIMCONNECT_EXCEPTION_OPERATION_INVALID_FOR_OBJECT_TYPE, call.sendId, 1);
  switch (static_cast<SimCall>(call.type)) {
  case SimCall::aiReleaseControl:
    object->released = true;
    return;
  case SimCall::aiRemoveObject: {
    const std::uint32_t id = object->id;
    std::erase_if(s.world.objects, [&](const SimObject& o) { return o.id == id; });
    lf_objectEvent(s, "objectremoved", id);
    return;
  }
  default: {
    const std::string path = call.args.text(4, pathField);
    line["path"] = lf_utf8(path);
    if (!lf_planExists(path)) lf_exception(s, c, SIMCONNECT_EXCEPTION_LOAD_FLIGHTPLAN_FAILED, call.sendId, 2);
    return;
  }
  }
}

void lf_handle(Server& s, Client& c, const Call& call) {
  Json line = lf_callLine(s, c, call);
  s.inCall = true;
  const ByteReader& a = call.args;
  switch (static_cast<SimCall>(call.type)) {
  case SimCall::mapClientEventToSimEvent:
    c.mappedEvents[a.u32(0)] = a.text(4, nameField);
    line.update({{"event", a.u32(0)}, {"name", a.text(4, nameField)}});
    break;
  case SimCall::transmitClientEvent:
    lf_transmit(s, c, call, line);
    break;
  case SimCall::addClientEventToNotificationGroup:
    line.update({{"group", a.u32(0)}, {"event", a.u32(4)}, {"maskable", a.u32(8)}});
    break;
  case SimCall::setNotificationGroupPriority:
    line.update({{"group", a.u32(0)}, {"priority", a.u32(4)}});
    break;
  case SimCall::addToDataDefinition:
    lf_addDatum(s, c, call, line);
    break;
  case SimCall::clearDataDefinition:
    line["define"] = a.u32(0);
    if (c.definitions.erase(a.u32(0)) == 0)
      lf_exception(s, c, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, call.sendId, 1);
    break;
  case SimCall::requestDataOnSimObject:
    lf_requestData(s, c, call, line);
    break;
  case SimCall::requestDataOnSimObjectType:
    lf_requestByType(s, c, call, line);
    break;
  case SimCall::setDataOnSimObject:
    lf_setData(s, c, call, line);
    break;
  case SimCall::subscribeToSystemEvent:
    lf_subscribe(s, c, call, line);
    break;
  case SimCall::unsubscribeFromSystemEvent:
    line["event"] = a.u32(0);
    if (c.subscriptions.erase(a.u32(0)) == 0)
      lf_exception(s, c, SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, call.sendId, 1);
    break;
  case SimCall::aiCreateNonAtcAircraft:
    lf_create(s, c, call, line);
    break;
  case SimCall::aiReleaseControl:
  case SimCall::aiRemoveObject:
  case SimCall::aiSetAircraftFlightPlan:
    lf_aiCall(s, c, call, line);
    break;
  default:
    break;
  }
  // The line comes before the exceptions the call caused, so a reader sees cause and effect in order.
  s.inCall = false;
  lf_trace(s, line);
  for (Json& exception : s.exceptionLines)
    lf_trace(s, std::move(exception));
  s.exceptionLines.clear();
}

void lf_packet(Server& s, Client& c, const unsigned char* data, std::uint32_t size) {
  const ByteReader packet{data, size};
  const std::uint32_t type = packet.u32(8) & ~callMark;
  const Call call{type, packet.u32(12), ByteReader{data + callHeaderSize, size - callHeaderSize}};
  if (static_cast<SimCall>(type) == SimCall::open && size >= simCallSize(type)) {
    lf_open(s, c, call, packet.u32(4));
    return;
  }
  if (!c.opened) {
    c.protocol = packet.u32(4);
    lf_trace(s, lf_callLine(s, c, call));
    lf_exception(s, c, SIMCONNECT_EXCEPTION_UNOPENED, call.sendId, 0);
    return;
  }
  if (simCallSize(type) == 0) {
    lf_trace(s, lf_callLine(s, c, call));
    lf_exception(s, c, SIMCONNECT_EXCEPTION_ERROR, call.sendId, SIMCONNECT_UNKNOWN_INDEX);
    return;
  }
  if (size < simCallSize(type)) {
    lf_trace(s, lf_callLine(s, c, call));
    lf_exception(s, c, SIMCONNECT_EXCEPTION_SIZE_MISMATCH, call.sendId, 0);
    return;
  }
  lf_handle(s, c, call);
}

// ------------------------------------------------------------------------------------------------------------
// Connections

void lf_accept(Server& s) {
  const SocketHandle socket = acceptClient(s.listener);
  if (socket == invalidSocket) return;
  auto client = std::make_unique<Client>();
  client->number = s.nextClient++;
  client->socket = socket;
  client->input.minSize = static_cast<std::uint32_t>(callHeaderSize);
  client->input.maxSize = maxPacket;
  if (s.scenario.writes == WriteMode::split) setNoDelay(socket, true);
  Json line = lf_line(s, "connect");
  line["client"] = client->number;
  lf_trace(s, line);
  s.clients.push_back(std::move(client));
}

void lf_read(Server& s, Client& c) {
  unsigned char buffer[65536];
  const long got = receiveSome(c.socket, buffer, sizeof(buffer));
  if (got <= 0) {
    c.gone = true;
    return;
  }
  appendBytes(c.input, buffer, static_cast<std::size_t>(got));
  for (;;) {
    const TakenRecord taken = takeRecord(c.input);
    if (taken.status == TakeStatus::needMore) return;
    if (taken.status == TakeStatus::badSize) {
      Json line = lf_line(s, "badPacket");
      line.update({{"client", c.number},
                   {"size", taken.size},
                   {"bytes", hexSample(taken.data, pendingBytes(c.input))}});
      lf_trace(s, line);
      c.gone = true;
      return;
    }
    lf_packet(s, c, taken.data, taken.size);
  }
}

void lf_writeOut(Server& s, Client& c) {
  if (c.outbox.empty() || c.gone) return;
  bool sent = true;
  if (s.scenario.writes == WriteMode::coalesce) {
    Bytes all;
    for (const Bytes& record : c.outbox)
      all.insert(all.end(), record.begin(), record.end());
    sent = sendAll(c.socket, all.data(), all.size());
  } else {
    for (const Bytes& record : c.outbox) {
      if (s.scenario.writes == WriteMode::whole) {
        sent = sent && sendAll(c.socket, record.data(), record.size());
        continue;
      }
      for (std::size_t at = 0; at < record.size() && sent;) {
        const std::size_t piece = std::min<std::size_t>(record.size() - at, 1 + s.pieces() % 7);
        sent = sendAll(c.socket, record.data() + at, piece);
        at += piece;
      }
    }
  }
  c.outbox.clear();
  if (!sent) c.gone = true;
}

void lf_drop(Server& s, Client& c) {
  closeSocket(c.socket);
  Json line = lf_line(s, "disconnect");
  line["client"] = c.number;
  lf_trace(s, line);
  // The objects a client made leave with it.
  std::vector<std::uint32_t> orphans;
  for (const SimObject& object : s.world.objects)
    if (object.owner == c.number) orphans.push_back(object.id);
  std::erase_if(s.world.objects, [&](const SimObject& o) { return o.owner == c.number; });
  std::erase_if(s.pendingCreates, [&](const PendingCreate& p) { return p.client == c.number; });
  c.subscriptions.clear();
  for (const std::uint32_t id : orphans)
    lf_objectEvent(s, "objectremoved", id);
}

void lf_dropGone(Server& s) {
  for (auto& client : s.clients)
    if (client->gone) lf_drop(s, *client);
  std::erase_if(s.clients, [](const std::unique_ptr<Client>& c) { return c->gone; });
}

Client* lf_client(Server& s, std::uint32_t number) {
  for (auto& client : s.clients)
    if (client->number == number && !client->gone) return client.get();
  return nullptr;
}

// ------------------------------------------------------------------------------------------------------------
// Frames and the timeline

void lf_makeObjects(Server& s) {
  std::vector<PendingCreate> due;
  std::erase_if(s.pendingCreates, [&](const PendingCreate& p) {
    if (p.due > s.scenarioTime) return false;
    due.push_back(p);
    return true;
  });
  for (const PendingCreate& create : due) {
    Client* client = lf_client(s, create.client);
    if (!client) continue;
    const auto installed =
        std::find_if(s.scenario.titles.begin(), s.scenario.titles.end(),
                     [&](const InstalledTitle& t) { return lf_lower(t.title) == lf_lower(create.title); });
    if (installed == s.scenario.titles.end()) {
      lf_exception(s, *client, SIMCONNECT_EXCEPTION_CREATE_OBJECT_FAILED, create.sendId, 1);
      continue;
    }
    if (s.world.objects.size() > maxObjects) {
      lf_exception(s, *client, SIMCONNECT_EXCEPTION_TOO_MANY_OBJECTS, create.sendId, 0);
      continue;
    }
    SimObject& object =
        addObject(s.world, installed->title, create.tailNumber, create.lat, create.lon,
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
    Json line = lf_line(s, "created");
    line.update({{"client", create.client}, {"object", object.id}, {"tail", lf_utf8(object.atcId)}});
    lf_trace(s, line);
    lf_objectEvent(s, "objectadded", object.id);
  }
}

void lf_periodicRequests(Server& s, bool newSecond) {
  for (auto& client : s.clients) {
    if (!client->opened || client->gone) continue;
    for (auto& [id, request] : client->requests) {
      const bool frameRequest = request.period == SIMCONNECT_PERIOD_VISUAL_FRAME ||
                                (request.period == SIMCONNECT_PERIOD_SIM_FRAME && !s.world.paused);
      if (frameRequest || (request.period == SIMCONNECT_PERIOD_SECOND && newSecond))
        lf_answer(s, *client, request);
    }
  }
}

Json lf_objectState(const World& w, const SimObject& o) {
  return Json{{"id", o.id},
              {"user", o.user},
              {"atcId", lf_utf8(o.atcId)},
              {"lat", o.lat},
              {"lon", o.lon},
              {"alt", std::round(o.altitude * 100) / 100},
              {"agl", std::round(aboveGround(w, o) * 100) / 100},
              {"onGround", onGround(w, o)},
              {"pitch", o.pitch},
              {"bank", o.bank},
              {"heading", o.heading},
              {"tas", o.tas},
              {"released", o.released},
              {"frozen", {o.freezeLatLon, o.freezeAltitude, o.freezeAttitude}},
              {"lights", o.lights},
              {"gear", o.gearDown},
              {"flaps", o.flaps},
              {"spoilers", o.spoilers},
              {"throttle", o.throttle},
              {"engines", o.engines}};
}

void lf_frame(Server& s) {
  const double dt = 1.0 / s.scenario.frameRate;
  const auto secondBefore = static_cast<std::int64_t>(std::floor(s.world.simTime));
  s.scenarioTime += dt;
  ++s.frames;
  stepWorld(s.world, dt * s.world.simRate);
  lf_makeObjects(s);
  Bytes rates;
  ByteWriter w{rates};
  w.f32(static_cast<float>(s.scenario.reportedFrameRate));
  w.f32(static_cast<float>(s.world.simRate));
  lf_systemEvent(s, "frame", SIMCONNECT_RECV_ID_EVENT_FRAME, 0, rates);
  const bool newSecond = static_cast<std::int64_t>(std::floor(s.world.simTime)) != secondBefore;
  if (newSecond) lf_systemEvent(s, "1sec", SIMCONNECT_RECV_ID_EVENT, 0);
  lf_periodicRequests(s, newSecond);
  Json line = lf_line(s, "state");
  line["frame"] = s.frames;
  line["paused"] = s.world.paused;
  line["objects"] = Json::array();
  for (const SimObject& object : s.world.objects)
    line["objects"].push_back(lf_objectState(s.world, object));
  lf_trace(s, line);
}

void lf_quitAll(Server& s) {
  for (auto& client : s.clients) {
    if (!client->opened || client->gone) continue;
    lf_record(*client, SIMCONNECT_RECV_ID_QUIT, {});
    lf_writeOut(s, *client);
    client->gone = true;
  }
  lf_dropGone(s);
}

void lf_removeAi(Server& s, const std::function<bool(const SimObject&)>& which) {
  std::vector<std::uint32_t> removed;
  for (const SimObject& object : s.world.objects)
    if (!object.user && which(object)) removed.push_back(object.id);
  std::erase_if(s.world.objects, [&](const SimObject& o) { return !o.user && which(o); });
  for (const std::uint32_t id : removed)
    lf_objectEvent(s, "objectremoved", id);
}

void lf_cutRecord(Server& s) {
  Bytes half;
  ByteWriter w{half};
  w.u32(24);
  w.u32(4);
  w.u32(SIMCONNECT_RECV_ID_EVENT);
  w.u32(SIMCONNECT_UNKNOWN_GROUP);
  for (auto& client : s.clients) {
    if (!client->opened || client->gone) continue;
    lf_writeOut(s, *client);
    sendAll(client->socket, half.data(), half.size());
    client->gone = true;
  }
  lf_dropGone(s);
}

void lf_play(Server& s, const TimelineEntry& e) {
  Json line = lf_line(s, "timeline");
  line.update({{"do", e.what}, {"text", lf_utf8(e.text)}});
  lf_trace(s, line);
  if (e.what == "pause" || e.what == "resume") {
    s.world.paused = e.what == "pause";
    lf_simState(s);
  } else if (e.what == "simRate") {
    s.world.simRate = e.rate;
  } else if (e.what == "teleport") {
    moveUser(s.world, *e.moveTo);
  } else if (e.what == "positionChanged") {
    if (e.moveTo) moveUser(s.world, *e.moveTo);
    lf_systemEvent(s, "positionchanged", SIMCONNECT_RECV_ID_EVENT, 0);
  } else if (e.what == "flightLoaded") {
    lf_removeAi(s, [](const SimObject&) { return true; });
    if (e.moveTo) moveUser(s.world, *e.moveTo);
    Bytes file;
    ByteWriter w{file};
    w.text(e.text, pathField);
    w.u32(0);
    lf_systemEvent(s, "flightloaded", SIMCONNECT_RECV_ID_EVENT_FILENAME, 0, file);
  } else if (e.what == "removeObject") {
    lf_removeAi(s, [&](const SimObject& o) { return o.atcId == e.text; });
  } else if (e.what == "garbage") {
    const Bytes bytes = [&] {
      Bytes b;
      for (std::size_t i = 0; i + 1 < e.text.size(); i += 2)
        b.push_back(static_cast<unsigned char>(std::stoi(e.text.substr(i, 2), nullptr, 16)));
      return b;
    }();
    for (auto& client : s.clients)
      if (client->opened && !client->gone) client->outbox.push_back(bytes);
  } else if (e.what == "cutRecord") {
    lf_cutRecord(s);
  } else if (e.what == "quit") {
    s.endReason = "quit";
  }
}

void lf_timeline(Server& s) {
  while (s.nextTraffic < s.scenario.traffic.size() && s.scenario.traffic[s.nextTraffic].t <= s.scenarioTime) {
    const TrafficObject& t = s.scenario.traffic[s.nextTraffic++];
    const SimObject& object =
        addObject(s.world, t.title, t.atcId, t.lat, t.lon, t.altitude, t.heading * degToRad, t.speed, 6, 0);
    Json line = lf_line(s, "traffic");
    line.update({{"object", object.id}, {"atcId", lf_utf8(t.atcId)}});
    lf_trace(s, line);
    lf_objectEvent(s, "objectadded", object.id);
  }
  while (s.nextTimeline < s.scenario.timeline.size() &&
         s.scenario.timeline[s.nextTimeline].t <= s.scenarioTime)
    lf_play(s, s.scenario.timeline[s.nextTimeline++]);
  if (s.scenario.duration > 0 && s.scenarioTime >= s.scenario.duration && s.endReason.empty())
    s.endReason = "duration";
}

void lf_pollSockets(Server& s, int timeoutMs) {
  std::vector<SocketHandle> sockets{s.listener};
  for (const auto& client : s.clients)
    sockets.push_back(client->socket);
  for (const std::size_t ready : readableSockets(sockets, timeoutMs)) {
    if (ready == 0)
      lf_accept(s);
    else
      lf_read(s, *s.clients[ready - 1]);
  }
}

} // namespace

Server::Server(Scenario given) : scenario(std::move(given)), world(scenario) {}

bool startServer(Server& server, std::uint16_t port) {
  startSockets();
  server.listener = openTcpServer(port, IpFamily::any);
  return server.listener != invalidSocket;
}

std::uint16_t serverPort(const Server& server) {
  return localPort(server.listener);
}

void runServer(Server& server, const std::atomic<bool>& stop) {
  Server& s = server;
  const auto period =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / s.scenario.frameRate));
  auto nextFrame = Clock::now() + period;
  while (!stop && s.endReason.empty()) {
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(nextFrame - Clock::now());
    lf_pollSockets(s, static_cast<int>(std::clamp<std::int64_t>(wait.count(), 0, 5)));
    const auto now = Clock::now();
    if (now >= nextFrame) {
      // Frames run on a fixed grid; far behind it, the grid is laid anew rather than racing to catch up.
      nextFrame = now - nextFrame > 5 * period ? now + period : nextFrame + period;
      if (s.started) {
        lf_frame(s);
        lf_timeline(s);
      }
    }
    for (auto& client : s.clients)
      lf_writeOut(s, *client);
    lf_dropGone(s);
  }
  if (s.endReason.empty()) s.endReason = "stopped";
  lf_quitAll(s);
  closeSocket(s.listener);
  Json line = lf_line(s, "end");
  line.update({{"reason", s.endReason}, {"frames", s.frames}});
  lf_trace(s, line);
}

} // namespace ory
