#pragma once
// One input of the traffic line or weather report parsers, as a datagram would bring it: the bytes in a heap
// block of exactly their size, so that a read beyond them trips the address sanitizer.

#include "feed/traffic_reader.h"

#include <cstddef>
#include <cstdint>

namespace ory::test {

// Runs the traffic reader's processData on data; the result of processLine when the line was split.
void feedTrafficLine(const std::uint8_t* data, std::size_t size);
void feedWeatherReport(const std::uint8_t* data, std::size_t size);

} // namespace ory::test
