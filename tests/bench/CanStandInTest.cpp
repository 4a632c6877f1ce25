// A CAN bus and the node on it, at the stand-in in a process of its own.

#include <QLTBenchCan.h>
#include <QLTErrorCodes.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "simulators/SimulatorProcess.h"
#include "support/TemporaryFolder.h"

namespace {

using test::SimulatorProcess;
using testing::HasSubstr;

std::string textOf(const QLTError& error) { return error.description().value_or(""); }

/// A node, and the bus that leads to it.
class Node {
 public:
  explicit Node(const std::string& replies, std::vector<std::string> options = {})
      : process_(all(path(), std::move(options)), replies) {
    const std::string line = process_.readLine();
    EXPECT_EQ(line, "quillon-sim can: interface=unix:" + path());
    const std::string interface = "unix:" + path();
    can_ = std::make_unique<QLTBenchCan>(interface, QLTBenchCan::Settings{.isFd = true});
    EXPECT_TRUE(can_->open());
    can_->setTimeOutInSeconds(10);
  }

  QLTBenchCan& can() { return *can_; }
  SimulatorProcess& process() { return process_; }
  std::string path() const { return (folder_.path() / "can").string(); }
  std::optional<std::string> ask(const char* text, const char* answer, QLTError* error = nullptr) {
    const auto frame = can_->request(*QLTCanFrame::of(text), *QLTCanId::of(answer), error);
    return frame ? std::optional(frame->text()) : std::nullopt;
  }

 private:
  static std::vector<std::string> all(const std::string& path, std::vector<std::string> options) {
    options.insert(options.begin(), {"can", "--socket", path, "-v"});
    return options;
  }

  test::TemporaryFolder folder_;
  SimulatorProcess process_;
  std::unique_ptr<QLTBenchCan> can_;
};

TEST(CanStandIn, answersAsItsReplyFileSays) {
  Node node(
      "\"123#0102\" -> \"125#\" \"124#0A0B\"\n"
      "\"123#\"* -> \"124#FF\"\n"
      "\"18DAF110#\"* -> \"18DA10F1#R2\"\n"
      "\"123##1\"* -> \"124##0\" delay 5\n");
  EXPECT_EQ(node.ask("123#0102", "124"), "124#0A0B");
  EXPECT_EQ(node.ask("123#03", "124"), "124#FF");
  EXPECT_EQ(node.ask("18DAF110#021003", "18DA10F1"), "18DA10F1#R2");
  EXPECT_EQ(node.ask("123##1AB", "124"), "124##0");
}

TEST(CanStandIn, answersAsItsSampleSays) {
  Node node("", {"--replies", test::samplePath("can.replies")});
  EXPECT_EQ(node.ask("605#4041600000000000", "585"), "585#4B41600037020000");
  EXPECT_EQ(node.ask("605#4078100000000000", "585"), "585#4378100010270000");
  EXPECT_EQ(node.ask("605#4099990000000000", "585"), "585#8000000000000206");
  EXPECT_EQ(node.ask("605#2F60600001000000", "585"), "585#6000000000000000");
}

TEST(CanStandIn, misbehavesAsItIsTold) {
  Node node(
      "\"001#\" -> silent\n"
      "\"002#\" -> \"124#\"\n"
      "\"003#\" -> \"cut 5 124#01\"\n"
      "\"004#\" -> \"no-ack\"\n"
      "\"005#\" -> \"error-passive\"\n"
      "\"006#\" -> \"warning\" \"124#06\"\n"
      "\"007#\" -> \"overflow\"\n"
      "\"008#\" -> \"no-wire\"\n"
      "\"009#\" -> \"124#\" garbage \"xyz\"\n"
      "\"00A#\" -> \"bus-off\"\n");
  const auto fails = [&](const char* question, std::int32_t code, const char* text) {
    SCOPED_TRACE(question);
    QLTError error;
    EXPECT_EQ(node.ask(question, "125", &error), std::nullopt);
    EXPECT_EQ(error.code(), code);
    EXPECT_THAT(textOf(error), HasSubstr(text));
  };
  node.can().setTimeOutInSeconds(0.05);
  fails("001#", kQLTErrorLineTimedOut, "no frame 125 came within 0.05 s");
  node.can().setTimeOutInSeconds(10);
  EXPECT_TRUE(node.can().send({{2}}));
  EXPECT_EQ(node.can().receive(), QLTCanFrame::of("124#"));  // not the one that was asked for
  fails("003#", kQLTErrorCanGarbled, "no CAN frame: 5 bytes");
  fails("004#", kQLTErrorCanUnacknowledged, "no other node acknowledges");
  fails("005#", kQLTErrorCanPassive, "error passive");
  EXPECT_EQ(node.ask("006#", "124"), "124#06");
  fails("007#", kQLTErrorCanBus, "has lost frames");
  fails("008#", kQLTErrorCanBus, "CAN high has no wire");
  fails("009#", kQLTErrorCanGarbled, "no CAN frame: 7 bytes");
  EXPECT_FALSE(node.can().isLost());
  fails("00A#", kQLTErrorCanBusOff, "has left the bus");
  EXPECT_TRUE(node.can().isLost());
}

TEST(CanStandIn, hangsUpAndIsThereAgain) {
  Node node("\"001#\" -> \"124#01\" away 0\n");
  EXPECT_EQ(node.ask("001#", "124"), "124#01");
  QLTError error;
  EXPECT_EQ(node.can().receive(&error), std::nullopt);
  EXPECT_EQ(textOf(error), node.can().where() + ": the other end is gone");
  EXPECT_TRUE(node.can().isLost());
  while (!node.can().reopen()) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  EXPECT_EQ(node.ask("001#", "124"), "124#01");
}

TEST(CanStandIn, showsFramesAndWhatIsNone) {
  Node node("", {"--connections", "1"});
  EXPECT_TRUE(node.can().send(*QLTCanFrame::of("123#R4")));
  ASSERT_TRUE(node.process().waitForErrors("\"123#R4\""));
  node.can().close();
  EXPECT_EQ(node.process().wait(), 0);
  EXPECT_EQ(node.process().errors(), "* connected\n< \"123#R4\"\n* disconnected\n");
  struct stat status {};
  EXPECT_NE(stat(node.path().c_str(), &status), 0);
}

TEST(CanStandIn, leavesAFileAlone) {
  const test::TemporaryFolder folder;
  const std::string file = folder.write("can", "mine");
  SimulatorProcess sim({"can", "--socket", file});
  EXPECT_EQ(sim.wait(), 1);
  EXPECT_THAT(sim.errors(), HasSubstr(file + " is not a socket, and is left as it is"));
  EXPECT_EQ(test::contentOf(file), "mine");
}

TEST(CanStandIn, aReplyThatIsNoFrameIsTold) {
  Node node("\"001#\" -> \"1234#\"\n");
  EXPECT_TRUE(node.can().send({{1}}));
  EXPECT_EQ(node.process().wait(), 1);
  EXPECT_THAT(node.process().errors(), HasSubstr("'1234#' is no CAN frame"));
}

TEST(CanStandIn, needsAPlace) {
  for (const std::vector<std::string>& mistake : {std::vector<std::string>{"can"},
                                                  {"can", "--pty"},
                                                  {"can", "--socket", "/tmp/x", "--split", "1"}}) {
    SimulatorProcess sim(mistake);
    EXPECT_EQ(sim.wait(), 2);
  }
}

}  // namespace
