// The simulator link's share of a frame: positions out (definition 402) and in-range records in. The budget:
// 300 aircraft at 60 frames a second under 5 percent of one core: 60 frames, 300 in-range records and a
// thousand empty looks for records a second.
#include "base/run.h"
#include "simlink/batches.h"
#include "simlink/session.h"
#include "simlink/simconnect/simconnect.h"
#include "simlink/simconnect/wire.h"
#include "simlink/user_aircraft.h"
#include "support/scratch.h"
#include "wire_peer.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <thread>

namespace ory {
namespace {

// A client connected to a loopback peer that swallows what it gets, as a simulator would.
struct Connected {
  Connected() {
    sim = test::openAgainst(peer, test::openRecord("Lockheed Martin Prepar3D v5"));
    drain = std::thread([this] { peer.drainUntilClosed(); });
    std::uint32_t sent = 0;
    SimConnect_GetLastSentPacketID(sim, &sent); // the handshake is done
  }
  ~Connected() {
    SimConnect_Close(sim);
    drain.join();
  }
  test::ScratchFolder scratch;
  test::WirePeer peer;
  SimConnectHandle sim = nullptr;
  std::thread drain;
};

const ObjectPosition positionBlock{48.3538, 11.7861, -0.0105, 0.0, 1.43, 1494.3, 0.0, 8.0, 120};

// One position written outside a dispatch: encoded and sent at once, one send each.
void BM_SetDataOnSimObject402(benchmark::State& state) {
  Connected link;
  for (auto _ : state)
    benchmark::DoNotOptimize(
        SimConnect_SetDataOnSimObject(link.sim, definitionIdPosition, 120, 0, 0, 64, &positionBlock));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SetDataOnSimObject402);

void lf_countFrames(const SIMCONNECT_RECV* data, std::uint32_t, void* context) {
  if (data->dwID != SIMCONNECT_RECV_ID_EVENT_FRAME) return;
  ++*static_cast<int*>(context);
  sendBatches(std::chrono::steady_clock::now());
}

// A whole frame as the simulator thread lives it: the frame record in, and sendBatches writing N positions,
// which leave together when the dispatch returns.
void BM_FrameWithPositions(benchmark::State& state) {
  Connected link;
  simHandle = link.sim;
  userObjectId = 1;
  const auto aircraft = static_cast<std::uint32_t>(state.range(0));
  const test::Bytes frame = test::fromHex("200000000400000007000000ffffffffcc0000000000000000002842"
                                          "0000803f");
  for (auto _ : state) {
    state.PauseTiming();
    {
      std::lock_guard lock(batchLock);
      for (std::uint32_t i = 0; i < aircraft; ++i) {
        ObjectPosition position = positionBlock;
        position.objectId = 100 + i;
        positionBatch.simulatorHalf.push_back(position);
      }
    }
    link.peer.send(frame);
    state.ResumeTiming();
    int frames = 0;
    while (frames == 0)
      SimConnect_CallDispatch(link.sim, lf_countFrames, &frames);
  }
  simHandle = nullptr;
  state.SetItemsProcessed(state.iterations() * aircraft);
}
BENCHMARK(BM_FrameWithPositions)->Arg(300);

// The simulator thread looks for records once a millisecond; mostly there are none.
void BM_DispatchNothingWaiting(benchmark::State& state) {
  Connected link;
  int frames = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(SimConnect_CallDispatch(link.sim, lf_countFrames, &frames));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DispatchNothingWaiting);

// One in-range record (definition 404) of a known aircraft: framed, checked and dispatched into a command.
void BM_DispatchInRange(benchmark::State& state) {
  exiting = true;
  userObjectId = 1;
  test::Bytes record = test::fromHex("6000000004000000090000006500000030000000940100000000000001000000"
                                     "0100000004000000000000000000000000000000003c97400100000000000000"
                                     "444c483441420000000000000000000000000000000000000000000000000000");
  RecordStream stream;
  std::vector<SimCommand> commands;
  for (auto _ : state) {
    appendBytes(stream, record.data(), record.size());
    const TakenRecord taken = takeRecord(stream);
    if (checkRecord(taken.data, taken.size) == RecordVerdict::deliver)
      simDispatch(reinterpret_cast<const SIMCONNECT_RECV*>(taken.data), taken.size, nullptr);
    if (state.iterations() % 256 == 0) {
      commands.clear();
      takeSimCommands(commands);
    }
  }
  takeSimCommands(commands);
  exiting = false;
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_DispatchInRange);

} // namespace
} // namespace ory

BENCHMARK_MAIN();
