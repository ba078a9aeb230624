// The client against a loopback peer that plays the simulator: the bytes of every call, the Open handshake
// and its step-down, and the receive side with split, coalesced, longer and broken records.
#include "simlink/simconnect/simconnect.h"
#include "support/scratch.h"
#include "wire_peer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

namespace ory {
namespace {

using namespace std::chrono_literals;
using test::Bytes;
using test::f64At;
using test::textAt;
using test::u32At;

// Captures published with mharj/node-net-simconnect (test/testPacket.ts), recorded from FSX Steam Edition.
const Bytes goldenOpen =
    test::fromHex("3401000004000000020000004d6963726f736f667420466c696768742053696d756c61746f722058" +
                  std::string(456, '0') +
                  "0a0000000000000097f40000000000000a0000000000000097f40000000000004301000000000000");
const Bytes goldenSubscribeFrame = test::fromHex("1401000004000000170000f00200000001000000"
                                                 "6672616d65" +
                                                 std::string(502, '0'));
const Bytes goldenQuit = test::fromHex("0c0000000400000003000000");
const Bytes goldenFrame = test::fromHex("200000000400000007000000ffffffff010000000000000092d8b9420000803f");

struct Received {
  std::vector<Bytes> records;
  std::function<void(const SIMCONNECT_RECV*)> onRecord;
};

void lf_collect(const SIMCONNECT_RECV* data, std::uint32_t size, void* context) {
  auto* received = static_cast<Received*>(context);
  const auto* bytes = reinterpret_cast<const unsigned char*>(data);
  received->records.emplace_back(bytes, bytes + size);
  if (received->onRecord) received->onRecord(data);
}

class ClientTest : public test::InScratchFolder {
protected:
  void TearDown() override { SimConnect_Close(sim); }

  // Opens against the peer, which answers the Open packet with answer.
  SimResult open(const Bytes& answer = test::openRecord("Lockheed Martin\xae Prepar3D\xae v5")) {
    sim = test::openAgainst(peer, answer, &openPacket);
    return sim ? simOk : simFail;
  }

  // Dispatches until count records came, or two seconds passed.
  void dispatchUntil(std::size_t count) {
    const auto until = std::chrono::steady_clock::now() + 2s;
    while (received.records.size() < count && std::chrono::steady_clock::now() < until) {
      if (SimConnect_CallDispatch(sim, lf_collect, &received) != simOk) return;
      std::this_thread::sleep_for(1ms);
    }
  }

  // Opens by the configuration while server answers each connection's Open packet in turn; an empty answer
  // hangs up.
  SimResult openServed(test::WirePeer& server, const std::vector<Bytes>& answers, std::vector<Bytes>& opens) {
    std::thread serve([&] {
      for (const Bytes& answer : answers) {
        if (!server.accept()) return;
        opens.push_back(server.readPacket());
        if (answer.empty())
          server.closeClient();
        else
          server.send(answer);
      }
    });
    const SimResult result = SimConnect_Open(&sim, "Trovalyn_P3D", nullptr, 0, nullptr, 0);
    serve.join();
    return result;
  }

  test::WirePeer peer;
  SimConnectHandle sim = nullptr;
  Bytes openPacket;
  Received received;
};

TEST_F(ClientTest, OpenIntroducesItselfAsAnFsxSp2ClientWithSendIdOne) {
  ASSERT_EQ(open(), simOk);
  ASSERT_EQ(openPacket.size(), 296u);
  EXPECT_EQ(u32At(openPacket, 0), 296u);
  EXPECT_EQ(u32At(openPacket, 4), 4u);
  EXPECT_EQ(u32At(openPacket, 8), 0xF0000001u);
  EXPECT_EQ(u32At(openPacket, 12), 1u);
  EXPECT_EQ(textAt(openPacket, 16, 256), "Trovalyn_P3D");
  EXPECT_EQ(u32At(openPacket, 272), 0u);
  EXPECT_EQ(Bytes(openPacket.begin() + 276, openPacket.begin() + 280), (Bytes{0, 'X', 'S', 'F'}));
  EXPECT_EQ(u32At(openPacket, 280), 10u);
  EXPECT_EQ(u32At(openPacket, 284), 0u);
  EXPECT_EQ(u32At(openPacket, 288), 61259u);
  EXPECT_EQ(u32At(openPacket, 292), 0u);
  std::uint32_t last = 0;
  EXPECT_EQ(SimConnect_GetLastSentPacketID(sim, &last), simOk);
  EXPECT_EQ(last, 1u);
}

TEST_F(ClientTest, SubscribeMatchesTheCapturedPacket) {
  ASSERT_EQ(open(), simOk);
  ASSERT_EQ(SimConnect_SubscribeToSystemEvent(sim, 1, "frame"), simOk);
  EXPECT_EQ(peer.readPacket(), goldenSubscribeFrame);
}

using Words = std::vector<std::pair<std::size_t, std::uint32_t>>; // offset, value

struct CallCase {
  const char* what;
  std::function<SimResult(SimConnectHandle)> call;
  std::uint32_t size, type;
  Words words;
  std::function<void(const Bytes&)> check = [](const Bytes&) {};
};

TEST_F(ClientTest, EveryCallHasItsSizeTypeAndFieldOrder) {
  ASSERT_EQ(open(), simOk);
  const double block[8] = {48.35, 11.78, -0.01, 0.02, 1.5, 1500.0, -12.5, 140.0};
  SIMCONNECT_DATA_INITPOSITION init{48.1, 11.5, 1700.0, -0.6, 0.0, 270.0, 1, 0};
  const std::string longTitle(300, 'T');
  const std::vector<CallCase> cases = {
      {"map",
       [](SimConnectHandle s) { return SimConnect_MapClientEventToSimEvent(s, 207, "BEACON_LIGHTS_SET"); },
       276,
       0x04,
       {{16, 207}},
       [](const Bytes& p) { EXPECT_EQ(textAt(p, 20, 256), "BEACON_LIGHTS_SET"); }},
      {"transmit",
       [](SimConnectHandle s) { return SimConnect_TransmitClientEvent(s, 5, 215, 1, 301, 0x10); },
       36,
       0x05,
       {{16, 5}, {20, 215}, {24, 1}, {28, 301}, {32, 0x10}}},
      {"group",
       [](SimConnectHandle s) { return SimConnect_AddClientEventToNotificationGroup(s, 301, 208, true); },
       28,
       0x07,
       {{16, 301}, {20, 208}, {24, 1}}},
      {"priority",
       [](SimConnectHandle s) { return SimConnect_SetNotificationGroupPriority(s, 301, 1); },
       24,
       0x09,
       {{16, 301}, {20, 1}}},
      {"define",
       [](SimConnectHandle s) {
         return SimConnect_AddToDataDefinition(s, 404, "ATC ID", "", SIMCONNECT_DATATYPE_STRING32, 0.5f);
       },
       544,
       0x0C,
       {{16, 404}, {532, 6}, {540, 0xFFFFFFFF}},
       [](const Bytes& p) {
         EXPECT_EQ(textAt(p, 20, 256), "ATC ID");
         EXPECT_EQ(textAt(p, 276, 256), "");
         float epsilon = 0;
         std::memcpy(&epsilon, p.data() + 536, 4);
         EXPECT_EQ(epsilon, 0.5f);
       }},
      {"clear",
       [](SimConnectHandle s) { return SimConnect_ClearDataDefinition(s, 407); },
       20,
       0x0D,
       {{16, 407}}},
      {"request",
       [](SimConnectHandle s) {
         return SimConnect_RequestDataOnSimObject(s, 108, 409, SIMCONNECT_OBJECT_ID_USER,
                                                  SIMCONNECT_PERIOD_SECOND, 1, 2, 3, 4);
       },
       48,
       0x0E,
       {{16, 108}, {20, 409}, {24, 0}, {28, 4}, {32, 1}, {36, 2}, {40, 3}, {44, 4}}},
      {"by type",
       [](SimConnectHandle s) {
         return SimConnect_RequestDataOnSimObjectType(s, 101, 404, 14816, SIMCONNECT_SIMOBJECT_TYPE_AIRCRAFT);
       },
       32,
       0x0F,
       {{16, 101}, {20, 404}, {24, 14816}, {28, 2}}},
      // an array count of 0 means one element
      {"set data",
       [&](SimConnectHandle s) { return SimConnect_SetDataOnSimObject(s, 402, 7, 0, 0, 64, block); },
       100,
       0x10,
       {{16, 402}, {20, 7}, {24, 0}, {28, 1}, {32, 64}},
       [&](const Bytes& p) {
         for (int i = 0; i < 8; ++i)
           EXPECT_EQ(f64At(p, 36 + 8 * i), block[i]);
       }},
      {"subscribe",
       [](SimConnectHandle s) { return SimConnect_SubscribeToSystemEvent(s, 204, "Frame"); },
       276,
       0x17,
       {{16, 204}},
       [](const Bytes& p) { EXPECT_EQ(textAt(p, 20, 256), "Frame"); }},
      {"unsubscribe",
       [](SimConnectHandle s) { return SimConnect_UnsubscribeFromSystemEvent(s, 204); },
       20,
       0x18,
       {{16, 204}}},
      {"create",
       [&](SimConnectHandle s) {
         return SimConnect_AICreateNonATCAircraft(s, longTitle, "ABCDEFGHIJKLMN", init, 104);
       },
       344,
       0x29,
       {{332, 1}, {336, 0}, {340, 104}},
       [&](const Bytes& p) {
         EXPECT_EQ(textAt(p, 16, 256), longTitle.substr(0, 255))
             << "a title is cut to leave room for its NUL";
         EXPECT_EQ(textAt(p, 272, 12), "ABCDEFGHIJK");
         for (const auto& [at, value] :
              {std::pair{284, 48.1}, {292, 11.5}, {300, 1700.0}, {308, -0.6}, {324, 270.0}})
           EXPECT_EQ(f64At(p, at), value) << at;
       }},
      {"release",
       [](SimConnectHandle s) { return SimConnect_AIReleaseControl(s, 9, 103); },
       24,
       0x2B,
       {{16, 9}, {20, 103}}},
      {"remove",
       [](SimConnectHandle s) { return SimConnect_AIRemoveObject(s, 9, 105); },
       24,
       0x2C,
       {{16, 9}, {20, 105}}},
      {"flight plan",
       [](SimConnectHandle s) { return SimConnect_AISetAircraftFlightPlan(s, 9, "C:\\plans\\DLH4AB", 110); },
       284,
       0x2D,
       {{16, 9}, {280, 110}},
       [](const Bytes& p) { EXPECT_EQ(textAt(p, 20, 260), "C:\\plans\\DLH4AB"); }},
  };
  std::uint32_t sendId = 1;
  for (const CallCase& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(c.call(sim), simOk);
    const Bytes packet = peer.readPacket();
    ++sendId;
    ASSERT_EQ(packet.size(), c.size);
    Words header{{0, c.size}, {4, 4}, {8, 0xF0000000u | c.type}, {12, sendId}};
    header.insert(header.end(), c.words.begin(), c.words.end());
    for (const auto& [at, value] : header)
      EXPECT_EQ(u32At(packet, at), value) << "at " << at;
    c.check(packet);
    std::uint32_t last = 0;
    SimConnect_GetLastSentPacketID(sim, &last);
    EXPECT_EQ(last, sendId);
  }
}

TEST_F(ClientTest, CapturedRecordsArriveWithTheirFields) {
  ASSERT_EQ(open(goldenOpen), simOk);
  Bytes both = goldenFrame;
  both.insert(both.end(), goldenQuit.begin(), goldenQuit.end());
  peer.send(both);
  dispatchUntil(3);
  ASSERT_EQ(received.records.size(), 3u);
  const auto* open = reinterpret_cast<const SIMCONNECT_RECV_OPEN*>(received.records[0].data());
  EXPECT_EQ(open->dwID, SIMCONNECT_RECV_ID_OPEN);
  EXPECT_STREQ(open->szApplicationName, "Microsoft Flight Simulator X");
  EXPECT_EQ(open->dwApplicationVersionMajor, 10u);
  EXPECT_EQ(open->dwApplicationBuildMajor, 62615u);
  EXPECT_EQ(open->dwReserved1, 323u);
  const auto* frame = reinterpret_cast<const SIMCONNECT_RECV_EVENT_FRAME*>(received.records[1].data());
  EXPECT_EQ(frame->uGroupID, SIMCONNECT_UNKNOWN_GROUP);
  EXPECT_EQ(frame->uEventID, 1u);
  EXPECT_NEAR(frame->fFrameRate, 92.92, 0.01);
  EXPECT_EQ(frame->fSimSpeed, 1.0f);
  EXPECT_EQ(received.records[2], goldenQuit);
  EXPECT_EQ(SimConnect_CallDispatch(sim, lf_collect, &received), simFail) << "nothing follows a quit";
}

Bytes lf_event(std::uint32_t event, std::uint32_t data, std::size_t extra = 0) {
  Bytes payload = test::fromHex("ffffffff");
  for (const std::uint32_t v : {event, data})
    for (int i = 0; i < 4; ++i)
      payload.push_back(static_cast<unsigned char>(v >> (8 * i)));
  payload.insert(payload.end(), extra, 0xEE);
  return test::serverRecord(4, payload);
}

TEST_F(ClientTest, RecordsSplitIntoSingleBytesOrRunTogetherAreReassembled) {
  ASSERT_EQ(open(), simOk);
  Bytes stream;
  for (std::uint32_t i = 0; i < 5; ++i) {
    const Bytes event = lf_event(201, i, i == 4 ? 4 : 0); // the last one in the longer P3D shape
    stream.insert(stream.end(), event.begin(), event.end());
  }
  for (const unsigned char byte : stream) {
    peer.send({byte});
    SimConnect_CallDispatch(sim, lf_collect, &received);
  }
  dispatchUntil(6);
  ASSERT_EQ(received.records.size(), 6u);
  for (std::uint32_t i = 1; i < 6; ++i) {
    const auto* event = reinterpret_cast<const SIMCONNECT_RECV_EVENT*>(received.records[i].data());
    EXPECT_EQ(event->uEventID, 201u);
    EXPECT_EQ(event->dwData, i - 1);
  }
  EXPECT_EQ(received.records[5].size(), 28u) << "trailing bytes stay with their record";
}

TEST_F(ClientTest, ShortAndUnknownRecordsAreSkippedAndTheStreamGoesOn) {
  ASSERT_EQ(open(), simOk);
  Bytes stream = test::serverRecord(99, Bytes(8, 1));           // an id this client doesn't know
  const Bytes shortFrame = test::serverRecord(7, Bytes(12, 0)); // 24 bytes, a frame needs 32
  const Bytes good = lf_event(205, 7);
  stream.insert(stream.end(), shortFrame.begin(), shortFrame.end());
  stream.insert(stream.end(), good.begin(), good.end());
  peer.send(stream);
  dispatchUntil(2);
  ASSERT_EQ(received.records.size(), 2u);
  EXPECT_EQ(received.records[1], good);
}

struct BrokenStream {
  const char* what;
  Bytes bytes;
  bool closeAfter;
};

TEST_F(ClientTest, AnUnframedOrCutStreamEndsAsOneQuitAndCallsFailAfterwards) {
  const Bytes good = lf_event(201, 1);
  Bytes cut = good;
  cut.resize(17);
  const std::vector<BrokenStream> cases = {
      {"size below the header", test::fromHex("08000000 04000000"), false},
      {"size above MaxReceiveSize", test::fromHex("50c30000 04000000 04000000"), false},
      {"peer gone in the middle of a record", cut, true},
  };
  for (const BrokenStream& c : cases) {
    SCOPED_TRACE(c.what);
    received.records.clear();
    SimConnect_Close(sim);
    ASSERT_EQ(open(), simOk);
    Bytes stream = good;
    stream.insert(stream.end(), c.bytes.begin(), c.bytes.end());
    peer.send(stream);
    if (c.closeAfter) peer.closeClient();
    dispatchUntil(4);
    ASSERT_EQ(received.records.size(), 3u); // open, the good event, the quit
    EXPECT_EQ(received.records[1], good);
    EXPECT_EQ(received.records[2], goldenQuit);
    EXPECT_EQ(SimConnect_CallDispatch(sim, lf_collect, &received), simFail);
    EXPECT_EQ(SimConnect_AIRemoveObject(sim, 9, 105), simFail);
  }
}

TEST_F(ClientTest, CallsMadeInsideTheDispatchLeaveTogetherWhenItReturns) {
  ASSERT_EQ(open(), simOk);
  const double block[8] = {};
  bool heldBack = false;
  received.onRecord = [&](const SIMCONNECT_RECV* data) {
    if (data->dwID != SIMCONNECT_RECV_ID_EVENT_FRAME) return;
    for (int i = 0; i < 300; ++i)
      SimConnect_SetDataOnSimObject(sim, 402, 100 + i, 0, 0, sizeof(block), block);
    heldBack = peer.readPacket(50).empty();
  };
  peer.send(goldenFrame);
  dispatchUntil(2);
  ASSERT_EQ(received.records.size(), 2u);
  EXPECT_TRUE(heldBack);
  for (std::uint32_t i = 0; i < 300; ++i) {
    const Bytes packet = peer.readPacket();
    ASSERT_EQ(packet.size(), 100u);
    EXPECT_EQ(u32At(packet, 12), i + 2);
    EXPECT_EQ(u32At(packet, 20), 100 + i);
  }
}

TEST_F(ClientTest, AVersionMismatchIsAskedAgainWithOlderProtocolsOnNewConnections) {
  test::writeSimConnectCfg("IPv4", "127.0.0.1", peer.port());
  const Bytes refusal = test::exceptionRecord(5, 1, 0);
  std::vector<Bytes> opens;
  ASSERT_EQ(openServed(peer, {refusal, test::openRecord("Lockheed Martin Prepar3D v6")}, opens), simOk);
  ASSERT_EQ(opens.size(), 2u);
  EXPECT_EQ(u32At(opens[0], 4), 4u);
  EXPECT_EQ(u32At(opens[1], 4), 3u);
  EXPECT_EQ(u32At(opens[1], 12), 1u) << "a new connection counts from 1 again";
  EXPECT_EQ(u32At(opens[1], 280), 10u);
  EXPECT_EQ(u32At(opens[1], 288), 61355u);
  dispatchUntil(1);
  ASSERT_EQ(received.records.size(), 1u);
  EXPECT_EQ(u32At(received.records[0], 8), 2u) << "the refusal is not passed on";

  // When every version is refused, the last refusal is dispatched.
  SimConnect_Close(sim);
  received.records.clear();
  opens.clear();
  ASSERT_EQ(openServed(peer, {refusal, refusal, refusal}, opens), simOk);
  ASSERT_EQ(opens.size(), 3u);
  for (std::uint32_t i = 0; i < 3; ++i)
    EXPECT_EQ(u32At(opens[i], 4), 4 - i);
  dispatchUntil(1);
  ASSERT_EQ(received.records.size(), 1u);
  const auto* exception = reinterpret_cast<const SIMCONNECT_RECV_EXCEPTION*>(received.records[0].data());
  EXPECT_EQ(exception->dwException, SIMCONNECT_EXCEPTION_VERSION_MISMATCH);
}

TEST_F(ClientTest, OpenFailsWhenNobodyListensOrAnswers) {
  const std::uint16_t closedPort = [] {
    test::WirePeer gone;
    return gone.port();
  }();
  test::writeSimConnectCfg("IPv4", "127.0.0.1", closedPort);
  EXPECT_EQ(SimConnect_Open(&sim, "Trovalyn_P3D", nullptr, 0, nullptr, 0), simFail);
  EXPECT_EQ(sim, nullptr);
  test::writeSimConnectCfg("IPv4", "127.0.0.1", peer.port());
  std::vector<Bytes> opens;
  EXPECT_EQ(openServed(peer, {Bytes()}, opens), simFail) << "the peer hangs up instead of answering";
}

TEST_F(ClientTest, AutoTriesThePipeAndIpv6BeforeTheIpv4ThatAnswersAndIpv6Connects) {
  const Bytes answer = test::openRecord("Lockheed Martin Prepar3D v5");
  std::vector<Bytes> opens;
  test::writeSimConnectCfg("Auto", "localhost", peer.port());
  ASSERT_EQ(openServed(peer, {answer}, opens), simOk);
  EXPECT_EQ(opens.at(0).size(), 296u);
  SimConnect_Close(sim);

  test::WirePeer peer6(IpFamily::v6);
  test::writeSimConnectCfg("IPv6", "::1", peer6.port(), "DisableNagle=1\n");
  ASSERT_EQ(openServed(peer6, {answer}, opens), simOk);
  EXPECT_EQ(SimConnect_UnsubscribeFromSystemEvent(sim, 201), simOk);
  EXPECT_EQ(peer6.readPacket().size(), 20u);
  SimConnect_Close(sim);
  sim = nullptr;
  EXPECT_TRUE(peer6.closedByClient()) << "close hangs up";
}

} // namespace
} // namespace ory
