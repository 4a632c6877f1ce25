#include <QLTUtil.h>
#include <QLTestSiteManager.h>

#include "StationConfig.h"
#include "platform/Format.h"
#include "platform/TextFile.h"

using quillon::internal::format;

namespace {

/// The pieces of `text` between separators, empty ones included.
std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  while (true) {
    const std::size_t end = text.find(separator);
    pieces.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return pieces;
    text.remove_prefix(end + 1);
  }
}

/// Enters one instrument line into `table`; gives the reason when the line is malformed, else "".
std::string readInstrument(const std::string& line, QLTPosition position, QLTDictionary& table) {
  std::vector<std::string> fields = split(line, ',');
  for (std::string& field : fields) field = quillon::internal::trimmed(field);
  if (fields.size() < 4) {
    return format("expected the four fields name,class,sim,attributes, found %d", fields.size());
  }
  QLTDictionary entry{{"class", fields[1]}, {"sim", fields[2]}};
  for (const std::string& piece : split(fields[3], ';')) {
    const std::vector<std::string> parts = split(piece, '=');
    if (parts.size() < 2) {
      return piece.empty() ? std::string("empty attribute, expected key=value")
                           : format("attribute \"%@\" has no \"=\"", piece);
    }
    entry.set(parts[0], parts[1]);
  }
  QLTValue value(std::move(entry));
  value.setPosition(position);
  table.set(fields[0], std::move(value));
  return {};
}

}  // namespace

std::optional<QLTDictionary> QLTestSiteManager::parseTesterConfig(std::string_view text,
                                                                  const std::string& fileName,
                                                                  QLTError* error) {
  QLTDictionary table;
  bool isHeader = true;
  std::size_t offset = 0;
  for (const std::string& piece : quillon::internal::splitLines(text)) {
    const std::size_t start = offset;
    offset += piece.size() + 1;
    if (std::exchange(isHeader, false)) continue;
    const std::string line = quillon::internal::trimmed(piece);
    if (line.empty()) continue;
    const int number = quillon::internal::lineNumber(text, start);
    const std::string reason = readInstrument(line, {number, 1}, table);
    if (!reason.empty()) {
      quillon::internal::setError(
          error, QLTUtil::handleError(quillon::internal::kTesterConfigMalformed,
                                      format("%@:%d: %@: %@", fileName, number, reason, line)));
      return std::nullopt;
    }
  }
  return table;
}
