#include "liveries/scramble.h"

#include "base/log.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <stdexcept>

namespace ory {

namespace {

// Changing any value below makes every served data file unreadable: the files must be prepared anew.
constexpr std::array<int, 32> regcodeShift = {17, 5, 33, 41, 9,  26, 12, 38, 3,  29, 21, 44, 7, 35, 15, 24,
                                              40, 2, 31, 19, 11, 37, 27, 6,  43, 14, 22, 36, 8, 30, 18, 39};

// Where the three characters of an airline code stand in its six stored ones, and their shifts.
constexpr std::array<std::size_t, 3> airlinePosition = {4, 0, 3};
constexpr std::array<int, 3> airlineShift = {23, 8, 37};
constexpr std::array<std::size_t, 3> airlineFiller = {1, 2, 5};

// Model codes: plain character i stands at stored position position[i] with shift[i].
struct ModelForm {
  std::array<std::size_t, 4> position;
  std::array<int, 4> shift;
};
constexpr ModelForm model4 = {{2, 0, 3, 1}, {31, 13, 6, 42}};
constexpr ModelForm model3 = {{1, 2, 0, 0}, {19, 34, 10, 0}};
constexpr ModelForm model2 = {{1, 0, 0, 0}, {27, 4, 0, 0}};

// Each wraps once, so a character far outside the range comes out outside it too, without failing.
char lf_shiftUp(char c, int shift) {
  int value = static_cast<unsigned char>(c) + shift;
  if (value > scrambleLast) value -= scrambleRange;
  return static_cast<char>(value);
}

char lf_shiftDown(char c, int shift) {
  int value = static_cast<unsigned char>(c) - shift;
  if (value < scrambleFirst) value += scrambleRange;
  return static_cast<char>(value);
}

int lf_regcodeShiftAt(std::size_t position) {
  return regcodeShift[position % regcodeShift.size()];
}

const ModelForm& lf_modelForm(std::size_t length) {
  if (length == 4) return model4;
  if (length == 3) return model3;
  return model2;
}

bool lf_inRange(char c) {
  return c >= scrambleFirst && c <= scrambleLast;
}

} // namespace

std::string scrambleRegcode(std::string_view text) {
  if (text.empty()) return {};
  if (text.size() == 1 || text.size() >= 25) logWarning(text);
  std::string stored(text);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c >= 'a' && c <= 'z') {
      logWarning(fmt::format("lower case in regcode encryp {}", text));
      throw std::runtime_error("regcode encrypt error");
    }
    if (c != '+') stored[i] = lf_shiftUp(c, lf_regcodeShiftAt(i));
  }
  return stored;
}

std::string unscrambleRegcode(std::string_view text) {
  std::string plain(text);
  for (std::size_t i = 0; i < text.size(); ++i)
    if (text[i] != '+') plain[i] = lf_shiftDown(text[i], lf_regcodeShiftAt(i));
  return plain;
}

std::string unscrambleAirline(std::string_view text) {
  if (text.empty()) return {};
  if (text.size() == 3) {
    logWarning(fmt::format("Unencrypted airline {} in decrypt airl?", text));
    return std::string(text);
  }
  if (text.size() != 6) throw std::runtime_error(fmt::format("decrypt airl \"{}\" error", text));
  std::string plain(3, ' ');
  for (std::size_t i = 0; i < 3; ++i)
    plain[i] = lf_shiftDown(text[airlinePosition[i]], airlineShift[i]);
  return plain;
}

std::string unscrambleModel(std::string_view text) {
  if (text.empty()) return {};
  // A single stored character is unshifted alone: there is no second one to permute with.
  if (text.size() == 1) return std::string(1, lf_shiftDown(text[0], model2.shift[1]));
  const std::size_t length = text.size() == 3 || text.size() == 4 ? text.size() : 2;
  const ModelForm& form = lf_modelForm(length);
  std::string plain(length, ' ');
  for (std::size_t i = 0; i < length; ++i)
    plain[i] = lf_shiftDown(text[form.position[i]], form.shift[i]);
  return plain;
}

std::string scrambleAirline(std::string_view code) {
  if (code.size() != 3 || !isScrambleSafe(code, false))
    throw std::invalid_argument(fmt::format("airline code \"{}\" can't be stored", code));
  std::string stored(6, ' ');
  for (std::size_t i = 0; i < 3; ++i)
    stored[airlinePosition[i]] = lf_shiftUp(code[i], airlineShift[i]);
  // Filler made from the code itself, so that a file prepared twice comes out the same.
  const int seed = code[0] * 7 + code[1] * 3 + code[2];
  for (std::size_t k = 0; k < airlineFiller.size(); ++k)
    stored[airlineFiller[k]] =
        static_cast<char>(scrambleFirst + (seed + static_cast<int>(k) * 11) % scrambleRange);
  return stored;
}

std::string scrambleModel(std::string_view code) {
  if (code.size() < 2 || code.size() > 4 || !isScrambleSafe(code, false))
    throw std::invalid_argument(fmt::format("model code \"{}\" can't be stored", code));
  const ModelForm& form = lf_modelForm(code.size());
  std::string stored(code.size(), ' ');
  for (std::size_t i = 0; i < code.size(); ++i)
    stored[form.position[i]] = lf_shiftUp(code[i], form.shift[i]);
  return stored;
}

bool isScrambleSafe(std::string_view text, bool plusAllowed) {
  for (const char c : text)
    if (!lf_inRange(c) && !(plusAllowed && c == '+')) return false;
  return true;
}

} // namespace ory
