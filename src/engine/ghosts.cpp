#include "base/log.h"
#include "base/parameters.h"
#include "engine/conflicts.h"
#include "engine/engine.h"
#include "engine/tables.h"

#include <fmt/format.h>

namespace ory {

bool isGhost(std::string_view callsign) {
  return !callsign.empty() && callsign.back() == '_';
}

std::string_view withoutGhostMark(std::string_view callsign) {
  return isGhost(callsign) ? callsign.substr(0, callsign.size() - 1) : callsign;
}

void ghostKill(std::string_view callsign) {
  const std::string name = fmt::format("{}_", callsign);
  LiveAircraft* ghost = findLiveByCallsign(name);
  if (ghost == nullptr) return;
  if (LOG.value) {
    if (ghost->phase == Parked)
      logLine(fmt::format("{:8}: {:8} is a ghost and will be removed, continue with {}",
                          standName(ghost->standId), name, callsign));
    else
      logLine(fmt::format("          {:8} is a ghost and will be removed, continue with {}", name, callsign));
  }
  ghostCallsigns.push_back(name);
  withdrawLive(*ghost);
}

bool hasRealFlight(std::string_view callsign) {
  if (callsign.empty()) return false;
  return findLiveByCallsign(callsign.substr(0, callsign.size() - 1)) != nullptr;
}

} // namespace ory
