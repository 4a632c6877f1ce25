#include <gmock/gmock.h>

#include <QLTBench.h>
#include <QLTBenchConsole.h>
#include <QLTBenchProgram.h>
#include <QLTBenchTcp.h>
#include <QLTErrorCodes.h>
#include <QLTTraffic.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/ConsoleLog.h"
#include "support/Endpoint.h"
#include "support/Errors.h"
#include "support/FaultTable.h"
#include "support/TcpPeer.h"
#include "support/TemporaryFolder.h"
#include "support/Watchdog.h"

namespace {

using std::chrono::milliseconds;
using test::IsError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Optional;

const std::string kFramework = QLTFrameworkErrorDomain;
using Settings = QLTBenchConsole::Settings;
using Echo = Settings::Echo;

Settings withPrompt(const std::string& prompt) {
  Settings settings;
  settings.prompt = prompt;
  return settings;
}

/// A console over TCP, and the device's end of the line.
class ConsoleTest : public testing::Test {
 protected:
  void connect(Settings settings) {
    line_ = std::make_shared<QLTBenchTcp>(
        QLTHostAndPort{"127.0.0.1", static_cast<std::uint16_t>(peer_.port())});
    ASSERT_TRUE(line_->open());
    device_.emplace(peer_.accept());
    console_ = QLTBenchConsole::initWithLine(line_, std::move(settings));
    console_->setTimeOutInSeconds(5);
  }
  /// A device that answers.
  void answer(test::Script script) { answering_.emplace(*device_, std::move(script)); }
  void stopAnswering() { answering_.reset(); }

  test::ConsoleLog log_;
  test::Watchdog watchdog_;
  test::TcpPeer peer_;
  std::optional<test::Endpoint> device_;
  std::optional<test::Device> answering_;
  std::shared_ptr<QLTBenchLine> line_;
  std::shared_ptr<QLTBenchConsole> console_;
  QLTError error_ = test::earlierError();
};

TEST_F(ConsoleTest, GivesLinesWithEchoAndPromptAsTheDiagnosticsConsoleDoes) {
  connect(withPrompt("=>"));
  answer([](const std::string& line) -> std::vector<std::string> {
    return {line + "\r\none\r\n\r\ntwo\r\n=> "};
  });
  EXPECT_THAT(console_->sendCommand("version", &error_),
              Optional(ElementsAre("version", "one", "", "two", "=>")));
  EXPECT_EQ(console_->output("version", &error_), "one\n\ntwo");
  EXPECT_THAT(error_, test::isUntouched());
  EXPECT_EQ(console_->where(), line_->where());
  EXPECT_EQ(console_->com(), line_);
  EXPECT_FALSE(console_->isLost());
}

TEST_F(ConsoleTest, FindsItsPromptWhereverItStands) {
  struct Case {
    std::string what;
    Settings settings;
    std::vector<std::string> pieces;
    std::string output;
  };
  Settings silent = withPrompt("#");
  silent.echo = Echo::Never;
  Settings plain = withPrompt("\x1b\\[1m#\x1b\\[0m");
  plain.stripsEscapes = false;
  Settings other = withPrompt("#");
  other.noise = "<noise>";
  const std::vector<Case> cases{
      {"in pieces", withPrompt(R"(root@dut:~[#])"), {"x\r\nab", "c\r\nroot@", "dut:~# "}, "abc"},
      {"also within the answer",
       withPrompt("=>"),
       {"x\r\na => b\r\n", "=> c\r\n=> "},
       "a => b\n=> c"},
      {"with colours",
       withPrompt("root#"),
       {"x\r\n\x1b[32mgreen\x1b[0m\r\n\x1b]0;title\aroot\x1b[1m# \x1b[", "0m"},
       "green"},
      {"with colours to be kept",
       plain,
       {"x\r\n\x1b[32mgreen\x1b[0m\r\n\x1b[1m#\x1b[0m"},
       "\x1b[32mgreen\x1b[0m"},
      {"with a kernel's message before it",
       withPrompt("#"),
       {"x\r\nok\r\n[   12.345678] usb 1-1: new\r\n# "},
       "ok"},
      {"with a kernel's message behind it",
       withPrompt("#"),
       {"x\r\nok\r\n# [   12.345678] usb 1-1: new", " device\r\n"},
       "ok"},
      {"with a kernel's message within a line",
       withPrompt("#"),
       {"x\r\no[    1.000001] eth0: up\r\nk\r\n# "},
       "ok"},
      {"with another noise", other, {"x\r\no<noise>1\r\nk\r\n# "}, "ok"},
      {"without a line end before it", withPrompt("#"), {"x\r\n10%\r20%\rdone\r# "}, ""},
      {"without an echo", withPrompt("#"), {"ok\r\n# "}, "ok"},
      {"with an answer like an echo", silent, {"x\r\n# "}, "x"},
      {"with an echo that is wrapped", withPrompt("#"), {" \rx\r\nok\r\n# "}, "ok"},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.what);
    connect(one.settings);
    answer([&](const std::string&) { return one.pieces; });
    EXPECT_EQ(console_->output("x", &error_), one.output) << error_.description().value_or("");
    stopAnswering();
  }
}

TEST_F(ConsoleTest, WaitsForThePromptAlone) {
  Settings settings = withPrompt(".*#");
  settings.quietInSeconds = 0.3;
  connect(settings);
  // It looks like one in the middle of a piece that is cut there.
  answer([](const std::string&) -> std::vector<std::string> {
    return {"x\r\nitem #", "1\r\nitem #", "2\r\n# "};
  });
  EXPECT_EQ(console_->output("x"), "item #1\nitem #2");
}

TEST_F(ConsoleTest, TellsWhatCameWithoutAPrompt) {
  connect(withPrompt("=>"));
  console_->setTimeOutInSeconds(0.1);
  EXPECT_EQ(console_->sendCommand("x", &error_), std::nullopt);
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorConsoleNoPrompt,
                              console_->where() + ": no prompt within 0.1 s; nothing came"));
  connect(withPrompt("=>"));
  console_->setTimeOutInSeconds(0.1);
  answer([](const std::string&) -> std::vector<std::string> { return {"x\r\nbusy\r\n"}; });
  EXPECT_EQ(console_->output("x", &error_), std::nullopt);
  EXPECT_THAT(error_,
              IsError(kFramework, kQLTErrorConsoleNoPrompt,
                      console_->where() + ": no prompt within 0.1 s; last came: x\\r\\nbusy"));
}

TEST_F(ConsoleTest, NeverTakesALateAnswerForTheNext) {
  connect(withPrompt("#"));
  console_->setTimeOutInSeconds(0.1);
  EXPECT_EQ(console_->output("slow"), std::nullopt);
  EXPECT_EQ(device_->receiveUntil('\n'), "slow\n");
  // Not ready yet: the next command is not even sent.
  EXPECT_EQ(console_->output("quick", &error_), std::nullopt);
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorConsoleNoPrompt,
                              console_->where() + ": not ready after a command that timed out: no "
                                                  "prompt within 0.1 s; nothing came"));
  EXPECT_EQ(device_->receiveUntil('\n'), "\n");
  // The late answer, and that of the empty line, come while the next command gets ready.
  console_->setTimeOutInSeconds(5);
  std::jthread device([&] {
    EXPECT_EQ(device_->receiveUntil('\n'), "\n");
    device_->send("slow\r\nLATE\r\n# \r\n# ");
    std::this_thread::sleep_for(milliseconds(40));
    device_->send("\r\n# ");
    EXPECT_EQ(device_->receiveUntil('\n'), "quick\n");
    device_->send("quick\r\nRIGHT\r\n# ");
  });
  EXPECT_EQ(console_->output("quick"), "RIGHT");
}

TEST_F(ConsoleTest, InterruptsWhatTakesTooLong) {
  Settings settings = withPrompt("#");
  settings.interrupt = "\x03";
  connect(settings);
  console_->setTimeOutInSeconds(0.05);
  EXPECT_EQ(console_->output("hang"), std::nullopt);
  EXPECT_EQ(device_->receiveUntil('\n'), "hang\n");
  console_->setTimeOutInSeconds(5);
  answer([](const std::string& line) -> std::vector<std::string> {
    if (line == "\x03") return {"^C\r\n# \r\n# "};
    return {line + "\r\nok\r\n# "};
  });
  EXPECT_EQ(console_->output("quick"), "ok");
}

TEST_F(ConsoleTest, DropsWhatCameBetweenTwoCommands) {
  connect(withPrompt("#"));
  device_->send("x\r\nUNASKED\r\n# ");
  std::this_thread::sleep_for(milliseconds(20));
  answer(
      [](const std::string& line) -> std::vector<std::string> { return {line + "\r\nok\r\n# "}; });
  EXPECT_EQ(console_->output("x"), "ok");
}

TEST_F(ConsoleTest, ChecksTheEcho) {
  Settings settings = withPrompt("#");
  settings.echo = Echo::Checked;
  connect(settings);
  answer([](const std::string& line) -> std::vector<std::string> {
    return {(line == "erase 1" ? "erase 7" : line) + "\r\nok\r\n# "};
  });
  EXPECT_EQ(console_->output("erase 2"), "ok");
  EXPECT_EQ(console_->output("erase 1", &error_), std::nullopt);
  EXPECT_THAT(error_,
              IsError(kFramework, kQLTErrorConsoleEcho,
                      console_->where() + ": the device heard \"erase 7\" instead of \"erase 1\""));
  EXPECT_EQ(console_->output("erase 2"), "ok");
}

TEST_F(ConsoleTest, RefusesLineEndsInACommandSinceEachWouldHaveAPrompt) {
  connect(withPrompt("#"));
  std::atomic<int> heard = 0;
  answer([&heard](const std::string&) -> std::vector<std::string> {
    ++heard;
    return {"ok\r\n# "};
  });
  for (const char* command : {"one\n", "one\rtwo", "one\r\ntwo"}) {
    EXPECT_EQ(console_->output(command, &error_), std::nullopt);
    EXPECT_EQ(error_.code(), kQLTErrorLineCommand);
  }
  EXPECT_EQ(console_->output("one"), "ok");
  EXPECT_EQ(heard, 1);
}

/// A device behind a log-in.
class LogIn {
 public:
  std::vector<std::string> answer(const std::string& line) {
    const std::scoped_lock lock(mutex_);
    lines_.push_back(line);
    if (state_ == State::User) {
      if (line.empty()) return {"\r\ndut login: "};
      state_ = State::Password;
      return {line + "\r\nPassword: "};
    }
    if (state_ == State::Password) {
      const bool isRight = line == "geheim42";
      state_ = isRight ? State::In : State::User;
      return {isRight ? "\r\nWelcome\r\n$ " : "\r\nLogin incorrect\r\ndut login: "};
    }
    return {line + "\r\n$ "};
  }
  std::vector<std::string> lines() {
    const std::scoped_lock lock(mutex_);
    return lines_;
  }

 private:
  enum class State { User, Password, In } state_ = State::User;
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

Settings withLogIn(const std::string& password) {
  Settings settings = withPrompt(R"(\$)");
  settings.user = "tester";
  settings.password = password;
  return settings;
}

TEST_F(ConsoleTest, LogsIn) {
  connect(withLogIn("geheim42"));
  LogIn device;
  answer([&](const std::string& line) { return device.answer(line); });
  EXPECT_TRUE(console_->open(&error_)) << error_.description().value_or("");
  EXPECT_THAT(error_, test::isUntouched());
  EXPECT_THAT(device.lines(), ElementsAre("", "tester", "geheim42"));
  EXPECT_EQ(console_->output("x"), "");
  // Who is logged in already is not asked again.
  EXPECT_TRUE(console_->open());
  for (const std::string& line : log_.lines()) EXPECT_THAT(line, Not(HasSubstr("geheim42")));
}

/// Who wants to know what is sent.
class Listener : public QLTTrafficWatcher {
 public:
  Listener() { QLTSetTrafficWatcher(this); }
  ~Listener() override { QLTSetTrafficWatcher(nullptr); }
  void happened(const QLTTrafficLine&, QLTTrafficEvent event, std::string_view bytes,
                int) override {
    if (event == QLTTrafficEvent::Sent) sent += std::string(bytes) + "|";
  }

  std::string sent;
};

TEST_F(ConsoleTest, KeepsThePasswordOutOfRecordings) {
  Listener listener;
  connect(withLogIn("geheim42"));
  LogIn device;
  answer([&](const std::string& line) { return device.answer(line); });
  EXPECT_TRUE(console_->open());
  EXPECT_EQ(listener.sent, "\n|tester\n|***|");
  line_->close();
}

TEST_F(ConsoleTest, TellsThatTheLogInIsRefused) {
  connect(withLogIn("wrong77"));
  LogIn device;
  answer([&](const std::string& line) { return device.answer(line); });
  EXPECT_FALSE(console_->open(&error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorConsoleLogIn,
                              console_->where() + ": the log-in of tester is refused"));
  for (const std::string& line : log_.lines()) EXPECT_THAT(line, Not(HasSubstr("wrong77")));
}

TEST_F(ConsoleTest, KeepsAnEchoedPasswordOutOfItsErrors) {
  connect(withLogIn("wrong77"));
  console_->setTimeOutInSeconds(0.2);
  answer([](const std::string& line) -> std::vector<std::string> {
    if (line == "wrong77") return {"wrong77\r\nhm"};
    return {"Password: "};
  });
  EXPECT_FALSE(console_->open(&error_));
  EXPECT_THAT(error_.description().value_or(""), HasSubstr("last came: ***\\r\\nhm"));
  for (const std::string& line : log_.lines()) EXPECT_THAT(line, Not(HasSubstr("wrong77")));
}

TEST_F(ConsoleTest, ACommandTellsThatTheDeviceHasLoggedOut) {
  connect(withLogIn("geheim42"));
  answer([](const std::string&) -> std::vector<std::string> { return {"\r\ndut login: "}; });
  EXPECT_EQ(console_->output("x", &error_), std::nullopt);
  const std::string text = console_->where() + ": asks for a log-in; has it restarted?";
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorConsoleLogIn, text));
  EXPECT_EQ(console_->output("x", &error_), std::nullopt);
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorConsoleLogIn, text));
}

TEST_F(ConsoleTest, ListensToADeviceThatStartsAndSendsNothing) {
  Settings settings = withLogIn("geheim42");
  settings.bootWaitInSeconds = 20;
  connect(settings);
  LogIn device;
  std::jthread starting([&] {
    for (const char* const text :
         {"boot 1.0\r\nautoboot in 1\r\n", "kernel\r\n", "\r\ndut login: "}) {
      std::this_thread::sleep_for(milliseconds(30));
      EXPECT_EQ(device_->receivePending(), "");
      device_->send(text);
    }
    answer([&](const std::string& line) { return device.answer(line); });
  });
  EXPECT_TRUE(console_->open(&error_)) << error_.description().value_or("");
  EXPECT_THAT(device.lines(), ElementsAre("tester", "geheim42"));
}

TEST_F(ConsoleTest, TellsThatADeviceDoesNotStart) {
  Settings settings = withPrompt("#");
  settings.bootWaitInSeconds = 0.1;
  connect(settings);
  device_->send("boot failed\r\n");
  EXPECT_FALSE(console_->open(&error_));
  EXPECT_THAT(error_,
              IsError(kFramework, kQLTErrorConsoleNoPrompt,
                      console_->where() + ": did not start within 0.1 s; last came: boot failed"));
}

TEST_F(ConsoleTest, WantsExpressionsThatCanBeRead) {
  connect(withPrompt("(#"));
  EXPECT_FALSE(console_->open(&error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorConfigWrong,
                              console_->where() + ": no regular expression: (#: missing ): (#"));
  EXPECT_EQ(console_->sendCommand("x", &error_), std::nullopt);
  connect({});
  EXPECT_FALSE(console_->open(&error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorConfigWrong,
                              console_->where() + ": no prompt is given for the console"));
  EXPECT_EQ(QLTBenchConsole::initWithLine(nullptr, {}), nullptr);
}

TEST_F(ConsoleTest, WorksOverAProgramAndIsOpenedAgain) {
  auto program = std::make_shared<QLTBenchProgram>(QLTProgram{
      {"sh", "-c", "printf '> '; while read -r line; do echo \"$line!\"; printf '> '; done"},
      "",
      {}});
  Settings settings = withPrompt(">");
  settings.echo = Echo::Never;
  const auto console = QLTBenchConsole::initWithLine(program, settings);
  ASSERT_TRUE(console->open(&error_)) << error_.description().value_or("");
  EXPECT_EQ(console->output("hey"), "hey!");
  program->closeInput();
  EXPECT_EQ(console->output("hey", &error_), std::nullopt);
  EXPECT_TRUE(console->isLost());
  EXPECT_TRUE(console->reopen());
  EXPECT_TRUE(console->open());
  EXPECT_EQ(console->output("hey"), "hey!");
}

TEST_F(ConsoleTest, TheTesterConfigMakesOne) {
  const test::TemporaryFolder folder;
  const std::string file = folder.path() / "password";
  std::ofstream(file) << "geheim42\n";
  QLTDictionary entry{{"class", "QLTBenchConsole"},
                      {"address", "127.0.0.1:" + std::to_string(peer_.port())},
                      {"prompt", R"(\$)"},
                      {"answerTimeOut", "7"},
                      {"user", "tester"},
                      {"passwordFile", file},
                      {"bootWait", "3"},
                      {"interrupts", "yes"},
                      {"echo", "checked"},
                      {"lineEnd", "cr"}};
  auto console =
      std::dynamic_pointer_cast<QLTBenchConsole>(QLTBench::createInstrument(entry, &error_));
  ASSERT_TRUE(console) << error_.description().value_or("");
  EXPECT_THAT(error_, test::isUntouched());
  EXPECT_FALSE(console->isLost());
  EXPECT_EQ(console->timeOutInSeconds(), 7);
  const Settings& settings = console->settings();
  EXPECT_EQ(settings.prompt, R"(\$)");
  EXPECT_EQ(settings.user, "tester");
  EXPECT_EQ(settings.password, "geheim42");
  EXPECT_EQ(settings.bootWaitInSeconds, 3);
  EXPECT_EQ(settings.interrupt, "\x03");
  EXPECT_EQ(settings.echo, Echo::Checked);
  EXPECT_EQ(settings.lineEnd, "\r");
  EXPECT_EQ(settings.noise, Settings().noise);
  EXPECT_EQ(settings.quietInSeconds, Settings().quietInSeconds);
  EXPECT_TRUE(settings.stripsEscapes);
  entry.set("passwordFile", std::string("/no/such"));
  EXPECT_FALSE(QLTBench::createInstrument(entry, &error_));
  EXPECT_THAT(error_, IsError(kFramework, kQLTErrorConfigWrong,
                              std::string("no password: /no/such: No such file or directory")));
}

}  // namespace
