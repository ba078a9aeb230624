#pragma once
// A picture of the traffic for a person to look at: the flown paths over the real tracks, the runways and the
// airport's stands, with touch-downs and parked spells marked.

#include "judge.h"

#include <string>
#include <vector>

namespace ory {

// Writes a PNG of width by height pixels. The view holds the stands when there are any, else every path.
// Throws std::runtime_error when the file can't be written.
void drawTraffic(const std::vector<FlownObject>& objects, const std::vector<ObjectFigures>& figures,
                 const JudgeContext& context, const std::string& pngPath, int width, int height);

} // namespace ory
