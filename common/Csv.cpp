#include "Csv.h"

namespace quillon::internal {

void appendCsvField(std::string& line, std::string_view field) {
  // Blanks at the ends would be lost by some readers without the quotes.
  const bool isPlain = !field.empty() && field.find_first_of(",\"\r\n") == std::string_view::npos &&
                       field.front() != ' ' && field.back() != ' ';
  if (isPlain) {
    line += field;
    return;
  }
  line += '"';
  for (const char c : field) {
    if (c == '"') line += '"';
    line += c;
  }
  line += '"';
}

}  // namespace quillon::internal
