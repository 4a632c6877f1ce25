#include "Content.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "common/Text.h"
#include "results/Columns.h"
#include "results/Sha256.h"

namespace results {
namespace {

/// Rows as bytes that mean one thing only. See docs/results.md.
class Canonical {
 public:
  /// Adds a row, but for the column `without`.
  template <typename Row>
  void add(const Row& row, std::string_view without = "") {
    bytes_ += Table<Row>::kName;
    bytes_ += '{';
    forEachColumn(row, [&](std::string_view name, const auto& field) {
      if (name != without) put(field);
    });
    bytes_ += "}\n";
  }

  template <typename Row>
  void addAll(const std::vector<Row>& rows) {
    for (const Row& row : rows) add(row);
  }

  const std::string& bytes() const { return bytes_; }

 private:
  template <typename Field>
  void put(const std::optional<Field>& field) {
    if (field) {
      put(*field);
    } else {
      bytes_ += "n;";
    }
  }
  void put(const std::string& field) { putText(field); }
  void put(std::int64_t field) { bytes_ += 'i' + std::to_string(field) + ';'; }
  void put(bool field) { bytes_ += field ? "i1;" : "i0;"; }
  void put(double field) {
    // The database has one zero.
    const auto bits = std::bit_cast<std::uint64_t>(field == 0 ? 0.0 : field);
    bytes_ += 'd';
    for (int shift = 56; shift >= 0; shift -= 8) {
      quillon::internal::appendHex(bytes_, static_cast<unsigned char>(bits >> shift));
    }
    bytes_ += ';';
  }
  template <typename Word>
  requires std::is_enum_v<Word>
  void put(Word field) { putText(text(field)); }

  void putText(std::string_view text) {
    bytes_ += 't' + std::to_string(text.size()) + ':';
    bytes_ += text;
    bytes_ += ';';
  }

  std::string bytes_;
};

constexpr std::size_t kIdDigits = 32;

template <typename Row>
std::string idOfRow(const Row& row) {
  Canonical canonical;
  canonical.add(row, "id");
  return sha256(canonical.bytes()).substr(0, kIdDigits);
}

bool isStorable(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = text.front() == '\0' ? 0 : quillon::internal::utf8Length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

void makeFieldStorable(std::string& field) { makeStorable(field); }
void makeFieldStorable(std::optional<std::string>& field) {
  if (field) makeStorable(*field);
}
template <typename Other>
void makeFieldStorable(const Other& /*field*/) {}

template <typename Row>
void makeTextsStorable(Row& row) {
  forEachColumn(row, [](const char* /*name*/, auto& field) { makeFieldStorable(field); });
}

void dropNonFinite(std::optional<double>& limit) {
  if (limit && !std::isfinite(*limit)) limit.reset();
}

}  // namespace

std::string idOf(const Plan& plan) { return idOfRow(plan); }
std::string idOf(const Spec& spec) { return idOfRow(spec); }
std::string idOf(const Instrument& instrument) { return idOfRow(instrument); }

std::string idOf(const Station& station) {
  Station unmoved = station;
  unmoved.location.reset();
  return idOfRow(unmoved);
}

std::string sha256Of(const RunContent& content) {
  Canonical canonical;
  canonical.add(content.run, "sha256");
  canonical.addAll(content.steps);
  canonical.addAll(content.measurements);
  canonical.addAll(content.attributes);
  canonical.addAll(content.runInstruments);
  return sha256(canonical.bytes());
}

std::string sha256Of(const Event& event) {
  Canonical canonical;
  canonical.add(event, "sequence");
  return sha256(canonical.bytes());
}

void makeStorable(std::string& text) {
  if (isStorable(text)) return;
  std::string_view rest = text;
  std::string result;
  while (!rest.empty()) {
    const std::size_t length = rest.front() == '\0' ? 0 : quillon::internal::utf8Length(rest);
    if (length == 0) {
      result += "\\x";
      quillon::internal::appendHex(result, static_cast<unsigned char>(rest.front()));
    }
    result += rest.substr(0, length);
    rest.remove_prefix(std::max<std::size_t>(length, 1));
  }
  text = std::move(result);
}

void makeStorable(Plan& row) { makeTextsStorable(row); }
void makeStorable(Run& row) { makeTextsStorable(row); }
void makeStorable(Step& row) { makeTextsStorable(row); }
void makeStorable(Attribute& row) { makeTextsStorable(row); }
void makeStorable(Instrument& row) { makeTextsStorable(row); }
void makeStorable(RunInstrument& row) { makeTextsStorable(row); }
void makeStorable(Event& row) { makeTextsStorable(row); }
void makeStorable(Station& row) { makeTextsStorable(row); }

void makeStorable(Spec& row) {
  makeTextsStorable(row);
  dropNonFinite(row.low);
  dropNonFinite(row.high);
}

void makeStorable(Measurement& row) {
  makeTextsStorable(row);
  if (row.value && !std::isfinite(*row.value)) {
    row.text = std::isnan(*row.value) ? "nan" : *row.value > 0 ? "inf" : "-inf";
    row.value.reset();
  }
}

}  // namespace results
