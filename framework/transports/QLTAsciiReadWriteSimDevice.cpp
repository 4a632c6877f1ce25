#include "QLTAsciiReadWriteSimDevice.h"

#include <algorithm>
#include <cstddef>

#include <QLTPropertyList.h>

#include "transports/SimulatedExchange.h"

using quillon::internal::recordedReply;

namespace {

std::optional<std::string> textOf(const QLTValue* value) {
  const std::string* text = value != nullptr ? value->string() : nullptr;
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

}  // namespace

QLTAsciiReadWriteSimDevice::QLTAsciiReadWriteSimDevice(const QLTText& path) {
  if (auto* const standIn = traffic_.begin(path.orEmpty())) {
    standIn->open();
  } else {
    traffic_.opened();
  }
  const std::optional<QLTDictionary> file = QLTPropertyList::readDictionary(path.orEmpty());
  if (!file) return;
  if (const QLTValue* challenges = file->find("challenges");
      challenges != nullptr && challenges->dictionary() != nullptr) {
    responses_ = *challenges->dictionary();
  }
  if (const QLTValue* script = file->find("script");
      script != nullptr && script->array() != nullptr) {
    scriptResponses_ = *script->array();
  }
}

std::optional<std::string> QLTAsciiReadWriteSimDevice::response(const QLTText& challenge) const {
  return textOf(responses_.find(challenge.orEmpty()));
}

std::optional<std::string> QLTAsciiReadWriteSimDevice::nextScriptedResponse() {
  if (currentScriptIndex_ + 1 >= std::ssize(scriptResponses_)) return std::nullopt;
  ++currentScriptIndex_;
  return textOf(&scriptResponses_[static_cast<std::size_t>(currentScriptIndex_)]);
}

void QLTAsciiReadWriteSimDevice::addResponse(const QLTText& response, const QLTText& challenge) {
  responses_.set(challenge.orEmpty(), response.orEmpty());
}

void QLTAsciiReadWriteSimDevice::insertResponse(const QLTText& response, std::int32_t index) {
  const auto place =
      std::clamp(std::ptrdiff_t{index}, std::ptrdiff_t{0}, std::ssize(scriptResponses_));
  scriptResponses_.insert(scriptResponses_.begin() + place, response.orEmpty());
}

std::optional<std::string> QLTAsciiReadWriteSimDevice::read(std::int32_t, QLTError*) {
  if (auto recorded = recordedReply(traffic_)) return recorded;
  std::optional<std::string> answer;
  if (inScript_) {
    answer = nextScriptedResponse();
  } else if (lastChallenge_) {
    answer = response(*lastChallenge_);
  }
  if (answer) traffic_.received(*answer);
  return answer;
}

bool QLTAsciiReadWriteSimDevice::write(const std::string& text, QLTError*) {
  lastChallenge_ = text;
  if (auto* const standIn = traffic_.standIn()) return standIn->write(text) == 0;
  traffic_.sent(text);
  return true;
}

bool QLTAsciiReadWriteSimDevice::close(QLTError*) { return true; }
