#include "Messages.h"

#include "RecordMessage.h"

namespace station {
namespace {

// The parts of a message: each structure names its own once, for both directions.

template <typename T>
void put(Message& message, const char* key, const T& value) {
  message[key] = value;
}
template <typename T>
void put(Message& message, const char* key, const std::optional<T>& value) {
  if (value) message[key] = *value;
}
void put(Message& message, const char* key, const QLTDictionary& value) {
  message[key] = messageOf(value);
}
void put(Message& message, const char* key, const QLTestResults& value) {
  message[key] = messageOf(value);
}
void put(Message& message, const char* key, Verdict value) {
  message[key] = static_cast<int>(value);
}
void put(Message& message, const char* key, const std::vector<Finding>& values) {
  Message& list = message[key] = Message::array();
  for (Finding finding : values) {
    Message& entry = list.emplace_back(Message::object());
    finding.parts([&entry](const char* part, const auto& value) { put(entry, part, value); });
  }
}

template <typename T>
void get(const Message& message, const char* key, T& value) {
  message.at(key).get_to(value);
}
template <typename T>
void get(const Message& message, const char* key, std::optional<T>& value) {
  const auto found = message.find(key);
  if (found != message.end()) value = found->get<T>();
}
void get(const Message& message, const char* key, QLTDictionary& value) {
  value = dictionaryIn(message.at(key));
}
void get(const Message& message, const char* key, QLTestResults& value) {
  value = recordsIn(message.at(key));
}
void get(const Message& message, const char* key, Verdict& value) {
  const int number = message.at(key).get<int>();
  if (number < 0 || number > static_cast<int>(Verdict::BrokenOff)) {
    throw BrokenMessage("a verdict of an unknown kind");
  }
  value = static_cast<Verdict>(number);
}
void get(const Message& message, const char* key, std::vector<Finding>& values) {
  for (const Message& entry : message.at(key)) {
    values.emplace_back().parts(
        [&entry](const char* part, auto& value) { get(entry, part, value); });
  }
}

}  // namespace

template <typename T>
Message messageFrom(const T& told) {
  Message message{{"type", T::kType}};
  T copy = told;
  copy.parts([&message](const char* key, const auto& value) { put(message, key, value); });
  return message;
}

template <typename T>
T take(const Message& message) {
  T told;
  try {
    told.parts([&message](const char* key, auto& value) { get(message, key, value); });
  } catch (const Message::exception& problem) {
    throw BrokenMessage(std::string(T::kType) + ": " + problem.what());
  }
  return told;
}

std::string typeOf(const Message& message) {
  const auto type = message.is_object() ? message.find("type") : message.end();
  return type != message.end() && type->is_string() ? type->get<std::string>() : "";
}

#define STATION_TRANSLATES(T)                  \
  template Message messageFrom(const T& told); \
  template T take(const Message& message)

STATION_TRANSLATES(Hello);
STATION_TRANSLATES(Refused);
STATION_TRANSLATES(Warned);
STATION_TRANSLATES(Logged);
STATION_TRANSLATES(Differed);
STATION_TRANSLATES(Noted);
STATION_TRANSLATES(Opened);
STATION_TRANSLATES(Checked);
STATION_TRANSLATES(Loaded);
STATION_TRANSLATES(SafeStateDone);
STATION_TRANSLATES(Ready);
STATION_TRANSLATES(Waiting);
STATION_TRANSLATES(Prepared);
STATION_TRANSLATES(HookStarted);
STATION_TRANSLATES(DeviceStarted);
STATION_TRANSLATES(TestStarted);
STATION_TRANSLATES(Reported);
STATION_TRANSLATES(Tested);
STATION_TRANSLATES(Asked);
STATION_TRANSLATES(Shown);
STATION_TRANSLATES(Progressed);
STATION_TRANSLATES(FlowEnded);
STATION_TRANSLATES(HookEnded);
STATION_TRANSLATES(Unloaded);
STATION_TRANSLATES(Check);
STATION_TRANSLATES(Load);
STATION_TRANSLATES(SafeState);
STATION_TRANSLATES(OpenLoggers);
STATION_TRANSLATES(Prepare);
STATION_TRANSLATES(TestDevice);
STATION_TRANSLATES(Answered);
STATION_TRANSLATES(Confirmed);
STATION_TRANSLATES(Stop);
STATION_TRANSLATES(Unload);

}  // namespace station
