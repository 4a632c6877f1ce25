#include "StateFeed.h"

#include <chrono>
#include <utility>

#include "common/Text.h"
#include "web/MergePatch.h"
#include "web/Secrets.h"

namespace web {

using Json = nlohmann::json;

namespace {

std::string textOf(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

Bytes eventBytes(std::string_view event, std::string_view id, std::string_view data) {
  std::string bytes;
  bytes.reserve(data.size() + id.size() + 40);
  if (!id.empty()) bytes.append("id: ").append(id).append("\n");
  bytes.append("event: ").append(event).append("\ndata: ").append(data).append("\n\n");
  return std::make_shared<const std::string>(std::move(bytes));
}

std::int64_t nowMicroseconds() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

StateFeed::StateFeed(Site& site, std::size_t keptDeltas, std::size_t keptBytes)
    : site_(site),
      keptDeltas_(keptDeltas),
      keptBytes_(keptBytes),
      epoch_(randomToken().substr(0, 16)) {}

Bytes StateFeed::update() {
  const std::uint64_t generation = site_.generation();
  if (generation_ == generation) return nullptr;
  Json next = site_.state();
  generation_ = generation;
  Json patch = mergePatch(state_, next);
  if (patch.empty()) return nullptr;
  state_ = std::move(next);
  stateText_ = textOf(state_);
  ++sequence_;
  patch["sequence"] = sequence_;
  patch["now"] = nowMicroseconds();
  Bytes delta = eventBytes("delta", id(), textOf(patch));
  deltas_.push_back(delta);
  bytes_ += delta->size();
  while (deltas_.size() > keptDeltas_ || bytes_ > keptBytes_) {
    bytes_ -= deltas_.front()->size();
    deltas_.pop_front();
  }
  return delta;
}

std::string StateFeed::state() const {
  std::string text = "{\"epoch\":\"" + epoch_ + "\",\"sequence\":" + std::to_string(sequence_) +
                     ",\"now\":" + std::to_string(nowMicroseconds());
  if (!state_.empty()) text += ",";
  return text.append(stateText_, 1);
}

std::vector<Bytes> StateFeed::beginning(const std::optional<std::string>& lastEventId) const {
  if (lastEventId && lastEventId->rfind(epoch_ + ".", 0) == 0) {
    const auto number =
        quillon::internal::numberIn<std::uint64_t>(lastEventId->substr(epoch_.size() + 1));
    if (number && *number <= sequence_ && sequence_ - *number <= deltas_.size()) {
      const auto missed = static_cast<std::ptrdiff_t>(sequence_ - *number);
      return {deltas_.end() - missed, deltas_.end()};
    }
  }
  return {eventBytes("snapshot", id(), state())};
}

}  // namespace web
