#include <memory>
#include <utility>

#include <QLTBenchCan.h>

#include "bench/InstrumentTable.h"

namespace quillon::bench {
namespace {

using Attribute = QLTInstrumentAttribute;

std::shared_ptr<QLTObject> make(const QLTDictionary& entry, QLTError* error) {
  auto filters = QLTCanFilter::listIn(entry.text("filter"), error);
  if (!filters) return nullptr;
  QLTBenchCan::Settings settings;
  settings.isFd = isYes(entry, "fd");
  settings.bitRate = entry.integer("bitrate");
  settings.filters = *std::move(filters);
  const std::string interface = entry.text("interface");
  auto can = isSimulated(entry) ? QLTBenchCan::simulated(interface, std::move(settings))
                                : std::make_shared<QLTBenchCan>(interface, std::move(settings));
  can->setTimeOutInSeconds(entry.number("timeOut"));
  can->open(error);
  return can;
}

}  // namespace

InstrumentClass canClass() {
  constexpr std::int64_t slowest = 1000;
  constexpr std::int64_t fastest = 1'000'000;
  return {
      {"QLTBenchCan",
       "CAN bus",
       {Attribute::text("interface",
                        "the system's interface, such as can0, or unix: and the path of a "
                        "stand-in's socket")
            .needed(),
        Attribute::whole("bitrate", slowest, fastest,
                         "the bit rate that the interface must have, which the system has set; "
                         "whatever it is, where it is not given"),
        Attribute::yesOrNo("fd", "whether FD frames can be sent, and come").standard("no"),
        Attribute::text("filter",
                        "which frames are let through: ID or ID/MASK, of 3 or 8 hexadecimal "
                        "digits each, blanks between them; all, where it is not given"),
        Attribute::seconds("timeOut", 0.001, 3600, "the longest wait for a frame").standard("1")}},
      make};
}

}  // namespace quillon::bench
