#include "base/log.h"
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

bool lf_sendNow(SimConnectClient& SIM, std::vector<unsigned char>& BYTES) {
  const bool sent =
      BYTES.empty() || SIM.connection.transport->send(SIM.connection.handle, BYTES.data(), BYTES.size());
  BYTES.clear();
  if (!sent) SIM.lost = true;
  return sent;
}

// Writes one packet of CALL, its arguments filled in by FILL; inside the dispatch it waits in the outbox.
template <typename Fill>
SimResult lf_call(SimConnectHandle SIM, SimCall CALL, Fill FILL) {
  if (!SIM) return simFail;
  std::lock_guard lock(SIM->sendLock);
  if (SIM->lost || !SIM->connection.transport) return simFail;
  const bool held = SIM->dispatchThread == std::this_thread::get_id();
  std::vector<unsigned char>& out = held ? SIM->outbox : SIM->packet;
  const std::size_t at = out.size();
  ByteWriter writer{out};
  writer.u32(0);
  writer.u32(SIM->protocol);
  writer.u32(callMark | static_cast<std::uint32_t>(CALL));
  writer.u32(++SIM->lastSendId);
  FILL(writer);
  writer.patchU32(at, static_cast<std::uint32_t>(out.size() - at));
  if (held && out.size() < outboxLimit) return simOk;
  return lf_sendNow(*SIM, out) ? simOk : simFail;
}

void lf_flushOutbox(SimConnectClient& SIM) {
  std::lock_guard lock(SIM.sendLock);
  SIM.dispatchThread = {};
  if (!SIM.lost) lf_sendNow(SIM, SIM.outbox);
  SIM.outbox.clear();
}

// Marks the dispatching thread for its lifetime, and sends what it held back, also when the dispatch throws.
class DispatchScope {
public:
  explicit DispatchScope(SimConnectClient& SIM) : sim(SIM) {
    std::lock_guard lock(sim.sendLock);
    sim.dispatchThread = std::this_thread::get_id();
  }
  ~DispatchScope() { lf_flushOutbox(sim); }
  DispatchScope(const DispatchScope&) = delete;
  DispatchScope& operator=(const DispatchScope&) = delete;

private:
  SimConnectClient& sim;
};

bool lf_sendOpen(SimConnectClient& SIM, std::string_view NAME, const OpenVersion& VERSION) {
  SIM.protocol = VERSION.protocol;
  return lf_call(&SIM, SimCall::open, [&](ByteWriter& W) {
           W.text(NAME, nameField);
           W.u32(0);
           const unsigned char tag[4] = {0, 'X', 'S', 'F'}; // "FSX" reversed, as FSX clients send it
           W.raw(tag, sizeof(tag));
           W.u32(VERSION.major);
           W.u32(VERSION.minor);
           W.u32(VERSION.buildMajor);
           W.u32(VERSION.buildMinor);
         }) == simOk;
}

// Waits for the server's first record and tells what it means; the record stays queued for the dispatch.
OpenOutcome lf_awaitOpenReply(SimConnectClient& SIM) {
  const auto until = std::chrono::steady_clock::now() + openTimeout;
  for (;;) {
    const std::size_t start = SIM.input.start;
    const TakenRecord taken = takeRecord(SIM.input);
    SIM.input.start = start;
    if (taken.status == TakeStatus::badSize) {
      logLine(
          fmt::format("SimConnect: bad answer to Open: {}", hexSample(taken.data, pendingBytes(SIM.input))));
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
        SIM.connection.transport->receive(SIM.connection.handle, SIM.receiveBuffer.data(),
                                          SIM.receiveBuffer.size(), static_cast<int>(left.count()));
    if (got < 0) return OpenOutcome::noAnswer;
    appendBytes(SIM.input, SIM.receiveBuffer.data(), static_cast<std::size_t>(got));
  }
}

std::unique_ptr<SimConnectClient> lf_newClient(const SimConnectConfig& CONFIG) {
  auto client = std::make_unique<SimConnectClient>();
  client->input.minSize = static_cast<std::uint32_t>(recordHeaderSize);
  client->input.maxSize = CONFIG.maxReceiveSize;
  return client;
}

// Tries the versions on ENDPOINT, newest first, each on a new connection. The last refusal is kept for the
// dispatch, so that the caller learns of the mismatch as an exception record.
std::unique_ptr<SimConnectClient> lf_openEndpoint(const SimConnectConfig& CONFIG, const SimEndpoint& ENDPOINT,
                                                  std::string_view NAME) {
  for (std::size_t level = 0; level < openVersions.size(); ++level) {
    const OpenVersion& version = openVersions[level];
    auto client = lf_newClient(CONFIG);
    client->connection = connectTo(ENDPOINT, CONFIG.maxReceiveSize, CONFIG.disableNagle);
    if (!client->connection.transport) return nullptr;
    if (!lf_sendOpen(*client, NAME, version)) return nullptr;
    const OpenOutcome outcome = lf_awaitOpenReply(*client);
    if (outcome == OpenOutcome::noAnswer) {
      logLine(fmt::format("SimConnect: no answer to Open from {}", ENDPOINT.text()));
      disconnect(client->connection);
      return nullptr;
    }
    const bool last = level + 1 == openVersions.size();
    if (outcome == OpenOutcome::accepted || last) {
      logLine(fmt::format("SimConnect: connected by {} to {}, protocol {}",
                          client->connection.transport->name, ENDPOINT.text(), version.protocol));
      return client;
    }
    logLine(fmt::format("SimConnect: version mismatch with protocol {} ({}.{}.{}.{}), trying an older one",
                        version.protocol, version.major, version.minor, version.buildMajor,
                        version.buildMinor));
    disconnect(client->connection);
  }
  return nullptr;
}

void lf_receiveWaiting(SimConnectClient& SIM) {
  for (std::size_t reads = 0; reads < readsPerDispatch && !SIM.lost; ++reads) {
    const long got = SIM.connection.transport->receive(SIM.connection.handle, SIM.receiveBuffer.data(),
                                                       SIM.receiveBuffer.size(), 0);
    if (got == 0) return;
    if (got < 0) {
      SIM.lost = true;
      return;
    }
    appendBytes(SIM.input, SIM.receiveBuffer.data(), static_cast<std::size_t>(got));
  }
}

// Skipped records are bad input, not fatal: logged at most every 30 seconds, with their count.
void lf_skip(SimConnectClient& SIM, const TakenRecord& TAKEN, std::string_view WHY) {
  ++SIM.skippedRecords;
  const auto now = std::chrono::steady_clock::now();
  if (SIM.lastSkipLog != std::chrono::steady_clock::time_point{} && now - SIM.lastSkipLog < 30s) return;
  logLine(fmt::format("SimConnect: record skipped ({}), {} since the last note: {}", WHY, SIM.skippedRecords,
                      hexSample(TAKEN.data, TAKEN.size)));
  SIM.lastSkipLog = now;
  SIM.skippedRecords = 0;
}

bool lf_deliverable(SimConnectClient& SIM, const TakenRecord& TAKEN) {
  const RecordVerdict verdict = checkRecord(TAKEN.data, TAKEN.size);
  if (verdict == RecordVerdict::deliver) return true;
  const std::uint32_t id = ByteReader{TAKEN.data, TAKEN.size}.u32(8);
  if (verdict == RecordVerdict::unknownId)
    lf_skip(SIM, TAKEN, fmt::format("unknown id {}", id));
  else
    lf_skip(SIM, TAKEN,
            fmt::format("id {} of {} bytes, at least {} expected", id, TAKEN.size, minimumRecordSize(id)));
  return false;
}

void lf_dropUnframed(SimConnectClient& SIM, const TakenRecord& TAKEN) {
  logLine(fmt::format("SimConnect: record size {} out of bounds, connection dropped: {}", TAKEN.size,
                      hexSample(TAKEN.data, pendingBytes(SIM.input))));
  SIM.input.bytes.clear();
  SIM.input.start = 0;
  SIM.lost = true;
}

} // namespace

SimResult SimConnect_Open(SimConnectHandle* SIM, std::string_view NAME, void*, std::uint32_t, void*,
                          std::uint32_t CONFIG_INDEX) {
  if (!SIM) return simFail;
  *SIM = nullptr;
  const SimConnectConfig config = readSimConnectConfig(CONFIG_INDEX);
  for (const SimEndpoint& endpoint : connectionPlan(config)) {
    auto client = lf_openEndpoint(config, endpoint, NAME);
    if (!client) continue;
    *SIM = client.release();
    return simOk;
  }
  return simFail;
}

SimResult SimConnect_Close(SimConnectHandle SIM) {
  if (!SIM) return simFail;
  disconnect(SIM->connection);
  delete SIM;
  return simOk;
}

SimResult SimConnect_CallDispatch(SimConnectHandle SIM, DispatchProc PROC, void* CONTEXT) {
  if (!SIM || !PROC || SIM->quitDelivered) return simFail;
  lf_receiveWaiting(*SIM);
  DispatchScope scope(*SIM);
  for (;;) {
    const TakenRecord taken = takeRecord(SIM->input);
    if (taken.status == TakeStatus::needMore) break;
    if (taken.status == TakeStatus::badSize) {
      lf_dropUnframed(*SIM, taken);
      break;
    }
    if (!lf_deliverable(*SIM, taken)) continue;
    const auto* record = reinterpret_cast<const SIMCONNECT_RECV*>(taken.data);
    if (record->dwID == SIMCONNECT_RECV_ID_QUIT) SIM->quitDelivered = true;
    PROC(record, taken.size, CONTEXT);
    if (SIM->quitDelivered) return simOk;
  }
  if (SIM->lost) {
    // The SDK tells a lost simulator by a quit record; so does this client, once.
    SIM->quitDelivered = true;
    const SIMCONNECT_RECV_QUIT quit{{sizeof(SIMCONNECT_RECV_QUIT), SIM->protocol, SIMCONNECT_RECV_ID_QUIT}};
    PROC(&quit, sizeof(quit), CONTEXT);
  }
  return simOk;
}

SimResult SimConnect_GetLastSentPacketID(SimConnectHandle SIM, std::uint32_t* SEND_ID) {
  if (!SIM || !SEND_ID) return simFail;
  std::lock_guard lock(SIM->sendLock);
  *SEND_ID = SIM->lastSendId;
  return simOk;
}

SimResult SimConnect_MapClientEventToSimEvent(SimConnectHandle SIM, SIMCONNECT_CLIENT_EVENT_ID EVENT_ID,
                                              std::string_view EVENT_NAME) {
  return lf_call(SIM, SimCall::mapClientEventToSimEvent, [&](ByteWriter& W) {
    W.u32(EVENT_ID);
    W.text(EVENT_NAME, nameField);
  });
}

SimResult SimConnect_TransmitClientEvent(SimConnectHandle SIM, SIMCONNECT_OBJECT_ID OBJECT_ID,
                                         SIMCONNECT_CLIENT_EVENT_ID EVENT_ID, std::uint32_t DATA,
                                         SIMCONNECT_NOTIFICATION_GROUP_ID GROUP_ID, std::uint32_t FLAGS) {
  return lf_call(SIM, SimCall::transmitClientEvent, [&](ByteWriter& W) {
    W.u32(OBJECT_ID);
    W.u32(EVENT_ID);
    W.u32(DATA);
    W.u32(GROUP_ID);
    W.u32(FLAGS);
  });
}

SimResult SimConnect_AddClientEventToNotificationGroup(SimConnectHandle SIM,
                                                       SIMCONNECT_NOTIFICATION_GROUP_ID GROUP_ID,
                                                       SIMCONNECT_CLIENT_EVENT_ID EVENT_ID, bool MASKABLE) {
  return lf_call(SIM, SimCall::addClientEventToNotificationGroup, [&](ByteWriter& W) {
    W.u32(GROUP_ID);
    W.u32(EVENT_ID);
    W.u32(MASKABLE ? 1 : 0);
  });
}

SimResult SimConnect_SetNotificationGroupPriority(SimConnectHandle SIM,
                                                  SIMCONNECT_NOTIFICATION_GROUP_ID GROUP_ID,
                                                  std::uint32_t PRIORITY) {
  return lf_call(SIM, SimCall::setNotificationGroupPriority, [&](ByteWriter& W) {
    W.u32(GROUP_ID);
    W.u32(PRIORITY);
  });
}

SimResult SimConnect_SubscribeToSystemEvent(SimConnectHandle SIM, SIMCONNECT_CLIENT_EVENT_ID EVENT_ID,
                                            std::string_view SYSTEM_EVENT_NAME) {
  return lf_call(SIM, SimCall::subscribeToSystemEvent, [&](ByteWriter& W) {
    W.u32(EVENT_ID);
    W.text(SYSTEM_EVENT_NAME, nameField);
  });
}

SimResult SimConnect_UnsubscribeFromSystemEvent(SimConnectHandle SIM, SIMCONNECT_CLIENT_EVENT_ID EVENT_ID) {
  return lf_call(SIM, SimCall::unsubscribeFromSystemEvent, [&](ByteWriter& W) { W.u32(EVENT_ID); });
}

SimResult SimConnect_AddToDataDefinition(SimConnectHandle SIM, SIMCONNECT_DATA_DEFINITION_ID DEFINE_ID,
                                         std::string_view DATUM_NAME, std::string_view UNITS_NAME,
                                         SIMCONNECT_DATATYPE DATUM_TYPE, float EPSILON,
                                         std::uint32_t DATUM_ID) {
  return lf_call(SIM, SimCall::addToDataDefinition, [&](ByteWriter& W) {
    W.u32(DEFINE_ID);
    W.text(DATUM_NAME, nameField);
    W.text(UNITS_NAME, nameField);
    W.u32(DATUM_TYPE);
    W.f32(EPSILON);
    W.u32(DATUM_ID);
  });
}

SimResult SimConnect_ClearDataDefinition(SimConnectHandle SIM, SIMCONNECT_DATA_DEFINITION_ID DEFINE_ID) {
  return lf_call(SIM, SimCall::clearDataDefinition, [&](ByteWriter& W) { W.u32(DEFINE_ID); });
}

SimResult SimConnect_RequestDataOnSimObject(SimConnectHandle SIM, SIMCONNECT_DATA_REQUEST_ID REQUEST_ID,
                                            SIMCONNECT_DATA_DEFINITION_ID DEFINE_ID,
                                            SIMCONNECT_OBJECT_ID OBJECT_ID, SIMCONNECT_PERIOD PERIOD,
                                            std::uint32_t FLAGS, std::uint32_t ORIGIN, std::uint32_t INTERVAL,
                                            std::uint32_t LIMIT) {
  return lf_call(SIM, SimCall::requestDataOnSimObject, [&](ByteWriter& W) {
    for (const std::uint32_t field : {REQUEST_ID, DEFINE_ID, OBJECT_ID, static_cast<std::uint32_t>(PERIOD),
                                      FLAGS, ORIGIN, INTERVAL, LIMIT})
      W.u32(field);
  });
}

SimResult SimConnect_RequestDataOnSimObjectType(SimConnectHandle SIM, SIMCONNECT_DATA_REQUEST_ID REQUEST_ID,
                                                SIMCONNECT_DATA_DEFINITION_ID DEFINE_ID,
                                                std::uint32_t RADIUS_METERS, SIMCONNECT_SIMOBJECT_TYPE TYPE) {
  return lf_call(SIM, SimCall::requestDataOnSimObjectType, [&](ByteWriter& W) {
    W.u32(REQUEST_ID);
    W.u32(DEFINE_ID);
    W.u32(RADIUS_METERS);
    W.u32(TYPE);
  });
}

SimResult SimConnect_SetDataOnSimObject(SimConnectHandle SIM, SIMCONNECT_DATA_DEFINITION_ID DEFINE_ID,
                                        SIMCONNECT_OBJECT_ID OBJECT_ID, std::uint32_t FLAGS,
                                        std::uint32_t ARRAY_COUNT, std::uint32_t UNIT_SIZE,
                                        const void* DATA) {
  const std::uint32_t count = ARRAY_COUNT == 0 ? 1 : ARRAY_COUNT;
  const std::uint64_t bytes = static_cast<std::uint64_t>(count) * UNIT_SIZE;
  if ((bytes > 0 && !DATA) || bytes > outboxLimit) return simFail;
  return lf_call(SIM, SimCall::setDataOnSimObject, [&](ByteWriter& W) {
    W.u32(DEFINE_ID);
    W.u32(OBJECT_ID);
    W.u32(FLAGS);
    W.u32(count);
    W.u32(UNIT_SIZE);
    W.raw(DATA, static_cast<std::size_t>(bytes));
  });
}

SimResult SimConnect_AICreateNonATCAircraft(SimConnectHandle SIM, std::string_view CONTAINER_TITLE,
                                            std::string_view TAIL_NUMBER,
                                            const SIMCONNECT_DATA_INITPOSITION& INIT_POSITION,
                                            SIMCONNECT_DATA_REQUEST_ID REQUEST_ID) {
  return lf_call(SIM, SimCall::aiCreateNonAtcAircraft, [&](ByteWriter& W) {
    W.text(CONTAINER_TITLE, nameField);
    W.text(TAIL_NUMBER, tailNumberField);
    W.raw(&INIT_POSITION, sizeof(INIT_POSITION));
    W.u32(REQUEST_ID);
  });
}

SimResult SimConnect_AIReleaseControl(SimConnectHandle SIM, SIMCONNECT_OBJECT_ID OBJECT_ID,
                                      SIMCONNECT_DATA_REQUEST_ID REQUEST_ID) {
  return lf_call(SIM, SimCall::aiReleaseControl, [&](ByteWriter& W) {
    W.u32(OBJECT_ID);
    W.u32(REQUEST_ID);
  });
}

SimResult SimConnect_AIRemoveObject(SimConnectHandle SIM, SIMCONNECT_OBJECT_ID OBJECT_ID,
                                    SIMCONNECT_DATA_REQUEST_ID REQUEST_ID) {
  return lf_call(SIM, SimCall::aiRemoveObject, [&](ByteWriter& W) {
    W.u32(OBJECT_ID);
    W.u32(REQUEST_ID);
  });
}

SimResult SimConnect_AISetAircraftFlightPlan(SimConnectHandle SIM, SIMCONNECT_OBJECT_ID OBJECT_ID,
                                             std::string_view FLIGHT_PLAN_PATH,
                                             SIMCONNECT_DATA_REQUEST_ID REQUEST_ID) {
  return lf_call(SIM, SimCall::aiSetAircraftFlightPlan, [&](ByteWriter& W) {
    W.u32(OBJECT_ID);
    W.text(FLIGHT_PLAN_PATH, pathField);
    W.u32(REQUEST_ID);
  });
}

} // namespace ory
