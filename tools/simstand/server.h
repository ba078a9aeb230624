#pragma once
// The stand-in's SimConnect server: it accepts clients on TCP (IPv4 and IPv6 on one socket), answers every
// call the program's client makes as Prepar3D would, runs the world at a fixed frame rate, plays the
// scenario's timeline and writes the trace.

#include "os/sockets.h"
#include "scenario.h"
#include "simlink/simconnect/wire.h"
#include "trace.h"
#include "world.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace ory {

struct ServedDatum {
  std::string name, unit;
  std::uint32_t type = 0; // SIMCONNECT_DATATYPE
};

struct DataRequest {
  std::uint32_t requestId = 0, defineId = 0, objectId = 0, period = 0, flags = 0;
  std::int64_t lastSecond = -1;         // the simulator second it was last answered (period SECOND)
  std::vector<unsigned char> lastBlock; // what it last sent (flag CHANGED)
};

struct Client {
  std::uint32_t number = 0; // 1, 2, ... in order of connection
  SocketHandle socket = invalidSocket;
  RecordStream input;
  bool opened = false;
  std::uint32_t protocol = 0;
  std::string name;
  std::vector<std::vector<unsigned char>> outbox; // records waiting to be written
  std::map<std::uint32_t, std::vector<ServedDatum>> definitions;
  std::map<std::uint32_t, std::string> mappedEvents;  // client event id to the simulator's event name
  std::map<std::uint32_t, std::string> subscriptions; // client event id to system event name, lower case
  std::map<std::uint32_t, DataRequest> requests;
  bool gone = false; // to be dropped at the end of the pass
};

struct PendingCreate {
  std::uint32_t client = 0, sendId = 0, requestId = 0;
  std::string title, tailNumber;
  double lat = 0, lon = 0, altitude = 0, pitch = 0, bank = 0, heading = 0; // degrees and feet
  bool onGround = false;
  double speed = 0;
  double due = 0; // scenario seconds
};

struct Server {
  explicit Server(Scenario scenario);
  Scenario scenario;
  World world;
  Trace trace;
  SocketHandle listener = invalidSocket;
  std::vector<std::unique_ptr<Client>> clients;
  std::uint32_t nextClient = 1;
  bool started = false;    // a client has opened; the clocks run from then
  double scenarioTime = 0; // seconds of frames since the first Open
  std::uint64_t frames = 0;
  std::size_t nextTimeline = 0, nextTraffic = 0;
  std::vector<PendingCreate> pendingCreates;
  std::mt19937 pieces{20240517}; // sizes of split writes, the same in every run
  std::string endReason;         // set when the scenario ends
  bool inCall = false;           // exception lines wait until the call's own line is written
  std::vector<nlohmann::json> exceptionLines;
};

// Listens on port (0: a free one); false when it can't.
bool startServer(Server& server, std::uint16_t port);
std::uint16_t serverPort(const Server& server);
// Serves until the scenario ends or stop is set; always sends QUIT and finishes the trace.
void runServer(Server& server, const std::atomic<bool>& stop);

} // namespace ory
