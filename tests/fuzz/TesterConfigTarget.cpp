#include <QLTConsoleLog.h>
#include <QLTestSiteManager.h>

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>

#include "Check.h"
#include "EntryPoints.h"

namespace {

const std::string fileName = "TesterConfig_oc.csv";

/// FILE:LINE: REASON, of a line that exists and is not the header.
void checkDescription(std::string_view description, std::string_view text) {
  FUZZ_CHECK(description.starts_with(fileName + ":"));
  description.remove_prefix(fileName.size() + 1);
  std::size_t line = 0;
  const auto [end, status] =
      std::from_chars(description.data(), description.data() + description.size(), line);
  FUZZ_CHECK(status == std::errc{});
  description.remove_prefix(static_cast<std::size_t>(end - description.data()));
  FUZZ_CHECK(description.starts_with(": ") && description.size() > 2);
  const auto isNewline = [](char c) { return c == '\n' || c == '\r'; };
  FUZZ_CHECK(line >= 1);
  FUZZ_CHECK(line <= 1 + static_cast<std::size_t>(std::ranges::count_if(text, isNewline)));
}

void checkTable(const QLTDictionary& table, std::string_view text) {
  const auto isNewline = [](char c) { return c == '\n' || c == '\v' || c == '\f' || c == '\r'; };
  FUZZ_CHECK(table.size() <= static_cast<std::size_t>(std::ranges::count_if(text, isNewline)));
  for (const auto& [name, entry] : table) {
    FUZZ_CHECK(text.find(name) != std::string_view::npos);
    const QLTDictionary* const attributes = entry.dictionary();
    FUZZ_CHECK(attributes != nullptr);
    FUZZ_CHECK(attributes->contains("class") && attributes->contains("sim"));
    for (const auto& [key, value] : *attributes) FUZZ_CHECK(value.string() != nullptr);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (QLTSetLogSink([](std::string_view) {}), true);
  FUZZ_CHECK(silenced);
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  QLTError error;
  const auto table = QLTestSiteManager::parseTesterConfig(text, fileName, &error);
  if (table) {
    FUZZ_CHECK(!error);
    checkTable(*table, text);
  } else {
    FUZZ_CHECK(error.domain() == QLTFrameworkErrorDomain && error.code() == -40002);
    FUZZ_CHECK(error.description().has_value());
    checkDescription(*error.description(), text);
  }
  FUZZ_CHECK(QLTestSiteManager::parseTesterConfig(text, fileName) == table);
  return 0;
}
