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
char lf_shiftUp(char C, int SHIFT) {
  int value = static_cast<unsigned char>(C) + SHIFT;
  if (value > scrambleLast) value -= scrambleRange;
  return static_cast<char>(value);
}

char lf_shiftDown(char C, int SHIFT) {
  int value = static_cast<unsigned char>(C) - SHIFT;
  if (value < scrambleFirst) value += scrambleRange;
  return static_cast<char>(value);
}

int lf_regcodeShiftAt(std::size_t POSITION) {
  return regcodeShift[POSITION % regcodeShift.size()];
}

const ModelForm& lf_modelForm(std::size_t LENGTH) {
  if (LENGTH == 4) return model4;
  if (LENGTH == 3) return model3;
  return model2;
}

bool lf_inRange(char C) {
  return C >= scrambleFirst && C <= scrambleLast;
}

} // namespace

std::string scrambleRegcode(std::string_view TEXT) {
  if (TEXT.empty()) return {};
  if (TEXT.size() == 1 || TEXT.size() >= 25) logWarning(TEXT);
  std::string stored(TEXT);
  for (std::size_t i = 0; i < TEXT.size(); ++i) {
    const char c = TEXT[i];
    if (c >= 'a' && c <= 'z') {
      logWarning(fmt::format("lower case in regcode encryp {}", TEXT));
      throw std::runtime_error("regcode encrypt error");
    }
    if (c != '+') stored[i] = lf_shiftUp(c, lf_regcodeShiftAt(i));
  }
  return stored;
}

std::string unscrambleRegcode(std::string_view TEXT) {
  std::string plain(TEXT);
  for (std::size_t i = 0; i < TEXT.size(); ++i)
    if (TEXT[i] != '+') plain[i] = lf_shiftDown(TEXT[i], lf_regcodeShiftAt(i));
  return plain;
}

std::string unscrambleAirline(std::string_view TEXT) {
  if (TEXT.empty()) return {};
  if (TEXT.size() == 3) {
    logWarning(fmt::format("Unencrypted airline {} in decrypt airl?", TEXT));
    return std::string(TEXT);
  }
  if (TEXT.size() != 6) throw std::runtime_error(fmt::format("decrypt airl \"{}\" error", TEXT));
  std::string plain(3, ' ');
  for (std::size_t i = 0; i < 3; ++i)
    plain[i] = lf_shiftDown(TEXT[airlinePosition[i]], airlineShift[i]);
  return plain;
}

std::string unscrambleModel(std::string_view TEXT) {
  if (TEXT.empty()) return {};
  // A single stored character is unshifted alone: there is no second one to permute with.
  if (TEXT.size() == 1) return std::string(1, lf_shiftDown(TEXT[0], model2.shift[1]));
  const std::size_t length = TEXT.size() == 3 || TEXT.size() == 4 ? TEXT.size() : 2;
  const ModelForm& form = lf_modelForm(length);
  std::string plain(length, ' ');
  for (std::size_t i = 0; i < length; ++i)
    plain[i] = lf_shiftDown(TEXT[form.position[i]], form.shift[i]);
  return plain;
}

std::string scrambleAirline(std::string_view CODE) {
  if (CODE.size() != 3 || !isScrambleSafe(CODE, false))
    throw std::invalid_argument(fmt::format("airline code \"{}\" can't be stored", CODE));
  std::string stored(6, ' ');
  for (std::size_t i = 0; i < 3; ++i)
    stored[airlinePosition[i]] = lf_shiftUp(CODE[i], airlineShift[i]);
  // Filler made from the code itself, so that a file prepared twice comes out the same.
  const int seed = CODE[0] * 7 + CODE[1] * 3 + CODE[2];
  for (std::size_t k = 0; k < airlineFiller.size(); ++k)
    stored[airlineFiller[k]] =
        static_cast<char>(scrambleFirst + (seed + static_cast<int>(k) * 11) % scrambleRange);
  return stored;
}

std::string scrambleModel(std::string_view CODE) {
  if (CODE.size() < 2 || CODE.size() > 4 || !isScrambleSafe(CODE, false))
    throw std::invalid_argument(fmt::format("model code \"{}\" can't be stored", CODE));
  const ModelForm& form = lf_modelForm(CODE.size());
  std::string stored(CODE.size(), ' ');
  for (std::size_t i = 0; i < CODE.size(); ++i)
    stored[form.position[i]] = lf_shiftUp(CODE[i], form.shift[i]);
  return stored;
}

bool isScrambleSafe(std::string_view TEXT, bool PLUS_ALLOWED) {
  for (const char c : TEXT)
    if (!lf_inRange(c) && !(PLUS_ALLOWED && c == '+')) return false;
  return true;
}

} // namespace ory
