#pragma once
// Hash maps and sets keyed by text, hashed with 64-bit FNV-1a. Lookups take a string_view without building a
// string.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

namespace ory {

inline constexpr std::uint64_t fnvOffsetBasis = 0xcbf29ce484222325ull;
inline constexpr std::uint64_t fnvPrime = 0x100000001b3ull;

constexpr std::uint64_t fnv1a(std::string_view text) {
  std::uint64_t hash = fnvOffsetBasis;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= fnvPrime;
  }
  return hash;
}

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const noexcept {
    return static_cast<std::size_t>(fnv1a(text));
  }
};

template <typename Value>
using TextMap = std::unordered_map<std::string, Value, TextHash, std::equal_to<>>;
using TextSet = std::unordered_set<std::string, TextHash, std::equal_to<>>;

} // namespace ory
