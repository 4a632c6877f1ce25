// The SCPI driver, over TCP and over other devices.

#include <QLTBenchLoad.h>
#include <QLTBenchMatrix.h>
#include <QLTBenchScpi.h>
#include <QLTBenchSupply.h>
#include <QLTErrorCodes.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <deque>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "ScpiPeer.h"
#include "support/ConsoleLog.h"
#include "support/SignalStorm.h"

namespace {

using test::ScpiPeer;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class ScpiTest : public testing::Test {
 protected:
  std::string description() const { return error_.description().value_or("(none)"); }

  test::ConsoleLog log_;
  QLTError error_;
};

TEST_F(ScpiTest, tellsWhoTheInstrumentIs) {
  const ScpiPeer peer;
  ASSERT_TRUE(peer.scpi());

  EXPECT_EQ(peer->who().vendor, "ACME");
  EXPECT_EQ(peer->who().model, "M1");
  EXPECT_EQ(peer->who().serial, "4711");
  EXPECT_EQ(peer->who().firmware, "1.2,beta");
  EXPECT_EQ(peer->identityAtCreation(), "ACME, M1,4711 ,1.2,beta");
  EXPECT_FALSE(peer->isLost());
  EXPECT_EQ(QLTIdentity::of("ACME").vendor, "ACME");
  EXPECT_EQ(QLTIdentity::of("ACME").firmware, "");
}

TEST_F(ScpiTest, theLineEndIsThereFromTheFirstCommandOn) {
  QLTBenchScpiSettings settings = ScpiPeer::patient();
  settings.lineEnd = "\r";
  const ScpiPeer peer(test::Answers(), settings, '\r');
  ASSERT_TRUE(peer.scpi());
  EXPECT_TRUE(peer->send("OUTP ON"));

  EXPECT_THAT(peer.heard(), ElementsAre("*IDN?", "*CLS", "OUTP ON", "SYST:ERR?"));
}

TEST_F(ScpiTest, withoutAnIdentityThereIsNoInstrument) {
  const ScpiPeer silent(test::Answers{{"*IDN?", {}}}, ScpiPeer::impatient());
  EXPECT_FALSE(silent.scpi());
  const ScpiPeer empty(test::Answers{{"*IDN?", {"\n"}}});
  EXPECT_FALSE(empty.scpi());
  const ScpiPeer echoing(test::Answers{{"*IDN?", {"*IDN?\r\nACME,M1,1,2\n"}}});
  EXPECT_FALSE(echoing.scpi());
  EXPECT_THAT(log_.lines(), Contains(HasSubstr("echoes what it is sent: switch its echo off")));
  const ScpiPeer another(test::Answers{{"*IDN?", {"login:\n"}}});
  EXPECT_FALSE(another.scpi());
  EXPECT_THAT(log_.lines(),
              Contains(HasSubstr("does not tell who it is (*IDN?), but says \"login:\"")));
  EXPECT_FALSE(QLTBenchScpi::open(nullptr, &error_));
  EXPECT_EQ(error_.code(), kQLTErrorLineOpen);
}

TEST_F(ScpiTest, aNumberIsOneOrAnError) {
  const struct {
    const char* answer;
    double number;
  } numbers[] = {{"+1.50000000E+00", 1.5},
                 {" -3 ", -3},
                 {"0", 0},
                 {".5", 0.5},
                 {"1e3", 1000},
                 {"#H1F", 31},
                 {"#B101", 5},
                 {"#q17", 15}};
  ScpiPeer peer;
  for (const auto& each : numbers) {
    peer.answer("N?", std::string(each.answer) + "\r\n");
    EXPECT_EQ(peer->number("N?", &error_), each.number) << each.answer;
  }
  EXPECT_FALSE(error_);
  for (const char* answer : {"", "OL", "1.5 V", "1,5", "1.5;2", "--1", "+-1", "#X1", "0x10", "1e",
                             "1e999", "\"1\"", "ERROR", "1 2"}) {
    peer.answer("N?", std::string(answer) + "\n");
    error_ = {};
    EXPECT_EQ(peer->number("N?", &error_), std::nullopt) << answer;
    EXPECT_EQ(error_.code(), kQLTErrorScpiAnswer) << answer;
    EXPECT_THAT(description(), HasSubstr("the answer to \"N?\" is not a number"));
  }
}

TEST_F(ScpiTest, overloadAndNoReadingAreErrorsOfTheirOwn) {
  ScpiPeer peer;
  for (const char* answer : {"+9.90000000E+37", "-9.9E37", "INF", "ninf"}) {
    peer.answer("N?", std::string(answer) + "\n");
    EXPECT_EQ(peer->number("N?", &error_), std::nullopt) << answer;
    EXPECT_EQ(error_.code(), kQLTErrorScpiOverload) << answer;
  }
  for (const char* answer : {"9.91E37", "+9.91000000E+37", "nan"}) {
    peer.answer("N?", std::string(answer) + "\n");
    EXPECT_EQ(peer->number("N?", &error_), std::nullopt) << answer;
    EXPECT_EQ(error_.code(), kQLTErrorScpiNoReading) << answer;
  }
}

TEST_F(ScpiTest, readsListsSwitchesAndTexts) {
  const ScpiPeer peer(test::Answers{{"LIST?", {"1,+2.5, 9.91E37,9.9E37\n"}},
                                    {"ON?", {"ON\n"}},
                                    {"OFF?", {"+0\n"}},
                                    {"BITS?", {"0,1,1\n"}},
                                    {"TEXT?", {"\"a \"\"b\"\", c\"\r\n"}},
                                    {"BARE?", {"CURR\n"}},
                                    {"TEXTS?", {"\"a,b\",'c''d',EF\n"}},
                                    {"WHOLE?", {"+12\n"}},
                                    {"OPEN?", {"\"a\n"}},
                                    {"TWO?", {"2\n"}}});
  const auto list = peer->numbers("LIST?");
  ASSERT_TRUE(list);
  ASSERT_EQ(list->size(), 4U);
  EXPECT_EQ((*list)[1], 2.5);
  EXPECT_TRUE(std::isnan((*list)[2]));
  EXPECT_TRUE(std::isinf((*list)[3]));
  EXPECT_EQ(peer->boolean("ON?"), true);
  EXPECT_EQ(peer->boolean("OFF?"), false);
  EXPECT_EQ(peer->booleans("BITS?"), (std::vector<bool>{false, true, true}));
  EXPECT_EQ(peer->text("TEXT?"), "a \"b\", c");
  EXPECT_EQ(peer->text("BARE?"), "CURR");
  EXPECT_EQ(peer->texts("TEXTS?"), (std::vector<std::string>{"a,b", "c'd", "EF"}));
  EXPECT_EQ(peer->integer("WHOLE?"), 12);
  EXPECT_EQ(peer->query("BARE?"), "CURR\n");

  EXPECT_FALSE(peer->numbers("TEXTS?", &error_));
  EXPECT_FALSE(peer->integer("LIST?", &error_));
  EXPECT_FALSE(peer->boolean("TWO?", &error_));
  EXPECT_FALSE(peer->booleans("LIST?", &error_));
  EXPECT_FALSE(peer->text("OPEN?", &error_));
  EXPECT_FALSE(peer->texts("OPEN?", &error_));
  EXPECT_EQ(error_.code(), kQLTErrorScpiAnswer);
}

TEST_F(ScpiTest, aBlockHoldsAnyBytes) {
  const std::string bytes("\n\r\0#\xff\n", 6);
  ScpiPeer peer(test::Answers{{"WAV?", {"#", "16" + bytes.substr(0, 3), bytes.substr(3), "\n"}},
                              {"ALL?", {"#0abc\n"}},
                              {"NONE?", {"#10\n"}},
                              {"NEXT?", {"7\n"}}});

  EXPECT_EQ(peer->block("WAV?", &error_), QLTData(bytes.begin(), bytes.end()));
  EXPECT_EQ(peer->block("ALL?", &error_), (QLTData{'a', 'b', 'c'}));
  EXPECT_EQ(peer->block("NONE?", &error_), QLTData{});
  EXPECT_EQ(peer->number("NEXT?", &error_), 7.0);
  EXPECT_FALSE(error_) << description();
}

TEST_F(ScpiTest, whatIsNoBlockIsAnErrorAndTheNextAnswerIsThatOfItsQuery) {
  ScpiPeer peer(test::Answers{{"NEXT?", {"7\n"}}});
  for (const char* answer :
       {"1.5\n", "#A12\n", "#2xx\n", "#9999999999\n", "#13abcd\n", "#15ab\n", "\n\n"}) {
    peer.answer("WAV?", answer);
    error_ = {};
    EXPECT_EQ(peer->block("WAV?", &error_, 0.05), std::nullopt) << answer;
    EXPECT_THAT(description(), HasSubstr("no answer to \"WAV?\"")) << answer;
    EXPECT_EQ(peer->number("NEXT?", &error_), 7.0) << answer << description();
  }
}

TEST_F(ScpiTest, anErrorTellsAllThatTheQueueHolds) {
  ScpiPeer peer;
  auto queue = std::make_shared<std::deque<std::string>>();
  peer.answer("SYST:ERR?", [queue] {
    if (queue->empty()) return std::vector<std::string>{"0,\"No error\"\n"};
    const std::string entry = queue->front();
    queue->pop_front();
    return std::vector<std::string>{entry + "\n"};
  });
  *queue = {"-222,\"Data out of range; 99 V\"", "+310,\"A \"\"hot\"\" one\""};

  EXPECT_FALSE(peer->send("VOLT 99", &error_));

  EXPECT_EQ(error_.domain(), kQLTScipErrorDomain);
  EXPECT_EQ(error_.code(), -222);
  EXPECT_THAT(description(), HasSubstr("\"VOLT 99\": the instrument 127.0.0.1:"));
  EXPECT_THAT(description(), HasSubstr("-222 \"Data out of range; 99 V\"; 310 \"A \"hot\" one\""));
  EXPECT_TRUE(peer->send("VOLT 9", &error_));
  *queue = {"-1,\"x\""};
  peer->setChecksQueue(false);
  EXPECT_TRUE(peer->send("VOLT 99", &error_));
  EXPECT_EQ(peer->errors()->size(), 1U);
}

TEST_F(ScpiTest, aQueueWithoutEndIsReadOnlySoFar) {
  QLTBenchScpiSettings settings = ScpiPeer::patient();
  settings.longestQueue = 3;
  const ScpiPeer peer(test::Answers{{"SYST:ERR?", {"-310,\"System error\"\n"}}}, settings);

  EXPECT_FALSE(peer->checkErrors("it", &error_));

  EXPECT_THAT(description(), HasSubstr("and the queue does not end there"));
  EXPECT_EQ(peer->errors()->size(), 3U);
}

TEST_F(ScpiTest, theRestOfALongQueueIsNotLeftForTheNextCommand) {
  QLTBenchScpiSettings settings = ScpiPeer::patient();
  settings.longestQueue = 3;
  std::atomic<int> left = 0;
  ScpiPeer peer(test::Answers(), settings);
  peer.answer("SYST:ERR?", [&left] {
    if (left == 0) return std::vector<std::string>{"0,\"No error\"\n"};
    return std::vector<std::string>{"-310,\"Error " + std::to_string(left--) + "\"\n"};
  });
  peer.answer("*CLS", [&left] {
    left = 0;
    return std::vector<std::string>();
  });
  EXPECT_TRUE(peer->errors());  // behind the "*CLS" of the beginning
  left = 60;
  EXPECT_FALSE(peer->send("VOLT 99", &error_));
  EXPECT_THAT(description(), HasSubstr("-310 \"Error 60\"; -310 \"Error 59\"; -310 \"Error 58\"; "
                                       "and more, which were cleared (*CLS)"));
  EXPECT_TRUE(peer->send("VOLT 9", &error_)) << description();
  // One that is just as long as that has no rest.
  left = 3;
  EXPECT_FALSE(peer->send("VOLT 99", &error_));
  EXPECT_THAT(description(), testing::EndsWith("\"Error 1\""));
}

TEST_F(ScpiTest, anAnswerOfTheQueueThatIsNoneIsAnError) {
  const ScpiPeer peer(test::Answers{{"SYST:ERR?", {"fine\n"}}});

  EXPECT_FALSE(peer->send("VOLT 1", &error_));

  EXPECT_EQ(error_.code(), kQLTErrorScpiAnswer);
}

TEST_F(ScpiTest, silenceIsExplainedByTheQueue) {
  ScpiPeer peer;
  std::atomic<int> asked = 0;
  peer.answer("SYST:ERR?", [&asked] {
    return std::vector<std::string>{asked++ == 0 ? "-113,\"Undefined header\"\n" : "0,\"\"\n"};
  });

  EXPECT_EQ(peer->number("MEAS:VLOT?", &error_, 0.05), std::nullopt);

  EXPECT_EQ(error_.domain(), kQLTScipErrorDomain);
  EXPECT_EQ(error_.code(), -113);
  EXPECT_THAT(description(), HasSubstr("no answer to \"MEAS:VLOT?\""));
  EXPECT_THAT(description(), HasSubstr("-113 \"Undefined header\""));
  EXPECT_EQ(error_.underlyingError().code(), kQLTErrorLineTimedOut);
}

TEST_F(ScpiTest, anAnswerThatIsLateIsNotThatOfTheNextQuery) {
  ScpiPeer peer(test::Answers{{"FAST?", {"2\n"}}});
  peer.answer("SLOW?", [] {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    return std::vector<std::string>{"1\n"};
  });

  EXPECT_EQ(peer->number("SLOW?", &error_, 0.05), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorLineTimedOut);

  EXPECT_EQ(peer->number("FAST?", &error_), 2.0);
  EXPECT_EQ(peer->number("FAST?", &error_), 2.0);
}

/// Keeps a device from answering until it is opened.
class Gate {
 public:
  void open() { promise_.set_value(); }
  ScpiPeer::Answer before(const ScpiPeer::Answer& answer) const {
    return [opened = opened_, answer] {
      opened.wait();
      return answer();
    };
  }

 private:
  std::promise<void> promise_;
  std::shared_future<void> opened_ = promise_.get_future().share();
};

TEST_F(ScpiTest, anIdentityThatIsLateIsNotTheAnswerToAQuery) {
  const std::string identity = "ACME,M1,1,2\n";
  std::atomic<int> asked = 0;
  ScpiPeer peer(test::Answers{{"*IDN?", {identity}}, {"FAST?", {"2\n"}}, {"WAV?", {"#12ab\n"}}});
  const auto answersBlock = [&] { return peer->block("WAV?", &error_) == QLTData{'a', 'b'}; };
  const auto answersNumber = [&] { return peer->number("FAST?", &error_) == 2.0; };
  for (const bool isBlock : {true, false}) {
    Gate gate;
    asked = 0;
    peer.answer("SLOW?", gate.before([] { return std::vector<std::string>{"1\n"}; }));
    peer.answer("*IDN?", [&] {
      if (asked++ > 0) std::this_thread::sleep_for(std::chrono::milliseconds(50));
      return std::vector<std::string>{identity};
    });
    peer->setTimeOutInSeconds(0.05);
    EXPECT_EQ(peer->number("SLOW?", &error_), std::nullopt);
    EXPECT_EQ(peer->number("FAST?", &error_), std::nullopt);
    EXPECT_THAT(description(), HasSubstr("still does not answer"));
    gate.open();
    peer->setTimeOutInSeconds(20);
    EXPECT_TRUE(isBlock ? answersBlock() : answersNumber()) << description();
    EXPECT_EQ(asked, 3);
    EXPECT_TRUE(answersNumber()) << description();
    EXPECT_TRUE(answersBlock()) << description();
    EXPECT_EQ(peer->ask("*IDN?"), "ACME,M1,1,2");
    EXPECT_TRUE(answersNumber()) << description();
  }
}

TEST_F(ScpiTest, errorsOfWhatWasNotAnsweredAreNotThoseOfALaterCommand) {
  std::deque<std::string> queue;  // the device's thread has it
  ScpiPeer peer;
  peer.answer("SYST:ERR?", [&queue] {
    const std::string entry = queue.empty() ? "0,\"No error\"" : queue.front();
    if (!queue.empty()) queue.pop_front();
    return std::vector<std::string>{entry + "\n"};
  });
  Gate gate;
  peer.answer("BAD?", gate.before([&queue] {
    queue.emplace_back("-113,\"Undefined header\"");
    queue.emplace_back("-410,\"Query INTERRUPTED\"");
    return std::vector<std::string>();
  }));
  peer->setTimeOutInSeconds(0.05);
  EXPECT_EQ(peer->number("BAD?", &error_), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorLineTimedOut);
  gate.open();
  peer->setTimeOutInSeconds(20);
  log_.clear();

  EXPECT_TRUE(peer->send("VOLT 1", &error_)) << description();

  EXPECT_THAT(log_.lines(),
              Contains(AllOf(HasSubstr("before \"VOLT 1\": the instrument 127.0.0.1:"),
                             HasSubstr("says -113 \"Undefined header\""))));
}

TEST_F(ScpiTest, anAnswerOfAnotherFormIsNotFollowedByThatOfAnotherQuery) {
  ScpiPeer peer(test::Answers{{"A?", {"0,\"No error\"\n1\n"}}, {"B?", {"2\n"}}, {"C?", {"3\n"}}});

  EXPECT_EQ(peer->number("A?", &error_), std::nullopt);  // and its own is still to come

  EXPECT_EQ(peer->number("B?", &error_), 2.0);
  EXPECT_EQ(peer->number("C?", &error_), 3.0);
}

TEST_F(ScpiTest, aQueryThatIsOnlySentIsRefusedSinceItsAnswerWouldBeThatOfTheNext) {
  const ScpiPeer peer(test::Answers{{"OUTP?", {"0\n"}}, {"N?", {"1\n"}}});
  for (const char* query : {"OUTP?", "*RST;OUTP?", "DISP:TEXT \"why?\";OUTP?"}) {
    EXPECT_FALSE(peer->send(query, &error_)) << query;
    EXPECT_EQ(error_.code(), kQLTErrorLineCommand);
    EXPECT_THAT(description(), HasSubstr("is a query, whose answer would be taken for the next"));
    EXPECT_FALSE(peer->command(query, false));
  }
  EXPECT_TRUE(peer->send("DISP:TEXT \"why?\"", &error_)) << description();
  EXPECT_TRUE(peer->send("DATA #14a?\"b", &error_)) << description();
  EXPECT_EQ(peer->number("N?"), 1.0);
  EXPECT_THAT(peer.heard(), testing::Not(testing::Contains(HasSubstr("OUTP?"))));
}

TEST_F(ScpiTest, aLineEndInACommandIsRefused) {
  const ScpiPeer peer(test::Answers{{"N?", {"1\n"}}});
  for (const char* text : {"N?\n", "N?\r\nN?", "N? \"a\nb\"", "N? #12a\n\n", "N? #H1\n"}) {
    EXPECT_EQ(peer->number(text, &error_), std::nullopt) << text;
    EXPECT_EQ(error_.code(), kQLTErrorLineCommand) << text;
    EXPECT_FALSE(peer->block(text));
  }
  EXPECT_FALSE(peer->send("VOLT 5\nOUTP ON", &error_));
  EXPECT_THAT(description(), HasSubstr("holds a line end"));
  EXPECT_EQ(peer->number("N?"), 1.0);
  EXPECT_THAT(peer.heard(), ElementsAre("*IDN?", "*CLS", "N?"));
}

TEST_F(ScpiTest, aBlockInACommandHoldsAnyBytes) {
  const ScpiPeer peer(test::Answers(), ScpiPeer::patient());
  peer->setChecksQueue(false);

  EXPECT_TRUE(peer->send("DATA #13\n?\r,1", &error_)) << description();
  EXPECT_TRUE(peer->send("DATA #0\n?\r", &error_)) << description();
  EXPECT_EQ(peer->number("N? #13\n\n\n;\n", &error_), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorLineCommand);
}

/// Makes an instrument safe that has answered nothing since it was opened; gives so many of the
/// first messages that it got.
template <typename Make>
std::vector<std::string> toldInSilence(std::size_t count, Make make) {
  ScpiPeer peer(test::Answers(), ScpiPeer::impatient());
  for (const char* query : {"SYST:ERR?", "*IDN?"}) {
    peer.answer(query, [] { return std::vector<std::string>(); });
  }
  const auto instrument = make(peer.scpi());
  EXPECT_FALSE(instrument->makeSafe());
  constexpr std::size_t known = 2;  // *IDN?, *CLS
  while (peer.heard().size() < known + count) std::this_thread::yield();
  const std::vector<std::string> heard = peer.heard();
  return {heard.begin() + known, heard.begin() + known + static_cast<std::ptrdiff_t>(count)};
}

TEST_F(ScpiTest, anInstrumentThatAnswersNothingAnyMoreIsToldToBeSafeNevertheless) {
  using Scpi = std::shared_ptr<QLTBenchScpi>;
  EXPECT_THAT(toldInSilence(3,
                            [](const Scpi& scpi) {
                              return QLTBenchSupply::on(scpi, 3, {"supply-list", ""});
                            }),
              ElementsAre("OUTP OFF,(@1)", "OUTP OFF,(@2)", "OUTP OFF,(@3)"));
  EXPECT_THAT(toldInSilence(4,
                            [](const Scpi& scpi) {
                              return QLTBenchSupply::on(scpi, 2, {"supply", ""});
                            }),
              ElementsAre("INST:NSEL 1", "OUTP OFF", "INST:NSEL 2", "OUTP OFF"));
  // An answer is owed already.
  const auto outOfStep = [](auto instrument) {
    EXPECT_FALSE(instrument->scpi()->ask("X?"));
    return instrument;
  };
  EXPECT_THAT(toldInSilence(3, [&](const Scpi& scpi) { return outOfStep(QLTBenchLoad::on(scpi)); }),
              ElementsAre("X?", "*IDN?", "INP OFF"));
  EXPECT_THAT(
      toldInSilence(3, [&](const Scpi& scpi) { return outOfStep(QLTBenchMatrix::on(scpi)); }),
      ElementsAre("X?", "*IDN?", "ROUT:OPEN:ALL"));
}

TEST_F(ScpiTest, errorsOfWhatWasSentUnaskedAreNotThoseOfALaterCommand) {
  std::atomic<int> asked = 0;
  ScpiPeer peer;
  ASSERT_TRUE(peer.scpi());
  peer.answer("SYST:ERR?", [&asked] {
    const char* const answer = asked++ == 0 ? "-222,\"Out of range\"\n" : "0,\"\"\n";
    return std::vector<std::string>{answer};
  });
  EXPECT_FALSE(peer->sendUnasked("VOLT?", &error_));
  EXPECT_EQ(error_.code(), kQLTErrorLineCommand);
  EXPECT_FALSE(peer->sendUnasked("VOLT 1\nVOLT 2", &error_));
  EXPECT_TRUE(peer->sendUnasked("VOLT 99", &error_));
  EXPECT_TRUE(peer->send("VOLT 5", &error_)) << description();
  EXPECT_THAT(log_.lines(), Contains(HasSubstr("before \"VOLT 5\": the instrument")));
  EXPECT_THAT(peer.heard(), ElementsAre("*IDN?", "*CLS", "VOLT 99", "SYST:ERR?", "SYST:ERR?",
                                        "VOLT 5", "SYST:ERR?"));
}

TEST_F(ScpiTest, oneThatWasTakenForAnotherTellsAnewWhoItIs) {
  ScpiPeer peer(test::Answers{{"*IDN?", {"1.5,2.5\n"}}, {"N?", {"OL\n"}}});  // a late answer
  peer.answer("*IDN?", "ACME,M1,1,2\n");
  EXPECT_EQ(peer->number("N?", &error_), std::nullopt);
  EXPECT_FALSE(peer->isLost());
  peer->setTimeOutInSeconds(0.05);

  EXPECT_EQ(peer->number("N?", &error_), std::nullopt);

  EXPECT_THAT(description(), HasSubstr("answers something else than was asked"));
  EXPECT_TRUE(peer->isLost());
}

TEST_F(ScpiTest, waitsForWhatTakesLongAsLongAsItIsTold) {
  ScpiPeer peer;
  peer.answer("*OPC?", [] {
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    return std::vector<std::string>{"1\n"};
  });
  EXPECT_TRUE(peer->waitTillDone(5, &error_)) << description();
  EXPECT_FALSE(peer->waitTillDone(0.02, &error_));
  EXPECT_EQ(error_.code(), kQLTErrorLineTimedOut);
}

TEST_F(ScpiTest, readsStatusAndKeepsALogOfWhatWasSaid) {
  QLTBenchScpiSettings settings = ScpiPeer::patient();
  settings.longestLog = 4;
  const ScpiPeer peer(test::Answers{{"*STB?", {"+36\n"}}, {"*ESR?", {"256\n"}}}, settings);

  EXPECT_EQ(peer->statusByte(), 36);
  EXPECT_EQ(peer->eventStatus(&error_), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorScpiAnswer);
  EXPECT_THAT(peer->log(), ElementsAre("> *STB?", "< +36", "> *ESR?", "< 256"));
}

TEST_F(ScpiTest, anotherInstrumentThanExpectedIsLostAndGetsNothing) {
  for (const QLTIdentity& expected :
       {QLTIdentity{"", "", "4712", ""}, {"acme", "M2*", "", ""}, {"AC", "", "", ""}}) {
    QLTBenchScpiSettings settings = ScpiPeer::patient();
    settings.expected = expected;
    const ScpiPeer peer(test::Answers(), settings);
    EXPECT_FALSE(peer.scpi());
    EXPECT_THAT(peer.heard(), ElementsAre("*IDN?"));
  }
  EXPECT_THAT(log_.lines(),
              Contains(HasSubstr(" is another instrument: expected serial number 4712, "
                                 "but \"ACME, M1,4711 ,1.2,beta\" answers (-33005)")));
  EXPECT_THAT(log_.lines(), Contains(HasSubstr(": expected vendor acme, model M2*, but ")));
}

TEST_F(ScpiTest, theExpectedInstrumentIsTakenAndAnotherOneInItsPlaceIsNot) {
  QLTBenchScpiSettings settings = ScpiPeer::patient();
  settings.expected = {"acme", "m?", "47*", ""};
  ScpiPeer peer(test::Answers(), settings);
  ASSERT_TRUE(peer.scpi());
  const auto reopen = [&](const std::string& identity) {
    peer.answer("*IDN?", identity);
    peer.hangUp();
    auto accepting = std::jthread([&] { peer.acceptAgain(); });
    return peer->reopen(&error_);
  };

  EXPECT_FALSE(reopen("ACME,M1,4811,1.2\n"));
  EXPECT_EQ(error_.code(), kQLTErrorScpiIdentity);
  EXPECT_THAT(description(), HasSubstr("expected vendor acme, model m?, serial number 47*, but "
                                       "\"ACME,M1,4811,1.2\" answers"));
  EXPECT_TRUE(peer->isLost());
  EXPECT_EQ(peer->who().serial, "4711");  // whose name it was opened with
  EXPECT_FALSE(peer->sendUnasked("OUTP OFF", &error_));
  EXPECT_EQ(error_.code(), kQLTErrorLineWrite);
  EXPECT_EQ(peer.heard().back(), "*IDN?");

  EXPECT_TRUE(reopen("ACME,M1,4712,1.2\n")) << description();
  EXPECT_FALSE(peer->isLost());
}

TEST_F(ScpiTest, aLostInstrumentIsOpenedAgainAndAskedWhoItIs) {
  ScpiPeer peer(test::Answers{{"N?", {"1\n"}}});
  peer.hangUp();
  EXPECT_EQ(peer->number("N?", &error_), std::nullopt);
  EXPECT_TRUE(peer->isLost());
  peer.answer("*IDN?", "ACME,M2,1,2\n");

  std::thread accepting([&] { peer.acceptAgain(); });
  EXPECT_TRUE(peer->reopen(&error_)) << description();
  accepting.join();

  EXPECT_FALSE(peer->isLost());
  EXPECT_EQ(peer->who().model, "M2");
  EXPECT_EQ(peer->number("N?"), 1.0);
}

TEST_F(ScpiTest, signalsDisturbNothing) {
  const ScpiPeer peer(test::Answers{{"N?", {"1.", "5", "\n"}}, {"WAV?", {"#15ab", "\ncd", "\n"}}});
  const test::SignalStorm storm;
  for (int i = 0; i < 10; ++i) {
    ASSERT_EQ(peer->number("N?", &error_), 1.5) << description();
    ASSERT_EQ(peer->block("WAV?", &error_), (QLTData{'a', 'b', '\n', 'c', 'd'})) << description();
    ASSERT_TRUE(peer->send("VOLT 1", &error_)) << description();
  }
}

/// A device that is none of the library's, and gives what it has byte by byte.
class ByteByByte : public QLTAsciiReadWriteDevice {
 public:
  std::optional<std::string> read(std::int32_t, QLTError*) override {
    if (pending_.empty()) return "";
    const std::string byte = pending_.substr(0, 1);
    pending_.erase(0, 1);
    return byte;
  }
  using QLTAsciiReadWriteDevice::write;
  bool write(const std::string& text, QLTError*) override {
    if (text == "*IDN?\n") pending_ += "ACME,M3,1,2\r\n";
    if (text == "N?\n") pending_ += "1.5\r\n";
    if (text == "WAV?\n") pending_ += "#13\na\n\n";
    if (text == "SYST:ERR?\n") pending_ += "0,\"No error\"\r\n";
    return true;
  }
  bool close(QLTError*) override { return true; }

 private:
  std::string pending_;
};

TEST_F(ScpiTest, anyOtherDeviceServesToo) {
  const auto scpi = QLTBenchScpi::open(std::make_shared<ByteByByte>(), ScpiPeer::impatient());
  ASSERT_TRUE(scpi);

  EXPECT_EQ(scpi->number("N?"), 1.5);
  EXPECT_EQ(scpi->block("WAV?"), (QLTData{'\n', 'a', '\n'}));
  EXPECT_TRUE(scpi->send("VOLT 1"));
  EXPECT_EQ(scpi->number("SMELL?", &error_), std::nullopt);
  EXPECT_EQ(error_.code(), kQLTErrorLineTimedOut);
  EXPECT_EQ(scpi->number("N?"), 1.5);
}

}  // namespace
