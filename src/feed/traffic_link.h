#pragma once
// The TCP link with RealTraffic. RealTraffic connects to this program as a client and is told where the user
// flies ("Qs121", once a second) and, for a professional licence, the simulator's time ("Qs123"). The link
// carries no traffic itself; it exists only when RealTraffic runs on this PC and AEROWINX is off.

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace ory {

// The part of the user aircraft's state that RealTraffic is told.
struct UserPosition {
  double lat = 0;            // degrees
  double lon = 0;            // degrees
  double pitch = 0;          // radians, negative nose up
  double bank = 0;           // radians
  double heading = 0;        // radians true
  double altitude = 0;       // feet
  double groundVelocity = 0; // knots
};

extern std::atomic<bool> rtConnected; // a RealTraffic client is accepted
extern std::atomic<std::int64_t>
    simEpochSeconds; // the simulator's UTC time, seconds since 1970; 0 while unknown

// RealTraffic's marker file on this PC, %APPDATA%\InsideSystems\RealTraffic.jar; sets rtDetected and shows
// "RealTraffic {}detected at this PC". A file-system error other than "not found" is thrown.
void detectRealTraffic();
// Listens on portText (a service text for getaddrinfo); throws SysErrorException 0 to 6.
void openServer(std::string_view portText);
// Blocks until RealTraffic connects; false at once when a client is already accepted, and false when the
// server socket was closed meanwhile.
bool waitForClient();
// Waits for RealTraffic, asks for its version and shows its edition (only when RealTraffic is on this PC).
void handshake();
std::string receive(); // one recv of the reply; empty when nothing was read
bool sendDataPacket(std::string_view text);
// Tells RealTraffic where the user is; notices a lost RealTraffic and, on the next call, waits for it again.
void sendUserPosition(const UserPosition& user);
// "Qs123" from simEpochSeconds (the simulator link sets it from the user's data), when known, to a connected
// client with the professional licence; a failed send is a lost RealTraffic, as for the position.
void sendSimTime();
void closeLink(); // "exit" when connected, both sockets closed

// The "Qs121" line of a position.
std::string positionLine(const UserPosition& user);
// Applies RealTraffic's version reply: rtProfessional, the window's status text, the log.
void takeVersionReply(std::string_view reply);
// Seconds since 1970 from the simulator's year, day of the year (1 = 1 January) and seconds of the day.
std::int64_t simEpochSecondsOf(std::int32_t year, std::int32_t dayOfYear, std::int64_t secondsOfDay);
// What the engine does with its live aircraft when RealTraffic is lost: remove them. Set once by the engine.
void setTrafficLostAction(std::function<void()> action);

// The user's position as the simulator link last delivered it.
UserPosition userPosition();

} // namespace ory
