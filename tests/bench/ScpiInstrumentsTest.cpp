// The instruments that speak SCPI, made from lines of a tester-config file, at the stand-ins.

#include <QLTBench.h>
#include <QLTBenchLoad.h>
#include <QLTBenchMatrix.h>
#include <QLTBenchMeter.h>
#include <QLTBenchScope.h>
#include <QLTBenchSupply.h>
#include <QLTErrorCodes.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "simulators/SimulatorProcess.h"
#include "support/ConsoleLog.h"
#include "support/SignalStorm.h"
#include "support/TemporaryFolder.h"

namespace {

using Function = QLTBenchMeter::Function;
using Measurement = QLTBenchScope::Measurement;
using Mode = QLTBenchLoad::Mode;
using testing::HasSubstr;

/// An instrument of the class `Instrument` at a stand-in.
template <typename Instrument>
class Stand {
 public:
  Stand(const char* className, std::vector<std::string> standIn,
        const QLTDictionary& attributes = {}, const std::string& replies = "")
      : sim_(withPort(std::move(standIn)), replies), port_(sim_.readPort()) {
    entry_ = {{"class", className},
              {"sim", "0"},
              {"address", "127.0.0.1:" + std::to_string(port_)},
              {"timeOut", "5"}};
    entry_.merge(attributes);
    made_ = std::dynamic_pointer_cast<Instrument>(QLTBench::createInstrument(entry_, &error_));
  }
  Instrument* operator->() const { return made_.get(); }
  explicit operator bool() const { return made_ != nullptr; }
  /// The end of the object.
  void end() { made_.reset(); }
  const QLTError& error() const { return error_; }
  std::string description() const { return error_.description().value_or("(none)"); }
  std::uint16_t port() const { return port_; }

 private:
  static std::vector<std::string> withPort(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--tcp", "0"});
    return arguments;
  }

  test::ConsoleLog log_;
  test::SimulatorProcess sim_;
  std::uint16_t port_;
  QLTDictionary entry_;
  QLTError error_;
  std::shared_ptr<Instrument> made_;
};

TEST(QLTBenchMeter, measuresEveryFunction) {
  Stand<QLTBenchMeter> meter("QLTBenchMeter", {"scpi", "--reading", "VOLT=-3.3", "--reading",
                                               "FRES=12.5", "--reading", "CURR:AC=0.25"});
  ASSERT_TRUE(meter) << meter.description();
  EXPECT_EQ(meter->who().model, "SIM-DMM");
  EXPECT_EQ(meter->dialect(), "meter");

  EXPECT_EQ(meter->measure(Function::VoltageDC), -3.3);
  EXPECT_EQ(meter->measure(Function::VoltageAC), 1.0);
  EXPECT_EQ(meter->measure(Function::CurrentDC), 0.1);
  EXPECT_EQ(meter->measure(Function::CurrentAC), 0.25);
  EXPECT_EQ(meter->measure(Function::Resistance), 1000.0);
  EXPECT_EQ(meter->measure(Function::Resistance4), 12.5);
  EXPECT_EQ(meter->measure(Function::Frequency), 1000.0);
  EXPECT_EQ(meter->measure(Function::Period), 0.001);
  EXPECT_EQ(meter->measure(Function::Temperature), 23.5);
  EXPECT_EQ(meter->measure(Function::Continuity), 1.0);
  EXPECT_EQ(meter->measure(Function::Diode), 0.6);
}

TEST(QLTBenchMeter, rangesIntegrationAndTriggersReachTheMeter) {
  Stand<QLTBenchMeter> meter("QLTBenchMeter", {"scpi", "--reading", "VOLT=3.3"});
  ASSERT_TRUE(meter) << meter.description();
  QLTError error;

  EXPECT_EQ(meter->measure(Function::VoltageDC, 10), 3.3);
  EXPECT_EQ(meter->scpi()->text("CONF?"), "VOLT +1.00000000E+01,+1.00000000E-05");
  EXPECT_EQ(meter->measure(Function::VoltageDC, 1, &error), std::nullopt);
  EXPECT_EQ(error.code(), kQLTErrorScpiOverload);
  EXPECT_FALSE(meter->configure(Function::VoltageDC, 5000, &error));
  EXPECT_EQ(error.code(), -222);

  EXPECT_TRUE(meter->configure(Function::Resistance4));
  EXPECT_TRUE(meter->setIntegration(0.2));
  EXPECT_EQ(meter->scpi()->number("FRES:NPLC?"), 0.2);
  EXPECT_FALSE(meter->setIntegration(1000, &error));

  EXPECT_TRUE(meter->configure(Function::VoltageDC));
  EXPECT_TRUE(meter->setTrigger(QLTBenchMeter::Trigger::Bus, 1, 3));
  EXPECT_TRUE(meter->initiate());
  meter->scpi()->setTimeOutInSeconds(0.05);
  EXPECT_FALSE(meter->fetch(&error));  // not yet
  EXPECT_EQ(error.code(), -230);
  meter->scpi()->setTimeOutInSeconds(5);
  EXPECT_TRUE(meter->trigger());
  EXPECT_EQ(meter->fetch(), (std::vector<double>{3.3, 3.3, 3.3}));
  EXPECT_TRUE(meter->setTrigger(QLTBenchMeter::Trigger::External, 2));
  EXPECT_EQ(meter->readAll(), (std::vector<double>{3.3, 3.3}));
  EXPECT_TRUE(meter->setTrigger(QLTBenchMeter::Trigger::Immediate));
  EXPECT_EQ(meter->read(), 3.3);
  EXPECT_TRUE(meter->abort());
}

class QLTBenchSupplyDialectTest : public testing::TestWithParam<const char*> {};

TEST_P(QLTBenchSupplyDialectTest, drivesEachOutput) {
  Stand<QLTBenchSupply> supply("QLTBenchSupply",
                               {"supply", "--outputs", "2", "--resistance", "2=10"},
                               {{"outputs", "2"}, {"dialect", GetParam()}});
  ASSERT_TRUE(supply) << supply.description();
  QLTError error;

  EXPECT_TRUE(supply->set(5, 1, 2, &error)) << error.description().value_or("");
  EXPECT_EQ(supply->voltage(2), 5.0);
  EXPECT_EQ(supply->currentLimit(2), 1.0);
  EXPECT_EQ(supply->voltage(1), 0.0);
  EXPECT_EQ(supply->measureVoltage(2), 0.0);
  EXPECT_TRUE(supply->setOutput(true, 2, &error)) << error.description().value_or("");
  EXPECT_EQ(supply->isOn(2), true);
  EXPECT_EQ(supply->isOn(1), false);
  EXPECT_EQ(supply->measureVoltage(2), 5.0);
  EXPECT_EQ(supply->measureCurrent(2), 0.5);
  EXPECT_TRUE(supply->setCurrentLimit(0.2, 2));
  EXPECT_EQ(supply->measureVoltage(2), 2.0);

  EXPECT_EQ(supply->hasTripped(2), false);
  EXPECT_TRUE(supply->setOverCurrent(true, 2));
  EXPECT_EQ(supply->hasTripped(2), true);
  EXPECT_FALSE(supply->setOutput(true, 2, &error));
  EXPECT_EQ(error.code(), -221);
  EXPECT_TRUE(supply->setOverCurrent(false, 2));
  EXPECT_TRUE(supply->clearProtection(2));
  EXPECT_TRUE(supply->setOverVoltage(4, 2));
  EXPECT_FALSE(supply->setOutput(true, 2, &error));
  EXPECT_EQ(error.code(), kQLTErrorScpiNotDone);
  EXPECT_EQ(supply->hasTripped(2), true);
  EXPECT_TRUE(supply->clearProtection(2));
  EXPECT_TRUE(supply->setOverVoltage({}, 2));
  EXPECT_TRUE(supply->setOutput(true, 2));

  EXPECT_FALSE(supply->setVoltage(31, 1, &error));
  EXPECT_EQ(error.code(), -222);
  EXPECT_FALSE(supply->setVoltage(1, 3, &error));
  EXPECT_THAT(error.description().value_or(""), HasSubstr("has the outputs 1 to 2, not 3"));
}

INSTANTIATE_TEST_SUITE_P(In, QLTBenchSupplyDialectTest,
                         testing::Values("supply", "supply-list", "supply-header"),
                         [](const auto& info) {
                           std::string name = info.param;
                           std::erase(name, '-');
                           return name;
                         });

TEST(QLTBenchSupply, theSafeStateSwitchesAllOutputsOffAndSaysWhenOneIsNot) {
  Stand<QLTBenchSupply> supply("QLTBenchSupply", {"supply", "--outputs", "2"}, {{"outputs", "2"}});
  ASSERT_TRUE(supply) << supply.description();
  EXPECT_TRUE(supply->setOutput(true, 1) && supply->setOutput(true, 2));
  const std::shared_ptr<QLTBenchScpi> scpi = supply->scpi();

  EXPECT_TRUE(supply->makeSafe());
  EXPECT_EQ(scpi->booleans("OUTP? (@1,2)"), (std::vector<bool>{false, false}));

  // One that does not do it does not keep the others from it.
  Stand<QLTBenchSupply> broken("QLTBenchSupply", {"supply", "--outputs", "2"},
                               {{"outputs", "2"}, {"dialect", "supply-list"}},
                               "\"OUTP OFF,(@1)\" -> \"\" silent\n\"OUTP? (@1)\" -> \"1\"\n");
  ASSERT_TRUE(broken) << broken.description();
  EXPECT_TRUE(broken->setOutput(true, 2));
  QLTError error;
  EXPECT_FALSE(broken->makeSafe(&error));
  EXPECT_EQ(error.code(), kQLTErrorScpiNotDone);
  EXPECT_THAT(error.description().value_or(""), HasSubstr("output 1 of the supply 127.0.0.1:"));
  EXPECT_EQ(broken->scpi()->boolean("OUTP? (@2)"), false);
}

TEST(QLTBenchSupply, theEndOfTheObjectSwitchesOffWhatItHasSwitchedOn) {
  for (const bool staysOn : {false, true}) {
    Stand<QLTBenchSupply> supply("QLTBenchSupply", {"supply"},
                                 {{"staysOn", staysOn ? "yes" : "no"}});
    ASSERT_TRUE(supply) << supply.description();
    EXPECT_TRUE(supply->setOutput(true));
    const std::shared_ptr<QLTBenchScpi> scpi = supply->scpi();

    supply.end();

    EXPECT_EQ(scpi->boolean("OUTP?"), staysOn);
  }
}

TEST(QLTBenchSupply, anOldErrorOfTheInstrumentKeepsNoOutputOn) {
  Stand<QLTBenchSupply> supply("QLTBenchSupply", {"supply", "--outputs", "2"}, {{"outputs", "2"}},
                               "\"MEAS:VOLT?\" -> error \"-310,Too hot\"\n");
  ASSERT_TRUE(supply) << supply.description();
  EXPECT_TRUE(supply->setOutput(true, 1) && supply->setOutput(true, 2));
  EXPECT_TRUE(supply->scpi()->number("MEAS:VOLT?"));  // nobody asks for errors after it
  QLTError error;

  EXPECT_TRUE(supply->makeSafe(&error)) << error.description().value_or("");

  EXPECT_EQ(supply->scpi()->booleans("OUTP? (@1,2)"), (std::vector<bool>{false, false}));
}

TEST(QLTBenchSupply, whatIsNoNumberIsNotSent) {
  Stand<QLTBenchSupply> supply("QLTBenchSupply", {"supply"}, {{"checkErrors", "no"}});
  ASSERT_TRUE(supply) << supply.description();
  QLTError error;
  for (const double value : {NAN, -INFINITY}) {
    EXPECT_FALSE(supply->setVoltage(value, 1, &error));
    EXPECT_EQ(error.code(), kQLTErrorLineCommand);
    EXPECT_THAT(error.description().value_or(""), HasSubstr(": \"voltage\" cannot be "));
  }
  EXPECT_TRUE(supply->scpi()->errors()->empty());
}

TEST(QLTBenchSupply, anOutputThatDoesNotSwitchIsAnError) {
  Stand<QLTBenchSupply> supply("QLTBenchSupply", {"supply", "--stuck", "1"});
  ASSERT_TRUE(supply) << supply.description();
  QLTError error;

  EXPECT_FALSE(supply->setOutput(true, 1, &error));

  EXPECT_EQ(error.code(), kQLTErrorScpiNotDone);
  EXPECT_THAT(error.description().value_or(""),
              HasSubstr("was switched on, but says that it is off"));
}

TEST(QLTBenchLoad, drawsInEachModeAndIsOffAtItsEnd) {
  for (const char* dialect : {"load", "load-mode"}) {
    Stand<QLTBenchLoad> load("QLTBenchLoad", {"load", "--source", "10,0.5"},
                             {{"dialect", dialect}});
    ASSERT_TRUE(load) << load.description();
    EXPECT_TRUE(load->set(Mode::Current, 2));
    EXPECT_EQ(load->isOn(), false);
    EXPECT_TRUE(load->setInput(true));
    EXPECT_EQ(load->measureCurrent(), 2.0);
    EXPECT_EQ(load->measureVoltage(), 9.0);
    EXPECT_EQ(load->measurePower(), 18.0);
    EXPECT_TRUE(load->set(Mode::Resistance, 4.5));
    EXPECT_EQ(load->measureCurrent(), 2.0);
    EXPECT_TRUE(load->set(Mode::Voltage, 8));
    EXPECT_EQ(load->measureCurrent(), 4.0);
    EXPECT_TRUE(load->set(Mode::Power, 18));
    EXPECT_NEAR(load->measurePower().value_or(0), 18, 1e-6);
    QLTError error;
    EXPECT_FALSE(load->set(Mode::Current, 31, &error));
    EXPECT_EQ(error.code(), -222);

    const std::shared_ptr<QLTBenchScpi> scpi = load->scpi();
    load.end();
    EXPECT_EQ(scpi->boolean("INP?"), false);
  }
}

TEST(QLTBenchScope, measuresNumbersOfItsChannels) {
  for (const char* dialect : {"scope", "scope-names"}) {
    Stand<QLTBenchScope> scope("QLTBenchScope", {"scope", "--reading", "VPP=2.5"},
                               {{"dialect", dialect}});
    ASSERT_TRUE(scope) << scope.description();
    const struct {
      Measurement measurement;
      double value;
    } values[] = {{Measurement::PeakToPeak, 2.5},    {Measurement::Amplitude, 3.3},
                  {Measurement::Maximum, 3.3},       {Measurement::Minimum, 0},
                  {Measurement::High, 3.3},          {Measurement::Low, 0},
                  {Measurement::Average, 1.65},      {Measurement::Rms, 2.3334524},
                  {Measurement::Frequency, 1000},    {Measurement::Period, 0.001},
                  {Measurement::RiseTime, 2e-8},     {Measurement::FallTime, 2.5e-8},
                  {Measurement::PulseWidth, 0.0005}, {Measurement::NegativeWidth, 0.0005},
                  {Measurement::DutyCycle, 50}};
    for (const auto& each : values) {
      EXPECT_EQ(scope->measure(each.measurement), each.value) << static_cast<int>(each.measurement);
    }
    QLTError error;
    EXPECT_EQ(scope->measure(Measurement::Frequency, 2, &error), std::nullopt);
    EXPECT_EQ(error.code(), kQLTErrorScpiNoReading);
    const auto samples = scope->scpi()->block("WAV:DATA?");
    ASSERT_TRUE(samples);
    EXPECT_EQ(samples->size(), 200U);
    EXPECT_EQ(samples->front(), '\n');
    EXPECT_EQ(samples->back(), 0xfa);
  }
}

TEST(BenchScpi, anOldErrorIsNoneOfTheSafeState) {
  const std::string hot = "\"*STB?\" -> error \"-310,Too hot\"\n";
  Stand<QLTBenchLoad> load("QLTBenchLoad", {"load"}, {}, hot);
  ASSERT_TRUE(load) << load.description();
  EXPECT_TRUE(load->setInput(true));
  EXPECT_TRUE(load->scpi()->statusByte());
  EXPECT_TRUE(load->makeSafe());
  EXPECT_EQ(load->isOn(), false);

  Stand<QLTBenchMatrix> matrix("QLTBenchMatrix", {"matrix"}, {}, hot);
  ASSERT_TRUE(matrix) << matrix.description();
  EXPECT_TRUE(matrix->close({101}));
  EXPECT_TRUE(matrix->scpi()->statusByte());
  EXPECT_TRUE(matrix->makeSafe());
  EXPECT_EQ(matrix->areClosed({101}), std::vector<bool>{false});
}

TEST(QLTBenchMatrix, switchesListsOfRelaysAndAsksThem) {
  Stand<QLTBenchMatrix> matrix("QLTBenchMatrix", {"matrix", "--closed", "201", "--stuck", "105"});
  ASSERT_TRUE(matrix) << matrix.description();
  QLTError error;

  EXPECT_TRUE(matrix->close({101, 102}));
  EXPECT_EQ(matrix->areClosed({101, 103, 201}), (std::vector<bool>{true, false, true}));
  EXPECT_TRUE(matrix->open({101}));
  EXPECT_TRUE(matrix->closeOnly({110, 111}));
  EXPECT_EQ(matrix->scpi()->ask("ROUT:CLOS:STAT?"), "(@110,111)");
  EXPECT_TRUE(matrix->makeSafe());
  EXPECT_EQ(matrix->scpi()->ask("ROUT:CLOS:STAT?"), "(@)");
  EXPECT_TRUE(matrix->close({}));
  EXPECT_FALSE(matrix->close({104, 105}, &error));
  EXPECT_EQ(error.code(), kQLTErrorScpiNotDone);
  EXPECT_THAT(error.description().value_or(""),
              HasSubstr("told to close say that they are open: 105"));
  EXPECT_FALSE(matrix->close({133}, &error));
  EXPECT_EQ(error.code(), -222);
}

TEST(QLTBenchMatrix, theSafeStateAsksAllRelaysOfTheFixture) {
  Stand<QLTBenchMatrix> matrix("QLTBenchMatrix", {"matrix", "--closed", "105", "--stuck", "105"},
                               {{"relays", "104 105 106"}});
  ASSERT_TRUE(matrix) << matrix.description();
  QLTError error;
  EXPECT_FALSE(matrix->makeSafe(&error));
  EXPECT_THAT(error.description().value_or(""),
              HasSubstr("told to open say that they are closed: 105"));
  matrix->setVerifies(false);
  EXPECT_TRUE(matrix->makeSafe());

  Stand<QLTBenchMatrix> wrong("QLTBenchMatrix", {"matrix"}, {{"relays", "104,105"}});
  EXPECT_FALSE(wrong);
  EXPECT_EQ(wrong.error().code(), kQLTErrorConfigWrong);
}

// Dialects.

class DialectFileTest : public testing::Test {
 protected:
  std::string write(const std::string& text) const {
    return folder_.write("models", text).string();
  }
  /// A supply with that file.
  QLTDictionary with(const std::string& text, const std::string& dialect = "") const {
    QLTDictionary attributes{{"dialectFile", write(text)}};
    if (!dialect.empty()) attributes.set("dialect", dialect);
    return attributes;
  }

  test::TemporaryFolder folder_;
};

constexpr const char* kOwnDialects = R"(# Supplies of the laboratory
[other : supply]
matches = OTHER,*
[lab : supply-list]
matches = quillon,sim-psu,*
clearProtection =
[lab2 : lab]
voltage = SOUR{channel}:VOLT {value}
)";

TEST_F(DialectFileTest, theOneThatFitsTheIdentityIsChosen) {
  Stand<QLTBenchSupply> supply("QLTBenchSupply", {"supply"}, with(kOwnDialects));
  ASSERT_TRUE(supply) << supply.description();
  EXPECT_EQ(supply->dialect(), "lab");
  EXPECT_TRUE(supply->setVoltage(3));
  EXPECT_EQ(supply->voltage(), 3.0);
  QLTError error;
  EXPECT_FALSE(supply->clearProtection(1, &error));
  EXPECT_EQ(error.code(), kQLTErrorScpiDialect);
  EXPECT_THAT(error.description().value_or(""),
              HasSubstr("the supply dialect \"lab\" has no command for \"clearProtection\""));
  EXPECT_EQ(supply->scpi()->log().back(), "< +3.00000000E+00");
}

TEST_F(DialectFileTest, oneCanBeNamedAndIsBuiltOnAnother) {
  Stand<QLTBenchSupply> supply("QLTBenchSupply", {"supply"}, with(kOwnDialects, "lab2"));
  ASSERT_TRUE(supply) << supply.description();
  supply->scpi()->setChecksQueue(false);
  EXPECT_TRUE(supply->setVoltage(3));
  EXPECT_EQ(supply->scpi()->log().back(), "> SOUR1:VOLT 3");
  EXPECT_TRUE(supply->setCurrentLimit(1));
  EXPECT_EQ(supply->scpi()->log().back(), "> CURR 1,(@1)");
}

TEST_F(DialectFileTest, mistakesAreToldWithFileAndLine) {
  const struct {
    const char* text;
    const char* problem;
  } mistakes[] = {
      {"voltage = X\n", "models:1: a section, [NAME : BASE], comes first"},
      {"\n[lab]\n", "models:2: a section is [NAME : BASE], not [lab]"},
      {"[lab : lamp]\n", "models:1: there is no dialect \"lamp\" to build on; there are meter, "},
      {"[: supply]\n", "models:1: a section needs a name"},
      {"[a : supply]\n[a : supply]\n", "models:2: there is a dialect \"a\" already"},
      {"[a : supply]\nfoo\n", "models:2: a line is OPERATION = COMMAND, not foo"},
      {"[a : supply]\nvolts = V {value}\n",
       "models:2: a supply has no operation \"volts\"; it has "},
      {"[a : supply]\nvoltage = V\n", "models:2: \"voltage\" needs the place {value}"},
      {"[a : supply]\nvoltage = V {value} {foo}\n",
       "models:2: nothing fills the place {foo} of \"voltage\""},
      {"[a : supply]\nvoltage = V {value\n", "models:2: a brace without its other one in V {value"},
      {"[a : supply]\nmatches =\n", "models:2: \"matches\" needs a pattern of identities"},
      {"[a : meter]\nread = R{channel}?\n",
       "models:2: nothing fills the place {channel} of \"read\""},
  };
  for (const auto& mistake : mistakes) {
    const Stand<QLTBenchSupply> supply("QLTBenchSupply", {"supply"}, with(mistake.text));
    EXPECT_FALSE(supply) << mistake.text;
    EXPECT_EQ(supply.error().code(), kQLTErrorScpiDialect);
    EXPECT_THAT(supply.description(), HasSubstr(mistake.problem));
  }
}

TEST_F(DialectFileTest, whatIsNotThereIsAnError) {
  const Stand<QLTBenchSupply> name("QLTBenchSupply", {"supply"}, {{"dialect", "meter"}});
  EXPECT_FALSE(name);
  EXPECT_THAT(name.description(), HasSubstr("127.0.0.1:" + std::to_string(name.port())));
  EXPECT_THAT(name.description(), HasSubstr("a supply has no dialect \"meter\"; there are supply, "
                                            "supply-list, supply-header"));
  const Stand<QLTBenchSupply> file("QLTBenchSupply", {"supply"}, {{"dialectFile", "/no/models"}});
  EXPECT_FALSE(file);
  EXPECT_THAT(file.description(), HasSubstr("/no/models: No such file or directory"));
}

// What goes wrong on the way.

TEST(BenchScpiFaults, anInstrumentThatIsNotThereIsMadeAndOpenedLater) {
  test::ConsoleLog log;
  const test::SimulatorProcess sim({"supply", "--tcp", "0", "--refuse", "forever"});
  QLTError error;
  const auto made =
      QLTBench::createInstrument({{"class", "QLTBenchSupply"},
                                  {"sim", "0"},
                                  {"address", "127.0.0.1:" + std::to_string(sim.readPort())}},
                                 &error);
  const auto supply = std::dynamic_pointer_cast<QLTBenchSupply>(made);
  ASSERT_TRUE(supply);
  EXPECT_EQ(error.code(), kQLTErrorLineOpen);
  EXPECT_TRUE(supply->isLost());
  EXPECT_FALSE(supply->reopen(&error));
  EXPECT_FALSE(supply->makeSafe(&error));
}

TEST(BenchScpiFaults, anotherInstrumentThanTheLineExpectsIsLost) {
  for (const char* expected : {"expectedVendor", "expectedModel", "expectedSerial"}) {
    const Stand<QLTBenchMeter> meter("QLTBenchMeter", {"scpi"}, {{expected, "PS-30*"}});
    ASSERT_TRUE(meter);
    EXPECT_EQ(meter.error().code(), kQLTErrorScpiIdentity);
    EXPECT_THAT(meter.description(), HasSubstr("127.0.0.1:" + std::to_string(meter.port()) +
                                               " is another instrument: expected "));
    EXPECT_THAT(meter.description(), HasSubstr(" PS-30*, but \"QUILLON,SIM-DMM,0,1.0\" answers"));
    EXPECT_TRUE(meter->isLost());
    EXPECT_FALSE(meter->reopen());
  }
  const Stand<QLTBenchMeter> meter("QLTBenchMeter", {"scpi"},
                                   {{"expectedModel", "sim-*"}, {"expectedSerial", "0"}});
  ASSERT_TRUE(meter);
  EXPECT_FALSE(meter.error()) << meter.description();
  EXPECT_FALSE(meter->isLost());
}

TEST(BenchScpiFaults, anInstrumentThatDoesNotTellWhoItIsIsLost) {
  Stand<QLTBenchMeter> meter("QLTBenchMeter", {"scpi"}, {{"timeOut", "0.1"}},
                             "\"*IDN?\" -> silent\n\"*IDN?\" -> normal\n");
  ASSERT_TRUE(meter);
  EXPECT_THAT(meter.description(), HasSubstr("does not tell who it is (*IDN?)"));
  EXPECT_TRUE(meter->isLost());
  meter->scpi()->setTimeOutInSeconds(10);
  QLTError error;
  EXPECT_TRUE(meter->reopen(&error)) << error.description().value_or("");
  EXPECT_FALSE(meter->isLost());
}

/// What an instrument does wrong, once, when it is asked or told; in the words of a reply file.
struct Fault {
  const char* name;
  const char* words;
  bool losesTheLine = false;
};

class BenchScpiFaultTest : public testing::TestWithParam<std::tuple<Fault, bool>> {
 protected:
  /// A reply file that has the fault at the first of each message, and nothing wrong afterwards.
  static std::string repliesWith(const Fault& fault) {
    std::string replies;
    for (const char* message : {"READ?", "*OPC?", "OUTP?", "WAV:DATA?"}) {
      replies +=
          '"' + std::string(message) + "\" -> " + fault.words + "\n\"" + message + "\" -> normal\n";
    }
    return replies;
  }
};

TEST_P(BenchScpiFaultTest, isAnErrorAndTheNextAnswerIsTheRightOne) {
  const Fault& fault = std::get<0>(GetParam());
  std::optional<test::SignalStorm> storm;
  if (std::get<1>(GetParam())) storm.emplace();
  const auto settle = [&](QLTBenchInstrument& instrument) {
    EXPECT_EQ(instrument.isLost(), fault.losesTheLine);
    instrument.scpi()->setTimeOutInSeconds(10);
    QLTError error;
    if (instrument.isLost()) {
      EXPECT_TRUE(instrument.reopen(&error)) << *error.description();
    }
  };
  QLTError error;

  Stand<QLTBenchMeter> meter("QLTBenchMeter", {"scpi", "--reading", "VOLT=2.5"}, {},
                             repliesWith(fault));
  ASSERT_FALSE(meter.error()) << meter.description();
  meter->scpi()->setTimeOutInSeconds(0.2);
  EXPECT_EQ(meter->read(&error), std::nullopt);
  EXPECT_TRUE(error);
  settle(*meter.operator->());
  EXPECT_EQ(meter->read(&error), 2.5) << *error.description();
  meter->scpi()->setTimeOutInSeconds(0.2);
  EXPECT_FALSE(meter->scpi()->waitTillDone(0.2, &error));
  settle(*meter.operator->());
  EXPECT_TRUE(meter->scpi()->waitTillDone(10, &error)) << *error.description();

  Stand<QLTBenchSupply> supply("QLTBenchSupply", {"supply"}, {}, repliesWith(fault));
  ASSERT_FALSE(supply.error()) << supply.description();
  supply->scpi()->setTimeOutInSeconds(0.2);
  EXPECT_FALSE(supply->setOutput(true, 1, &error));
  settle(*supply.operator->());
  EXPECT_TRUE(supply->makeSafe(&error)) << *error.description();

  Stand<QLTBenchScope> scope("QLTBenchScope", {"scope"}, {}, repliesWith(fault));
  ASSERT_FALSE(scope.error()) << scope.description();
  scope->scpi()->setTimeOutInSeconds(0.2);
  EXPECT_EQ(scope->scpi()->block("WAV:DATA?", &error), std::nullopt);
  settle(*scope.operator->());
  EXPECT_TRUE(scope->scpi()->block("WAV:DATA?", &error)) << *error.description();
}

INSTANTIATE_TEST_SUITE_P(
    By, BenchScpiFaultTest,
    testing::Combine(testing::Values(Fault{"silence", "silent"}, Fault{"lateness", "delay 350"},
                                     Fault{"garbage", "garbage \"\\xfe\\x00?\""},
                                     Fault{"halfALine", "no-end"},
                                     Fault{"errorWithoutAnswer", "silent error \"-310,Broken\""},
                                     Fault{"hangingUp", "hang-up 1", true}),
                     testing::Bool()),
    [](const auto& info) {
      return std::string(std::get<0>(info.param).name) +
             (std::get<1>(info.param) ? "AmidSignals" : "");
    });

}  // namespace
