#pragma once
// The random choices of the matcher and of static parking: one Mersenne twister per thread, seeded from the
// system's random device. With RANDOM off every choice is the first one and lists keep their order, so a
// run can be repeated.

#include <algorithm>
#include <cstddef>
#include <random>
#include <vector>

namespace ory {

std::mt19937& randomEngine(); // this thread's engine
bool randomOn();              // the RANDOM parameter

// 0 with RANDOM off or count below 2, else the engine's next output modulo count.
std::size_t randomIndex(std::size_t count);

// Shuffles list in place; leaves it as it is with RANDOM off or fewer than 2 entries.
template <typename Item>
void shuffle(std::vector<Item>& list) {
  if (!randomOn() || list.size() < 2) return;
  std::shuffle(list.begin(), list.end(), randomEngine());
}

} // namespace ory
