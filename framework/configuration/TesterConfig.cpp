#include "TesterConfig.h"

#include <utility>

#include <QLTErrorCodes.h>
#include <QLTUtil.h>
#include <QLTestSiteManager.h>

#include "common/Format.h"
#include "common/Text.h"
#include "platform/TextFile.h"

namespace quillon::internal {
namespace {

/// Reads one instrument line; gives the reason when it is malformed, else "".
std::string readInstrument(const std::string& line, InstrumentLine& instrument) {
  instrument.fields = split(line, ",");
  std::vector<std::string>& fields = instrument.fields;
  for (std::string& field : fields) field = trimmed(field);
  if (fields.size() < 4) {
    return format("expected the four fields name,class,sim,attributes, found %d", fields.size());
  }
  instrument.entry = {{"class", fields[1]}, {"sim", fields[2]}};
  for (const std::string& piece : split(fields[3], ";")) {
    const std::vector<std::string> parts = split(piece, "=");
    if (parts.size() < 2) {
      return piece.empty() ? std::string("empty attribute, expected key=value")
                           : format("attribute \"%@\" has no \"=\"", piece);
    }
    instrument.entry.set(parts[0], parts[1]);
  }
  return {};
}

}  // namespace

std::vector<InstrumentLine> readTesterConfig(std::string_view text, const std::string& fileName,
                                             Complaints& complaints) {
  std::vector<InstrumentLine> instruments;
  bool isHeader = true;
  int lineCount = 1;
  for (const std::string& piece : splitLines(text)) {
    const QLTPosition position{lineCount, 0};
    text.remove_prefix(piece.size());
    if (endsLine(text)) ++lineCount;
    if (!text.empty()) text.remove_prefix(1);
    if (std::exchange(isHeader, false)) continue;
    const std::string line = trimmed(piece);
    if (line.empty()) continue;
    InstrumentLine instrument;
    instrument.position = position;
    const std::string reason = readInstrument(line, instrument);
    if (reason.empty()) {
      instruments.push_back(std::move(instrument));
    } else {
      complaints.push_back({fileName, position, "", reason + ": " + line});
    }
  }
  return instruments;
}

}  // namespace quillon::internal

std::optional<QLTDictionary> QLTestSiteManager::parseTesterConfig(std::string_view text,
                                                                  const std::string& fileName,
                                                                  QLTError* error) {
  quillon::internal::Complaints complaints;
  const auto instruments = quillon::internal::readTesterConfig(text, fileName, complaints);
  if (complaints.empty()) {
    QLTDictionary table;
    for (const auto& instrument : instruments) {
      QLTValue entry(instrument.entry);
      entry.setPosition(instrument.position);
      table.set(instrument.name(), std::move(entry));
    }
    return table;
  }
  quillon::internal::setError(
      error, QLTUtil::handleError(kQLTErrorTesterConfigMalformed, complaints.front().text()));
  return std::nullopt;
}
