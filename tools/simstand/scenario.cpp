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
std::string lf_latin1(const std::string& utf8) {
  std::string text;
  for (std::size_t i = 0; i < utf8.size(); ++i) {
    const auto c = static_cast<unsigned char>(utf8[i]);
    if (c < 0x80) {
      text += static_cast<char>(c);
    } else if ((c & 0xE0) == 0xC0 && i + 1 < utf8.size()) {
      const unsigned code = ((c & 0x1Fu) << 6) | (static_cast<unsigned char>(utf8[++i]) & 0x3Fu);
      text += code <= 0xFF ? static_cast<char>(code) : '?';
    } else {
      text += '?';
      while (i + 1 < utf8.size() && (static_cast<unsigned char>(utf8[i + 1]) & 0xC0) == 0x80)
        ++i;
    }
  }
  return text;
}

std::int64_t lf_zulu(const std::string& text) {
  std::tm tm{};
  if (std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday, &tm.tm_hour,
                  &tm.tm_min, &tm.tm_sec) != 6)
    throw std::runtime_error(fmt::format("zulu \"{}\" is not of the form 2024-05-17T14:30:00Z", text));
  tm.tm_year -= 1900;
  tm.tm_mon -= 1;
  return static_cast<std::int64_t>(timegm(&tm));
}

std::optional<double> lf_altitude(const Json& point) {
  if (!point.contains("alt") || point["alt"].is_string()) return {}; // "ground"
  return point["alt"].get<double>();
}

TrackPoint lf_point(const Json& point) {
  TrackPoint p;
  p.t = point.value("t", 0.0);
  p.lat = point.at("lat").get<double>();
  p.lon = point.at("lon").get<double>();
  p.altitude = lf_altitude(point);
  p.heading = point.value("heading", 0.0);
  p.pitch = point.value("pitch", 0.0);
  p.bank = point.value("bank", 0.0);
  p.speed = point.value("speed", 0.0);
  return p;
}

template <typename T, std::size_t N>
void lf_array(const Json& object, const char* key, std::array<T, N>& into) {
  if (!object.contains(key)) return;
  const auto values = object[key].get<std::vector<T>>();
  if (values.size() != N) throw std::runtime_error(fmt::format("\"{}\" needs {} numbers", key, N));
  std::copy(values.begin(), values.end(), into.begin());
}

void lf_simulator(const Json& s, Scenario& into) {
  into.simulatorName = lf_latin1(s.value("name", std::string("Lockheed Martin\u00ae Prepar3D\u00ae v5")));
  lf_array(s, "version", into.appVersion);
  lf_array(s, "simConnectVersion", into.simConnectVersion);
  if (s.contains("protocols")) into.protocols = s["protocols"].get<std::vector<std::uint32_t>>();
  into.p3dShapes = s.value("p3dShapes", false);
  const std::string writes = s.value("writes", std::string("whole"));
  if (writes == "whole")
    into.writes = WriteMode::whole;
  else if (writes == "split")
    into.writes = WriteMode::split;
  else if (writes == "coalesce")
    into.writes = WriteMode::coalesce;
  else
    throw std::runtime_error(fmt::format("\"writes\" is whole, split or coalesce, not \"{}\"", writes));
  into.startRunning = s.value("startRunning", true);
  into.userObjectId = s.value("userObjectId", into.userObjectId);
  into.firstObjectId = s.value("firstObjectId", into.firstObjectId);
  into.createDelay = s.value("createDelay", 0.0);
}

void lf_user(const Json& u, Scenario& into) {
  into.userTitle = lf_latin1(u.value("title", into.userTitle));
  into.userAtcModel = lf_latin1(u.value("atcModel", into.userAtcModel));
  into.userAtcId = lf_latin1(u.value("atcId", into.userAtcId));
  into.userStaticCg = u.value("staticCg", into.userStaticCg);
  into.userStaticPitch = u.value("staticPitch", into.userStaticPitch);
  for (const Json& point : u.at("track"))
    into.track.push_back(lf_point(point));
}

TimelineEntry lf_entry(const Json& e) {
  TimelineEntry entry;
  entry.t = e.at("t").get<double>();
  entry.what = e.at("do").get<std::string>();
  if (e.contains("lat")) entry.moveTo = lf_point(e);
  entry.text = lf_latin1(e.value("file", e.value("atcId", e.value("hex", std::string()))));
  entry.rate = e.value("rate", 1.0);
  static const std::vector<std::string> known = {
      "pause",        "resume",       "simRate", "teleport",  "positionChanged",
      "flightLoaded", "removeObject", "garbage", "cutRecord", "quit"};
  if (std::find(known.begin(), known.end(), entry.what) == known.end())
    throw std::runtime_error(fmt::format("timeline: unknown \"do\": \"{}\"", entry.what));
  if (entry.what == "simRate" && !(entry.rate >= 0.25 && entry.rate <= 128))
    throw std::runtime_error("timeline: a simRate's rate must lie in 0.25 to 128");
  if (entry.what == "teleport" && !entry.moveTo)
    throw std::runtime_error("timeline: a teleport needs lat and lon");
  return entry;
}

Scenario lf_scenario(const Json& j) {
  Scenario s;
  if (j.contains("simulator")) lf_simulator(j["simulator"], s);
  if (j.contains("frames")) {
    s.frameRate = j["frames"].value("rate", s.frameRate);
    s.reportedFrameRate = j["frames"].value("frameRate", s.reportedFrameRate);
  }
  if (s.frameRate <= 0 || s.frameRate > 1000) throw std::runtime_error("frames.rate must lie in 0 to 1000");
  s.duration = j.value("duration", 0.0);
  if (j.contains("zulu")) s.zuluStart = lf_zulu(j["zulu"].get<std::string>());
  lf_user(j.at("user"), s);
  if (s.track.empty()) throw std::runtime_error("user.track needs at least one point");
  if (j.contains("terrain")) {
    s.terrainElevation = j["terrain"].value("elevation", 0.0);
    for (const Json& a : j["terrain"].value("areas", Json::array()))
      s.terrain.push_back({a.at("lat").get<double>(), a.at("lon").get<double>(),
                           a.at("radiusNm").get<double>(), a.at("elevation").get<double>()});
  }
  for (const Json& t : j.value("titles", Json::array()))
    s.titles.push_back(
        {lf_latin1(t.at("title").get<std::string>()), t.value("staticCg", 6.0), t.value("staticPitch", 0.0)});
  for (const Json& t : j.value("traffic", Json::array())) {
    const TrackPoint p = lf_point(t);
    s.traffic.push_back({t.at("t").get<double>(), lf_latin1(t.value("title", std::string("Traffic"))),
                         lf_latin1(t.at("atcId").get<std::string>()), p.lat, p.lon, p.altitude, p.heading,
                         p.speed});
  }
  for (const Json& e : j.value("timeline", Json::array()))
    s.timeline.push_back(lf_entry(e));
  std::stable_sort(s.timeline.begin(), s.timeline.end(),
                   [](const TimelineEntry& a, const TimelineEntry& b) { return a.t < b.t; });
  return s;
}

} // namespace

Scenario loadScenario(const std::filesystem::path& file) {
  std::ifstream in(file);
  if (!in) throw std::runtime_error(fmt::format("cannot read {}", file.string()));
  try {
    return lf_scenario(Json::parse(in, nullptr, true, true));
  } catch (const Json::exception& e) {
    throw std::runtime_error(fmt::format("{}: {}", file.string(), e.what()));
  } catch (const std::runtime_error& e) {
    throw std::runtime_error(fmt::format("{}: {}", file.string(), e.what()));
  }
}

} // namespace ory
