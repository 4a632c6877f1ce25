#include "bench/ScpiClasses.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <QLTBenchLoad.h>
#include <QLTBenchMatrix.h>
#include <QLTBenchMeter.h>
#include <QLTBenchScope.h>
#include <QLTBenchScpi.h>
#include <QLTBenchSupply.h>
#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "bench/Lines.h"
#include "bench/ScpiDialect.h"
#include "common/Format.h"
#include "common/Text.h"

namespace quillon::bench {
namespace {

using Attribute = QLTInstrumentAttribute;
using Attributes = std::vector<Attribute>;

constexpr int kMostOutputs = 64;

/// An instrument on the line of an entry; lost, with the error, when that does not open or nothing
/// answers.
std::shared_ptr<QLTBenchScpi> scpiOf(const QLTDictionary& entry, QLTError* error) {
  auto line = makeLine(entry);
  QLTBenchScpiSettings settings;
  settings.lineEnd = line->lineEnd();
  settings.timeOutInSeconds = line->timeOutInSeconds();
  settings.checksQueue = isYes(entry, "checkErrors");
  if (!isSimulated(entry)) {  // one that is simulated is nobody
    settings.expected = {.vendor = entry.text("expectedVendor"),
                         .model = entry.text("expectedModel"),
                         .serial = entry.text("expectedSerial"),
                         .firmware = ""};
  }
  auto scpi = QLTBenchScpi::lost(std::move(line), std::move(settings));
  scpi->reopen(error);
  return scpi;
}

QLTBenchDialect dialectOf(const QLTDictionary& entry) {
  return {entry.text("dialect"), entry.text("dialectFile")};
}

/// What `on` makes; given also with a line that does not open, with the error.
template <typename Make>
std::shared_ptr<QLTObject> made(const QLTDictionary& entry, QLTError* error, Make on) {
  QLTError problem;
  auto instrument = on(scpiOf(entry, &problem), dialectOf(entry), error);
  if (instrument && problem) failWith(error, problem);
  return instrument;
}

/// Numbers with blanks between them.
std::optional<std::vector<std::int32_t>> relaysIn(const std::string& text) {
  std::vector<std::int32_t> relays;
  for (const std::string& word : internal::split(text, " ")) {
    if (word.empty()) continue;
    const auto relay = internal::numberIn<std::int32_t>(word);
    if (!relay) return std::nullopt;
    relays.push_back(*relay);
  }
  return relays;
}

std::shared_ptr<QLTObject> matrixOf(const QLTDictionary& entry, QLTError* error) {
  auto relays = relaysIn(entry.text("relays"));
  if (!relays) {
    return fail(error, kQLTErrorConfigWrong,
                internal::format("relays must be numbers with blanks between them, not \"%@\"",
                                 entry.text("relays")));
  }
  return made(entry, error, [&](auto scpi, auto dialect, QLTError* problem) {
    auto matrix = QLTBenchMatrix::on(std::move(scpi), std::move(dialect), problem);
    if (matrix) {
      matrix->setVerifies(isYes(entry, "verify"));
      matrix->setRelays(std::move(*relays));
    }
    return matrix;
  });
}

std::shared_ptr<QLTObject> supplyOf(const QLTDictionary& entry, QLTError* error) {
  return made(entry, error, [&](auto scpi, auto dialect, QLTError* problem) {
    auto supply =
        QLTBenchSupply::on(std::move(scpi), static_cast<std::int32_t>(entry.integer("outputs")),
                           std::move(dialect), problem);
    if (supply) supply->setStaysOn(isYes(entry, "staysOn"));
    return supply;
  });
}

template <typename Instrument>
std::shared_ptr<QLTObject> simpleOf(const QLTDictionary& entry, QLTError* error) {
  return made(entry, error, [](auto scpi, auto dialect, QLTError* problem) {
    return Instrument::on(std::move(scpi), std::move(dialect), problem);
  });
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

/// Those of an instrument with a dialect; `own` come last.
Attributes attributesOf(const char* kind, const Attributes& own = {}) {
  Attributes attributes = lineAttributes();
  attributes.push_back(
      Attribute::yesOrNo("checkErrors", "ask for errors after each command that has no answer")
          .standard("yes"));
  attributes.push_back(Attribute::text("expectedVendor", "whose it has to be, as *IDN? tells"));
  attributes.push_back(Attribute::text("expectedModel", "which model it has to be"));
  attributes.push_back(Attribute::text("expectedSerial", "which serial number it has to have"));
  if (*kind != '\0') {
    attributes.push_back(Attribute::text(
        "dialect", "its commands: " + joined(dialectNames(kind)) +
                       ", or one of dialectFile; otherwise the one that fits *IDN?"));
    attributes.push_back(Attribute::path("dialectFile", "a file with commands of further models"));
  }
  attributes.insert(attributes.end(), own.begin(), own.end());
  return attributes;
}

}  // namespace

std::vector<InstrumentClass> scpiClasses() {
  return {
      {{"QLTBenchScpi", "any instrument that speaks SCPI", attributesOf("")},
       [](const QLTDictionary& entry, QLTError* error) -> std::shared_ptr<QLTObject> {
         return scpiOf(entry, error);
       }},
      {{"QLTBenchMeter", "multimeter that speaks SCPI", attributesOf("meter")},
       simpleOf<QLTBenchMeter>},
      {{"QLTBenchSupply", "power supply that speaks SCPI",
        attributesOf("supply",
                     {Attribute::whole("outputs", 1, kMostOutputs, "how many it has").standard("1"),
                      Attribute::yesOrNo("staysOn", "leave outputs on when the plug-in is unloaded")
                          .standard("no")})},
       supplyOf},
      {{"QLTBenchLoad", "electronic load that speaks SCPI", attributesOf("load")},
       simpleOf<QLTBenchLoad>},
      {{"QLTBenchScope", "numbers that an oscilloscope measures, over SCPI", attributesOf("scope")},
       simpleOf<QLTBenchScope>},
      {{"QLTBenchMatrix", "switch matrix that speaks SCPI",
        attributesOf(
            "matrix",
            {Attribute::yesOrNo("verify", "ask the relays that were switched").standard("yes"),
             Attribute::text("relays",
                             "the numbers of all relays that the fixture uses, with blanks "
                             "between them: those asked when all were opened")})},
       matrixOf},
  };
}

}  // namespace quillon::bench
