// The Win32 face of the control window: five bands on a dark ground, painted on the message thread. Worker
// threads only store texts (under windowTextLock) and invalidate.
#include "frame/window_win32.h"

#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "base/version.h"
#include "frame/window.h"
#include "frame/window_commands.h"
#include "os/utf.h"
#include "parking/stands.h"

#include <windows.h>

#include <fmt/format.h>

#include <atomic>
#include <functional>

namespace ory {

namespace {

constexpr int lf_width = 880;
constexpr int lf_height = 488;
constexpr std::uint16_t lf_iconResource = 100;
constexpr std::uint16_t lf_titleResource = 101;

// Win32 colours are BGR.
constexpr COLORREF lf_red = 0x0000FF;
constexpr COLORREF lf_lightBlue = 0xFFCC99;
constexpr COLORREF lf_black = 0x000000;
constexpr COLORREF lf_lime = 0x32CD32;
constexpr COLORREF lf_yellow = 0x00FFFF;
constexpr COLORREF lf_grey = 0xA0A0A0;
constexpr COLORREF lf_white = 0xFFFFFF;

constexpr RECT lf_titleBand{0, 0, lf_width, 28};
constexpr RECT lf_statusBand{0, 28, lf_width, 112};
constexpr RECT lf_parameterBand{0, 112, lf_width, 364};
constexpr RECT lf_parkingBand{0, 364, lf_width, 420};
constexpr RECT lf_messageBand{0, 420, lf_width, 448};

HWND lf_window = nullptr;
wchar_t lf_title[100] = L"Trovalyn_P3D";

// A label of the parameter band: its text, place and colour, which may follow a parameter's state.
struct Label {
  const char* text;
  int x;
  int y;
  std::function<COLORREF()> colour;
};

COLORREF lf_blackText() {
  return lf_black;
}
std::function<COLORREF()> lf_whenOn(const BoolParameter& p, COLORREF on) {
  return [&p, on] { return p.value ? on : lf_black; };
}
std::function<COLORREF()> lf_whenOff(const BoolParameter& p, COLORREF off) {
  return [&p, off] { return p.value ? lf_black : off; };
}

const Label lf_labels[] = {
    {"Install path:", 5, 119, lf_blackText},
    {"Scan for liveries:", 25, 147, lf_whenOn(SCAN_LIVERIES, lf_red)},
    {"Automatic", 237, 147, lf_blackText},
    {"Prioritize", 343, 147, lf_blackText},
    {"STUB", 450, 147, lf_whenOff(SUPPRESS_STUB, lf_grey)},
    {"Log", 672, 147, lf_blackText},
    {"Stay on top", 768, 147, lf_whenOn(ALWAYS_ON_TOP, lf_yellow)},
    {"Scan for addon airports:", 25, 175, lf_whenOn(SCAN_AIRPORTS, lf_red)},
    {"Automatic", 237, 175, lf_blackText},
    {"Nav lights", 672, 175, lf_blackText},
    {"Learn Soft", 768, 175, lf_blackText},
    {"Max aircraft matching depth:", 5, 203, lf_blackText},
    {"Optional:", 253, 203, lf_blackText},
    {"Light aircraft", 343, 203, lf_blackText},
    {"Helicopters", 450, 203, lf_blackText},
    {"FighterJets", 556, 203, lf_blackText},
    {"Aerowinx", 672, 203, lf_whenOn(AEROWINX, lf_yellow)},
    {"GUID changes", 768, 203, lf_whenOff(GUID_CHANGES, lf_yellow)},
    {"Traffic injection", 5, 231, lf_blackText},
    {"radius:", 167, 231, lf_blackText},
    {"nm,  or", 260, 231, lf_blackText},
    {"auto range", 343, 231, lf_blackText},
    {"max live:", 500, 231, lf_blackText},
    {"Callsigns", 5, 259, lf_blackText},
    {"block:", 172, 259, lf_blackText},
    {"Collision avoidance:", 5, 287, lf_blackText},
    {"User ground", 237, 287, lf_blackText},
    {"User air", 343, 287, lf_blackText},
    {"Live X parked", 450, 287, lf_blackText},
    {"within range (nm):", 217, 315, lf_blackText},
    {"< height above gnd (ft):", 430, 315, lf_blackText},
    {"Fake", 25, 343, lf_blackText},
    {"Week", 91, 343, lf_blackText},
    {"Soft", 171, 343, lf_blackText},
    {"%", 262, 343, lf_blackText},
    {"ILO", 343, 343, lf_blackText},
    {"Max fit:", 400, 343, lf_blackText},
};

// The controls: check boxes 12 by 12 at their y plus 2, buttons 20 high, edit boxes 16 high; all disabled
// until the start-up enables them.
enum class Kind { check, button, edit };
struct Place {
  Control* control;
  Kind kind;
  int x;               // pixels from the window's left
  int width;           // pixels; check boxes are 12
  const wchar_t* text; // a button's text
};

const Place lf_places[] = {
    {&SIM_INSTALL_PATH, Kind::edit, 126, 1200, L""},
    {&SCAN_LIVERIES, Kind::check, 5, 12, L""},
    {&LIG_AUTOMATIC, Kind::check, 217, 12, L""},
    {&LIG_PRIORITIZE, Kind::check, 323, 12, L""},
    {&SUPPRESS_STUB, Kind::check, 430, 12, L""},
    {&LOG, Kind::check, 652, 12, L""},
    {&ALWAYS_ON_TOP, Kind::check, 748, 12, L""},
    {&SCAN_AIRPORTS, Kind::check, 5, 12, L""},
    {&AFG_AUTOMATIC, Kind::check, 217, 12, L""},
    {&NAV_LIGHTS_WHILE_PARKED, Kind::check, 652, 12, L""},
    {&LEARN_SOFT, Kind::check, 748, 12, L""},
    {&MATCHING_DEPTH, Kind::edit, 217, 24, L""},
    {&LIGHT_AIRCRAFT, Kind::check, 323, 12, L""},
    {&HELICOPTERS, Kind::check, 430, 12, L""},
    {&HIGH_PERF_AIRCRAFT, Kind::check, 536, 12, L""},
    {&AEROWINX, Kind::check, 652, 12, L""},
    {&GUID_CHANGES, Kind::check, 748, 12, L""},
    {&LATERAL_RANGE, Kind::edit, 217, 34, L""},
    {&AUTO_RANGE, Kind::check, 323, 12, L""},
    {&MAX_LIVE, Kind::edit, 576, 34, L""},
    {&checkVersionButton, Kind::button, 692, 120, L"Check version"},
    {&COLLISION_USER_GND, Kind::check, 217, 12, L""},
    {&COLLISION_USER_AIR, Kind::check, 323, 12, L""},
    {&COLLISION_LIVE_PARKED_GND, Kind::check, 430, 12, L""},
    {&BLOCK_CALLSIGN, Kind::edit, 217, 100, L""},
    {&unblockButton, Kind::button, 323, 70, L"Unblock"},
    {&AIRPORT_RANGE, Kind::edit, 343, 34, L""},
    {&AIRPORT_HEIGHT, Kind::edit, 586, 50, L""},
    {&PARK_FAKE, Kind::check, 5, 12, L""},
    {&WEEK, Kind::check, 71, 12, L""},
    {&PARK_SOFT, Kind::check, 151, 12, L""},
    {&parking_percentage, Kind::edit, 217, 34, L""},
    {&INITIAL_LOAD_ONLY, Kind::check, 323, 12, L""},
    {&MAX_FIT_FL, Kind::edit, 460, 30, L""}, // at 24 pixels "24.0" was cut
    {&flushStaticButton, Kind::button, 642, 90, L"Flush static"},
    {&reReadButton, Kind::button, 758, 90, L"Re-read"},
};

// The message line is a static control, so that its text can be read back (screen readers, tests).
constexpr std::uint16_t lf_messageLineId = 32900;
constexpr unsigned lf_messageChanged = 0x8003; // posted by other threads: the line's text changed
HWND lf_messageLine = nullptr;
std::atomic<bool> lf_errorShown{false};
DWORD lf_windowThread = 0;

void lf_fill(HDC dc, const RECT& band, COLORREF colour) {
  HBRUSH brush = CreateSolidBrush(colour);
  FillRect(dc, &band, brush);
  DeleteObject(brush);
}

void lf_text(HDC dc, int x, int y, COLORREF colour, std::string_view text) {
  const std::wstring wide = utf8ToWide(text);
  SetTextColor(dc, colour);
  TextOutW(dc, x, y, wide.c_str(), static_cast<int>(wide.size()));
}

std::string lf_guarded(const std::string& text) {
  std::lock_guard lock(windowTextLock);
  return text;
}

void lf_whiteLines(HDC dc) {
  HPEN pen = CreatePen(PS_SOLID, 1, lf_white);
  HGDIOBJ old = SelectObject(dc, pen);
  for (int y : {28, 113, 364, 421}) {
    const POINT line[2] = {{0, y}, {lf_width, y}};
    Polyline(dc, line, 2);
  }
  SelectObject(dc, old);
  DeleteObject(pen);
}

COLORREF lf_markColour(FeedMark mark) {
  return mark == FeedMark::running ? lf_lime : lf_yellow;
}

std::string lf_countText(std::string_view name, std::int32_t count) {
  return count < 0 ? fmt::format("# {}: ...", name) : fmt::format("# {}: {}", name, count);
}

void lf_paintStatus(HDC dc) {
  const bool simFull = display.simConnected && simRunning && !lf_guarded(display.simSubText).empty();
  lf_fill(dc, {397, 30, 425, 112}, simFull ? lf_lime : display.simConnected ? lf_yellow : lf_red);
  lf_text(dc, 398, 63, lf_black, "Sim");
  lf_text(dc, 5, 35, lf_lime, lf_guarded(display.simText));
  lf_text(dc, 5, 63, lf_lime, lf_guarded(display.simSubText));
  const std::int32_t liveries = display.liveryCount;
  lf_text(dc, 5, 91, liveries < 0 ? lf_red : lf_lime, lf_countText("liveries", liveries));
  const std::int32_t orbx = display.orbxAirportCount;
  lf_text(dc, 141, 91, orbx < 0 ? lf_yellow : lf_lime, lf_countText("ORBX", orbx));
  const std::int32_t thirdparty = display.thirdpartyAirportCount;
  lf_text(dc, 278, 91, thirdparty < 0 ? lf_yellow : lf_lime, lf_countText("thirdp", thirdparty));

  const FeedMark traffic = display.trafficMark;
  const FeedMark weather = display.weatherMark;
  const bool linked = display.rtLinkUp;
  const bool allRunning = traffic == FeedMark::running && weather == FeedMark::running;
  lf_fill(dc, {425, 30, 453, 112}, !linked ? lf_red : allRunning ? lf_lime : lf_yellow);
  lf_text(dc, 430, 63, lf_black, "RT");
  lf_text(dc, 458, 35, lf_lime, lf_guarded(display.rtStatusText));
  if (weather != FeedMark::notConnected) lf_text(dc, 458, 63, lf_markColour(weather), "Weather");
  if (traffic != FeedMark::notConnected) lf_text(dc, 458, 91, lf_markColour(traffic), "Traffic");
  if (!linked) return;
  lf_text(dc, 642, 63, lf_lime, fmt::format("qnh: {:4}", display.qnh.load()));
  lf_text(dc, 642, 91, lf_lime, fmt::format("live: {:3}", display.liveCount.load()));
}

void lf_paintParameters(HDC dc) {
  for (const Label& label : lf_labels)
    lf_text(dc, label.x, label.y, label.colour(), label.text);
  const std::int32_t tblo = display.tbloAirportCount;
  lf_text(dc, 323, 175, lf_yellow, fmt::format("{} airport{} in TBLO folder", tblo, tblo == 1 ? "" : "s"));
  const std::string stand = lf_guarded(display.standText);
  lf_text(dc, 5, 315, stand.empty() ? lf_red : lf_yellow, "Airport parking:");
  if (parkingSessionOpen && !INITIAL_LOAD_ONLY.value && display.minutesToRenewal > 0)
    lf_text(dc, 111, 315, lf_yellow, fmt::format("(in {} min)", display.minutesToRenewal.load()));
}

// The park airport's two lines, once one is chosen.
void lf_paintParking(HDC dc) {
  const std::string stand = lf_guarded(display.standText);
  if (stand.empty()) return;
  lf_text(dc, 5, 371, lf_lime, stand);
  const std::string quality = lf_guarded(display.qualityText);
  if (!quality.empty()) lf_text(dc, 430, 371, lf_lime, fmt::format("qf: {}", quality));
  lf_text(dc, 748, 371, lf_lime, fmt::format("# updates: {:4}", display.updateCount.load()));
  lf_text(dc, 5, 399, lf_lime, fmt::format("# stands: {:3}", display.standCount.load()));
  lf_text(dc, 111, 399, lf_lime, fmt::format("parked live: {:3}", display.parkedLiveCount.load()));
  const float fit = display.fitAverage;
  lf_text(dc, 249, 399, lf_lime,
          fit < 0 ? std::string("average fit: -") : fmt::format("average fit: {:.1F}", fit));
  lf_text(dc, 430, 399, lf_lime, fmt::format("parked static: {:3}", display.parkedCount.load()));
  lf_text(
      dc, 708, 399, lf_lime,
      fmt::format("max park: {:3} (={}% )", display.wantedStands.load(), parking_percentage.value.load()));
}

void lf_paintMessageBand(HDC dc) {
  lf_fill(dc, lf_messageBand, lf_errorShown ? lf_red : lf_lime);
}

void lf_paint(HWND window) {
  PAINTSTRUCT paint{};
  HDC dc = BeginPaint(window, &paint);
  lf_fill(dc, lf_titleBand, lf_black);
  lf_fill(dc, lf_statusBand, lf_black);
  lf_fill(dc, lf_parameterBand, lf_lightBlue);
  lf_fill(dc, lf_parkingBand, lf_black);
  lf_whiteLines(dc);
  SetBkMode(dc, TRANSPARENT);
  SelectObject(dc, GetStockObject(DEFAULT_GUI_FONT));
  lf_text(dc, 3, 7, lf_lime, fmt::format("Version {}", programVersion));
  lf_text(dc, 390, 7, lf_lime, programName);
  lf_text(dc, 632, 7, lf_lime, "real traffic for Prepar3D");
  lf_paintStatus(dc);
  lf_paintParameters(dc);
  lf_paintParking(dc);
  lf_paintMessageBand(dc);
  EndPaint(window, &paint);
}

// The line shows the error while one stands, else the message; on the message thread only.
void lf_showMessageLine() {
  std::string text;
  {
    std::lock_guard lock(windowTextLock);
    text = display.errorText.empty() ? display.messageText : display.errorText;
  }
  SetWindowTextW(lf_messageLine, utf8ToWide(text).c_str());
  InvalidateRect(lf_window, &lf_messageBand, FALSE);
}

std::string lf_boxText(HWND box) {
  wchar_t text[512] = {};
  GetWindowTextW(box, text, 512);
  return wideToUtf8(text);
}

const Place* lf_placeOf(std::uint16_t controlId) {
  for (const Place& place : lf_places)
    if (place.control->controlId == controlId) return &place;
  return nullptr;
}

// A command must not end the program from inside a Win32 callback: what it throws is logged.
template <typename Work>
void lf_guardedCommand(std::string_view where, Work work) {
  try {
    work();
  } catch (const std::exception& e) {
    logLine(fmt::format("{} exception {}", where, e.what()));
  }
}

// Each edit box catches Enter and passes all else to the procedure it had.
LRESULT CALLBACK lf_editProcedure(HWND box, UINT message, WPARAM w, LPARAM l) {
  const auto controlId = static_cast<std::uint16_t>(GetDlgCtrlID(box));
  const Place* place = lf_placeOf(controlId);
  if (message == WM_CHAR && w == VK_RETURN) {
    lf_guardedCommand("onEditEnter", [&] { onEditEnter(controlId, lf_boxText(box)); });
    return 0;
  }
  return CallWindowProcW(reinterpret_cast<WNDPROC>(place->control->editProcedure), box, message, w, l);
}

void lf_createControls(HWND window) {
  auto* instance = reinterpret_cast<HINSTANCE>(GetWindowLongPtrW(window, GWLP_HINSTANCE));
  const auto font = reinterpret_cast<WPARAM>(GetStockObject(DEFAULT_GUI_FONT));
  for (const Place& place : lf_places) {
    Control& control = *place.control;
    const bool edit = place.kind == Kind::edit;
    const DWORD style = edit ? 0x50800080 : place.kind == Kind::button ? 0x50000001 : 0x50000002;
    const int top = place.kind == Kind::check ? control.y + 2 : control.y;
    const int height = edit ? 16 : place.kind == Kind::button ? 20 : 12;
    HWND handle = CreateWindowExW(
        0, edit ? L"Edit" : L"button", place.text, style | WS_DISABLED, place.x, top, place.width, height,
        window, reinterpret_cast<HMENU>(static_cast<UINT_PTR>(control.controlId)), instance, nullptr);
    control.handle = handle;
    SendMessageW(handle, WM_SETFONT, font, FALSE);
    if (edit)
      control.editProcedure = reinterpret_cast<void*>(
          SetWindowLongPtrW(handle, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(lf_editProcedure)));
  }
  lf_messageLine = CreateWindowExW(
      0, L"Static", L"", WS_CHILD | WS_VISIBLE | SS_LEFT | SS_NOPREFIX | SS_ENDELLIPSIS, 3, 427, 874, 16,
      window, reinterpret_cast<HMENU>(static_cast<UINT_PTR>(lf_messageLineId)), instance, nullptr);
  SendMessageW(lf_messageLine, WM_SETFONT, font, FALSE);
  showControlValues();
}

// Controls stand on the light blue of the parameter band; the message line on its lime or red.
LRESULT lf_controlColours(HDC dc, HWND control) {
  COLORREF ground = lf_lightBlue;
  if (control == lf_messageLine) {
    ground = lf_errorShown ? lf_red : lf_lime;
    SetTextColor(dc, lf_yellow);
  }
  SetBkMode(dc, TRANSPARENT);
  SetBkColor(dc, ground);
  SetDCBrushColor(dc, ground);
  return reinterpret_cast<LRESULT>(GetStockObject(DC_BRUSH));
}

void lf_savePosition(HWND window) {
  RECT rect{};
  if (GetWindowRect(window, &rect)) keepWindowPosition(rect.left, rect.top);
}

LRESULT CALLBACK lf_procedure(HWND window, UINT message, WPARAM w, LPARAM l) {
  switch (message) {
  case startMessage:
    onStartMessage();
    return 0;
  case endMessage:
    lf_savePosition(window);
    onEndMessage();
    PostQuitMessage(0);
    return 0;
  case lf_messageChanged:
    lf_showMessageLine();
    return 0;
  case WM_CREATE:
    lf_createControls(window);
    return 0;
  case WM_COMMAND:
    if (HIWORD(w) == BN_CLICKED && l != 0) lf_guardedCommand("onCommand", [&] { onCommand(LOWORD(w)); });
    return 0;
  case WM_CTLCOLOREDIT:
  case WM_CTLCOLORSTATIC:
    return lf_controlColours(reinterpret_cast<HDC>(w), reinterpret_cast<HWND>(l));
  case WM_PAINT:
    lf_paint(window);
    return 0;
  case WM_SIZE:
    InvalidateRect(window, nullptr, FALSE);
    return 0;
  case WM_ERASEBKGND:
    return 1;
  case WM_CLOSE:
    onCloseRequest();
    return 0;
  case WM_DESTROY:
    PostQuitMessage(0);
    return 0;
  default:
    return DefWindowProcW(window, message, w, l);
  }
}

} // namespace

void paintMessageBand(std::string_view text, bool errorLine) {
  lf_errorShown = errorLine;
  if (!lf_window) return;
  // The caller holds windowTextLock: another thread only posts, so it never waits for the message thread,
  // while a command's own message stands in the line when the command returns.
  if (GetCurrentThreadId() != lf_windowThread) {
    PostMessageW(lf_window, lf_messageChanged, 0, 0);
    return;
  }
  SetWindowTextW(lf_messageLine, utf8ToWide(text).c_str());
  InvalidateRect(lf_window, &lf_messageBand, FALSE);
}

void showBool(const BoolParameter& parameter) {
  if (parameter.handle)
    SendMessageW(static_cast<HWND>(parameter.handle), BM_SETCHECK,
                 parameter.value ? BST_CHECKED : BST_UNCHECKED, 0);
  repaintWindow();
}

void showInt(const IntParameter& parameter) {
  if (parameter.handle)
    SetWindowTextW(static_cast<HWND>(parameter.handle), std::to_wstring(parameter.value.load()).c_str());
}

void showFloat(const FloatParameter& parameter) {
  if (parameter.handle)
    SetWindowTextW(static_cast<HWND>(parameter.handle),
                   utf8ToWide(fmt::format("{:.1f}", parameter.value.load())).c_str());
}

void showText(const TextParameter& parameter) {
  if (parameter.handle)
    SetWindowTextW(static_cast<HWND>(parameter.handle), utf8ToWide(parameter.value).c_str());
}

void clearEdit(const Control& control) {
  if (control.handle) SetWindowTextW(static_cast<HWND>(control.handle), L"");
}

void enableControl(const Control& control, bool enable) {
  if (control.handle) EnableWindow(static_cast<HWND>(control.handle), enable ? TRUE : FALSE);
}

void setTopmost(bool topmost) {
  if (lf_window)
    SetWindowPos(lf_window, topmost ? HWND_TOPMOST : HWND_NOTOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE);
}

void repaintWindow() {
  if (lf_window) InvalidateRect(lf_window, nullptr, FALSE);
}

void postWindowMessage(unsigned message) {
  if (lf_window) PostMessageW(lf_window, message, 0, 0);
}

bool windowExists() {
  return lf_window && IsWindow(lf_window);
}

unsigned nextPostedMessage(int) {
  return 0;
}

bool createMainWindow(void* rawInstance) {
  auto* instance = static_cast<HINSTANCE>(rawInstance);
  LoadStringW(instance, lf_titleResource, lf_title, 100);
  WNDCLASSEXW windowClass{};
  windowClass.cbSize = sizeof(windowClass);
  windowClass.style = CS_HREDRAW | CS_VREDRAW;
  windowClass.lpfnWndProc = lf_procedure;
  windowClass.hInstance = instance;
  windowClass.hIcon = LoadIconW(instance, MAKEINTRESOURCEW(lf_iconResource));
  windowClass.hIconSm = windowClass.hIcon;
  windowClass.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
  windowClass.hbrBackground = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
  windowClass.lpszClassName = L"Trovalyn_P3D";
  if (!RegisterClassExW(&windowClass)) return false;
  readWindowPosition();
  lf_windowThread = GetCurrentThreadId();
  // The children clip the painting of the bands, which would otherwise paint over them.
  lf_window = CreateWindowExW(0, windowClass.lpszClassName, lf_title,
                              WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_CLIPCHILDREN, MAIN_WINDOW_X.value,
                              MAIN_WINDOW_Y.value, lf_width, lf_height, nullptr, nullptr, instance, nullptr);
  if (!lf_window) {
    logLine("initInstance failed");
    return false;
  }
  PostMessageW(lf_window, lf_messageChanged, 0, 0); // a line shown before the window was there
  ShowWindow(lf_window, SW_SHOWNORMAL);
  UpdateWindow(lf_window);
  return true;
}

int runMessageLoop() {
  MSG message{};
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  return static_cast<int>(message.wParam);
}

} // namespace ory
