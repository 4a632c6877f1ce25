#include "Report.h"

#include <algorithm>

namespace reports {

const Table* Report::table(const std::string& key) const {
  const auto found = std::find_if(tables.begin(), tables.end(),
                                  [&](const Table& table) { return table.key == key; });
  return found == tables.end() ? nullptr : &*found;
}

}  // namespace reports
