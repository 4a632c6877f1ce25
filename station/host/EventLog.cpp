#include "EventLog.h"

#include <utility>

namespace station {

void EventLog::add(const std::string& kind, const std::optional<std::string>& site,
                   const std::string& text, const std::optional<std::string>& who) const {
  diagnostics_.write(site.value_or("station"), text + (who ? ", by " + *who : ""));
  if (store_ == nullptr) return;
  results::Event event;
  event.kind = kind;
  event.site = site;
  event.text = text;
  event.who = who;
  try {
    store_->recordEvent(std::move(event));
  } catch (const results::StoreError& problem) {
    diagnostics_.write("station", std::string("the event is not in the store: ") + problem.what());
  }
}

}  // namespace station
