#pragma once

#include <memory>

#include <QLTValue.h>
#include <QLTestResult.h>

#include "Channel.h"

namespace station {

// Values and records of the framework as parts of messages, and back. What comes back equals what
// was sent, but for the positions of values. Reading throws `Message::exception` where a part is
// missing or of a wrong kind.

Message messageOf(const QLTDictionary& dictionary);
QLTDictionary dictionaryIn(const Message& message);

Message messageOf(const QLTestResult& record);
std::shared_ptr<QLTestResult> recordIn(const Message& message);

Message messageOf(const QLTestResults& records);
QLTestResults recordsIn(const Message& message);

}  // namespace station
