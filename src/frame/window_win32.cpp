// The Win32 face of the control window: five bands on a dark ground, painted on the message thread. Worker
// threads only store texts (under windowTextLock) and invalidate.
#include "frame/window_win32.h"

#include "base/log.h"
#include "base/parameters.h"
#include "base/run.h"
#include "base/version.h"
#include "frame/window.h"
#include "os/utf.h"

#include <windows.h>

#include <fmt/format.h>

#include <functional>
#include <optional>

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
}

void lf_paintParking(HDC dc) {
  const std::string stand = lf_guarded(display.standText);
  if (!stand.empty()) lf_text(dc, 5, 371, lf_lime, stand);
}

void lf_paintMessage(HDC dc) {
  std::string error;
  std::string message;
  {
    std::lock_guard lock(windowTextLock);
    error = display.errorText;
    message = display.messageText;
  }
  lf_fill(dc, lf_messageBand, error.empty() ? lf_lime : lf_red);
  lf_text(dc, 3, 427, lf_yellow, error.empty() ? message : error);
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
  lf_paintMessage(dc);
  EndPaint(window, &paint);
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

void paintMessageBand(std::string_view, bool) {
  if (lf_window) InvalidateRect(lf_window, &lf_messageBand, FALSE);
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
  lf_window = CreateWindowExW(0, windowClass.lpszClassName, lf_title, WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU,
                              MAIN_WINDOW_X.value, MAIN_WINDOW_Y.value, lf_width, lf_height, nullptr, nullptr,
                              instance, nullptr);
  if (!lf_window) {
    logLine("initInstance failed");
    return false;
  }
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
