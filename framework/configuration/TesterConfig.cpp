#include "TesterConfig.h"

#include <map>
#include <utility>

#include <QLTError.h>

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

/// What is said of one file.
class TesterConfigCheck {
 public:
  TesterConfigCheck(std::string file, ConfigFindings& findings)
      : file_(std::move(file)), findings_(findings) {}

  QLTConfigFinding at(QLTPosition position, std::string message) const {
    return QLTConfigFinding::errorAt(file_, position, "", std::move(message));
  }

  /// One complaint for each line that has a byte over 127.
  void foreignBytes(std::string_view text) {
    const bool hasMark = text.starts_with("\xef\xbb\xbf");
    int line = 1;
    int latest = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if (byte >= 0x80 && line != latest) {
        latest = line;
        if (i == 0 && hasMark) {
          findings_.complaint(at({line, 0}, "begins with a byte-order mark"),
                              "save the file as plain ASCII text, without byte-order mark");
        } else {
          findings_.complaint(at({line, 0}, format("byte 0x%02x is not 7-bit ASCII", byte)),
                              "use plain ASCII characters only");
        }
      }
      if (endsLine(text.substr(i))) ++line;
    }
  }

  void header(std::string_view text, bool hasInstruments) {
    const std::string header = trimmed(text.substr(0, text.find_first_of(kNewlines)));
    if (header.empty() && hasInstruments) {
      findings_.warning(at({1, 0}, "the first line is empty, and counts as header"),
                        "a header below it is read as an instrument; remove the empty line");
    } else if (header.find('=') != std::string::npos) {
      findings_.warning(at({1, 0}, "the first line is never read, but looks like an instrument"),
                        "put a header line above it: name,class,sim,attributes");
    }
  }

  void fields(const InstrumentLine& instrument) {
    const auto warn = [&](std::string message, std::string advice = {}) {
      findings_.warning(at(instrument.position, std::move(message)), std::move(advice));
    };
    if (instrument.name().empty()) warn("the instrument has no name");
    const std::string& sim = instrument.fields[2];
    if (sim != "0" && sim != "1") {
      const bool simulated = QLTValue(sim).intValue() == 1;
      warn(format("sim is \"%@\", which means %@", sim, simulated ? "simulated" : "real hardware"),
           "write 1 for simulated, 0 for real");
    }
    if (instrument.fields.size() > 4) {
      warn("the fields after the fourth are ignored", "separate attributes by \";\"");
    }
    for (const std::string& piece : split(instrument.fields[3], ";")) {
      const std::vector<std::string> parts = split(piece, "=");
      if (parts.size() > 2) {
        warn(format("of \"%@\" everything after the second \"=\" is dropped", piece));
      }
      if (parts[0] != trimmed(parts[0]) || parts[1] != trimmed(parts[1])) {
        warn(format("the blanks in \"%@\" become part of key or value", piece),
             "remove the blanks around \"=\" and \";\"");
      }
    }
  }

  /// Warns of lines that never count.
  void duplicates(const InstrumentLine& instrument) {
    const auto [earlier, isNew] = lineOf_.emplace(instrument.name(), instrument.position.line);
    if (isNew) return;
    findings_.warning(
        at(instrument.position, format("takes the place of line %d, which has the same name \"%@\"",
                                       earlier->second, instrument.name())));
    earlier->second = instrument.position.line;
  }

 private:
  std::string file_;
  ConfigFindings& findings_;
  std::map<std::string, int> lineOf_;
};

}  // namespace

std::vector<InstrumentLine> readTesterConfig(std::string_view text, const std::string& fileName,
                                             ConfigFindings& findings) {
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
      findings.complaint(
          TesterConfigCheck(fileName, findings).at(position, format("%@: %@", reason, line)));
    }
  }
  return instruments;
}

QLTDictionary instrumentTable(const std::vector<InstrumentLine>& lines) {
  QLTDictionary table;
  for (const InstrumentLine& line : lines) {
    QLTValue entry(line.entry);
    entry.setPosition(line.position);
    table.set(line.name(), std::move(entry));
  }
  return table;
}

std::optional<std::vector<InstrumentLine>> checkTesterConfig(const std::filesystem::path& path,
                                                             ConfigFindings& findings) {
  const std::string file = path.string();
  TesterConfigCheck check(file, findings);
  QLTError problem;
  const auto text = readFile(path, &problem);
  if (!text) {
    findings.complaint(check.at({}, cannotBeRead(problem, file)), "every tester needs this file");
    return std::nullopt;
  }
  const std::size_t before = findings.size();
  check.foreignBytes(*text);
  if (findings.size() > before) return std::nullopt;
  std::vector<InstrumentLine> lines = readTesterConfig(*text, file, findings);
  if (!findings.wantsWarnings()) return lines;
  check.header(*text, !lines.empty());
  for (const InstrumentLine& line : lines) {
    check.duplicates(line);
    check.fields(line);
  }
  return lines;
}

}  // namespace quillon::internal
