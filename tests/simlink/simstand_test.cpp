// The stand-in as later tests lean on it, driven by our own client: the protocol step-down, what it keeps of
// each AI object, the ground below it, flight plans, requests within a radius, the shapes and splits of what
// it writes, a stop that leaves a whole trace, and the scenarios it ships with.
#include "base/log.h"
#include "simlink/simconnect/simconnect.h"
#include "stand_in.h"
#include "support/scratch.h"
#include "wire_peer.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <thread>

namespace ory {
namespace {

using Json = nlohmann::json;
using test::Bytes;
using ::testing::HasSubstr;
using ::testing::Not;
using namespace std::chrono_literals;

// A user parked at Munich with one title installed; extra more keys of the scenario.
std::string lf_scenario(std::string_view extra = "") {
  return fmt::format(R"({{
    "frames": {{"rate": 40}},
    "user": {{"track": [{{"t": 0, "lat": 48.35378, "lon": 11.78609, "heading": 82}}]}},
    "terrain": {{"elevation": 100, "areas": [{{"lat": 48.3538, "lon": 11.7861, "radiusNm": 12, "elevation": 1487}}]}},
    "titles": [{{"title": "Airbus A320 Lufthansa", "staticCg": 7.3, "staticPitch": -0.012}}]
    {}
  }})",
                     extra);
}

class SimstandTest : public test::InScratchFolder {
protected:
  void TearDown() override { SimConnect_Close(sim); }

  void start(const std::string& scenario) {
    stand = std::make_unique<test::StandIn>(scenario);
    stand->writeSimConnectCfg();
    ASSERT_EQ(SimConnect_Open(&sim, "Trovalyn_P3D", nullptr, 0, nullptr, 0), simOk);
    ASSERT_TRUE(next([](const Bytes& r) { return test::u32At(r, 8) == SIMCONNECT_RECV_ID_OPEN; }).size());
  }
  static void collect(const SIMCONNECT_RECV* data, std::uint32_t size, void* context) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(data);
    static_cast<std::vector<Bytes>*>(context)->emplace_back(bytes, bytes + size);
  }
  // The next record that wanted accepts, received within five seconds; empty if none came.
  Bytes next(const std::function<bool(const Bytes&)>& wanted) {
    const auto until = std::chrono::steady_clock::now() + 5s;
    for (;;) {
      while (!pending.empty()) {
        const Bytes record = pending.front();
        pending.erase(pending.begin());
        if (wanted(record)) return record;
      }
      if (std::chrono::steady_clock::now() > until) return {};
      if (SimConnect_CallDispatch(sim, collect, &pending) != simOk) return {};
      std::this_thread::sleep_for(2ms);
    }
  }
  Bytes nextOf(std::uint32_t id) {
    return next([id](const Bytes& r) { return test::u32At(r, 8) == id; });
  }
  std::uint32_t lastSendId() {
    std::uint32_t id = 0;
    SimConnect_GetLastSentPacketID(sim, &id);
    return id;
  }
  // An A320 on the ground beside the user, by request 104; its object id.
  std::uint32_t createAircraft(std::string_view title = "Airbus A320 Lufthansa") {
    const SIMCONNECT_DATA_INITPOSITION init{48.3550, 11.7850, 0, 0, 0, 82, 1, 0};
    EXPECT_EQ(SimConnect_AICreateNonATCAircraft(sim, title, "DLH4AB", init, 104), simOk);
    const Bytes assigned = nextOf(SIMCONNECT_RECV_ID_ASSIGNED_OBJECT_ID);
    EXPECT_EQ(test::u32At(assigned, 12), 104u);
    return test::u32At(assigned, 16);
  }
  bool traced(const std::function<bool(const Json&)>& predicate) {
    return stand->waitForTrace(predicate, 5000ms);
  }
  bool exceptionTraced(std::uint32_t exception, std::uint32_t sendId) {
    return traced([&](const Json& l) {
      return l.value("kind", "") == "exception" && l.value("exception", 0u) == exception &&
             l.value("sendId", 0u) == sendId;
    });
  }

  std::unique_ptr<test::StandIn> stand;
  SimConnectHandle sim = nullptr;
  std::vector<Bytes> pending;
};

Json lf_object(const Json& state, std::uint32_t id) {
  for (const Json& object : state.value("objects", Json::array()))
    if (object.value("id", 0u) == id) return object;
  return Json::object();
}

TEST_F(SimstandTest, AnOlderSimulatorIsReachedByStepsDownOnNewConnections) {
  start(lf_scenario(R"(, "simulator": {"protocols": [2]})"));
  std::vector<std::uint32_t> protocols, clients;
  for (const Json& line : stand->trace())
    if (line.value("call", "") == "SimConnect_Open") {
      protocols.push_back(line.value("protocol", 0u));
      clients.push_back(line.value("client", 0u));
    }
  EXPECT_EQ(protocols, (std::vector<std::uint32_t>{4, 3, 2}));
  EXPECT_EQ(clients, (std::vector<std::uint32_t>{1, 2, 3}));
  EXPECT_TRUE(exceptionTraced(SIMCONNECT_EXCEPTION_VERSION_MISMATCH, 1));
  ASSERT_EQ(SimConnect_SubscribeToSystemEvent(sim, 1, "Sim"), simOk);
  const Bytes running = nextOf(SIMCONNECT_RECV_ID_EVENT);
  EXPECT_EQ(test::u32At(running, 4), 2u) << "records carry the protocol the session speaks";
  EXPECT_EQ(test::u32At(running, 20), 1u);
}

TEST_F(SimstandTest, ASimulatorThatRefusesEveryProtocolIsNotCalledConnected) {
  openLog();
  stand = std::make_unique<test::StandIn>(lf_scenario(R"(, "simulator": {"protocols": []})"));
  stand->writeSimConnectCfg();
  ASSERT_EQ(SimConnect_Open(&sim, "Trovalyn_P3D", nullptr, 0, nullptr, 0), simOk);
  closeLog();
  const std::string text = test::readFile("Log.txt");
  EXPECT_THAT(text, HasSubstr(fmt::format("SimConnect: the simulator at 127.0.0.1:{} (TCP) refused every "
                                          "version tried, protocols 4, 3 and 2\n",
                                          stand->port())));
  EXPECT_THAT(text, Not(HasSubstr("connected")));
}

TEST_F(SimstandTest, EachAiObjectKeepsItsGroundLightsGearFlapsThrottleAndEngines) {
  start(lf_scenario());
  const std::uint32_t object = createAircraft();
  ASSERT_GE(object, 100u);

  SimConnect_AddToDataDefinition(sim, 1, "GROUND ALTITUDE", "feet");
  SimConnect_AddToDataDefinition(sim, 1, "PLANE ALT ABOVE GROUND", "feet");
  SimConnect_AddToDataDefinition(sim, 1, "SIM ON GROUND", "Bool", SIMCONNECT_DATATYPE_INT32);
  SimConnect_AddToDataDefinition(sim, 1, "ATC ID", "", SIMCONNECT_DATATYPE_STRING32);
  SimConnect_RequestDataOnSimObject(sim, 7, 1, object, SIMCONNECT_PERIOD_ONCE);
  const Bytes data = nextOf(SIMCONNECT_RECV_ID_SIMOBJECT_DATA);
  ASSERT_EQ(data.size(), 40u + 8 + 8 + 4 + 32);
  EXPECT_EQ(test::u32At(data, 16), object);
  EXPECT_EQ(test::f64At(data, 40), 1487.0) << "the terrain area's elevation";
  EXPECT_NEAR(test::f64At(data, 48), 7.3, 1e-9) << "on its wheels: the static CG above the ground";
  EXPECT_EQ(test::u32At(data, 56), 1u);
  EXPECT_EQ(test::textAt(data, 60, 32), "DLH4AB");

  const std::vector<std::pair<const char*, std::uint32_t>> events = {
      {"NAV_LIGHTS_SET", 1},       {"LOGO_LIGHTS_SET", 1},  {"GEAR_SET", 0},          {"FLAPS_SET", 16383},
      {"THROTTLE_SET", 8191},      {"SPOILERS_SET", 16383}, {"ENGINE_AUTO_START", 0}, {"LOGO_LIGHTS_SET", 0},
      {"ENGINE_AUTO_SHUTDOWN", 0}, {"ENGINE_AUTO_START", 0}};
  SimConnect_AIReleaseControl(sim, object, 103);
  for (std::uint32_t i = 0; i < events.size(); ++i) {
    SimConnect_MapClientEventToSimEvent(sim, 210 + i, events[i].first);
    SimConnect_TransmitClientEvent(sim, object, 210 + i, events[i].second, 301, 0);
  }
  SimConnect_TransmitClientEvent(sim, object, 299, 1, 301, 0);
  EXPECT_TRUE(exceptionTraced(SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID, lastSendId()))
      << "an event that was never mapped";
  // The first frame after the last call shows what the object kept.
  Json state;
  ASSERT_TRUE(test::eventually(
      [&] {
        bool afterCalls = false;
        for (const Json& line : stand->trace()) {
          afterCalls = afterCalls || line.value("kind", "") == "exception";
          if (afterCalls && line.value("kind", "") == "state") {
            state = line;
            return true;
          }
        }
        return false;
      },
      5000ms));
  const Json kept = lf_object(state, object);
  EXPECT_EQ(kept.value("lights", 0u), 0x1u);
  EXPECT_FALSE(kept.value("gear", true));
  EXPECT_EQ(kept.value("flaps", 0.0), 1.0);
  EXPECT_NEAR(kept.value("throttle", 0.0), 0.5, 0.001);
  EXPECT_EQ(kept.value("spoilers", 0.0), 1.0);
  EXPECT_FALSE(kept.value("released", true)) << "a flaps event hands the object back to the AI";
  EXPECT_EQ(lf_object(state, 1).value("lights", 1u), 0u) << "the user's aircraft is untouched";
}

TEST_F(SimstandTest, AFlightPlanNeedsItsFileAndAnUnknownTitleIsRefused) {
  start(lf_scenario());
  const std::uint32_t object = createAircraft();
  const std::string missing = (std::filesystem::current_path() / "DLH4AB").string();
  SimConnect_AISetAircraftFlightPlan(sim, object, missing, 110);
  const std::uint32_t refused = lastSendId();
  test::writeBytes("EWG1.pln", "<?xml version=\"1.0\"?>\n<SimBase.Document />\n");
  SimConnect_AISetAircraftFlightPlan(sim, object, (std::filesystem::current_path() / "EWG1").string(), 110);
  const std::uint32_t accepted = lastSendId();
  const SIMCONNECT_DATA_INITPOSITION init{48.3550, 11.7850, 0, 0, 0, 82, 1, 0};
  SimConnect_AICreateNonATCAircraft(sim, "Boeing 747-8 Air China", "CCA931", init, 104);
  const Bytes exception = nextOf(SIMCONNECT_RECV_ID_EXCEPTION);
  EXPECT_EQ(test::u32At(exception, 12), SIMCONNECT_EXCEPTION_LOAD_FLIGHTPLAN_FAILED);
  EXPECT_EQ(test::u32At(exception, 16), refused);
  const Bytes failedCreate = nextOf(SIMCONNECT_RECV_ID_EXCEPTION);
  EXPECT_EQ(test::u32At(failedCreate, 12), SIMCONNECT_EXCEPTION_CREATE_OBJECT_FAILED);
  EXPECT_EQ(test::u32At(failedCreate, 16), lastSendId()) << "the create's own send id";
  for (const Json& line : stand->trace())
    EXPECT_FALSE(line.value("kind", "") == "exception" && line.value("sendId", 0u) == accepted)
        << line.dump();
}

TEST_F(SimstandTest, RequestsByTypeKeepToTheirRadius) {
  // Another client's aircraft two nautical miles north of the user.
  start(lf_scenario(R"(, "traffic": [{"t": 0, "title": "Cessna Citation X", "atcId": "DCIXX",
                                        "lat": 48.38711, "lon": 11.78609, "alt": 4000}])"));
  ASSERT_TRUE(traced([](const Json& l) { return l.value("kind", "") == "traffic"; }));
  SimConnect_AddToDataDefinition(sim, 404, "ATC ID", "", SIMCONNECT_DATATYPE_STRING32);
  const auto found = [&](std::uint32_t radius, SIMCONNECT_SIMOBJECT_TYPE type) {
    pending.clear();
    SimConnect_RequestDataOnSimObjectType(sim, 101, 404, radius, type);
    SimConnect_SubscribeToSystemEvent(sim, 900, "Sim"); // answered at once: the end marker
    std::vector<std::string> names;
    for (;;) {
      const Bytes record =
          next([](const Bytes& r) { return test::u32At(r, 8) != SIMCONNECT_RECV_ID_EVENT_FRAME; });
      if (record.empty() || test::u32At(record, 8) != SIMCONNECT_RECV_ID_SIMOBJECT_DATA_BYTYPE) break;
      names.push_back(fmt::format("{}/{} {}", test::u32At(record, 28), test::u32At(record, 32),
                                  test::textAt(record, 40, 32)));
    }
    return names;
  };
  using Names = std::vector<std::string>;
  EXPECT_EQ(found(3500, SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT), (Names{"1/1 N130LM"}));
  EXPECT_EQ(found(4000, SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT), (Names{"1/2 N130LM", "2/2 DCIXX"}));
  EXPECT_EQ(found(4000, SIMCONNECT_SIMOBJECT_TYPE_ALL), (Names{"1/1 DCIXX"})) << "AI objects only";
  EXPECT_EQ(found(0, SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT), (Names{"1/1 N130LM"})) << "0: the user alone";
  EXPECT_EQ(found(200001, SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT), Names{});
  EXPECT_TRUE(exceptionTraced(SIMCONNECT_EXCEPTION_OUT_OF_BOUNDS, lastSendId() - 1));
}

TEST_F(SimstandTest, LongerP3dRecordsRunTogetherInOneWriteReachTheClientWhole) {
  start(lf_scenario(R"(, "simulator": {"p3dShapes": true, "writes": "coalesce"})"));
  SimConnect_SubscribeToSystemEvent(sim, 1, "Sim");
  SimConnect_SubscribeToSystemEvent(sim, 2, "Frame");
  SimConnect_SubscribeToSystemEvent(sim, 3, "ObjectAdded");
  const Bytes running = nextOf(SIMCONNECT_RECV_ID_EVENT);
  EXPECT_EQ(running.size(), 28u);
  EXPECT_EQ(test::u32At(running, 16), 1u);
  const Bytes frame = nextOf(SIMCONNECT_RECV_ID_EVENT_FRAME);
  EXPECT_EQ(frame.size(), 36u);
  float rate = 0;
  std::memcpy(&rate, frame.data() + 24, 4);
  EXPECT_EQ(rate, 45.0f) << "the scenario's default frame rate value";
  const std::uint32_t object = createAircraft();
  const Bytes added = nextOf(SIMCONNECT_RECV_ID_EVENT_OBJECT_ADDREMOVE);
  EXPECT_EQ(added.size(), 32u);
  EXPECT_EQ(test::u32At(added, 20), object);
  EXPECT_EQ(test::u32At(added, 24), SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT);
}

TEST_F(SimstandTest, AStopLeavesAWholeTraceAndTellsTheClient) {
  start(lf_scenario());
  SimConnect_SubscribeToSystemEvent(sim, 2, "Frame");
  ASSERT_FALSE(nextOf(SIMCONNECT_RECV_ID_EVENT_FRAME).empty());
  EXPECT_EQ(stand->stop(SIGINT), 0);
  EXPECT_EQ(nextOf(SIMCONNECT_RECV_ID_QUIT).size(), 12u);
  const std::vector<std::string> lines = test::fileLines("stand.jsonl");
  const std::vector<Json> parsed = stand->trace();
  ASSERT_EQ(parsed.size(), lines.size()) << "every line is whole JSON";
  EXPECT_EQ(parsed.front().value("kind", ""), "connect");
  EXPECT_EQ(parsed.back().value("kind", ""), "end");
  EXPECT_EQ(parsed.back().value("reason", ""), "stopped");
  EXPECT_GT(parsed.back().value("frames", 0), 0);
}

TEST_F(SimstandTest, TheShippedScenariosPlay) {
  for (const auto& entry : std::filesystem::directory_iterator(SIMSTAND_SCENARIOS)) {
    SCOPED_TRACE(entry.path().filename().string());
    SimConnect_Close(sim);
    sim = nullptr;
    stand.reset();
    std::ifstream in(entry.path());
    start(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
    SimConnect_SubscribeToSystemEvent(sim, 2, "Frame");
    EXPECT_FALSE(nextOf(SIMCONNECT_RECV_ID_EVENT_FRAME).empty());
    EXPECT_EQ(stand->stop(SIGTERM), 0) << stand->output();
    EXPECT_EQ(stand->trace().back().value("kind", ""), "end");
  }
}

} // namespace
} // namespace ory
