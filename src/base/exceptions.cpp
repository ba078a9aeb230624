#include "base/exceptions.h"

#include <fmt/format.h>

namespace ory {

UserErrorException::UserErrorException(int number, std::string_view text)
    : std::runtime_error(number == 99 ? std::string(text) : fmt::format("{}: {}", number, text)),
      number(number) {}

SysErrorException::SysErrorException(int number, std::string_view text)
    : std::runtime_error(fmt::format("sys error {}: {}", number, text)), number(number) {}

} // namespace ory
