#pragma once
// Texts of the Winsock error numbers, which the seam reports on both builds.

#include <string>

namespace ory {

// The code in decimal, a blank and its text; "Unknown errror code" for a code not in the table.
std::string socketErrorText(int code);

} // namespace ory
