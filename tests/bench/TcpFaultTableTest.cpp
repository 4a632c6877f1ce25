// What a device that misbehaves on the network comes to, over a real connection.

#include <QLTBenchTcp.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include "bench/LineFaults.h"
#include "support/TcpPeer.h"

namespace {

class TcpLinePeer : public test::LinePeer {
 public:
  TcpLinePeer() {
    line_ = std::make_shared<QLTBenchTcp>(
        QLTHostAndPort{"127.0.0.1", static_cast<std::uint16_t>(listener_.port())});
    if (line_->open()) device_.emplace(listener_.accept());
  }
  /// Sends, and waits until all of it is delivered.
  void say(const std::string& bytes) {
    ASSERT_TRUE(device().send(bytes));
    int notDelivered = 1;
    while (ioctl(device().descriptor(), SIOCOUTQ, &notDelivered) == 0 && notDelivered > 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

 private:
  test::TcpPeer listener_;
};

using Faults = test::LineFaults<TcpLinePeer>;
using Operation = test::LineOperation;

std::vector<Faults::Row> rows() {
  const Faults::Act nothing = Faults::nothing();
  const Faults::Act reset = [](TcpLinePeer& peer, const std::stop_token&) {
    test::TcpPeer::reset(peer.device());
  };
  std::vector<Faults::Row> all = Faults::common("the other end is gone");
  for (const Operation operation : Faults::reads()) {
    all.push_back({"BreaksOff",
                   operation,
                   {{nothing, Faults::answer(operation, Faults::later(reset)),
                     Faults::fails(operation, kQLTErrorLineRead,
                                   "cannot be read: Connection reset by peer")}}});
    all.push_back(
        {"HangsUpBehindAnswer",
         operation,
         {{nothing,
           Faults::answer(operation, Faults::both(Faults::say("+1.5\n"), Faults::hangUp())),
           Faults::givesAnswer(operation)}}});
  }
  all.push_back({"BrokeOff",
                 Operation::Write,
                 {{reset, nothing,
                   Faults::fails(Operation::Write, kQLTErrorLineWrite,
                                 "cannot be written: Connection reset by peer")}}});
  all.push_back({"TakesItsTime",
                 Operation::Write,
                 {{nothing,
                   [](TcpLinePeer& peer, const std::stop_token&) {
                     const std::size_t wanted = TcpLinePeer::longText().size();
                     EXPECT_EQ(peer.device().receive(wanted).size(), wanted);
                   },
                   Faults::gives("true")}}});
  return all;
}

using TcpFaultTable = Faults::Test;

TEST_P(TcpFaultTable, comesToWhatTheTableSays) {
  run([](const Faults::Row&) { return std::make_unique<TcpLinePeer>(); });
}

INSTANTIATE_TEST_SUITE_P(BenchTcp, TcpFaultTable,
                         testing::Combine(testing::ValuesIn(rows()), testing::Bool()),
                         Faults::testName);

}  // namespace
