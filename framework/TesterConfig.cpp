#include "TesterConfig.h"

#include <utility>

#include <QLTUtil.h>
#include <QLTestSiteManager.h>

#include "platform/Format.h"
#include "platform/Text.h"
#include "platform/TextFile.h"

namespace quillon::internal {
namespace {

/// Enters one instrument line into `table`; gives the reason when the line is malformed, else "".
std::string readInstrument(const std::string& line, QLTPosition position, QLTDictionary& table) {
  std::vector<std::string> fields = split(line, ",");
  for (std::string& field : fields) field = trimmed(field);
  if (fields.size() < 4) {
    return format("expected the four fields name,class,sim,attributes, found %d", fields.size());
  }
  QLTDictionary entry{{"class", fields[1]}, {"sim", fields[2]}};
  for (const std::string& piece : split(fields[3], ";")) {
    const std::vector<std::string> parts = split(piece, "=");
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

QLTDictionary readTesterConfig(std::string_view text, const std::string& fileName,
                               Complaints& complaints) {
  QLTDictionary table;
  bool isHeader = true;
  std::size_t offset = 0;
  for (const std::string& piece : splitLines(text)) {
    const std::size_t start = offset;
    offset += piece.size() + 1;
    if (std::exchange(isHeader, false)) continue;
    const std::string line = trimmed(piece);
    if (line.empty()) continue;
    const QLTPosition position{lineNumber(text, start), 0};
    const std::string reason = readInstrument(line, position, table);
    if (!reason.empty()) complaints.push_back({fileName, position, "", reason + ": " + line});
  }
  return table;
}

}  // namespace quillon::internal

std::optional<QLTDictionary> QLTestSiteManager::parseTesterConfig(std::string_view text,
                                                                  const std::string& fileName,
                                                                  QLTError* error) {
  quillon::internal::Complaints complaints;
  QLTDictionary table = quillon::internal::readTesterConfig(text, fileName, complaints);
  if (complaints.empty()) return table;
  quillon::internal::setError(error, QLTUtil::handleError(quillon::internal::kTesterConfigMalformed,
                                                          complaints.front().text()));
  return std::nullopt;
}
