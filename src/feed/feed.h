#pragma once
// The traffic feed as the frame sees it: the two readers of RealTraffic, their reset, and the watchdog that
// paints their marks.

#include "feed/qnh_reader.h"
#include "feed/traffic_reader.h"

namespace ory {

extern TrafficReader trafficReader; // UDP 49005
extern QnhReader qnhReader;         // UDP 49004

// The reader state of a fresh start: lastFeedTime 0, the QNH values 1013, no heard callsigns, stop flags and
// packet counters cleared, the watchdog's notes back to running. Before a connection, after RealTraffic is
// lost, and at a restart.
void resetFeed();
// The user's position for the traffic reader's range test, degrees.
void setReaderUserPosition(double lat, double lon);
// The park airport for the ground rules of the traffic reader; clearReaderParkAirport when there is none.
void setReaderParkAirport(double lat, double lon, double elevationFt);
void clearReaderParkAirport();
// Stops both readers: stop flags and closed sockets.
void stopReaders();
// While the link counts as connected: a reader whose packet count didn't move since the last call is marked
// stale, and one that moved again goes back to running.
void feedWatchdog();

} // namespace ory
