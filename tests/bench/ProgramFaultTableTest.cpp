// What a program that misbehaves comes to, for each operation that meets it: the result, the error
// and the log, over real pipes.

#include <QLTBenchProgram.h>
#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include <stop_token>

#include "common/Files.h"
#include "support/FaultTable.h"
#include "support/TemporaryFolder.h"

namespace {

using std::chrono::milliseconds;
using test::Outcome;

enum class Operation { Read, ReadSome, AwaitEnd, Write };

/// A program that says what the test tells it through a FIFO, and reads nothing.
class Puppet {
 public:
  Puppet() {
    const std::string fifo = folder_.path() / "fifo";
    mkfifo(fifo.c_str(), 0600);
    device_ = std::make_unique<QLTBenchProgram>(
        QLTProgram{{"/bin/sh", "-c", "echo burnt >&2; cat \"$0\"; exit 4", fifo}, "", {}});
    device_->open();
    fifo_.emplace(quillon::internal::openFile(fifo, O_WRONLY).release());
    // Its last words are there before anything else happens.
    while (device_->errors().empty()) device_->readSome(0.01);
  }
  test::Endpoint& device() { return *fifo_; }
  QLTBenchProgram& program() { return *device_; }

  std::optional<std::string> run(Operation operation, double limit, QLTError* slot) {
    device_->setTimeOutInSeconds(limit);
    switch (operation) {
      case Operation::Read:
        return device_->read(5000, slot);
      case Operation::ReadSome:
        return device_->readSome(limit, slot);
      case Operation::AwaitEnd: {
        const auto end = device_->awaitEnd(limit, slot);
        return end ? std::optional(end->text()) : std::nullopt;
      }
      case Operation::Write:
        return device_->write(longText(), slot) ? "true" : "false";
    }
    return std::nullopt;
  }
  static const Outcome& expected(const Outcome& outcome) { return outcome; }
  /// More than a pipe holds.
  static const std::string& longText() {
    static const std::string text(1024 * 1024, 'x');
    return text;
  }

 private:
  test::TemporaryFolder folder_;
  std::unique_ptr<QLTBenchProgram> device_;
  std::optional<test::Endpoint> fifo_;
};

using Table = test::FaultTable<Puppet, Operation>;
using Act = Table::Act;
using Row = Table::Row;

constexpr milliseconds kPause(3);
constexpr double kShort = 0.1;

const Act nothing = Table::nothing();
const Act flood = Table::flood();
const Act hangUp = Table::hangUp();
Act later(const Act& act) { return Table::later(act); }
Act both(const Act& first, const Act& second) { return Table::both(first, second); }
Act say(const std::string& bytes) { return Table::sayInPieces({bytes}, kPause); }
/// The program has ended before the operation.
const Act gone = [](Puppet& puppet, const std::stop_token&) {
  puppet.device().close();
  puppet.program().awaitEnd(10);
};

Outcome given(const std::string& text) { return {text, {}, {}}; }
/// Where "where" stands in the record.
Outcome failed(std::int32_t code, const std::string& what, bool isOfLine = true) {
  const std::string text = "sh: " + what;
  QLTDictionary information{{kQLTErrorDescriptionKey, text}};
  if (isOfLine) information.set("where", std::string("sh"));
  return {std::nullopt,
          QLTError(QLTFrameworkErrorDomain, code, information),
          {"error number is: " + text + " (" + std::to_string(code) + ")\n"}};
}
Outcome ended(std::int32_t code = kQLTErrorLineRead) {
  return failed(code, "has ended: exit status 4; standard error: burnt");
}
Outcome silent(const std::string& what = "nothing came within 0.1 s") {
  return failed(kQLTErrorLineTimedOut, what);
}
Outcome notWritten(Outcome outcome) {
  outcome.result = "false";
  return outcome;
}

std::string nameOf(Operation operation) {
  switch (operation) {
    case Operation::Read:
      return "Read";
    case Operation::ReadSome:
      return "ReadSome";
    case Operation::AwaitEnd:
      return "AwaitEnd";
    case Operation::Write:
      return "Write";
  }
  return "";
}

std::vector<Row> rows() {
  const Operation read = Operation::Read;
  const Operation some = Operation::ReadSome;
  const Operation end = Operation::AwaitEnd;
  const Operation write = Operation::Write;
  const Outcome runsOn =
      failed(kQLTErrorLineTimedOut, "has not ended within 0.1 s; standard error: burnt", false);
  const Outcome takesNothing =
      notWritten(failed(kQLTErrorLineTimedOut, "did not take all of the text within 0.1 s"));
  const Outcome exits{"exit status 4", {}, {}};
  const std::string line = "3.3 V\n";
  return {
      {"Silence", read, {{nothing, nothing, silent()}}, kShort},
      {"Silence", some, {{nothing, nothing, given("")}}, kShort},
      {"Silence", end, {{nothing, nothing, runsOn}}, kShort},
      {"TakesNothing", write, {{nothing, nothing, takesNothing}}, kShort},
      Table::splitAnywhere(read, line, kPause, given(line)),
      Table::splitAnywhere(some, line,
                           [](const std::string& piece) {
                             return Table::Step{say(piece), nothing, given(piece)};
                           }),
      {"LateReply", read, {{nothing, later(say(line)), given(line)}}},
      {"LateReply", some, {{nothing, later(say(line)), given(line)}}},
      {"LineInTwoTimeOuts",
       read,
       {{say("3."), nothing, silent("no line end came within 0.1 s, but: 3.")},
        {say("3 V\nnext\n"), nothing, given(line)},
        {nothing, nothing, given("next\n")}},
       kShort},
      {"TwoReplies",
       read,
       {{say(line + line), nothing, given(line)}, {nothing, nothing, given(line)}}},
      {"Ends", read, {{nothing, later(hangUp), ended()}}},
      {"Ends", some, {{nothing, later(hangUp), ended()}}},
      {"Ends", end, {{nothing, later(hangUp), exits}}},
      {"Ends", write, {{nothing, later(hangUp), notWritten(ended(kQLTErrorLineWrite))}}},
      {"EndsAmidALine", read, {{nothing, both(say("3."), later(hangUp)), ended()}}},
      {"EndedBefore", read, {{gone, nothing, ended()}, {nothing, nothing, ended()}}},
      {"EndedBefore", some, {{gone, nothing, ended()}}},
      {"EndedBefore", end, {{gone, nothing, exits}}},
      {"EndedBefore", write, {{gone, nothing, notWritten(ended(kQLTErrorLineWrite))}}},
      {"EndedAfterALine",
       read,
       {{both(say(line), gone), nothing, given(line)}, {nothing, nothing, ended()}}},
      {"Flood", end, {{nothing, flood, runsOn}}, kShort},
      {"Flood", write, {{nothing, flood, takesNothing}}, kShort},
      {"BinaryLine",
       read,
       {{say(std::string("\0\xff\n", 3)), nothing, given(std::string("\0\xff\n", 3))}}},
  };
}

class ProgramFaults : public Table::Test {};

TEST_P(ProgramFaults, ComeToWhatTheTableSays) {
  run([](const Row&) { return std::make_unique<Puppet>(); });
}

INSTANTIATE_TEST_SUITE_P(Table, ProgramFaults,
                         testing::Combine(testing::ValuesIn(rows()), testing::Bool()),
                         Table::testName);

}  // namespace
