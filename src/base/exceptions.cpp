#include "base/exceptions.h"

#include <fmt/format.h>

namespace ory {

UserErrorException::UserErrorException(int NUMBER, std::string_view TEXT)
    : std::runtime_error(NUMBER == 99 ? std::string(TEXT) : fmt::format("{}: {}", NUMBER, TEXT)),
      number(NUMBER) {}

SysErrorException::SysErrorException(int NUMBER, std::string_view TEXT)
    : std::runtime_error(fmt::format("sys error {}: {}", NUMBER, TEXT)), number(NUMBER) {}

} // namespace ory
