#include "RecordMessage.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
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

/// The parts of a record, in the order in which they travel: without names, for there are many
/// records. `part` is given the functions that read and write it.
template <typename Part>
void eachPart(const Part& part) {
  using R = QLTestResult;
  part(&R::runIndex, &R::setRunIndex);
  part(&R::result, &R::setResult);
  part(&R::priority, &R::setPriority);
  part(&R::testName, &R::setTestName);
  part(&R::subTestName, &R::setSubTestName);
  part(&R::serialNumber, &R::setSerialNumber);
  part(&R::siteName, &R::setSiteName);
  part(&R::expected, &R::setExpected);
  part(&R::actual, &R::setActual);
  part(&R::lowLimit, &R::setLowLimit);
  part(&R::highLimit, &R::setHighLimit);
  part(&R::testNumber, &R::setTestNumber);
  part(&R::failMessage, &R::setFailMessage);
  part(&R::value, &R::setValue);
  part(&R::low, &R::setLow);
  part(&R::high, &R::setHigh);
  part(&R::unit, &R::setUnit);
  part(&R::extras, &R::setExtras);
}

void append(Message& message, std::int32_t number) { message.push_back(number); }
void append(Message& message, const std::optional<std::string>& text) {
  message.push_back(text ? Message(*text) : Message());
}
void append(Message& message, std::optional<double> number) {
  message.push_back(number ? Message(*number) : Message());
}
void append(Message& message, const std::optional<QLTDictionary>& dictionary) {
  message.push_back(dictionary ? messageOf(*dictionary) : Message());
}

void get(const Message& message, std::int32_t& number) { message.get_to(number); }
void get(const Message& message, std::optional<std::string>& text) {
  if (!message.is_null()) text = message.get<std::string>();
}
void get(const Message& message, std::optional<double>& number) {
  if (!message.is_null()) number = message.get<double>();
}
void get(const Message& message, std::optional<QLTDictionary>& dictionary) {
  if (!message.is_null()) dictionary = dictionaryIn(message);
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
  Message message = Message::array();
  eachPart([&](auto getter, auto /*setter*/) { append(message, (record.*getter)()); });
  return message;
}

std::shared_ptr<QLTestResult> recordIn(const Message& message) {
  auto record = std::make_shared<QLTestResult>();
  std::size_t index = 0;
  eachPart([&](auto getter, auto setter) {
    std::remove_cvref_t<decltype((record.get()->*getter)())> value{};
    get(message.at(index++), value);
    (record.get()->*setter)(std::move(value));
  });
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
