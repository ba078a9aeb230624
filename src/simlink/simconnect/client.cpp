#include "base/log.h"
#include "os/utf.h"
#include "simlink/simconnect/config.h"
#include "simlink/simconnect/simconnect.h"
#include "simlink/simconnect/transport.h"
#include "simlink/simconnect/wire.h"

#include <fmt/format.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ory {

// One connection: the send side is shared by the calling threads under sendLock, the receive side belongs to
// the thread in CallDispatch.
struct SimConnectClient {
  Connection connection;
  std::uint32_t protocol = 4;

  std::mutex sendLock;
  std::uint32_t lastSendId = 0;
  std::vector<unsigned char> packet; // one packet on its way
  std::vector<unsigned char> outbox; // packets written inside the dispatch, sent when it ends
  std::thread::id dispatchThread;    // the thread running the dispatch function, if any
  std::atomic<bool> lost{false};     // the connection failed; calls fail from now on

  RecordStream input;
  std::vector<unsigned char> receiveBuffer = std::vector<unsigned char>(65536);
  bool quitDelivered = false;
  std::int64_t skippedRecords = 0; // short or unknown records since the last log line about them
  std::chrono::steady_clock::time_point lastSkipLog{};
};

namespace {

using namespace std::chrono_literals;

// What the client offers in Open, newest first: FSX SP2 (XPACK), SP1, RTM. A server that answers
// VERSION_MISMATCH is asked again, over a new connection, with the next.
struct OpenVersion {
  std::uint32_t protocol, major, minor, buildMajor, buildMinor;
};
constexpr std::array<OpenVersion, 3> openVersions = {
    {{4, 10, 0, 61259, 0}, {3, 10, 0, 61355, 0}, {2, 0, 0, 60905, 0}}};
constexpr auto openTimeout = 5s;
constexpr std::size_t outboxLimit = 60000; // bytes held back inside a dispatch before they go anyway
constexpr std::size_t readsPerDispatch = 64;

enum class OpenOutcome { accepted, mismatch, noAnswer };

bool lf_sendNow(SimConnectClient& sim, std::vector<unsigned char>& bytes) {
  const bool sent =
      bytes.empty() || sim.connection.transport->send(sim.connection.handle, bytes.data(), bytes.size());
  bytes.clear();
  if (!sent) sim.lost = true;
  return sent;
}

// Writes one packet of call, its arguments filled in by fill; inside the dispatch it waits in the outbox.
template <typename Fill>
SimResult lf_call(SimConnectHandle sim, SimCall call, Fill fill) {
  if (!sim) return simFail;
  std::lock_guard lock(sim->sendLock);
  if (sim->lost || !sim->connection.transport) return simFail;
  const bool held = sim->dispatchThread == std::this_thread::get_id();
  std::vector<unsigned char>& out = held ? sim->outbox : sim->packet;
  const std::size_t at = out.size();
  ByteWriter writer{out};
  writer.u32(0);
  writer.u32(sim->protocol);
  writer.u32(callMark | static_cast<std::uint32_t>(call));
  writer.u32(++sim->lastSendId);
  fill(writer);
  writer.patchU32(at, static_cast<std::uint32_t>(out.size() - at));
  if (held && out.size() < outboxLimit) return simOk;
  return lf_sendNow(*sim, out) ? simOk : simFail;
}

void lf_flushOutbox(SimConnectClient& sim) {
  std::lock_guard lock(sim.sendLock);
  sim.dispatchThread = {};
  if (!sim.lost) lf_sendNow(sim, sim.outbox);
  sim.outbox.clear();
}

// Marks the dispatching thread for its lifetime, and sends what it held back, also when the dispatch throws.
class DispatchScope {
public:
  explicit DispatchScope(SimConnectClient& rawSim) : sim(rawSim) {
    std::lock_guard lock(sim.sendLock);
    sim.dispatchThread = std::this_thread::get_id();
  }
  ~DispatchScope() { lf_flushOutbox(sim); }
  DispatchScope(const DispatchScope&) = delete;
  DispatchScope& operator=(const DispatchScope&) = delete;

private:
  SimConnectClient& sim;
};

// Text is UTF-8 in the program and in the simulator's ANSI code page on the wire.
void lf_text(ByteWriter& w, std::string_view utf8, std::size_t field) {
  w.text(utf8ToAnsi(utf8), field);
}

bool lf_sendOpen(SimConnectClient& sim, std::string_view name, const OpenVersion& version) {
  sim.protocol = version.protocol;
  return lf_call(&sim, SimCall::open, [&](ByteWriter& w) {
           lf_text(w, name, nameField);
           w.u32(0);
           const unsigned char tag[4] = {0, 'X', 'S', 'F'}; // "FSX" reversed, as FSX clients send it
           w.raw(tag, sizeof(tag));
           w.u32(version.major);
           w.u32(version.minor);
           w.u32(version.buildMajor);
           w.u32(version.buildMinor);
         }) == simOk;
}

// Waits for the server's first record and tells what it means; the record stays queued for the dispatch.
OpenOutcome lf_awaitOpenReply(SimConnectClient& sim) {
  const auto until = std::chrono::steady_clock::now() + openTimeout;
  for (;;) {
    const std::size_t start = sim.input.start;
    const TakenRecord taken = takeRecord(sim.input);
    sim.input.start = start;
    if (taken.status == TakeStatus::badSize) {
      logLine(
          fmt::format("SimConnect: bad answer to Open: {}", hexSample(taken.data, pendingBytes(sim.input))));
      return OpenOutcome::noAnswer;
    }
    if (taken.status == TakeStatus::record) {
      const ByteReader reader{taken.data, taken.size};
      const bool mismatch = reader.u32(8) == SIMCONNECT_RECV_ID_EXCEPTION &&
                            reader.u32(12) == SIMCONNECT_EXCEPTION_VERSION_MISMATCH;
      return mismatch ? OpenOutcome::mismatch : OpenOutcome::accepted;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
    if (left.count() <= 0) return OpenOutcome::noAnswer;
    const long got =
        sim.connection.transport->receive(sim.connection.handle, sim.receiveBuffer.data(),
                                          sim.receiveBuffer.size(), static_cast<int>(left.count()));
    if (got < 0) return OpenOutcome::noAnswer;
    appendBytes(sim.input, sim.receiveBuffer.data(), static_cast<std::size_t>(got));
  }
}

// The fall-back's protocols for the log: "4, 3 and 2".
std::string lf_protocolsTried() {
  std::string text;
  for (std::size_t level = 0; level < openVersions.size(); ++level) {
    const bool last = level + 1 == openVersions.size();
    text += (level == 0 ? "" : last ? " and " : ", ") + std::to_string(openVersions[level].protocol);
  }
  return text;
}

std::unique_ptr<SimConnectClient> lf_newClient(const SimConnectConfig& config) {
  auto client = std::make_unique<SimConnectClient>();
  client->input.minSize = static_cast<std::uint32_t>(recordHeaderSize);
  client->input.maxSize = config.maxReceiveSize;
  return client;
}

// Tries the versions on endpoint, newest first, each on a new connection. The last refusal is kept for the
// dispatch, so that the caller learns of the mismatch as an exception record.
std::unique_ptr<SimConnectClient> lf_openEndpoint(const SimConnectConfig& config, const SimEndpoint& endpoint,
                                                  std::string_view name) {
  for (std::size_t level = 0; level < openVersions.size(); ++level) {
    const OpenVersion& version = openVersions[level];
    auto client = lf_newClient(config);
    client->connection = connectTo(endpoint, config.maxReceiveSize, config.disableNagle);
    if (!client->connection.transport) return nullptr;
    if (!lf_sendOpen(*client, name, version)) return nullptr;
    const OpenOutcome outcome = lf_awaitOpenReply(*client);
    if (outcome == OpenOutcome::noAnswer) {
      logLine(fmt::format("SimConnect: no answer to Open from {}", endpoint.text()));
      disconnect(client->connection);
      return nullptr;
    }
    if (outcome == OpenOutcome::accepted) {
      logLine(fmt::format("SimConnect: connected by {} to {}, protocol {}",
                          client->connection.transport->name, endpoint.text(), version.protocol));
      return client;
    }
    if (level + 1 == openVersions.size()) {
      logLine(fmt::format("SimConnect: the simulator at {} ({}) refused every version tried, protocols {}",
                          endpoint.text(), client->connection.transport->name, lf_protocolsTried()));
      return client;
    }
    logLine(fmt::format("SimConnect: version mismatch with protocol {} ({}.{}.{}.{}), trying an older one",
                        version.protocol, version.major, version.minor, version.buildMajor,
                        version.buildMinor));
    disconnect(client->connection);
  }
  return nullptr;
}

void lf_receiveWaiting(SimConnectClient& sim) {
  for (std::size_t reads = 0; reads < readsPerDispatch && !sim.lost; ++reads) {
    const long got = sim.connection.transport->receive(sim.connection.handle, sim.receiveBuffer.data(),
                                                       sim.receiveBuffer.size(), 0);
    if (got == 0) return;
    if (got < 0) {
      sim.lost = true;
      return;
    }
    appendBytes(sim.input, sim.receiveBuffer.data(), static_cast<std::size_t>(got));
  }
}

// Skipped records are bad input, not fatal: logged at most every 30 seconds, with their count.
void lf_skip(SimConnectClient& sim, const TakenRecord& taken, std::string_view why) {
  ++sim.skippedRecords;
  const auto now = std::chrono::steady_clock::now();
  if (sim.lastSkipLog != std::chrono::steady_clock::time_point{} && now - sim.lastSkipLog < 30s) return;
  logLine(fmt::format("SimConnect: record skipped ({}), {} since the last note: {}", why, sim.skippedRecords,
                      hexSample(taken.data, taken.size)));
  sim.lastSkipLog = now;
  sim.skippedRecords = 0;
}

bool lf_deliverable(SimConnectClient& sim, const TakenRecord& taken) {
  const RecordVerdict verdict = checkRecord(taken.data, taken.size);
  if (verdict == RecordVerdict::deliver) return true;
  const std::uint32_t id = ByteReader{taken.data, taken.size}.u32(8);
  if (verdict == RecordVerdict::unknownId)
    lf_skip(sim, taken, fmt::format("unknown id {}", id));
  else
    lf_skip(sim, taken,
            fmt::format("id {} of {} bytes, at least {} expected", id, taken.size, minimumRecordSize(id)));
  return false;
}

void lf_dropUnframed(SimConnectClient& sim, const TakenRecord& taken) {
  logLine(fmt::format("SimConnect: record size {} out of bounds, connection dropped: {}", taken.size,
                      hexSample(taken.data, pendingBytes(sim.input))));
  sim.input.bytes.clear();
  sim.input.start = 0;
  sim.lost = true;
}

} // namespace

SimResult SimConnect_Open(SimConnectHandle* sim, std::string_view name, void*, std::uint32_t, void*,
                          std::uint32_t configIndex) {
  if (!sim) return simFail;
  *sim = nullptr;
  const SimConnectConfig config = readSimConnectConfig(configIndex);
  for (const SimEndpoint& endpoint : connectionPlan(config)) {
    auto client = lf_openEndpoint(config, endpoint, name);
    if (!client) continue;
    *sim = client.release();
    return simOk;
  }
  return simFail;
}

SimResult SimConnect_Close(SimConnectHandle sim) {
  if (!sim) return simFail;
  disconnect(sim->connection);
  delete sim;
  return simOk;
}

SimResult SimConnect_CallDispatch(SimConnectHandle sim, DispatchProc proc, void* context) {
  if (!sim || !proc || sim->quitDelivered) return simFail;
  lf_receiveWaiting(*sim);
  DispatchScope scope(*sim);
  for (;;) {
    const TakenRecord taken = takeRecord(sim->input);
    if (taken.status == TakeStatus::needMore) break;
    if (taken.status == TakeStatus::badSize) {
      lf_dropUnframed(*sim, taken);
      break;
    }
    if (!lf_deliverable(*sim, taken)) continue;
    const auto* record = reinterpret_cast<const SIMCONNECT_RECV*>(taken.data);
    if (record->dwID == SIMCONNECT_RECV_ID_QUIT) sim->quitDelivered = true;
    proc(record, taken.size, context);
    if (sim->quitDelivered) return simOk;
  }
  if (sim->lost) {
    // The SDK tells a lost simulator by a quit record; so does this client, once.
    sim->quitDelivered = true;
    const SIMCONNECT_RECV_QUIT quit{{sizeof(SIMCONNECT_RECV_QUIT), sim->protocol, SIMCONNECT_RECV_ID_QUIT}};
    proc(&quit, sizeof(quit), context);
  }
  return simOk;
}

SimResult SimConnect_GetLastSentPacketID(SimConnectHandle sim, std::uint32_t* sendId) {
  if (!sim || !sendId) return simFail;
  std::lock_guard lock(sim->sendLock);
  *sendId = sim->lastSendId;
  return simOk;
}

SimResult SimConnect_MapClientEventToSimEvent(SimConnectHandle sim, SIMCONNECT_CLIENT_EVENT_ID eventId,
                                              std::string_view eventName) {
  return lf_call(sim, SimCall::mapClientEventToSimEvent, [&](ByteWriter& w) {
    w.u32(eventId);
    lf_text(w, eventName, nameField);
  });
}

SimResult SimConnect_TransmitClientEvent(SimConnectHandle sim, SIMCONNECT_OBJECT_ID objectId,
                                         SIMCONNECT_CLIENT_EVENT_ID eventId, std::uint32_t data,
                                         SIMCONNECT_NOTIFICATION_GROUP_ID groupId, std::uint32_t flags) {
  return lf_call(sim, SimCall::transmitClientEvent, [&](ByteWriter& w) {
    w.u32(objectId);
    w.u32(eventId);
    w.u32(data);
    w.u32(groupId);
    w.u32(flags);
  });
}

SimResult SimConnect_AddClientEventToNotificationGroup(SimConnectHandle sim,
                                                       SIMCONNECT_NOTIFICATION_GROUP_ID groupId,
                                                       SIMCONNECT_CLIENT_EVENT_ID eventId, bool maskable) {
  return lf_call(sim, SimCall::addClientEventToNotificationGroup, [&](ByteWriter& w) {
    w.u32(groupId);
    w.u32(eventId);
    w.u32(maskable ? 1 : 0);
  });
}

SimResult SimConnect_SetNotificationGroupPriority(SimConnectHandle sim,
                                                  SIMCONNECT_NOTIFICATION_GROUP_ID groupId,
                                                  std::uint32_t priority) {
  return lf_call(sim, SimCall::setNotificationGroupPriority, [&](ByteWriter& w) {
    w.u32(groupId);
    w.u32(priority);
  });
}

SimResult SimConnect_SubscribeToSystemEvent(SimConnectHandle sim, SIMCONNECT_CLIENT_EVENT_ID eventId,
                                            std::string_view systemEventName) {
  return lf_call(sim, SimCall::subscribeToSystemEvent, [&](ByteWriter& w) {
    w.u32(eventId);
    lf_text(w, systemEventName, nameField);
  });
}

SimResult SimConnect_UnsubscribeFromSystemEvent(SimConnectHandle sim, SIMCONNECT_CLIENT_EVENT_ID eventId) {
  return lf_call(sim, SimCall::unsubscribeFromSystemEvent, [&](ByteWriter& w) { w.u32(eventId); });
}

SimResult SimConnect_AddToDataDefinition(SimConnectHandle sim, SIMCONNECT_DATA_DEFINITION_ID defineId,
                                         std::string_view datumName, std::string_view unitsName,
                                         SIMCONNECT_DATATYPE datumType, float epsilon,
                                         std::uint32_t datumId) {
  return lf_call(sim, SimCall::addToDataDefinition, [&](ByteWriter& w) {
    w.u32(defineId);
    lf_text(w, datumName, nameField);
    lf_text(w, unitsName, nameField);
    w.u32(datumType);
    w.f32(epsilon);
    w.u32(datumId);
  });
}

SimResult SimConnect_ClearDataDefinition(SimConnectHandle sim, SIMCONNECT_DATA_DEFINITION_ID defineId) {
  return lf_call(sim, SimCall::clearDataDefinition, [&](ByteWriter& w) { w.u32(defineId); });
}

SimResult SimConnect_RequestDataOnSimObject(SimConnectHandle sim, SIMCONNECT_DATA_REQUEST_ID requestId,
                                            SIMCONNECT_DATA_DEFINITION_ID defineId,
                                            SIMCONNECT_OBJECT_ID objectId, SIMCONNECT_PERIOD period,
                                            std::uint32_t flags, std::uint32_t origin, std::uint32_t interval,
                                            std::uint32_t limit) {
  return lf_call(sim, SimCall::requestDataOnSimObject, [&](ByteWriter& w) {
    for (const std::uint32_t field :
         {requestId, defineId, objectId, static_cast<std::uint32_t>(period), flags, origin, interval, limit})
      w.u32(field);
  });
}

SimResult SimConnect_RequestDataOnSimObjectType(SimConnectHandle sim, SIMCONNECT_DATA_REQUEST_ID requestId,
                                                SIMCONNECT_DATA_DEFINITION_ID defineId,
                                                std::uint32_t radiusMeters, SIMCONNECT_SIMOBJECT_TYPE type) {
  return lf_call(sim, SimCall::requestDataOnSimObjectType, [&](ByteWriter& w) {
    w.u32(requestId);
    w.u32(defineId);
    w.u32(radiusMeters);
    w.u32(type);
  });
}

SimResult SimConnect_SetDataOnSimObject(SimConnectHandle sim, SIMCONNECT_DATA_DEFINITION_ID defineId,
                                        SIMCONNECT_OBJECT_ID objectId, std::uint32_t flags,
                                        std::uint32_t arrayCount, std::uint32_t unitSize, const void* data) {
  const std::uint32_t count = arrayCount == 0 ? 1 : arrayCount;
  const std::uint64_t bytes = static_cast<std::uint64_t>(count) * unitSize;
  if ((bytes > 0 && !data) || bytes > outboxLimit) return simFail;
  return lf_call(sim, SimCall::setDataOnSimObject, [&](ByteWriter& w) {
    w.u32(defineId);
    w.u32(objectId);
    w.u32(flags);
    w.u32(count);
    w.u32(unitSize);
    w.raw(data, static_cast<std::size_t>(bytes));
  });
}

SimResult SimConnect_AICreateNonATCAircraft(SimConnectHandle sim, std::string_view containerTitle,
                                            std::string_view tailNumber,
                                            const SIMCONNECT_DATA_INITPOSITION& initPosition,
                                            SIMCONNECT_DATA_REQUEST_ID requestId) {
  return lf_call(sim, SimCall::aiCreateNonAtcAircraft, [&](ByteWriter& w) {
    lf_text(w, containerTitle, nameField);
    lf_text(w, tailNumber, tailNumberField);
    w.raw(&initPosition, sizeof(initPosition));
    w.u32(requestId);
  });
}

SimResult SimConnect_AIReleaseControl(SimConnectHandle sim, SIMCONNECT_OBJECT_ID objectId,
                                      SIMCONNECT_DATA_REQUEST_ID requestId) {
  return lf_call(sim, SimCall::aiReleaseControl, [&](ByteWriter& w) {
    w.u32(objectId);
    w.u32(requestId);
  });
}

SimResult SimConnect_AIRemoveObject(SimConnectHandle sim, SIMCONNECT_OBJECT_ID objectId,
                                    SIMCONNECT_DATA_REQUEST_ID requestId) {
  return lf_call(sim, SimCall::aiRemoveObject, [&](ByteWriter& w) {
    w.u32(objectId);
    w.u32(requestId);
  });
}

SimResult SimConnect_AISetAircraftFlightPlan(SimConnectHandle sim, SIMCONNECT_OBJECT_ID objectId,
                                             std::string_view flightPlanPath,
                                             SIMCONNECT_DATA_REQUEST_ID requestId) {
  return lf_call(sim, SimCall::aiSetAircraftFlightPlan, [&](ByteWriter& w) {
    w.u32(objectId);
    lf_text(w, flightPlanPath, pathField);
    w.u32(requestId);
  });
}

} // namespace ory
