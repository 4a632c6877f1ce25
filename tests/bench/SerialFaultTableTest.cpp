// What a device that misbehaves on a serial line comes to, over a real terminal.

#include <QLTBenchSerial.h>

#include <memory>
#include <vector>

#include "bench/LineFaults.h"
#include "support/Pty.h"

namespace {

class SerialLinePeer : public test::LinePeer {
 public:
  SerialLinePeer() {
    test::Pty pty;
    line_ = std::make_shared<QLTBenchSerial>(pty.path());
    EXPECT_TRUE(line_->open());
    device_.emplace(std::move(pty.master()));
  }
  void say(const std::string& bytes) { EXPECT_TRUE(device().send(bytes)); }
};

using Faults = test::LineFaults<SerialLinePeer>;
using Operation = test::LineOperation;

std::vector<Faults::Row> rows() {
  std::vector<Faults::Row> all = Faults::common("the other end is gone");
  all.push_back({"HasHungUp",
                 Operation::Write,
                 {{Faults::hangUp(), Faults::nothing(),
                   Faults::fails(Operation::Write, kQLTErrorLineWrite,
                                 "cannot be written: Input/output error")}}});
  return all;
}

using SerialFaultTable = Faults::Test;

TEST_P(SerialFaultTable, comesToWhatTheTableSays) {
  run([](const Faults::Row&) { return std::make_unique<SerialLinePeer>(); });
}

INSTANTIATE_TEST_SUITE_P(BenchSerial, SerialFaultTable,
                         testing::Combine(testing::ValuesIn(rows()), testing::Bool()),
                         Faults::testName);

}  // namespace
