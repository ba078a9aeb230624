#pragma once
// The light scrambling of the codes in the program's data files. Plain and stored characters come from the
// ASCII range '-' (45) to 'Z' (90); a shift wraps around inside that range. The shift tables and permutations
// live in scramble.cpp alone: the program and the tool that prepares the files share them.

#include <string>
#include <string_view>

namespace ory {

inline constexpr char scrambleFirst = '-';
inline constexpr char scrambleLast = 'Z';
inline constexpr int scrambleRange = scrambleLast - scrambleFirst + 1; // 46

// A regcode (or the date word) in stored form; '+' stays. Throws std::runtime_error for a lower-case letter.
std::string scrambleRegcode(std::string_view text);
std::string unscrambleRegcode(std::string_view text);
// Stored airline codes have 6 characters; 3 are taken as plain with a warning; other lengths throw
// std::runtime_error "decrypt airl ...".
std::string unscrambleAirline(std::string_view text);
// Stored and plain model codes have the same length, 2 to 4 characters; never throws.
std::string unscrambleModel(std::string_view text);

// The preparing side. Each throws std::invalid_argument for a text whose stored form would not read back.
std::string scrambleAirline(std::string_view code); // code: 3 characters
std::string scrambleModel(std::string_view code);   // code: 2 to 4 characters
// True when every character lies in the scrambling range (or is '+', for regcodes).
bool isScrambleSafe(std::string_view text, bool plusAllowed);

} // namespace ory
