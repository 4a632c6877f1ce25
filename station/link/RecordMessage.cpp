#include "RecordMessage.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace station {
namespace {

// What CBOR has no kind of its own for stands in an object with one of these keys.
constexpr const char* kDate = "date";  // milliseconds since 1970, UTC
constexpr const char* kDictionary = "dictionary";

Message messageOfValue(const QLTValue& value) {
  switch (value.type()) {
    case QLTValue::Type::Boolean:
      return value.boolValue();
    case QLTValue::Type::Integer:
      return value.int64Value();
    case QLTValue::Type::Real:
      return value.doubleValue();
    case QLTValue::Type::Text:
      return *value.string();
    case QLTValue::Type::Date:
      return {{kDate, value.date()->time_since_epoch().count()}};
    case QLTValue::Type::Data:
      return Message::binary(*value.data());
    case QLTValue::Type::Array: {
      Message array = Message::array();
      for (const QLTValue& element : *value.array()) array.push_back(messageOfValue(element));
      return array;
    }
    case QLTValue::Type::Dictionary:
      return {{kDictionary, messageOf(*value.dictionary())}};
  }
  return {};
}

QLTValue valueIn(const Message& message) {
  switch (message.type()) {
    case Message::value_t::boolean:
      return message.get<bool>();
    case Message::value_t::number_integer:
    case Message::value_t::number_unsigned:
      return message.get<std::int64_t>();
    case Message::value_t::number_float:
      return message.get<double>();
    case Message::value_t::binary:
      return QLTData(message.get_binary());
    case Message::value_t::array: {
      QLTArray array;
      for (const Message& element : message) array.push_back(valueIn(element));
      return array;
    }
    case Message::value_t::object:
      if (message.contains(kDate)) {
        return QLTDate(std::chrono::milliseconds(message.at(kDate).get<std::int64_t>()));
      }
      return dictionaryIn(message.at(kDictionary));
    default:
      return message.get<std::string>();
  }
}

template <typename T>
void put(Message& message, const char* key, const std::optional<T>& value) {
  if (value) message[key] = *value;
}

template <typename T>
std::optional<T> get(const Message& message, const char* key) {
  const auto found = message.find(key);
  return found == message.end() ? std::nullopt : std::optional<T>(found->get<T>());
}

}  // namespace

Message messageOf(const QLTDictionary& dictionary) {
  Message message = Message::object();
  for (const auto& [key, value] : dictionary) message[key] = messageOfValue(value);
  return message;
}

QLTDictionary dictionaryIn(const Message& message) {
  QLTDictionary dictionary;
  for (const auto& [key, value] : message.get_ref<const Message::object_t&>()) {
    dictionary.set(key, valueIn(value));
  }
  return dictionary;
}

Message messageOf(const QLTestResult& record) {
  Message message{
      {"run", record.runIndex()}, {"result", record.result()}, {"priority", record.priority()}};
  put(message, "test", record.testName());
  put(message, "subTest", record.subTestName());
  put(message, "serial", record.serialNumber());
  put(message, "site", record.siteName());
  put(message, "expected", record.expected());
  put(message, "actual", record.actual());
  put(message, "lowText", record.lowLimit());
  put(message, "highText", record.highLimit());
  put(message, "number", record.testNumber());
  put(message, "failMessage", record.failMessage());
  put(message, "value", record.value());
  put(message, "low", record.low());
  put(message, "high", record.high());
  put(message, "unit", record.unit());
  if (record.extras()) message["extras"] = messageOf(*record.extras());
  return message;
}

std::shared_ptr<QLTestResult> recordIn(const Message& message) {
  auto record = std::make_shared<QLTestResult>();
  record->setRunIndex(message.at("run").get<std::int32_t>());
  record->setResult(message.at("result").get<std::int32_t>());
  record->setPriority(message.at("priority").get<std::int32_t>());
  record->setTestName(get<std::string>(message, "test"));
  record->setSubTestName(get<std::string>(message, "subTest"));
  record->setSerialNumber(get<std::string>(message, "serial"));
  record->setSiteName(get<std::string>(message, "site"));
  record->setExpected(get<std::string>(message, "expected"));
  record->setActual(get<std::string>(message, "actual"));
  record->setLowLimit(get<std::string>(message, "lowText"));
  record->setHighLimit(get<std::string>(message, "highText"));
  record->setTestNumber(get<std::string>(message, "number"));
  record->setFailMessage(get<std::string>(message, "failMessage"));
  record->setValue(get<double>(message, "value"));
  record->setLow(get<double>(message, "low"));
  record->setHigh(get<double>(message, "high"));
  record->setUnit(get<std::string>(message, "unit"));
  const auto extras = message.find("extras");
  if (extras != message.end()) record->setExtras(dictionaryIn(*extras));
  return record;
}

Message messageOf(const QLTestResults& records) {
  Message message = Message::array();
  for (const auto& record : records) message.push_back(messageOf(*record));
  return message;
}

QLTestResults recordsIn(const Message& message) {
  QLTestResults records;
  for (const Message& record : message.get_ref<const Message::array_t&>()) {
    records.push_back(recordIn(record));
  }
  return records;
}

}  // namespace station
