#include "liveries/livery_table.h"

#include <algorithm>
#include <iterator>

namespace ory {

TextMap<AirlineLiveries> liveryTable;

namespace {
// Every title of the table, as views into it.
std::unordered_set<std::string_view, TextHash, std::equal_to<>> lf_titles;
} // namespace

void clearLiveryTable() {
  lf_titles.clear();
  liveryTable.clear();
}

void buildLiveryTable(const std::vector<LiveryData>& liveries) {
  clearLiveryTable();
  std::vector<LiveryTitle> current;
  const auto close = [&current](const LiveryData& last) {
    AirlineLiveries& airline = liveryTable[last.airline];
    auto [place, added] = airline.liveries.try_emplace(last.type);
    if (added) airline.types.push_back(last.type);
    std::move(current.begin(), current.end(), std::back_inserter(place->second));
    current.clear();
  };
  for (std::size_t i = 0; i < liveries.size(); ++i) {
    const LiveryData& livery = liveries[i];
    if (i > 0 && (livery.type != liveries[i - 1].type || livery.airline != liveries[i - 1].airline))
      close(liveries[i - 1]);
    current.push_back({livery.title, livery.cargo});
  }
  if (!liveries.empty()) close(liveries.back());
  for (const auto& [code, airline] : liveryTable)
    for (const auto& [type, titles] : airline.liveries)
      for (const LiveryTitle& title : titles)
        lf_titles.insert(title.title);
}

std::string_view installedTitle(std::string_view title) {
  const auto it = lf_titles.find(title);
  return it == lf_titles.end() ? std::string_view() : *it;
}

} // namespace ory
