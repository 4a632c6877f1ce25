#include "QLTAsciiReadWriteSimDevice.h"

#include <algorithm>
#include <cstddef>

#include <QLTPropertyList.h>

namespace {

std::optional<std::string> textOf(const QLTValue* value) {
  const std::string* text = value != nullptr ? value->string() : nullptr;
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

}  // namespace

QLTAsciiReadWriteSimDevice::QLTAsciiReadWriteSimDevice(const QLTText& path) {
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
  if (inScript_) return nextScriptedResponse();
  return lastChallenge_ ? response(*lastChallenge_) : std::nullopt;
}

bool QLTAsciiReadWriteSimDevice::write(const std::string& text, QLTError*) {
  lastChallenge_ = text;
  return true;
}

bool QLTAsciiReadWriteSimDevice::close(QLTError*) { return true; }
