// The session's dispatch and sending, driven record by record. Where calls go out, a real client is connected
// to a loopback peer that reads them. Exits are switched off (`exiting` set), so that a test sees the log
// line that comes before a restart without starting one; the program's tests against the stand-in see the
// restarts.
#include "base/display.h"
#include "base/exceptions.h"
#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "feed/qnh_reader.h"
#include "feed/traffic_link.h"
#include "liveries/dbase.h"
#include "simlink/ai_objects.h"
#include "simlink/batches.h"
#include "simlink/session.h"
#include "simlink/user_aircraft.h"
#include "support/scratch.h"
#include "wire_peer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <thread>

namespace ory {
namespace {

using test::Bytes;
using test::u32At;

void lf_put(Bytes& out, const void* data, std::size_t size) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  out.insert(out.end(), bytes, bytes + size);
}
void lf_u32(Bytes& out, std::uint32_t value) {
  lf_put(out, &value, 4);
}
void lf_f64(Bytes& out, double value) {
  lf_put(out, &value, 8);
}
void lf_i64(Bytes& out, std::int64_t value) {
  lf_put(out, &value, 8);
}
void lf_text(Bytes& out, std::string_view text, std::size_t rawField) {
  Bytes field(rawField, 0);
  std::memcpy(field.data(), text.data(), std::min(text.size(), rawField - 1));
  out.insert(out.end(), field.begin(), field.end());
}

Bytes lf_event(std::uint32_t recordId, std::uint32_t event, std::uint32_t data, std::uint32_t extra = 0) {
  Bytes payload;
  for (const std::uint32_t v : {0xFFFFFFFFu, event, data})
    lf_u32(payload, v);
  if (recordId == 5) lf_u32(payload, extra); // the object type
  if (recordId == 6) lf_text(payload, "flight.fxml", 264);
  if (recordId == 7) {
    const float frame[2] = {static_cast<float>(extra), 1.0f};
    lf_put(payload, frame, 8);
  }
  return test::serverRecord(recordId, payload);
}

Bytes lf_data(std::uint32_t recordId, std::uint32_t request, std::uint32_t object, const Bytes& block) {
  Bytes payload;
  for (const std::uint32_t v : {request, object, 0u, 0u, 1u, 1u, 1u})
    lf_u32(payload, v);
  payload.insert(payload.end(), block.begin(), block.end());
  return test::serverRecord(recordId, payload);
}

Bytes lf_inRange(std::uint32_t object, double aboveGround, std::string_view atcId, bool onGround = false,
                 double ground = 1500) {
  Bytes block;
  lf_f64(block, aboveGround);
  lf_f64(block, ground);
  lf_i64(block, onGround ? 1 : 0);
  lf_text(block, atcId, 32);
  return lf_data(9, requestIdInRange, object, block);
}

Bytes lf_userPosition(std::uint32_t object, double lat, double lon, double altitude = 1200) {
  Bytes block;
  for (const double v : {lat, lon, -0.01, 0.0, 1.2, altitude, 0.0, 0.0})
    lf_f64(block, v);
  for (const std::int64_t v : {43200, 150, 2024, 5})
    lf_i64(block, v);
  return lf_data(8, requestIdUserPosition, object, block);
}

class SessionTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    openLog();
    exiting = true;
    resetSimLink();
    userStateReset();
    userObjectId = 1;
    simRunning = false;
    detectedSimVersion = 5;
  }
  void TearDown() override {
    {
      std::lock_guard lock(batchLock);
      SimConnect_Close(simHandle);
      simHandle = nullptr;
    }
    resetSimLink();
    userStateReset();
    userObjectId = 0;
    frameRate = 0;
    exiting = false;
    closeLog();
  }

  void dispatch(const Bytes& record) {
    simDispatch(reinterpret_cast<const SIMCONNECT_RECV*>(record.data()),
                static_cast<std::uint32_t>(record.size()), nullptr);
  }
  std::vector<SimCommand> commands() {
    std::vector<SimCommand> taken;
    takeSimCommands(taken);
    return taken;
  }
  // A real connection to the peer, as the session's handle.
  void connect() {
    simHandle = test::openAgainst(peer, test::openRecord("Lockheed Martin Prepar3D v5"));
    ASSERT_NE(simHandle, nullptr);
  }

  test::WirePeer peer;
};

TEST_F(SessionTest, DeclaresSubscriptionsDefinitionsEventsAndTheGroupInOrder) {
  connect();
  declareSimObjects();
  std::vector<std::uint32_t> subscribed;
  for (int i = 0; i < 6; ++i)
    subscribed.push_back(u32At(peer.readPacket(), 16));
  EXPECT_EQ(subscribed, (std::vector<std::uint32_t>{201, 202, 203, 205, 206, 204}));

  std::map<std::uint32_t, std::vector<std::string>> datums;
  for (int i = 0; i < 33; ++i) {
    const Bytes p = peer.readPacket();
    ASSERT_EQ(u32At(p, 8), 0xF000000Cu);
    EXPECT_EQ(u32At(p, 540), 0xFFFFFFFFu);
    datums[u32At(p, 16)].push_back(test::textAt(p, 20, 256) + "|" + test::textAt(p, 276, 256) + "|" +
                                   std::to_string(u32At(p, 532)));
  }
  EXPECT_EQ(datums[402],
            (std::vector<std::string>{"Plane Latitude|degree|4", "Plane Longitude|degree|4",
                                      "Plane Pitch degrees|radians|4", "Plane Bank degrees|radians|4",
                                      "Plane Heading degrees true|radians|4", "Plane Altitude|feet|4",
                                      "Vertical Speed|feet per second|4", "Airspeed True|knots|4"}));
  EXPECT_EQ(datums[404], (std::vector<std::string>{"Plane Alt Above Ground|feet|4", "Ground Altitude|feet|4",
                                                   "SIM ON GROUND|Bool|2", "ATC ID||6"}));
  EXPECT_EQ(datums[403].size(), 12u);
  EXPECT_EQ(datums[403][11], "LIGHT STATES|Mask|2");
  EXPECT_EQ(datums[407], (std::vector<std::string>{"TITLE||11"}));
  EXPECT_EQ(datums[409], (std::vector<std::string>{"SIM ON GROUND|Bool|2"}));
  EXPECT_EQ(datums.size(), 9u);

  std::map<std::uint32_t, std::string> mapped;
  for (int i = 0; i < 17; ++i) {
    const Bytes p = peer.readPacket();
    mapped[u32At(p, 16)] = test::textAt(p, 20, 256);
  }
  EXPECT_EQ(mapped[207], "BEACON_LIGHTS_SET");
  EXPECT_EQ(mapped[215], "FREEZE_LATITUDE_LONGITUDE_SET");
  EXPECT_EQ(mapped[221], "ENGINE_AUTO_START");
  EXPECT_EQ(mapped[223], "THROTTLE_SET");
  std::vector<std::uint32_t> members;
  for (int i = 0; i < 16; ++i) {
    const Bytes p = peer.readPacket();
    EXPECT_EQ(u32At(p, 16), 301u);
    EXPECT_EQ(u32At(p, 24), 1u) << "maskable";
    members.push_back(u32At(p, 20));
  }
  EXPECT_EQ(members, (std::vector<std::uint32_t>{208, 207, 211, 209, 210, 213, 212, 214, 218, 219, 220, 222,
                                                 223, 215, 216, 217}));
  const Bytes priority = peer.readPacket();
  EXPECT_EQ(u32At(priority, 8), 0xF0000009u);
  EXPECT_EQ(u32At(priority, 20), 1u);
}

TEST_F(SessionTest, TheOpenRecordNamesTheSimulatorAndChecksItsVersion) {
  dispatch(test::openRecord("Lockheed Martin\xae Prepar3D\xae v5"));
  EXPECT_TRUE(test::logHas("Lockheed Martin Prepar3D v5 (5.3.17.28160) connected \n"));
  EXPECT_TRUE(display.simConnected);
  {
    std::lock_guard lock(windowTextLock);
    EXPECT_EQ(display.simText, "Lockheed Martin Prepar3D v5 (5.3.17.28160)");
  }
  const auto refusal = [&](std::string_view name, std::int32_t detected) {
    detectedSimVersion = detected;
    try {
      dispatch(test::openRecord(name));
    } catch (const UserErrorException& e) {
      EXPECT_EQ(e.number, 78);
      return std::string(e.what());
    }
    return std::string("accepted");
  };
  EXPECT_EQ(refusal("Lockheed Martin Prepar3D v6", 6), "accepted");
  EXPECT_EQ(refusal("KittyHawk", 5), "78: KittyHawk, (MSFS 2020?) not being P3D connects ... ?");
  EXPECT_EQ(refusal("Lockheed Martin Prepar3D v6", 5),
            "78: wrong P3D version \"Lockheed Martin Prepar3D v6\" connects ... ?");
  EXPECT_EQ(refusal("Lockheed Martin Prepar3D v5", 6),
            "78: wrong P3D version \"Lockheed Martin Prepar3D v5\" connects ... ?");
  EXPECT_EQ(refusal("", 5), "78: wrong P3D version \"\" connects ... ?");
  EXPECT_TRUE(test::logHas("! Simulator name empty?"));
}

TEST_F(SessionTest, SimEventsAndQuitSetSimRunningAndEventsOfTheFlightResetTheUser) {
  dispatch(lf_event(4, eventIdSim, 1));
  EXPECT_TRUE(simRunning);
  dispatch(lf_event(4, eventIdSim, 0));
  EXPECT_FALSE(simRunning);
  dispatch(lf_event(4, eventIdSim, 1));
  dispatch(test::serverRecord(3, {}));
  EXPECT_FALSE(simRunning);

  pendingCreates.push_back({7, 0x3C6586, "DLH4AB"});
  dispatch(lf_event(4, eventIdPositionChanged, 0));
  EXPECT_TRUE(test::logHas("User ac position changed\n"));
  EXPECT_EQ(pendingCreates.size(), 1u);
  dispatch(lf_event(4, eventIdFlightLoaded, 0));
  EXPECT_TRUE(test::logHas("Flight loaded\n"));
  EXPECT_TRUE(pendingCreates.empty()) << "a stale entry lives until the reset";
  pendingCreates.push_back({8, 0x3C6586, "DLH4AB"});
  dispatch(lf_event(6, eventIdFlightLoaded, 0));
  EXPECT_TRUE(test::logHas("New file loaded\n"));
  EXPECT_TRUE(pendingCreates.empty());
}

TEST_F(SessionTest, ExceptionsAreSortedByTheirNumber) {
  pendingCreates = {{12, 0x4CA2B1, "RYR12"}, {13, 0x3C6586, "DLH4AB"}};
  dispatch(test::exceptionRecord(22, 13, 1));
  dispatch(test::exceptionRecord(22, 99, 1)); // no create of that send id
  const auto sent = commands();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].code, 6u);
  EXPECT_EQ(sent[0].value, 0x3C6586u);
  ASSERT_EQ(pendingCreates.size(), 1u);
  EXPECT_EQ(pendingCreates[0].callsign, "RYR12");

  dispatch(test::exceptionRecord(3, 5, 1));
  EXPECT_FALSE(test::logHas("SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID")) << "not while the user has no position";
  dispatch(lf_userPosition(1, 48.35, 11.78));
  dispatch(test::exceptionRecord(3, 5, 1));
  EXPECT_TRUE(test::logHas("SIMCONNECT_EXCEPTION_UNRECOGNIZED_ID\n"));
  for (const std::uint32_t number : {11u, 19u, 23u, 24u, 31u})
    dispatch(test::exceptionRecord(number, 5, 1));
  const std::string text = test::logText();
  for (const char* line :
       {"SimConnect: too many objects (max 1000)\n", "SIMCON EXCEP 19\n",
        "Simconnect Exception: load flight plan failed\n", "SIMCON EXCEP 24\n", "SIMCON EXCEP 31\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
  try {
    dispatch(test::exceptionRecord(5, 1, 3));
    ADD_FAILURE() << "a version mismatch must stop the session";
  } catch (const UserErrorException& e) {
    EXPECT_STREQ(e.what(), "95: Simconnect Version Mismatch, dwindex: 3 ");
  }
}

TEST_F(SessionTest, AddedAndRemovedAircraftAreNotedOrReported) {
  userObjectId = 5;
  dispatch(lf_event(5, eventIdObjectAdded, 12, 2));
  dispatch(lf_event(5, eventIdObjectAdded, 5, 2));  // the user
  dispatch(lf_event(5, eventIdObjectAdded, 14, 4)); // a boat
  EXPECT_EQ(addedObjectIds, (std::vector<std::uint32_t>{12}));
  dispatch(lf_event(5, eventIdObjectRemoved, 13, 2));
  dispatch(lf_event(5, eventIdObjectRemoved, 15, 5)); // a ground vehicle
  const auto sent = commands();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].code, 2u);
  EXPECT_EQ(sent[0].objectId, 13u);
}

TEST_F(SessionTest, NewObjectsAreBoundByTheirAtcIdAndFrozen) {
  pendingCreates = {{20, 0x3C6586, "DLH4AB"}, {21, 0x3C6587, "DLH4AB"}, {22, 812, "EWG1"}};
  addedObjectIds = {30, 31, 32};
  dispatch(lf_inRange(30, 0.0, "DLH4AB", true));
  dispatch(lf_inRange(31, 0.0, "EWG1", true));
  dispatch(lf_inRange(32, 0.0, "N12345"));
  EXPECT_TRUE(addedObjectIds.empty());
  ASSERT_EQ(pendingCreates.size(), 1u);
  EXPECT_EQ(pendingCreates[0].packetId, 21u) << "of two entries with one callsign the first is used";
  const auto sent = commands();
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(sent[0].code, 0u);
  EXPECT_EQ(sent[0].value, 0x3C6586u);
  EXPECT_EQ(sent[1].code, 1u) << "a hexid up to 10000 is a parked aircraft";
  EXPECT_EQ(sent[1].objectId, 31u);
  EXPECT_TRUE(test::logHas("just created, but not by Trovalyn, oid: 32, callsign \"N12345\" unknown\n"));
  std::lock_guard lock(batchLock);
  ASSERT_EQ(eventBatch.size(), 6u);
  EXPECT_EQ(eventBatch[0].objectId, 30u);
  EXPECT_EQ(eventBatch[0].eventId, 215u);
  EXPECT_EQ(eventBatch[2].eventId, 217u);
  EXPECT_EQ(eventBatch[2].data, 1u);
}

TEST_F(SessionTest, KnownAircraftInRangeReportGroundStateBelow2500Feet) {
  userObjectId = 10;
  const auto sentFor = [&](const Bytes& record) {
    dispatch(record);
    return commands();
  };
  const auto at2500 = sentFor(lf_inRange(11, 2500.0, "DLH4AB", false, 1487.0));
  ASSERT_EQ(at2500.size(), 1u);
  EXPECT_EQ(at2500[0].code, 3u);
  EXPECT_EQ(at2500[0].value, 0u);
  EXPECT_EQ(at2500[0].a, 1487.0);
  EXPECT_EQ(at2500[0].b, 2500.0);
  EXPECT_EQ(sentFor(lf_inRange(11, 3.2, "DLH4AB", true))[0].value, 1u);
  EXPECT_TRUE(sentFor(lf_inRange(11, 2501.0, "DLH4AB")).empty());
  EXPECT_TRUE(sentFor(lf_inRange(11, 0.0, "DLH4AB*")).empty()) << "a parked copy";
  EXPECT_TRUE(sentFor(lf_inRange(10, 0.0, "USER")).empty()) << "the user's own aircraft";
  Bytes cut = lf_inRange(11, 0.0, "DLH4AB");
  cut.resize(cut.size() - 20);
  cut[0] = static_cast<unsigned char>(cut.size());
  EXPECT_TRUE(sentFor(cut).empty());
  EXPECT_TRUE(test::logHas("! SimConnect data of request 101 has 36 bytes, 56 expected"));
}

TEST_F(SessionTest, StaticDataFramesAndUnknownRecords) {
  Bytes geometry;
  lf_f64(geometry, 7.25);
  lf_f64(geometry, -0.012);
  dispatch(lf_data(8, requestIdStaticData, 44, geometry));
  const auto sent = commands();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].code, 4u);
  EXPECT_EQ(sent[0].objectId, 44u);
  EXPECT_EQ(sent[0].a, 7.25);
  EXPECT_EQ(sent[0].b, -0.012);

  for (int frame = 1; frame <= 29; ++frame)
    dispatch(lf_event(7, eventIdFrame, 0, 40));
  EXPECT_EQ(frameRate, 0.0f) << "the first reading is 0";
  dispatch(lf_event(7, eventIdFrame, 0, 40));
  EXPECT_EQ(frameRate, 40.0f);

  dispatch(test::serverRecord(10, Bytes(8, 0)));
  dispatch(test::serverRecord(12, Bytes(8, 0)));
  dispatch(test::serverRecord(0, {}));
  const std::string text = test::logText();
  EXPECT_NE(text.find("! Unknown Dispatch dwID 10\n"), std::string::npos);
  EXPECT_EQ(text.find("dwID 12"), std::string::npos);
  EXPECT_EQ(text.find("dwID 0"), std::string::npos);
}

TEST_F(SessionTest, UserDataPaceTheSecondsAndTellPositionAndJumps) {
  secondTick = false;
  Bytes onGround;
  lf_i64(onGround, 1);
  dispatch(lf_data(8, requestIdUserOnGround, 1, onGround));
  EXPECT_TRUE(secondTick);
  EXPECT_FALSE(userOnGroundKnown) << "no position yet";

  dispatch(lf_userPosition(7, 48.3538, 11.7861, -12));
  EXPECT_EQ(userObjectId, 7u);
  const UserAircraft user = readUserAircraft();
  EXPECT_EQ(user.lat, 48.3538);
  EXPECT_EQ(user.altitude, 0.0) << "below sea level counts as 0";
  EXPECT_EQ(user.zuluYear, 2024);
  EXPECT_EQ(user.lightStates, 5);
  dispatch(lf_data(8, requestIdUserOnGround, 7, onGround));
  EXPECT_TRUE(userOnGroundKnown);
  EXPECT_TRUE(userOnGround);

  const double degreesPerNm = 1.0 / 60.0;
  dispatch(lf_userPosition(7, 48.3538 + 9.9 * degreesPerNm, 11.7861));
  EXPECT_FALSE(test::logHas("Teleport"));
  dispatch(lf_userPosition(7, 48.3538 + 20.0 * degreesPerNm, 11.7861));
  EXPECT_TRUE(test::logHas("Teleport\n")) << "10.1 nautical miles from the last position";
}

// Once a second the engine asks for the next answer and takes the last one; with the professional licence the
// answer also gives RealTraffic the simulator's time.
TEST_F(SessionTest, TheSecondsWorkTakesTheUsersBlockAndItsTime) {
  connect();
  simEpochSeconds = 0;
  dispatch(lf_userPosition(7, 48.3538, 11.7861));
  EXPECT_EQ(simEpochSeconds, 0) << "the standard licence gets no time";
  rtProfessional = true;
  dispatch(lf_userPosition(7, 48.3539, 11.7861));
  EXPECT_EQ(simEpochSeconds, 1716984000) << "29 May 2024 (day 150), 12:00 UTC";
  rtProfessional = false;

  userSecondWork();
  EXPECT_EQ(engineUser().lat, 48.3539);
  EXPECT_EQ(engineUser().zuluDayOfYear, 150);
  const Bytes request = peer.readPacket();
  EXPECT_EQ((std::array{u32At(request, 8), u32At(request, 16), u32At(request, 20), u32At(request, 24)}),
            (std::array{0xF000000Eu, 109u, 403u, 0u}))
      << "request, definition, the user";
  dispatch(lf_userPosition(7, 48.3540, 11.7861));
  EXPECT_EQ(engineUser().lat, 48.3539) << "the engine's copy changes only at the second";
  simEpochSeconds = 0;
}

// A loaded flight took every object away: what waited for them goes, and nothing is removed.
TEST_F(SessionTest, TheStateResetDropsWhatWaitsForTheSimulatorAndKeepsTheEnginesHalf) {
  static int registeredResets = 0;
  static const bool registered = [] {
    onUserStateReset([] { ++registeredResets; });
    return true;
  }();
  ASSERT_TRUE(registered);
  const int before = registeredResets;
  dispatch(lf_userPosition(7, 48.3538, 11.7861));
  {
    std::lock_guard lock(batchLock);
    positionBatch.engineHalf = {{48.1, 11.5, 0, 0, 0, 1500, 0, 0, 9}};
    positionBatch.simulatorHalf = positionBatch.engineHalf;
    eventBatch = {{9, eventIdGear, 1}};
    createBatch = {CreateRequest{}};
    removeBatch = {9};
  }
  pushSimCommand({9, 0, 0, commandInRange, 0, 0});
  qnhForEngine = 990;

  dispatch(lf_event(4, eventIdFlightLoaded, 0));
  EXPECT_EQ(registeredResets, before + 1);
  EXPECT_EQ(readUserAircraft().lat, 0.0);
  EXPECT_TRUE(commands().empty());
  EXPECT_EQ(qnhForEngine, 1013);
  std::lock_guard lock(batchLock);
  EXPECT_TRUE(positionBatch.simulatorHalf.empty() && eventBatch.empty() && createBatch.empty() &&
              removeBatch.empty());
  EXPECT_EQ(positionBatch.engineHalf.size(), 1u) << "the engine's alone";
  positionBatch.engineHalf.clear();
}

TEST_F(SessionTest, UserTitleAndModel) {
  const auto title = [&](std::string_view text) {
    Bytes block;
    lf_text(block, text, 70);
    dispatch(lf_data(8, requestIdUserTitle, 1, block));
  };
  title("Lockheed Martin C-130J Hercules Royal Air Force Paint Scheme 2");
  title("Lockheed Martin C-130J Hercules Royal Air Force Paint Scheme 2");
  const std::string text = test::logText();
  const std::string line = "SimConnect: User aircraft title: Lockheed Martin C-130J Hercules Royal Air Force";
  EXPECT_NE(text.find(line), std::string::npos);
  EXPECT_EQ(text.find(line), text.rfind(line)) << "an unchanged title is not logged again";
  EXPECT_EQ(userTitle(), "Lockheed Martin C-130J Hercules Royal Air Force Paint Scheme 2");
  title("Lockheed Martin C-130J Hercules Arm\xE9"
        "e de l'Air et de l'Espace"); // as the simulator sends it
  {
    std::lock_guard lock(windowTextLock);
    EXPECT_EQ(display.simSubText, "Lockheed Martin C-130J Hercules Arm\xC3\xA9"
                                  "e de l'Air e")
        << "48 characters";
  }

  // The type table of the database: half spans in nautical miles.
  wingspanTable = {{"B738", 17.9 / 1852}, {"A320", 17.05 / 1852}, {"F16", 4.9 / 1852}, {"B77", 0.0}};
  maxHalfWingspan = 39.9 / 1852;
  largeTypes = {"B738", "A320"};
  highPerfTypes = {"F16"};
  struct Row {
    const char* title;
    const char* atcModel;
    const char* model; // as the program keeps it
    const char* line;  // what the log tells, the lines before the model's own included
  };
  const Row rows[] = {
      {"", "B738", "B738",
       "SimConnect: User aircraft model: B738, half wing span: 17.9 meter, category: 2\n"},
      // ".0.text": the 4 characters before it, else 3, else 2.
      {"", "PMDGB738.0.text", "B738", "model: B738, half wing span: 17.9 meter, category: 2\n"},
      {"", "JetF16.0.text", "F16", "model: F16, half wing span: 4.9 meter, category: 4\n"},
      {"", "AB9Z12.0.text", "12",
       "User aircraft wing span unknown, max is taken instead, please report in my Forum!\n"
       "SimConnect: User aircraft model: 12, half wing span: 39.9 meter, category: 0\n"},
      // Unknown or 0 in the table: the title may tell the type.
      {"Aerosoft A320 Lufthansa D-AIPX", "B77", "A320",
       "SimConnect: User aircraft model deduced from title: A320\n"
       "SimConnect: User aircraft model: B77, half wing span: 17.1 meter, category: 2\n"},
      {"Aerosoft A321 Lufthansa", "XX", "A321",
       "deduced from title: A321\nUser aircraft wing span unknown, max is taken instead, please report in my "
       "Forum!\nSimConnect: User aircraft model: XX, half wing span: 39.9 meter, category: 0\n"},
      // A user without a real aircraft.
      {"", "camerapod", "camerapod", "model: camerapod, half wing span: 0.0 meter, category: 0\n"},
  };
  for (const Row& row : rows) {
    title(row.title);
    Bytes model;
    lf_text(model, row.atcModel, 32);
    dispatch(lf_data(8, requestIdUserModel, 1, model));
    EXPECT_EQ(userModel(), row.model) << row.atcModel;
    EXPECT_TRUE(test::logHas(row.line)) << row.atcModel;
  }
  EXPECT_EQ(userHalfWingSpan(), 0.0) << "known, and 0";

  const auto modelError = [&](const Bytes& block) {
    try {
      dispatch(lf_data(8, requestIdUserModel, 1, block));
    } catch (const UserErrorException& e) {
      return std::string(e.what());
    } catch (const std::out_of_range&) {
      return std::string("out of range");
    }
    return std::string("accepted");
  };
  EXPECT_EQ(modelError(Bytes(32, 0)),
            "71: atc_model= in [General] section of your aircraft.cfg is empty or missing");
  EXPECT_EQ(modelError({}), "73: It looks like you have not selected an aircraft as user vehicle");
  Bytes shortBeforeMark;
  lf_text(shortBeforeMark, "F16.0.text", 32);
  EXPECT_EQ(modelError(shortBeforeMark), "out of range") << "3 characters before the mark";
  clearDbase();
}

TEST_F(SessionTest, BatchesGoOutAtTheFrameAndLeaveEmpty) {
  connect();
  userObjectId = 1;
  {
    std::lock_guard lock(batchLock);
    positionBatch.simulatorHalf = {{48.1, 11.5, -0.01, 0.0, 3.1, 1500, 0, 0, 1},
                                   {48.2, 11.6, 0, 0, 0, 1600, -5, 140, 9}};
    eventBatch = {{9, eventIdGear, 1}, {9, eventIdFlaps, 3072}};
    CreateRequest create;
    create.callsign = "DLH4AB";
    create.liveryTitle = "Airbus A320 Lufthansa";
    create.hexid = 0x3C6586;
    create.lat = 48.35;
    createBatch = {create};
    removeBatch = {1, 33};
  }
  dispatch(lf_event(7, eventIdFrame, 0, 40));
  std::vector<std::pair<std::uint32_t, std::uint32_t>> calls; // type, first argument
  for (int i = 0; i < 7; ++i) {
    const Bytes p = peer.readPacket();
    calls.emplace_back(u32At(p, 8) & 0xFF, u32At(p, 16));
    if ((u32At(p, 8) & 0xFF) == 0x10) {
      EXPECT_EQ(test::f64At(p, 36 + 40), 1600.0);
    }
    if ((u32At(p, 8) & 0xFF) == 0x29) {
      EXPECT_EQ(test::textAt(p, 16, 256), "Airbus A320 Lufthansa");
      EXPECT_EQ(test::textAt(p, 272, 12), "DLH4AB");
      EXPECT_EQ(u32At(p, 340), 104u);
      ASSERT_EQ(pendingCreates.size(), 1u);
      EXPECT_EQ(pendingCreates[0].packetId, u32At(p, 12)) << "the create's own send id";
    }
  }
  EXPECT_EQ(calls, (std::vector<std::pair<std::uint32_t, std::uint32_t>>{
                       {0x10, 402}, // only the aircraft above the user's id
                       {0x05, 9},   // gear
                       {0x2B, 9},   // flaps, wrapped in two releases
                       {0x05, 9},
                       {0x2B, 9},
                       {0x29, 0x62726941}, // create: "Airb", the first bytes of its title
                       {0x2C, 33}}));
  EXPECT_TRUE(test::logHas("!Simconnect call to remove AI ac with objectId 1\n"));
  std::lock_guard lock(batchLock);
  EXPECT_TRUE(positionBatch.simulatorHalf.empty() && eventBatch.empty() && createBatch.empty() &&
              removeBatch.empty());
}

TEST_F(SessionTest, ABusyBatchLockSkipsTheFrameAndAFailedLinkSendsNothing) {
  connect();
  {
    std::lock_guard lock(batchLock);
    removeBatch = {33};
    std::thread frame([&] { dispatch(lf_event(7, eventIdFrame, 0, 40)); });
    frame.join();
    EXPECT_EQ(removeBatch.size(), 1u) << "the frame found the lock busy";
  }
  linkFailed = true;
  dispatch(lf_event(7, eventIdFrame, 0, 40));
  {
    std::lock_guard lock(batchLock);
    EXPECT_TRUE(removeBatch.empty());
  }
  EXPECT_TRUE(peer.readPacket(100).empty());
}

TEST_F(SessionTest, TheThirdFailedRequestEndsTheLink) {
  reportRequestError();
  reportRequestError();
  EXPECT_FALSE(linkFailed);
  EXPECT_FALSE(test::logHas("SimConnect request error"));
  requestRange(14816); // no connection: the request fails
  EXPECT_TRUE(linkFailed);
  EXPECT_TRUE(
      test::logHas("SimConnect request ac within range fails\nSimConnect request error 3, see Log.txt\n"));
}

} // namespace
} // namespace ory
