#include "ConfigFindings.h"

#include <algorithm>

#include <QLTUtil.h>

#include "common/Format.h"
#include "common/Nearest.h"
#include "common/Text.h"
#include "platform/Place.h"

namespace quillon::internal {

std::string didYouMean(std::string_view name, const std::vector<std::string>& candidates) {
  const auto nearest = nearestName(name, candidates);
  return nearest ? format("did you mean \"%@\"?", *nearest) : std::string();
}

std::string cannotBeRead(const QLTError& error, const std::string& file) {
  std::string reason = error.description().value_or(error.domain());
  if (reason.starts_with(file + ": ")) reason.erase(0, file.size() + 2);
  return "cannot be read: " + reason;
}

void ConfigFindings::complaint(QLTConfigFinding finding, std::string advice) {
  using Severity = QLTConfigFinding::Severity;
  if (unread_ && !wantsWarnings_) return;
  finding.severity = unread_ ? Severity::Warning : Severity::Error;
  finding.advice = std::move(advice);
  findings_.push_back(std::move(finding));
}

void ConfigFindings::warning(QLTConfigFinding finding, std::string advice) {
  if (!wantsWarnings_) return;
  finding.severity = QLTConfigFinding::Severity::Warning;
  finding.advice = std::move(advice);
  findings_.push_back(std::move(finding));
}

std::optional<std::size_t> ConfigFindings::refusalSince(std::size_t index) const {
  for (; index < findings_.size(); ++index) {
    if (findings_[index].severity == QLTConfigFinding::Severity::Error) return index;
  }
  return std::nullopt;
}

void ConfigFindings::unknownKeys(const ConfigEntry& entry, const std::vector<std::string>& known) {
  const QLTDictionary* const entries =
      wantsWarnings_ && entry.present() ? entry.value().dictionary() : nullptr;
  if (entries == nullptr) return;
  for (const auto& [key, value] : *entries) unknownKey(entry.at(key), key, known);
}

void ConfigFindings::unknownKey(const ConfigEntry& entry, std::string_view key,
                                const std::vector<std::string>& known) {
  if (std::find(known.begin(), known.end(), key) != known.end()) return;
  std::string advice = didYouMean(key, known);
  if (advice.empty()) advice = "the keys are: " + QLTUtil::arrayToString(known, ", ");
  QLTConfigFinding finding = entry.finding("unknown key; loading ignores it");
  finding.unknownKey = key;
  warning(std::move(finding), std::move(advice));
}

void ConfigFindings::surprisingBoolean(const ConfigEntry& entry) {
  const std::string* const text =
      wantsWarnings_ && entry.present() ? entry.value().string() : nullptr;
  if (text == nullptr || entry.value().boolValue()) return;
  const std::vector<std::string> plain{"no", "n", "false", "f", "0"};
  if (std::find(plain.begin(), plain.end(), lowerCase(*text)) != plain.end()) return;
  warning(entry.finding(format("the text '%@' reads as false", *text)),
          "write <true/> or <false/>");
}

void ConfigFindings::shiftedColumns(const ConfigEntry& entry, std::string_view text) {
  if (!wantsWarnings_) return;
  const std::size_t found = text.find_first_of(",\"\r\n");
  if (found == std::string_view::npos) return;
  const char* const what = text[found] == ','   ? "a comma"
                           : text[found] == '"' ? "a double quote"
                                                : "a line end";
  warning(entry.finding(format("holds %@, which shifts the columns of the result log", what)),
          "write it without commas, double quotes and line ends");
}

}  // namespace quillon::internal

QLTConfigFinding QLTConfigFinding::errorAt(std::string file, QLTPosition position, std::string key,
                                           std::string message, std::string advice) {
  return {Severity::Error, std::move(file),    position.line,     position.column,
          std::move(key),  std::move(message), std::move(advice), position.offset};
}

std::optional<QLTConfigFinding> QLTConfigFinding::of(const QLTError& error) {
  const QLTDictionary& parts = error.userInfo();
  if (!parts.contains("file")) return std::nullopt;
  const QLTPosition position{static_cast<int>(parts.integer("line")),
                             static_cast<int>(parts.integer("column")),
                             parts.integer("offset", -1)};
  return errorAt(parts.text("file"), position, parts.text("keyPath"),
                 parts.text("reason", error.description().value_or("")));
}

std::string QLTConfigFinding::text() const {
  return quillon::internal::placedText({file, {line, column, offset}, key}, message);
}
