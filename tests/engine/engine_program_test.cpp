// The Linux program between the simulator stand-in and feedplay, with real flights of the feed: a Transavia
// 737 climbing out of Amsterdam in a wide right turn, and a Delta 737-900 landing at Minneapolis: touching
// down, rolling out, taxiing and parking. What the simulator was told is judged from the trace.
#include "capture.h"
#include "engine/aircraft.h"
#include "engine/geometry.h"
#include "feed/traffic_line.h"
#include "feed/traffic_reader.h"
#include "inputs.h"
#include "judge.h"
#include "os/sockets.h"
#include "parking/airport_file.h"
#include "stand_in.h"
#include "support/scratch.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <functional>
#include <thread>

namespace ory {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using test::ChildProcess;
using test::eventually;
using test::readFile;
using testing::ContainsRegex;
using testing::HasSubstr;

// A real flight, the part of it that is played, and where the user waits for it.
struct Flight {
  std::string source;       // of the shared real data
  std::uint32_t hexid = 0;  //
  std::string callsign;     //
  std::string airline;      // and type: the livery installed for it
  std::string type;         //
  std::string title;        //
  double windowStart = 0;   // seconds into the source
  double userLat = 0;       // degrees; on the ground
  double userLon = 0;       // degrees
  double elevation = 0;     // feet, of the stand-in's ground
  std::string zulu;         // the simulator's time
  std::string origin;       // airport codes that the feed names, as RealTraffic does for scheduled flights
  std::string destination;  //
  double altitudeError = 0; // feet, added to the barometric altitude of the reports in the air
};

const Flight climbOut{"adsb/belevingsvlucht.json.gz",
                      0x484506,
                      "TRA051",
                      "TRA",
                      "B738",
                      "Transavia Boeing 737-800",
                      120, // 4600 ft, turning right from 44 to 150 degrees
                      52.3086,
                      4.7639,
                      -11,
                      "2018-05-30T15:23:38Z",
                      "EHAM", // the flight left Schiphol and came back to it
                      "EHAM"};
// The feed's barometric altitude that evening (QNH 1035, bitter cold) read 641 ft below the true one, which
// would put the aircraft on the ground 50 seconds before the runway: the reports in the air are raised by it.
const Flight landing{"adsb/trace_full_ac671b_flat.csv",
                     0xac671b,
                     "DAL1812",
                     "DAL",
                     "B739",
                     "Delta Boeing 737-900",
                     14323.46 - 90, // 90 seconds before the touch down on runway 12R
                     44.8832,
                     -93.2290,
                     841,
                     "2025-02-05T01:11:36Z",
                     "",
                     "",
                     641};
const Flight pushBack{"adsb/trace_full_ac671b_flat.csv",
                      0xac671b,
                      "DAL2418",
                      "DAL",
                      "B739",
                      "Delta Boeing 737-900",
                      22665, // on its stand 78 seconds before it is pushed back
                      44.8832,
                      -93.2290,
                      841,
                      "2025-02-05T03:31:27Z"};

// Zurich at once, each from its own day: an Air France A319 at the end of its taxi, taking off to the west; a
// Lufthansa A321 on the last miles of its approach; the Rega helicopter low over the city. The user waits on
// the apron south of them.
const std::vector<Flight> zurich{
    {"adsb/noisy_takeoff.json.gz", 0x3946e4, "AFR181L", "AFR", "A319", "Air France Airbus A319", 150, 47.4510,
     8.5600, 1416, "2019-11-11T17:38:06Z"},
    {"adsb/noisy_landing.json.gz", 0x3c664e, "DLH4TR", "DLH", "A321", "Lufthansa Airbus A321", 648},
    {"adsb/rega_zh.json.gz", 0x4b43ac, "REGA1", "SAZ", "EC45", "Rega Airbus EC145", 138}};

// The park airports as the program's airport list places them, at their airport files' elevations.
constexpr ParkAirport minneapolis{44.880081, -93.221741, 841};
constexpr ParkAirport zurichPark{47.458056, 8.548056, 1416};

// The user waits on the ground where the flight says, then follows laterTrack (points of the stand-in's
// user track); titles beyond the flight's share its static CG.
std::string lf_scenario(const Flight& flight, std::string_view timeline, std::string_view laterTrack = "",
                        const std::vector<std::string>& moreTitles = {}) {
  std::string titles;
  for (const std::string& title : moreTitles)
    titles += fmt::format(R"(, {{"title": "{}", "staticCg": 9.5, "staticPitch": 0.0}})", title);
  return fmt::format(R"({{
    "simulator": {{"name": "Lockheed Martin\u00ae Prepar3D\u00ae v5"}},
    "frames": {{"rate": 30, "frameRate": 60}},
    "zulu": "{}",
    "user": {{"track": [{{"t": 0, "lat": {}, "lon": {}, "heading": 90}}{}]}},
    "terrain": {{"elevation": {}}},
    "titles": [{{"title": "{}", "staticCg": 9.5, "staticPitch": 0.0}}{}],
    "timeline": [{}]
  }})",
                     flight.zulu, flight.userLat, flight.userLon, laterTrack, flight.elevation, flight.title,
                     titles, timeline);
}

// The position fields of a traffic line.
std::string lf_position(const std::string& line) {
  const std::size_t first = line.find(',', line.find(',') + 1);
  const std::size_t third = line.find(',', line.find(',', first + 1) + 1);
  return line.substr(first, third - first);
}

// The traffic line with the airports of the flight's route and the altitude in the air corrected.
std::string lf_adjusted(const std::string& line, const Flight& flight) {
  std::vector<std::string_view> fields;
  splitFields(line, fields);
  if (!flight.origin.empty()) {
    fields.at(originField) = flight.origin;
    fields.at(destinationField) = flight.destination;
  }
  std::string altitude;
  if (flight.altitudeError != 0 && fields.at(onGroundField) == "0" && !fields.at(altitudeField).empty()) {
    altitude = fmt::format("{:.0f}", std::stod(std::string(fields[altitudeField])) + flight.altitudeError);
    fields[altitudeField] = altitude;
  }
  return fmt::format("{}", fmt::join(fields, ","));
}

// A transponder left on at the gate: between two reports of the same position the feed repeats the aircraft
// every 10 seconds.
void lf_repeatStanding(std::vector<CaptureEntry>& window) {
  std::vector<CaptureEntry> repeated;
  for (std::size_t i = 0; i < window.size(); ++i) {
    repeated.push_back(window[i]);
    const std::size_t next = i + 1;
    if (next == window.size() || window[i].kind != CaptureKind::traffic ||
        window[next].kind != CaptureKind::traffic ||
        lf_position(window[i].payload) != lf_position(window[next].payload))
      continue;
    for (double offset = window[i].offset + 10; offset < window[next].offset - 1; offset += 10)
      repeated.push_back({offset, CaptureKind::traffic, window[i].payload});
  }
  window.swap(repeated);
}

bool lf_isCall(const json& line, std::string_view call) {
  return line.value("kind", "") == "call" && line.value("call", "") == call;
}

// The run's trace, scenario and capture, kept in the build folder for scripts/judge-demo to draw.
void lf_keepForJudge(const std::filesystem::path& folder, std::string_view name) {
  const std::filesystem::path kept = std::filesystem::path(ORY_JUDGE_DIR) / name;
  std::error_code error;
  std::filesystem::create_directories(kept, error);
  for (const char* file : {"stand.jsonl", "stand.json", "window.cap", "airports/my_thirdparty/KMSP.xml",
                           "airports/my_thirdparty/EHAM.xml", "airports/my_thirdparty/LSZH.xml"})
    std::filesystem::copy_file(folder / file, kept / std::filesystem::path(file).filename(),
                               std::filesystem::copy_options::overwrite_existing, error);
}

class EngineProgramTest : public test::InScratchFolder {
protected:
  void SetUp() override {
    port = test::presetRealTrafficRun(folder, "  <parameter name=\"AUTO_RANGE\" value=\"false\" />\n"
                                              "  <parameter name=\"LOG\" value=\"true\" />\n");
  }

  // seconds of the flight from its window's start, as offsets from 0, with the weather in force, its livery
  // installed and its stands repeated; dropAt cuts the link; gateReports repeat the last report every 20
  // seconds after the window.
  void prepare(const Flight& chosen, double seconds, double dropAt = -1, int gateReports = 0) {
    prepareAll({chosen}, seconds, dropAt, gateReports);
  }
  // The windows of several flights played at once, each from its own start; the first flight's weather and
  // place.
  void prepareAll(const std::vector<Flight>& flights, double seconds, double dropAt = -1,
                  int gateReports = 0) {
    flight = flights.front();
    std::string liveries;
    for (const Flight& f : flights)
      liveries +=
          fmt::format(R"(<liv airl="{}" type="{}" title="{}" atcid="" />)", f.airline, f.type, f.title);
    test::writeBytes(folder / "output/LiveriesScanned.xml", "<liveries>" + liveries + "</liveries>");
    std::vector<CaptureEntry> window;
    for (const Flight& f : flights)
      for (CaptureEntry& entry : flightWindow(f, seconds))
        if (&f == &flights.front() || entry.kind == CaptureKind::traffic) window.push_back(std::move(entry));
    std::stable_sort(window.begin(), window.end(),
                     [](const CaptureEntry& a, const CaptureEntry& b) { return a.offset < b.offset; });
    if (dropAt >= 0) {
      const auto at = std::find_if(window.begin(), window.end(),
                                   [&](const CaptureEntry& e) { return e.offset >= dropAt; });
      window.insert(at, {dropAt, CaptureKind::drop, "5", 5});
    }
    lf_repeatStanding(window);
    for (int i = 1; i <= gateReports; ++i) {
      CaptureEntry again = window.back();
      again.offset += 20;
      window.push_back(again);
    }
    std::ofstream out(folder / "window.cap");
    for (const CaptureEntry& entry : window)
      out << captureText(entry) << '\n';
  }

  // The flight's traffic from its window's start on, for seconds, led by the weather in force then.
  std::vector<CaptureEntry> flightWindow(const Flight& f, double seconds) const {
    const std::string capture = fmt::format("{:x}.cap", f.hexid);
    ChildProcess convert(FEEDPLAY_PATH,
                         {"convert", test::realData(f.source).string(), capture, "--registry",
                          test::realData("adsb/sample_hex_registry_subset.csv").string()},
                         folder, folder, folder / "convert.out");
    EXPECT_EQ(convert.waitExit(60s), 0) << readFile(folder / "convert.out");
    std::vector<CaptureEntry> window;
    std::optional<CaptureEntry> weather;
    for (CaptureEntry& entry : readCapture((folder / capture).string())) {
      if (entry.offset < f.windowStart) {
        if (entry.kind == CaptureKind::weather) weather = entry;
        continue;
      }
      entry.offset -= f.windowStart;
      if (entry.offset >= seconds) break;
      if (entry.kind == CaptureKind::traffic) entry.payload = lf_adjusted(entry.payload, f);
      window.push_back(std::move(entry));
    }
    if (weather) window.insert(window.begin(), {0, CaptureKind::weather, weather->payload});
    return window;
  }

  std::unique_ptr<ChildProcess> startPlayer() const {
    return std::make_unique<ChildProcess>(FEEDPLAY_PATH,
                                          std::vector<std::string>{"play", "--capture", "window.cap",
                                                                   "--port", std::to_string(port), "--record",
                                                                   "link.txt"},
                                          folder, folder, folder / "player.out");
  }
  std::unique_ptr<ChildProcess> startProgram() const {
    return std::make_unique<ChildProcess>(ORY_PROGRAM, std::vector<std::string>{}, folder, folder,
                                          folder / "program.out");
  }
  std::optional<std::int64_t> createdObject(const std::vector<json>& trace) const {
    for (const json& line : trace)
      if (line.value("kind", "") == "created" && line.value("tail", "") == flight.callsign)
        return line.value("object", std::int64_t{0});
    return std::nullopt;
  }
  static bool removed(const std::vector<json>& trace, std::int64_t object) {
    return std::any_of(trace.begin(), trace.end(), [object](const json& line) {
      return lf_isCall(line, "SimConnect_AIRemoveObject") && line.value("object", std::int64_t{-1}) == object;
    });
  }
  // The program ends as on the window's close, then the feed and the stand-in; the run is kept for the judge.
  void stopRun(ChildProcess& program, ChildProcess& player, test::StandIn& stand,
               std::string_view kept) const {
    program.signal(SIGTERM);
    EXPECT_EQ(program.waitExit(20s), 0);
    player.waitExit(10s);
    stand.stop(SIGTERM);
    lf_keepForJudge(folder, kept);
  }
  std::string log() const { return readFile(folder / "Log.txt"); }

  // The judge's figures of a flight's object over the airport file's stands, printed for the note; the real
  // tracks as the reader takes them at the park airport. A source without emitter categories leaves the
  // judge the category that the aircraft database gives.
  ObjectFigures judgeFlight(std::string_view name, const std::vector<json>& trace, const Flight& judged,
                            std::string_view airportFile, const ParkAirport& park,
                            std::int32_t databaseCategory = -1) const {
    JudgeContext context;
    context.staticCg[titleKey(judged.title)] = 9.5;
    context.real = realAircraft((folder / "window.cap").string());
    dropGroundReportsAway(context.real, park);
    for (RealAircraft& real : context.real)
      if (real.hexid == judged.hexid && real.category < 0) real.category = databaseCategory;
    context.stands = readStands((folder / "airports/my_thirdparty" / airportFile).string());
    context.runways = runways;
    const std::vector<FlownObject> objects = flownObjects(trace);
    const auto object = std::find_if(objects.begin(), objects.end(),
                                     [&](const FlownObject& o) { return o.atcId == judged.callsign; });
    if (object == objects.end()) {
      ADD_FAILURE() << judged.callsign << " was never flown";
      return {};
    }
    const ObjectFigures f = judgeObject(*object, context);
    const Spread ground = spreadOf(f.groundMetres);
    const Spread air = spreadOf(f.airMetres);
    std::cout << fmt::format(
        "{}: ground {} frames from the real path median {:.1f} m p95 {:.1f} m; air {} frames median {:.1f} m "
        "p95 {:.1f} m; turn {:.1f} of {:.0f} deg/s; height {:+.2f} ft; worst step {:.2f}; backwards {:.0f} "
        "m\n",
        name, ground.count, ground.median, ground.p95, air.count, air.median, air.p95, f.groundTurnRate,
        f.turnLimit, f.worstGroundHeightFeet, f.worstStepRatio, f.backwardsMetres);
    for (const TouchDown& down : f.touchDowns)
      std::cout << fmt::format(
          "{}: touch-down on {} {:.0f} m past the threshold, {:.1f} m off the centre line, "
          "{:.0f} s on the ground after it\n",
          name, down.runway, down.alongMetres, down.acrossMetres, down.rollOutSeconds);
    return f;
  }
  ObjectFigures judgeAtMinneapolis(std::string_view name, const std::vector<json>& trace) const {
    return judgeFlight(name, trace, flight, "KMSP.xml", minneapolis);
  }

  std::filesystem::path folder = scratch.path();
  std::uint16_t port = 0;
  Flight flight;
  std::vector<Runway> runways;
};

// The calls that concern one object, in trace order, as "call:event" texts.
std::vector<std::string> lf_callsOf(const std::vector<json>& trace, std::int64_t object) {
  std::vector<std::string> calls;
  for (const json& line : trace) {
    if (line.value("kind", "") != "call" || line.value("object", std::int64_t{-1}) != object) continue;
    const std::string call = line.value("call", "").substr(std::string_view("SimConnect_").size());
    calls.push_back(fmt::format("{}:{}", call, line.value("event", std::int64_t{0})));
  }
  return calls;
}

// CTest starts the tests of a program in the order they are listed here, four at a time: the longest first,
// so that they end together.

// Schiphol as the program's files would have it for static parking: nine stands 100 metres apart, S1 under
// the user, each with a KLM 737 at every half hour of the week; S3's registration is S2's as well. The
// learned file parks half of them.
void lf_writeSchiphol(const std::filesystem::path& folder) {
  std::string file = R"(<parameters><parameter name="airport_name" value="Schiphol"/>
<parameter name="publisher" value="unknown"/><parameter name="altitude" value="-11"/></parameters><parkpositions>)";
  std::string learned = R"(<parameters><parameter name="airport_name" value="Schiphol"/>
<parameter name="WEEK" value="true"/><parameter name="parking_percentage" value="50"/></parameters><parkpositions>)";
  std::string allDay;
  for (int h = 0; h < 48; ++h)
    allDay += fmt::format("{}{}", h == 0 ? "" : ",", h);
  for (int i = 1; i <= 9; ++i) {
    file +=
        fmt::format(R"(<parkpos id="S{}" latitude="{:.6f}" longitude="{:.6f}" heading="90" radius="20"/>)", i,
                    climbOut.userLat + (i - 1) * 0.0009, climbOut.userLon);
    learned += fmt::format(
        R"(<parkpos id="S{0}"><opt reg="PH-K{1}" airl="KLM" type="B738" day="1" hh="{2}" cs="KLM{0}"/></parkpos>)",
        i, i == 3 ? 2 : i, allDay);
  }
  test::writeBytes(folder / "airports/my_thirdparty/EHAM.xml", file + "</parkpositions>");
  test::writeBytes(folder / "airports/learned/thirdparty/unknown/EHAM.xml", learned + "</parkpositions>");
}

// KLM4 takes off: the climb-out's reports from delay seconds later, as a KLM 737 with S4's callsign and
// registration, added to the capture.
void lf_addKlm4(const std::filesystem::path& folder, double delay) {
  std::vector<CaptureEntry> window = readCapture((folder / "window.cap").string());
  const std::size_t played = window.size();
  const double end = window.back().offset;
  for (std::size_t i = 0; i < played; ++i) {
    if (window[i].kind != CaptureKind::traffic || window[i].offset + delay > end) continue;
    std::vector<std::string_view> fields;
    splitFields(window[i].payload, fields);
    fields.at(hexidField) = "4736500";
    fields.at(callsignField) = "KLM4";
    fields.at(registrationField) = "PH-K4";
    window.push_back(
        {window[i].offset + delay, CaptureKind::traffic, fmt::format("{}", fmt::join(fields, ","))});
  }
  std::stable_sort(window.begin(), window.end(),
                   [](const CaptureEntry& a, const CaptureEntry& b) { return a.offset < b.offset; });
  std::ofstream out(folder / "window.cap");
  for (const CaptureEntry& entry : window)
    out << captureText(entry) << '\n';
}

// The simulator seconds of the first trace line that says so.
double lf_simSecondsOf(const std::vector<json>& trace, const std::function<bool(const json&)>& which) {
  const auto line = std::find_if(trace.begin(), trace.end(), which);
  return line == trace.end() ? -1 : line->value("sim", -1.0);
}

// The user on a stand at Schiphol sees half the other stands filled, two creations a second at most, each
// aircraft on its own stand, no registration twice and his own stand free. KLM4 takes off and its parked
// twin goes; twenty simulator minutes later, the simulation rate raised to get there, the renewal keeps the
// four that stay and parks S8's KLM 737 in the place of the one in the air. When he flies out of sight, all
// go.
TEST_F(EngineProgramTest, theStandsAroundTheUserAreFilledRenewedAndEmptiedWhenHeLeaves) {
  prepare(climbOut, 480); // the feed must outlast the test: its end would be RealTraffic gone
  lf_addKlm4(folder, 40);
  lf_writeSchiphol(folder);
  const std::string klm = "KLM Boeing 737-800";
  test::writeBytes(folder / "output/LiveriesScanned.xml",
                   fmt::format(R"(<liveries><liv airl="TRA" type="B738" title="{}" atcid="" />
<liv airl="KLM" type="B738" title="{}" atcid="" /></liveries>)",
                               flight.title, klm));
  // The simulation rate six times from wall second 60 to 248: the simulator's seconds, which drive the
  // program's slow beat, run from 60 to 1188, just short of the renewal at 1,200 seconds of that beat and
  // its 15-second collecting window, which run at the normal rate like the creation that follows.
  const double leaves = 1320; // simulator seconds
  test::StandIn stand(
      lf_scenario(flight, R"({"t": 60, "do": "simRate", "rate": 6}, {"t": 248, "do": "simRate", "rate": 1})",
                  fmt::format(R"(, {{"t": {2}, "lat": {0}, "lon": {1}, "heading": 90}},
                     {{"t": {3}, "lat": 52.75, "lon": {1}, "alt": 5000, "heading": 0, "speed": 250}})",
                              flight.userLat, flight.userLon, leaves, leaves + 10),
                  {klm}));
  stand.writeSimConnectCfg();
  const auto player = startPlayer();
  const auto program = startProgram();
  const auto parkedObjects = [](const std::vector<json>& trace) {
    std::vector<json> created;
    for (const json& line : trace)
      if (line.value("kind", "") == "created" && line.value("tail", "").ends_with("*"))
        created.push_back(line);
    return created;
  };
  const bool renewed = eventually([&] { return parkedObjects(stand.trace()).size() >= 6; }, 360s, 1s);
  const bool emptied = eventually(
      [&] {
        const std::vector<json> trace = stand.trace();
        const std::vector<json> created = parkedObjects(trace);
        return !created.empty() && std::all_of(created.begin(), created.end(), [&](const json& c) {
          return removed(trace, c.value("object", std::int64_t{-1}));
        });
      },
      180s, 1s);
  stopRun(*program, *player, stand, "statics");
  const std::string text = log();
  ASSERT_TRUE(renewed) << text;
  EXPECT_TRUE(emptied) << "out of sight, the parked aircraft go\n" << text;
  EXPECT_THAT(text, HasSubstr("Parking adjustments: 0 to be removed, 1 to be added"));

  const std::vector<json> trace = stand.trace();
  const std::vector<json> created = parkedObjects(trace);
  ASSERT_EQ(created.size(), 6u) << "half of nine stands, the user's and the doubled registration's left out, "
                                   "then one in the place of the one that took off";
  for (std::size_t i = 2; i < created.size(); ++i)
    EXPECT_GE(created[i].value("wall", 0.0) - created[i - 2].value("wall", 0.0), 800)
        << "two creations a second at most";
  EXPECT_LT(created[4].value("sim", 0.0), 60) << "filled within a minute";
  const double renewedAt = created[5].value("sim", 0.0);
  EXPECT_EQ(created[5].value("tail", ""), "KLM8*");
  EXPECT_GT(renewedAt, 1200) << "the renewal, twenty minutes on";
  for (const json& c : created) {
    const std::int64_t object = c.value("object", std::int64_t{-1});
    const double gone = lf_simSecondsOf(trace, [&](const json& line) {
      return lf_isCall(line, "SimConnect_AIRemoveObject") && line.value("object", std::int64_t{-1}) == object;
    });
    if (c.value("tail", "") == "KLM4*")
      EXPECT_LT(gone, renewedAt) << "KLM4 in the air is parked no more";
    else
      EXPECT_GE(gone, leaves) << c.value("tail", "") << " stays until the user leaves";
  }

  JudgeContext context;
  context.staticCg[titleKey(klm)] = 9.5;
  context.stands = readStands((folder / "airports/my_thirdparty/EHAM.xml").string());
  std::vector<std::string> used;
  for (const FlownObject& object : flownObjects(trace)) {
    if (!object.atcId.ends_with("*")) continue;
    const ObjectFigures f = judgeObject(object, context);
    ASSERT_FALSE(f.parked.empty()) << object.atcId;
    const ParkedSpell& spell = f.parked.front();
    // The simulator's own AI moves a new object at 10 knots until it is frozen, a frame or two later.
    EXPECT_LE(spell.metres, 2) << object.atcId;
    EXPECT_LE(std::abs(spell.headingErrorDegrees), 3) << object.atcId;
    EXPECT_EQ(f.jumps, 0u) << object.atcId;
    used.push_back(spell.stand);
  }
  std::sort(used.begin(), used.end());
  std::cout << fmt::format("statics: {} created, on stands {}, the renewal's at {:.0f} simulator seconds\n",
                           created.size(), fmt::join(used, " "), renewedAt);
  EXPECT_EQ(used, (std::vector<std::string>{"S2", "S4", "S5", "S6", "S7", "S8"}))
      << "one aircraft a stand, not the user's S1 and not S3 with S2's registration";
}

// Minneapolis as the program's airport files would have it: the stand the real 737-900 parked on, with a
// neighbour on each side.
void lf_writeMinneapolis(const std::filesystem::path& folder) {
  AirportFile airport;
  airport.code = "KMSP";
  airport.airportName = "Minneapolis-St Paul Intl";
  airport.publisher = "unknown";
  airport.altitude = 841;
  const double lons[] = {-93.21055, -93.2099, -93.20925};
  for (std::uint32_t i = 0; i < 3; ++i) {
    Stand& stand = airport.stands.emplace_back();
    stand.id = fmt::format("G{}", i + 1);
    stand.lat = 44.880384;
    stand.lon = lons[i];
    stand.heading = 31 * degToRad;
    stand.radius = 20 * nmPerMetre;
  }
  std::filesystem::create_directories(folder / "airports/my_thirdparty");
  ASSERT_TRUE(writeAirportFile(airport, folder / "airports/my_thirdparty/KMSP.xml", false));
}

// From three and a half miles out on the approach.
TEST_F(EngineProgramTest, aLandingTouchesDownOnItsRunwayRollsOutTaxiesAndParksOnItsStand) {
  prepare(landing, 265, -1, 2);
  // 12R/30L of OurAirports' runways.csv, 200 ft wide.
  runways = {parseRunway("12R/30L:44.8877983,-93.2341003,44.8735008,-93.2012024,61")};
  ASSERT_NO_FATAL_FAILURE(lf_writeMinneapolis(folder));
  test::StandIn stand(lf_scenario(flight, ""));
  stand.writeSimConnectCfg();
  const auto player = startPlayer();
  const auto program = startProgram();
  // Arrived on a stand, the engines are shut down.
  const bool parked = eventually(
      [&] {
        const std::vector<json> trace = stand.trace();
        return std::any_of(trace.begin(), trace.end(), [](const json& line) {
          return lf_isCall(line, "SimConnect_TransmitClientEvent") && line.value("event", 0) == 222;
        });
      },
      380s, 1s);
  std::this_thread::sleep_for(25s); // standing still long enough for the judge to call it parked
  stopRun(*program, *player, stand, "landing");
  ASSERT_TRUE(parked) << log();
  EXPECT_THAT(log(), HasSubstr("G2      : DAL1812  arrived at stand"));
  // The arrival taught its stand, and the program's end saved it.
  EXPECT_THAT(readFile(folder / "airports/learned/thirdparty/unknown/KMSP.xml"),
              ContainsRegex("<parkpos id=\"G2\"[^>]*>[[:space:]]*<opt reg=\"N899DN\"[^>]* day=\"[1-7]\" "
                            "hh=\"[0-9]+(,[0-9]+)?\" cs=\"DAL1812\""));

  const ObjectFigures f = judgeAtMinneapolis("landing", stand.trace());
  const Spread ground = spreadOf(f.groundMetres);
  EXPECT_FALSE(f.firstOnGround) << "it appears in the air";
  ASSERT_EQ(f.touchDowns.size(), 1u) << "one touch-down, no bounce";
  const TouchDown& touchDown = f.touchDowns.front();
  EXPECT_TRUE(touchDown.onRunway) << touchDown.runway << " " << touchDown.alongMetres << " m along, "
                                  << touchDown.acrossMetres << " m across";
  EXPECT_GT(touchDown.rollOutSeconds, 60) << "rolls out and taxies";
  EXPECT_LT(spreadOf(f.airMetres).median, 150);
  EXPECT_EQ(f.jumps, 0u);
  EXPECT_GT(f.turnLimit, 0) << "the category is known from the feed";
  // The turn off the runway is faster than the category's rate, by the ground segment's own timing, which
  // lets a turn that is large for its curve's length go faster. While it still rolls out, the turn-off's
  // reports that point 90 degrees or more off its heading are dropped, and the one curve left turns 50
  // degrees at 50 / 30 of the rate: 34 degrees in 3 seconds at 5 knots, where the real aircraft took 10.
  EXPECT_LE(f.groundTurnRate, 2 * f.turnLimit);
  EXPECT_LE(std::abs(f.worstGroundHeightFeet), 1.0);
  EXPECT_GT(ground.count, 30u * 60) << "a minute and more on the ground";
  EXPECT_LT(ground.median, 30);
  const auto onStand = std::find_if(f.parked.begin(), f.parked.end(), [](const ParkedSpell& p) {
    return p.stand == "G2" && p.metres <= 2 && std::abs(p.headingErrorDegrees) <= 3;
  });
  EXPECT_NE(onStand, f.parked.end()) << "parked on its stand within 2 metres and 3 degrees";
}

// Zurich with the user's stand and the Air France A319's gate, the first point of its real taxi.
void lf_writeZurich(const std::filesystem::path& folder) {
  test::writeBytes(folder / "airports/my_thirdparty/LSZH.xml", R"(<parameters>
<parameter name="airport_name" value="Zurich"/><parameter name="publisher" value="unknown"/>
<parameter name="altitude" value="1416"/></parameters><parkpositions>
<parkpos id="U1" latitude="47.451000" longitude="8.560000" heading="0" radius="20"/>
<parkpos id="E1" latitude="47.456646" longitude="8.555019" heading="320" radius="20"/></parkpositions>)");
}

// Three kinds of flight at once, each judged from the trace: no step an aircraft could not fly, on the ground
// within a foot of it and turning no faster than its kind, near the real paths 30 seconds earlier.
TEST_F(EngineProgramTest, aTakeOffAnApproachAndAHelicopterAtZurichFollowTheirRealPaths) {
  prepareAll(zurich, 200);
  lf_writeZurich(folder);
  test::StandIn stand(lf_scenario(flight, "", "", {zurich[1].title, zurich[2].title}));
  stand.writeSimConnectCfg();
  const auto player = startPlayer();
  const auto program = startProgram();
  std::this_thread::sleep_for(240s);
  stopRun(*program, *player, stand, "zurich");
  const std::vector<json> trace = stand.trace();

  const ObjectFigures takeOff = judgeFlight("take-off", trace, zurich[0], "LSZH.xml", zurichPark, 2);
  const ObjectFigures approach = judgeFlight("approach", trace, zurich[1], "LSZH.xml", zurichPark, 2);
  const ObjectFigures helicopter = judgeFlight("helicopter", trace, zurich[2], "LSZH.xml", zurichPark,
                                               static_cast<std::int32_t>(categoryHelicopter));
  for (const ObjectFigures* f : {&takeOff, &approach, &helicopter}) {
    EXPECT_GT(f->frames, 30u * 60) << f->atcId << " flew a minute and more\n" << log();
    EXPECT_EQ(f->jumps, 0u) << f->atcId;
    EXPECT_LT(spreadOf(f->airMetres).median, 150) << f->atcId;
  }
  // The helicopter's ground is not checked: low and slow over Dubendorf, 5.3 miles from Zurich, it is on the
  // ground to the reader, which takes no ground reports that far out. It lands by dead reckoning, which is
  // not judged against the real path, and the recording has no other ground.
  const Spread ground = spreadOf(takeOff.groundMetres);
  EXPECT_GT(ground.count, 30u * 30) << "half a minute and more of the taxi and the take-off roll";
  EXPECT_LT(ground.median, 30);
  EXPECT_GT(takeOff.turnLimit, 0);
  // The noisy feed lines it up at the holding point faster than its kind turns: 58 degrees in 4 seconds. The
  // engine follows it there, and may turn a quarter faster than that over one second of it, not more.
  EXPECT_LE(takeOff.groundTurnRate, 1.25 * 58 / 4);
  EXPECT_LE(std::abs(takeOff.worstGroundHeightFeet), 1.0);
  EXPECT_GT(spreadOf(takeOff.airMetres).count, 30u * 30) << "it lifted off and climbed";
}

// The next morning the same aircraft, now DAL2418, is pushed back from the stand, tail first, and stops.
TEST_F(EngineProgramTest, aDepartureIsPushedBackTailFirstFromItsStand) {
  prepare(pushBack, 135);
  ASSERT_NO_FATAL_FAILURE(lf_writeMinneapolis(folder));
  test::StandIn stand(lf_scenario(flight, ""));
  stand.writeSimConnectCfg();
  const auto player = startPlayer();
  const auto program = startProgram();
  // The push back ends 156 seconds into the run, 30 seconds behind the feed.
  std::this_thread::sleep_for(165s);
  stopRun(*program, *player, stand, "pushback");

  const ObjectFigures f = judgeAtMinneapolis("push back", stand.trace());
  const Spread ground = spreadOf(f.groundMetres);
  EXPECT_EQ(f.jumps, 0u);
  // The turn onto the taxiway is timed by the push back's own curve rule, which turns faster than the
  // category's rate on the ground: 90 degrees in 737 ticks for a 737.
  EXPECT_LE(f.groundTurnRate, 90 / 7.37);
  EXPECT_LE(std::abs(f.worstGroundHeightFeet), 1.0);
  EXPECT_LT(ground.median, 30);
  EXPECT_GT(f.backwardsMetres, 50) << "the straight leg alone is 2.5 stand radii, tail first\n" << log();
  ASSERT_FALSE(f.parked.empty()) << log();
  EXPECT_EQ(f.parked.front().stand, "G2");
  EXPECT_LE(f.parked.front().metres, 2);
  EXPECT_LE(std::abs(f.parked.front().headingErrorDegrees), 3);
}

// An apron at Schiphol: the user on S1; P1, where the static twin of the arriving KLM1853 stands, and P2, 150
// metres east of it on its way in, where another KLM 737 is parked. The learned file fills both.
constexpr double apronLat = 52.3120;
constexpr double apronP1Lon = 4.7600;
constexpr double apronMetresPerDegreeLon = 68060; // at 52.3 degrees north

void lf_writeApron(const std::filesystem::path& folder) {
  std::string allDay;
  for (int h = 0; h < 48; ++h)
    allDay += fmt::format("{}{}", h == 0 ? "" : ",", h);
  test::writeBytes(folder / "airports/my_thirdparty/EHAM.xml",
                   fmt::format(R"(<parameters><parameter name="airport_name" value="Schiphol"/>
<parameter name="publisher" value="unknown"/><parameter name="altitude" value="-11"/></parameters><parkpositions>
<parkpos id="S1" latitude="{:.6f}" longitude="{:.6f}" heading="90" radius="20"/>
<parkpos id="P1" latitude="{:.6f}" longitude="{:.6f}" heading="270" radius="20"/>
<parkpos id="P2" latitude="{:.6f}" longitude="{:.6f}" heading="0" radius="20"/></parkpositions>)",
                               climbOut.userLat, climbOut.userLon, apronLat, apronP1Lon, apronLat,
                               apronP1Lon + 150 / apronMetresPerDegreeLon));
  test::writeBytes(folder / "airports/learned/thirdparty/unknown/EHAM.xml",
                   fmt::format(R"(<parameters><parameter name="airport_name" value="Schiphol"/>
<parameter name="WEEK" value="true"/><parameter name="parking_percentage" value="100"/></parameters><parkpositions>
<parkpos id="P1"><opt reg="PH-BXA" airl="KLM" type="B738" day="1" hh="{0}" cs="KLM1853"/></parkpos>
<parkpos id="P2"><opt reg="PH-BXB" airl="KLM" type="B738" day="1" hh="{0}" cs="KLM1000"/></parkpos>
</parkpositions>)",
                               allDay));
}

// KLM1853 taxies west at 10 knots from 300 metres east of P1, through P2, and stops on P1, where it stands
// with its transponder on. Its reports begin after the apron has been filled.
void lf_writeArrival(const std::filesystem::path& folder, double firstReport) {
  std::ofstream out(folder / "window.cap");
  TrackPoint point;
  point.hexid = 0x485853;
  point.onGround = true;
  point.callsign = "KLM1853";
  point.type = "B738";
  point.registration = "PH-BXA";
  point.category = "A3";
  point.track = 270;
  for (int t = 0; t <= 120; ++t) {
    const double metres = std::max(0.0, 300 - t * 10 * metresPerNm / 3600);
    point.time = 1.7e9 + t;
    point.lat = apronLat;
    point.lon = apronP1Lon + metres / apronMetresPerDegreeLon;
    point.groundSpeed = metres > 0 ? 10 : 0;
    out << captureText({firstReport + t, CaptureKind::traffic, trafficLine(point)}) << '\n';
  }
}

// Who gives way on the apron, judged from the trace: the static twin of an arriving flight leaves its stand
// to the live aircraft, never standing there with it, and a parked aircraft in a taxiing one's way goes
// before it is reached.
TEST_F(EngineProgramTest, aLiveArrivalTakesItsStaticTwinsStandAndAParkedAircraftInItsWayGoes) {
  flight = climbOut;
  const std::string klm = "KLM Boeing 737-800";
  test::writeBytes(
      folder / "output/LiveriesScanned.xml",
      fmt::format(R"(<liveries><liv airl="KLM" type="B738" title="{}" atcid="" /></liveries>)", klm));
  const std::filesystem::path parameters = folder / "AppData/Roaming/Trovalyn_P3D/parameters.xml";
  std::string text = readFile(parameters);
  text.insert(text.find("</parameters>"),
              "  <parameter name=\"COLLISION_LIVE_PARKED_GND\" value=\"true\" />\n");
  test::writeBytes(parameters, text);
  lf_writeApron(folder);
  lf_writeArrival(folder, 40); // after the first calculation, which leaves out what the feed shows
  test::StandIn stand(lf_scenario(flight, "", "", {klm}));
  stand.writeSimConnectCfg();
  const auto player = startPlayer();
  const auto program = startProgram();
  const auto objectOf = [](const std::vector<json>& trace, std::string_view tail) -> std::int64_t {
    for (const json& line : trace)
      if (line.value("kind", "") == "created" && line.value("tail", "") == tail)
        return line.value("object", std::int64_t{0});
    return 0;
  };
  const bool arrived =
      eventually([&] { return log().find("KLM1853  arrived at stand") != std::string::npos; }, 200s, 1s);
  std::this_thread::sleep_for(25s); // standing still long enough for the judge to call it parked
  stopRun(*program, *player, stand, "apron");
  text = log();
  ASSERT_TRUE(arrived) << text;
  EXPECT_THAT(text, HasSubstr("P1      : KLM1853  arrived at stand"));
  EXPECT_THAT(text,
              ContainsRegex("P2      : KLM1000\\*? *removed for collision avoidance with live KLM1853"));

  const std::vector<json> trace = stand.trace();
  const std::int64_t live = objectOf(trace, "KLM1853");
  const std::int64_t twin = objectOf(trace, "KLM1853*");
  const std::int64_t inTheWay = objectOf(trace, "KLM1000*");
  ASSERT_NE(live, 0);
  ASSERT_NE(twin, 0) << "the apron was filled before the arrival";
  ASSERT_NE(inTheWay, 0);
  EXPECT_TRUE(removed(trace, twin));
  EXPECT_TRUE(removed(trace, inTheWay));
  // Frame by frame: the twin and the live aircraft never both near P1, nor the live one on the aircraft in
  // its way.
  std::size_t together = 0;
  double closest = 1e9;
  for (const json& line : trace) {
    if (line.value("kind", "") != "state") continue;
    std::map<std::int64_t, std::pair<double, double>> at;
    for (const json& o : line.at("objects"))
      at[o.value("id", std::int64_t{0})] = {o.value("lat", 0.0), o.value("lon", 0.0)};
    if (!at.contains(live)) continue;
    const std::pair<double, double> here = at[live];
    const auto metresTo = [&](std::pair<double, double> p) {
      return distanceNm(here.first, here.second, p.first, p.second) * metresPerNm;
    };
    if (at.contains(twin) && metresTo({apronLat, apronP1Lon}) < 40) ++together;
    if (at.contains(inTheWay)) closest = std::min(closest, metresTo(at[inTheWay]));
  }
  std::cout << fmt::format(
      "apron: twin and live together near P1 in {} frames; closest to the one in the way {:.0f} m\n",
      together, closest);
  EXPECT_LE(together, 1u);
  // Checked once a second, the parked one goes when the live one comes within 1.1 times their two half spans,
  // 39 metres for two 737s, and is gone a second later: 5 metres nearer at 10 knots.
  EXPECT_GT(closest, 30);

  JudgeContext context;
  context.stands = readStands((folder / "airports/my_thirdparty/EHAM.xml").string());
  for (const FlownObject& object : flownObjects(trace)) {
    if (object.id != live) continue;
    const ObjectFigures f = judgeObject(object, context);
    EXPECT_EQ(f.jumps, 0u);
    ASSERT_FALSE(f.parked.empty());
    EXPECT_EQ(f.parked.back().stand, "P1");
    EXPECT_LE(f.parked.back().metres, 2);
    EXPECT_LE(std::abs(f.parked.back().headingErrorDegrees), 3);
  }
}

TEST_F(EngineProgramTest, aRealFlightIsFlownOnItsTrackThirtySecondsLateAndLeavesWhenTheFeedEnds) {
  prepare(climbOut, 60);
  test::StandIn stand(lf_scenario(flight, ""));
  stand.writeSimConnectCfg();
  const auto player = startPlayer();
  const auto program = startProgram();
  std::optional<std::int64_t> object;
  const bool gone = eventually(
      [&] {
        const std::vector<json> trace = stand.trace();
        object = createdObject(trace);
        return object && removed(trace, *object);
      },
      240s, 1s);
  // The feed named both airports: the object was given a plan, whose file went with it.
  std::filesystem::path plan;
  for (const json& line : stand.trace())
    if (object && lf_isCall(line, "SimConnect_AISetAircraftFlightPlan") &&
        line.value("object", std::int64_t{-1}) == *object)
      plan = line.value("path", "") + ".pln";
  const bool planGone = eventually([&] { return !plan.empty() && !std::filesystem::exists(plan); }, 5s);
  program->signal(SIGTERM);
  EXPECT_EQ(program->waitExit(20s), 0);
  EXPECT_EQ(player->waitExit(10s), 0);
  stand.stop(SIGTERM);
  const std::vector<json> trace = stand.trace();
  lf_keepForJudge(folder, "realflight");
  EXPECT_FALSE(plan.empty()) << "a flight plan for the object";
  EXPECT_TRUE(planGone) << plan;
  EXPECT_FALSE(std::any_of(trace.begin(), trace.end(), [](const json& line) {
    return line.value("kind", "") == "exception" && line.value("exception", 0) == 23;
  })) << "the simulator found the plan's file";
  ASSERT_TRUE(object) << readFile(folder / "program.out") << log();
  EXPECT_TRUE(gone) << "dead reckoning ran out and the object was removed\n" << log();

  const auto create = std::find_if(trace.begin(), trace.end(), [&](const json& l) {
    return lf_isCall(l, "SimConnect_AICreateNonATCAircraft") && l.value("tail", "") == flight.callsign;
  });
  ASSERT_NE(create, trace.end());
  EXPECT_EQ(create->value("title", ""), flight.title) << "the livery of its airline and type";

  // Released and frozen before anything moves it; removed last.
  const std::vector<std::string> calls = lf_callsOf(trace, *object);
  const auto firstPosition = std::find(calls.begin(), calls.end(), "SetDataOnSimObject:0");
  ASSERT_NE(firstPosition, calls.end());
  const std::vector<std::string> before(calls.begin(), firstPosition);
  EXPECT_THAT(before, testing::IsSupersetOf({"AIReleaseControl:0", "TransmitClientEvent:215",
                                             "TransmitClientEvent:216", "TransmitClientEvent:217"}));
  EXPECT_EQ(calls.back(), "AIRemoveObject:0");

  const TrackFigures figures = judgeTrack(flownPath(trace, flight.callsign),
                                          realTrack((folder / "window.cap").string(), flight.hexid));
  RecordProperty("track", figuresText(figures));
  std::cout << figuresText(figures) << '\n';
  EXPECT_GT(figures.onTrack, 30u * 50) << "about a minute of flight at 30 frames a second";
  EXPECT_LT(figures.medianMetres, 150);
  EXPECT_LT(figures.p95Metres, 300);
  EXPECT_EQ(figures.jumps, 0u);

  const std::string text = readFile(folder / "link.txt");
  const auto positions = static_cast<std::size_t>(std::count(text.begin(), text.end(), 'Q'));
  EXPECT_GE(positions, 100u) << "RealTraffic hears of the user once a second";
}

TEST_F(EngineProgramTest, aLostRealTrafficTakesTheAircraftAwayAndATeleportRestarts) {
  prepare(climbOut, 50, 40);
  test::StandIn stand(
      lf_scenario(flight, R"({"t": 75, "do": "teleport", "lat": 51.4706, "lon": -0.4619, "heading": 270})"));
  stand.writeSimConnectCfg();
  const auto player = startPlayer();
  const auto program = startProgram();
  const bool restarted =
      eventually([&] { return log().find("Exiting: RESTART") != std::string::npos; }, 150s);
  program->signal(SIGTERM);
  program->waitExit(30s);
  player->waitExit(10s);
  stand.stop(SIGTERM);
  const std::vector<json> trace = stand.trace();
  const std::string text = log();
  ASSERT_TRUE(restarted) << text;
  const std::optional<std::int64_t> object = createdObject(trace);
  ASSERT_TRUE(object) << text;
  EXPECT_TRUE(removed(trace, *object)) << text;
  const std::size_t gone = text.find("RealTraffic gone?");
  const std::size_t teleport = text.find("Teleport\n");
  ASSERT_NE(gone, std::string::npos) << text;
  EXPECT_LT(gone, teleport) << text;
  EXPECT_THAT(text.substr(teleport), HasSubstr("Exiting: RESTART"));
}

} // namespace
} // namespace ory
