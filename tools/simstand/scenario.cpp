#include "scenario.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <ctime>
#include <fstream>
#include <stdexcept>

namespace ory {

namespace {

using Json = nlohmann::json;

// UTF-8 of the file to the Latin-1 that SimConnect strings carry; other characters become '?'.
std::string lf_latin1(const std::string& UTF8) {
  std::string text;
  for (std::size_t i = 0; i < UTF8.size(); ++i) {
    const auto c = static_cast<unsigned char>(UTF8[i]);
    if (c < 0x80) {
      text += static_cast<char>(c);
    } else if ((c & 0xE0) == 0xC0 && i + 1 < UTF8.size()) {
      const unsigned code = ((c & 0x1Fu) << 6) | (static_cast<unsigned char>(UTF8[++i]) & 0x3Fu);
      text += code <= 0xFF ? static_cast<char>(code) : '?';
    } else {
      text += '?';
      while (i + 1 < UTF8.size() && (static_cast<unsigned char>(UTF8[i + 1]) & 0xC0) == 0x80)
        ++i;
    }
  }
  return text;
}

std::int64_t lf_zulu(const std::string& TEXT) {
  std::tm tm{};
  if (std::sscanf(TEXT.c_str(), "%d-%d-%dT%d:%d:%d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour,
                  &tm.tm_min, &tm.tm_sec) != 6)
    throw std::runtime_error(fmt::format("zulu \"{}\" is not of the form 2024-05-17T14:30:00Z", TEXT));
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  return static_cast<std::int64_t>(timegm(&tm));
}

std::optional<double> lf_altitude(const Json& POINT) {
  if (!POINT.contains("alt") || POINT["alt"].is_string()) return {}; // "ground"
  return POINT["alt"].get<double>();
}

TrackPoint lf_point(const Json& POINT) {
  TrackPoint p;
  p.t = POINT.value("t", 0.0);
  p.lat = POINT.at("lat").get<double>();
  p.lon = POINT.at("lon").get<double>();
  p.altitude = lf_altitude(POINT);
  p.heading = POINT.value("heading", 0.0);
  p.pitch = POINT.value("pitch", 0.0);
  p.bank = POINT.value("bank", 0.0);
  p.speed = POINT.value("speed", 0.0);
  return p;
}

template <typename T, std::size_t N>
void lf_array(const Json& OBJECT, const char* KEY, std::array<T, N>& INTO) {
  if (!OBJECT.contains(KEY)) return;
  const auto values = OBJECT[KEY].get<std::vector<T>>();
  if (values.size() != N) throw std::runtime_error(fmt::format("\"{}\" needs {} numbers", KEY, N));
  std::copy(values.begin(), values.end(), INTO.begin());
}

void lf_simulator(const Json& S, Scenario& INTO) {
  INTO.simulatorName = lf_latin1(S.value("name", std::string("Lockheed Martin\u00ae Prepar3D\u00ae v5")));
  lf_array(S, "version", INTO.appVersion);
  lf_array(S, "simConnectVersion", INTO.simConnectVersion);
  if (S.contains("protocols")) INTO.protocols = S["protocols"].get<std::vector<std::uint32_t>>();
  INTO.p3dShapes = S.value("p3dShapes", false);
  const std::string writes = S.value("writes", std::string("whole"));
  if (writes == "whole")
    INTO.writes = WriteMode::whole;
  else if (writes == "split")
    INTO.writes = WriteMode::split;
  else if (writes == "coalesce")
    INTO.writes = WriteMode::coalesce;
  else
    throw std::runtime_error(fmt::format("\"writes\" is whole, split or coalesce, not \"{}\"", writes));
  INTO.startRunning = S.value("startRunning", true);
  INTO.userObjectId = S.value("userObjectId", INTO.userObjectId);
  INTO.firstObjectId = S.value("firstObjectId", INTO.firstObjectId);
  INTO.createDelay = S.value("createDelay", 0.0);
}

void lf_user(const Json& U, Scenario& INTO) {
  INTO.userTitle = lf_latin1(U.value("title", INTO.userTitle));
  INTO.userAtcModel = lf_latin1(U.value("atcModel", INTO.userAtcModel));
  INTO.userAtcId = lf_latin1(U.value("atcId", INTO.userAtcId));
  INTO.userStaticCg = U.value("staticCg", INTO.userStaticCg);
  INTO.userStaticPitch = U.value("staticPitch", INTO.userStaticPitch);
  for (const Json& point : U.at("track"))
    INTO.track.push_back(lf_point(point));
}

TimelineEntry lf_entry(const Json& E) {
  TimelineEntry entry;
  entry.t = E.at("t").get<double>();
  entry.what = E.at("do").get<std::string>();
  if (E.contains("lat")) entry.moveTo = lf_point(E);
  entry.text = lf_latin1(E.value("file", E.value("atcId", E.value("hex", std::string()))));
  static const std::vector<std::string> known = {"pause",           "resume",       "teleport",
                                                 "positionChanged", "flightLoaded", "removeObject",
                                                 "garbage",         "cutRecord",    "quit"};
  if (std::find(known.begin(), known.end(), entry.what) == known.end())
    throw std::runtime_error(fmt::format("timeline: unknown \"do\": \"{}\"", entry.what));
  if (entry.what == "teleport" && !entry.moveTo)
    throw std::runtime_error("timeline: a teleport needs lat and lon");
  return entry;
}

Scenario lf_scenario(const Json& J) {
  Scenario s;
  if (J.contains("simulator")) lf_simulator(J["simulator"], s);
  if (J.contains("frames")) {
    s.frameRate = J["frames"].value("rate", s.frameRate);
    s.reportedFrameRate = J["frames"].value("frameRate", s.reportedFrameRate);
  }
  if (s.frameRate <= 0 || s.frameRate > 1000) throw std::runtime_error("frames.rate must lie in 0 to 1000");
  s.duration = J.value("duration", 0.0);
  if (J.contains("zulu")) s.zuluStart = lf_zulu(J["zulu"].get<std::string>());
  lf_user(J.at("user"), s);
  if (s.track.empty()) throw std::runtime_error("user.track needs at least one point");
  if (J.contains("terrain")) {
    s.terrainElevation = J["terrain"].value("elevation", 0.0);
    for (const Json& a : J["terrain"].value("areas", Json::array()))
      s.terrain.push_back({a.at("lat").get<double>(), a.at("lon").get<double>(),
                           a.at("radiusNm").get<double>(), a.at("elevation").get<double>()});
  }
  for (const Json& t : J.value("titles", Json::array()))
    s.titles.push_back(
        {lf_latin1(t.at("title").get<std::string>()), t.value("staticCg", 6.0), t.value("staticPitch", 0.0)});
  for (const Json& t : J.value("traffic", Json::array())) {
    const TrackPoint p = lf_point(t);
    s.traffic.push_back({t.at("t").get<double>(), lf_latin1(t.value("title", std::string("Traffic"))),
                         lf_latin1(t.at("atcId").get<std::string>()), p.lat, p.lon, p.altitude, p.heading,
                         p.speed});
  }
  for (const Json& e : J.value("timeline", Json::array()))
    s.timeline.push_back(lf_entry(e));
  std::stable_sort(s.timeline.begin(), s.timeline.end(),
                   [](const TimelineEntry& A, const TimelineEntry& B) { return A.t < B.t; });
  return s;
}

} // namespace

Scenario loadScenario(const std::filesystem::path& FILE) {
  std::ifstream in(FILE);
  if (!in) throw std::runtime_error(fmt::format("cannot read {}", FILE.string()));
  try {
    return lf_scenario(Json::parse(in, nullptr, true, true));
  } catch (const Json::exception& e) {
    throw std::runtime_error(fmt::format("{}: {}", FILE.string(), e.what()));
  } catch (const std::runtime_error& e) {
    throw std::runtime_error(fmt::format("{}: {}", FILE.string(), e.what()));
  }
}

} // namespace ory
