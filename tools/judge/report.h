#pragma once
// The judge's figures as plain text, each against the limit a pilot would accept.

#include "judge.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace ory {

// Limits of what a pilot accepts.
inline constexpr double groundHeightLimitFeet = 1;
inline constexpr double groundMedianLimitMetres = 30;
inline constexpr double airMedianLimitMetres = 150;
inline constexpr double standLimitMetres = 2;
inline constexpr double standLimitDegrees = 3;

std::string objectText(const ObjectFigures& f);
// Every object's figures together.
std::string overallText(const std::vector<ObjectFigures>& figures);
// Every object's figures as JSON, for scripts that check a run: the same figures and verdicts as the text.
nlohmann::json figuresJson(const std::vector<ObjectFigures>& figures);

} // namespace ory
