#include "liveries/random.h"

#include "base/parameters.h"

namespace ory {

std::mt19937& randomEngine() {
  thread_local std::mt19937 engine{std::random_device{}()};
  return engine;
}

bool randomOn() {
  return RANDOM.value;
}

std::size_t randomIndex(std::size_t count) {
  if (!randomOn() || count < 2) return 0;
  return randomEngine()() % count;
}

} // namespace ory
