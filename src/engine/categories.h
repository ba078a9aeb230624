#pragma once
// What an aircraft's size class decides about its movement. The index is the aircraft's category: 0 light,
// 1 to 3 transport sizes, 4 high performance, 5 helicopter.

#include <array>
#include <cstdint>

namespace ory {

struct CategoryValues {
  double groundTurnRate;   // degrees per second
  double climbRate;        // feet per tick
  double pushBackSpeed;    // knots
  std::int32_t flareSlots; // ticks
  std::int32_t onGroundSlots;
  std::int32_t rotateSlots;
  std::int32_t climbSlots;
  double rotatePitch;    // degrees, negative nose up, before the spread
  double climbPitch;     // degrees, before the spread
  double liftOffSpeed;   // knots
  double maxBank;        // degrees
  double maxBankChange;  // degrees per tick
  double maxPitchChange; // degrees per tick
};

inline constexpr std::array<CategoryValues, 6> categoryValues = {{
    {15, 0.5, 5, 250, 250, 100, 200, -9, -15, 90, 40, 0.035, 0.01},
    {10, 0.75, 4.5, 300, 300, 200, 250, -8, -18, 110, 35, 0.0275, 0.0085},
    {7, 0.6, 4, 400, 350, 200, 300, -6, -16.5, 140, 30, 0.02, 0.0075},
    {5, 0.5, 3, 450, 450, 250, 400, -5, -12.5, 150, 20, 0.015, 0.005},
    {10, 1.0, 4.5, 150, 150, 100, 200, -6, -20, 220, 90, 0.1, 0.03},
    {20, 0.75, 5, 100, 100, 100, 100, -20, -30, 0, 75, 0.06, 0.03},
}};

// Categories 1 to 3 always fly; light, high performance and helicopters by their parameters.
bool categoryAllowed(std::uint32_t category);
// The values of a category; a category beyond the table is a range error.
const CategoryValues& valuesOf(std::uint32_t category);

} // namespace ory
