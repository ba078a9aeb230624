#pragma once
// The queue of an aircraft's future positions and the path flown between them: straight segments in the air,
// quadratic curves on the ground, 100 steps a second, and dead reckoning when the feed stops.

#include "engine/aircraft.h"

#include <cstdint>

namespace ory {

// A slot of the feed into the queue, or not.
void feedSlot(LiveAircraft& aircraft, PositionSlot slot);
// The front slot is due: on to the next segment.
void segmentChange(LiveAircraft& aircraft);
// One tick along the current segment.
void stepAlongSegment(LiveAircraft& aircraft);
// Dead reckoning: count more segments from the front slot along the present heading.
void predict(LiveAircraft& aircraft, std::int32_t count);
void endPrediction(LiveAircraft& aircraft);

// Knots of the segment from the front to the second slot.
double segmentSpeed(const LiveAircraft& aircraft);
// The second slot's time for its distance at the segment's speed, held within the windows.
void retimeAir(LiveAircraft& aircraft);
void retimeGround(LiveAircraft& aircraft);
// A ground curve from the position block over the second slot to the third, which becomes the target.
void setUpCurve(LiveAircraft& aircraft);

struct CurvePoint {
  double lat = 0;     // degrees
  double lon = 0;     // degrees
  double tangent = 0; // radians, 0 to 2 pi
};
CurvePoint evaluateCurve(const LiveAircraft& aircraft, double t);

} // namespace ory
