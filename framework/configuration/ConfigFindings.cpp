#include "ConfigFindings.h"

#include <algorithm>
#include <numeric>

#include <QLTUtil.h>

#include "common/Format.h"

namespace quillon::internal {
namespace {

/// How many letters must be changed, entered or left out to make one text of the other.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, diagonal + 1, row[j] + 1});
    }
  }
  return row.back();
}

std::string lowerCase(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

}  // namespace

std::string didYouMean(std::string_view name, const std::vector<std::string>& candidates) {
  constexpr std::size_t longest = 100;  // beyond, nobody mistyped a name
  if (name.size() > longest) return {};
  const std::string* nearest = nullptr;
  std::size_t best = std::max<std::size_t>(2, name.size() / 3) + 1;
  for (const std::string& candidate : candidates) {
    if (candidate.size() > longest) continue;
    const std::size_t d = distance(lowerCase(name), lowerCase(candidate));
    if (d < best && d < candidate.size()) {
      best = d;
      nearest = &candidate;
    }
  }
  return nearest == nullptr ? std::string() : format("did you mean \"%@\"?", *nearest);
}

void ConfigFindings::add(QLTConfigFinding::Severity severity, const Complaint& complaint,
                         std::string advice) {
  findings_.push_back({severity, complaint.file, complaint.position.line, complaint.position.column,
                       complaint.keyPath, complaint.reason, std::move(advice)});
}

void ConfigFindings::error(const Complaint& complaint, std::string advice) {
  add(QLTConfigFinding::Severity::Error, complaint, std::move(advice));
}

void ConfigFindings::warning(const Complaint& complaint, std::string advice) {
  add(QLTConfigFinding::Severity::Warning, complaint, std::move(advice));
}

void ConfigFindings::add(const Complaints& complaints, QLTConfigFinding::Severity severity) {
  for (const Complaint& complaint : complaints) add(severity, complaint, {});
}

void ConfigFindings::unknownKeys(const ConfigEntry& entry, const std::vector<std::string>& known) {
  const QLTDictionary* const entries = entry.present() ? entry.value().dictionary() : nullptr;
  if (entries == nullptr) return;
  for (const auto& [key, value] : *entries) {
    if (std::find(known.begin(), known.end(), key) != known.end()) continue;
    std::string advice = didYouMean(key, known);
    if (advice.empty()) advice = "the keys are: " + QLTUtil::arrayToString(known, ", ");
    warning(entry.at(key).complaint("unknown key; loading ignores it"), advice);
  }
}

void ConfigFindings::surprisingBoolean(const ConfigEntry& entry) {
  const std::string* const text = entry.present() ? entry.value().string() : nullptr;
  if (text == nullptr || entry.value().boolValue()) return;
  const std::vector<std::string> plain{"no", "n", "false", "f", "0"};
  if (std::find(plain.begin(), plain.end(), lowerCase(*text)) != plain.end()) return;
  warning(entry.complaint(format("the text '%@' reads as false", *text)),
          "write <true/> or <false/>");
}

}  // namespace quillon::internal

std::string QLTConfigFinding::text() const {
  return quillon::internal::Complaint{file, {line, column}, key, message}.text();
}
