#pragma once
// The program's two exception types. Their numbers are labels unique across the program, shown to the user so
// that a report can be traced to the place that threw.

#include <stdexcept>
#include <string_view>

namespace ory {

// What the user can mend: "{number}: {text}", or the text alone with number 99.
class UserErrorException : public std::runtime_error {
public:
  UserErrorException(int number, std::string_view text);
  int number;
};

// What the program can't do: "sys error {number}: {text}".
class SysErrorException : public std::runtime_error {
public:
  SysErrorException(int number, std::string_view text);
  int number;
};

} // namespace ory
