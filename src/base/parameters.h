#pragma once
// Everything kept between runs is a named parameter in parameters.xml, in %APPDATA%\Trovalyn_P3D. The values
// live in process-wide objects read by every thread without a lock; only the window and the start-up write
// them, and every change is written to the file at once, so the file is the state.

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace ory {

// The window control of a parameter; controlId 0 means it has none (a hidden parameter).
struct Control {
  std::uint16_t controlId = 0;
  int y = 0;                     // pixels from the window's top
  void* handle = nullptr;        // HWND of the control
  void* editProcedure = nullptr; // WNDPROC an edit box had before it was subclassed
};

struct Parameter {
  explicit Parameter(std::string_view name) : name(name) {}
  virtual ~Parameter() = default;
  Parameter(const Parameter&) = delete;
  Parameter& operator=(const Parameter&) = delete;
  std::string_view name;
};

struct BoolParameter : Parameter, Control {
  BoolParameter(std::string_view name, bool defaultValue, Control control = {})
      : Parameter(name), Control(control), defaultValue(defaultValue), value(defaultValue) {}
  bool defaultValue;
  std::atomic<bool> value;
};

struct IntParameter : Parameter, Control {
  IntParameter(std::string_view name, std::int32_t defaultValue, std::int32_t minimum, std::int32_t maximum,
               Control control = {})
      : Parameter(name), Control(control), defaultValue(defaultValue), minimum(minimum), maximum(maximum),
        value(defaultValue) {}
  std::int32_t clamp(std::int64_t value) const;
  void set(std::int64_t wanted) { value = clamp(wanted); } // clamped to the limits
  std::int32_t defaultValue, minimum, maximum;
  std::atomic<std::int32_t> value;
};

struct FloatParameter : Parameter, Control {
  FloatParameter(std::string_view name, float defaultValue, float minimum, float maximum,
                 Control control = {})
      : Parameter(name), Control(control), defaultValue(defaultValue), minimum(minimum), maximum(maximum),
        value(defaultValue) {}
  float clamp(float value) const;
  float defaultValue, minimum, maximum;
  std::atomic<float> value;
};

struct TextParameter : Parameter, Control {
  TextParameter(std::string_view name, std::string_view defaultValue = {}, Control control = {})
      : Parameter(name), Control(control), defaultValue(defaultValue), value(defaultValue) {}
  std::string defaultValue;
  std::string value; // replaced only while its readers aren't running
};

// A push button; its name is its text.
struct ButtonControl : Parameter, Control {
  ButtonControl(std::string_view text, Control control) : Parameter(text), Control(control) {}
};

extern TextParameter SIM_INSTALL_PATH;
extern BoolParameter SCAN_LIVERIES;
extern BoolParameter LIG_AUTOMATIC;
extern BoolParameter LIG_PRIORITIZE;
extern BoolParameter SUPPRESS_STUB;
extern BoolParameter LOG;
extern BoolParameter ALWAYS_ON_TOP;
extern BoolParameter LEARN_SOFT;
extern BoolParameter SCAN_AIRPORTS;
extern BoolParameter AFG_AUTOMATIC;
extern BoolParameter NAV_LIGHTS_WHILE_PARKED;
extern IntParameter MATCHING_DEPTH;
extern BoolParameter LIGHT_AIRCRAFT;
extern BoolParameter HELICOPTERS;
extern BoolParameter HIGH_PERF_AIRCRAFT;
extern BoolParameter AEROWINX;
extern BoolParameter GUID_CHANGES;
extern IntParameter LATERAL_RANGE; // nautical miles; see rangeNm
extern BoolParameter AUTO_RANGE;
extern IntParameter MAX_LIVE;
extern TextParameter BLOCK_CALLSIGN;
extern BoolParameter COLLISION_USER_AIR;
extern BoolParameter COLLISION_USER_GND;
extern BoolParameter COLLISION_LIVE_PARKED_GND;
extern IntParameter AIRPORT_RANGE;      // nautical miles
extern IntParameter AIRPORT_HEIGHT;     // feet above ground
extern IntParameter parking_percentage; // kept per airport, never in parameters.xml
extern BoolParameter INITIAL_LOAD_ONLY;
extern BoolParameter PARK_SOFT;
extern IntParameter MAX_FIT; // half hours
extern BoolParameter WEEK;
extern FloatParameter MAX_FIT_FL; // MAX_FIT in hours, derived, never stored
extern BoolParameter PARK_FAKE;
extern IntParameter CUSTOM_PARKING_PERCENTAGE;
extern IntParameter MAIN_WINDOW_X;
extern IntParameter MAIN_WINDOW_Y;
extern IntParameter LAST_EPOCH_TIME; // seconds since 1970
extern IntParameter P3D_VERSION;
extern BoolParameter RANDOM;
extern TextParameter PORT_NUMBER;
extern TextParameter PROGRAM_VERSION;
extern TextParameter PROGRAM_INSTALL_PATH;
extern TextParameter ARCHIVE_VERSION;
extern TextParameter DBASE_VERSION;
extern TextParameter AIG_VERSION;
extern TextParameter DATA_CHECKED_AT_DATE;
extern std::array<TextParameter, 10> lfolder; // lfolder0 to lfolder9: manual liveries folders
extern std::array<TextParameter, 10> afolder; // afolder0 to afolder9: manual add-on airports folders

extern ButtonControl checkVersionButton;
extern ButtonControl unblockButton;
extern ButtonControl reReadButton;
extern ButtonControl flushStaticButton;

// Companions of LATERAL_RANGE, set whenever it is; they may lie outside its limits (auto range).
extern std::atomic<double> rangeNm;
extern std::atomic<double> rangeMetres;
void setRange(double nauticalMiles);
// LATERAL_RANGE as the user set it, kept while AUTO_RANGE overrides it and given back when that goes off.
extern std::atomic<std::int32_t> manualLateralRange;

std::filesystem::path parametersPath(); // %APPDATA%\Trovalyn_P3D\parameters.xml

// Reads or creates parameters.xml, then runs the version upgrade.
void loadParameters();
// Reads one int from the file without creating it; false when the file or element is missing.
bool readIntParameter(IntParameter& parameter);
void storeBool(const BoolParameter& parameter);
void storeInt(const IntParameter& parameter);
void storeText(const TextParameter& parameter);
void removeParameter(std::string_view name);

// MAX_FIT in hours: 47 half hours shows as 24.0, 0 as 0.5.
float maxFitHours(std::int32_t maxFitValue);

} // namespace ory
