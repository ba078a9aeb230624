#include "base/week_slots.h"

namespace ory {

std::uint32_t packSlot(Slot slot) {
  return static_cast<std::uint32_t>(slot.day) | static_cast<std::uint32_t>(slot.halfHour) << 16;
}

Slot unpackSlot(std::uint32_t packed) {
  return {static_cast<std::int32_t>(packed & 0xFFFFu), static_cast<std::int32_t>(packed >> 16)};
}

Slot nextSlot(Slot slot) {
  if (slot.halfHour < halfHoursPerDay - 1) return {slot.day, slot.halfHour + 1};
  return {slot.day == 7 ? 1 : slot.day + 1, 0};
}

Slot slotBefore(Slot now, std::int32_t halfHours) {
  const std::int32_t halfHour = now.halfHour - halfHours;
  if (halfHour >= 0) return {now.day, halfHour};
  return {now.day == 1 ? 7 : now.day - 1, halfHour + halfHoursPerDay};
}

std::int32_t halfHoursSince(Slot now, std::uint32_t packedThen) {
  const Slot then = unpackSlot(packedThen);
  const std::int32_t since = (now.day - then.day) * halfHoursPerDay + now.halfHour - then.halfHour;
  return ((since % halfHoursPerWeek) + halfHoursPerWeek) % halfHoursPerWeek;
}

} // namespace ory
