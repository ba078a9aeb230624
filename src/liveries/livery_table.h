#pragma once
// The master livery table: every installed livery by airline and type. Built once per process from the sorted
// scan result and never changed afterwards, so views of its titles stay valid for the whole run.

#include "base/text_hash.h"
#include "liveries/livery_data.h"

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace ory {

struct LiveryTitle {
  std::string title;
  bool cargo = false;
};

// The types of one airline, in the order in which they were added.
struct AirlineLiveries {
  std::vector<std::string> types;
  TextMap<std::vector<LiveryTitle>> liveries; // type to its liveries
};

extern TextMap<AirlineLiveries> liveryTable; // airline to its types

// Builds liveryTable from liveries, sorted by airline and type. Views taken before are invalid afterwards.
void buildLiveryTable(const std::vector<LiveryData>& liveries);
void clearLiveryTable();
// The table's own copy of title, or an empty view when no installed livery has that title.
std::string_view installedTitle(std::string_view title);

} // namespace ory
