// A plug-in that misbehaves as its configuration says, and tells what was called.

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QLTConsoleLog.h>
#include <QLTDiags.h>
#include <QLTHasIdentity.h>
#include <QLTLogger.h>
#include <QLTMakesSafe.h>
#include <QLTOperator.h>
#include <QLTReopenable.h>
#include <QLTUtil.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>
#include <QLTestSuite.h>

#include "common/Sanitizers.h"

namespace {

/// Appends one line in one write, as several sites may do at once.
void append(const std::string& path, const std::string& text) {
  const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  const std::string line = text + "\n";
  if (file < 0 || write(file, line.data(), line.size()) < 0) std::abort();
  close(file);
}

void waitForFile(const std::string& path) {
  for (int i = 0; i < 6000 && !std::filesystem::exists(path); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void crash() {
  if (quillon::internal::kIsSanitized)
    std::signal(SIGSEGV, SIG_DFL);  // else it would end otherwise
  std::raise(SIGSEGV);
}

/// Writes where nothing is.
[[gnu::noinline]] void fault() {
  volatile int* volatile nowhere = nullptr;
  *nowhere = 1;
}

/// Needs more and more of the stack.
[[gnu::noinline]] int exhaustStack(int depth) {
  std::array<volatile char, 4096> room{};
  room[0] = static_cast<char>(depth);
  return depth < 0 ? 0 : exhaustStack(depth + 1) + room[0];
}

std::string attribute(const QLTDictionary& attributes, const char* key) {
  const QLTValue* const value = attributes.find(key);
  return value != nullptr ? value->text() : "";
}

/// Writes what reaches it to the file of the attribute "ownLogger".
class OwnLogger : public QLTLogger {
 public:
  explicit OwnLogger(std::string path) : path_(std::move(path)) {}
  bool open(const std::vector<std::string>& keys, const std::vector<std::string>& extras,
            QLTError* error) override {
    append(path_, "open");
    return QLTLogger::open(keys, extras, error);
  }
  void log(const std::shared_ptr<const QLTestResult>& result) override {
    const std::string test = result->testName().value_or("");
    if (test == "Unloggable") throw std::runtime_error("the server is away");
    if (test == "Unrecorded") {
      noteFailure(QLTError::withDescription("test", 5, "the server is full"));
      return;
    }
    append(path_, "log " + result->siteName().value_or("?") + " " +
                      deviceAttributes().find("station")->text());
  }
  bool close(QLTError* error) override {
    append(path_, "close");
    return QLTLogger::close(error);
  }

 private:
  std::string path_;
};

/// An instrument whose end shows. "safe" is "works" or "fails" for one that can be made safe, and
/// shows that. "identity" is the file with what it told to "*IDN?"; to ask it without one throws.
class Instrument : public QLTObject, public QLTMakesSafe, public QLTHasIdentity {
 public:
  explicit Instrument(const QLTDictionary& entry)
      : path_(attribute(entry, "calls")),
        safe_(attribute(entry, "safe")),
        identity_(attribute(entry, "identity")),
        lock_(lock(attribute(entry, "lock"))) {}
  ~Instrument() override {
    if (!path_.empty()) append(path_, "instrument closed");
    if (lock_ >= 0) close(lock_);
  }

  void tellSafe() override {
    if (!safe_.empty()) append(path_, "instrument told to be safe");
  }
  bool makeSafe(QLTError* error) override {
    if (safe_.empty()) return true;
    append(path_, "instrument made safe");
    if (safe_ == "works") return true;
    *error = QLTError::withDescription("test", 7, "output 1 stays on");
    return false;
  }

  QLTIdentity who() const override {
    if (identity_.empty()) return {};
    std::string answer;
    if (!std::getline(std::ifstream(identity_), answer)) throw std::runtime_error("it is broken");
    return QLTIdentity::of(answer);
  }

 private:
  /// Tells in the file `path`.conflicts when another process holds it.
  static int lock(const std::string& path) {
    if (path.empty()) return -1;
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (flock(file, LOCK_EX | LOCK_NB) != 0) append(path + ".conflicts", "conflict");
    return file;
  }

  std::string path_;
  std::string safe_;
  std::string identity_;
  int lock_;
};

/// One with a line. To ask whether it is lost stops the process once there is a file "stopsAfter".
class Line : public Instrument, public QLTReopenable {
 public:
  explicit Line(const QLTDictionary& entry)
      : Instrument(entry), stopsAfter_(attribute(entry, "stopsAfter")) {}

  bool isLost() const override {
    if (std::filesystem::remove(stopsAfter_)) std::raise(SIGSTOP);
    return false;
  }
  std::string where() const override { return "nowhere"; }
  bool reopen(QLTError*) override { return true; }

 private:
  std::string stopsAfter_;
};

/// Station attributes: while the station loads, "talks" is said on standard output and in the
/// console log, "countsConfigurations" is the file that tells how often it was configured,
/// "crashes" and "exits" end the program, "refusesToLoad" throws, "takesSink" takes
/// the console log away. It "crashesUnloading". Unloaded, it logs its "lastWords" and "lingers".
/// "calls" is the file for what is called; "fails" and "throws" name the hook that does so, at the
/// site "left"; "returnsFalse" likewise; "waits" names one and the file that it waits for, and
/// tells so by the file with ".hook" at its end. "takesAway" is what onDUTStart takes away: the
/// "flow" or its "tests"; "loggerTakesAway" what logger does. "safeState" is what onSafeState does
/// at the site "left": it "crashes" or "hangs".
class TroubleSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

  static void customizeConfig(QLTDictionary& config, const QLTDictionary&) {
    const QLTValue* const attributes = config.find("stationAttributes");
    if (attributes == nullptr || attributes->dictionary() == nullptr) return;
    const std::string words = attribute(*attributes->dictionary(), "talks");
    static int configurations = 0;
    ++configurations;
    const std::string counted = attribute(*attributes->dictionary(), "countsConfigurations");
    if (!counted.empty()) append(counted, "customizeConfig " + std::to_string(configurations));
    if (attributes->dictionary()->contains("takesSink")) QLTSetLogSink([](std::string_view) {});
    if (!words.empty()) {
      QLTLog(words + ", logged");
      std::printf("%s, printed\n", words.c_str());
    }
    if (attributes->dictionary()->contains("crashes")) std::raise(SIGKILL);
    if (attributes->dictionary()->contains("exits")) std::exit(0);
    if (attributes->dictionary()->contains("refusesToLoad")) {
      throw std::runtime_error("no licence");
    }
  }
  static bool onUnload(QLTError*) {
    const QLTDictionary& attributes = QLTestSiteManager::sharedInstance()->stationAttributes();
    if (attributes.contains("calls")) append(attribute(attributes, "calls"), "onUnload");
    if (attributes.contains("crashesUnloading")) std::raise(SIGKILL);
    if (attributes.contains("lingers")) {
      std::atexit([] { std::this_thread::sleep_for(std::chrono::minutes(5)); });
    }
    if (attributes.contains("lastWords")) {
      std::atexit([] { QLTLog("last words"); });
    }
    return attribute(attributes, "fails") != "onUnload";
  }
  /// "dies" ends the process. When there is a file "diesAfter", the first "times" that are made
  /// from then on end it; with a file "absentAfter" none is made, for the device file "busy" is.
  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry, QLTError* error) {
    if (attribute(entry, "class") != "Instrument") return nullptr;
    if (std::filesystem::exists(attribute(entry, "absentAfter"))) {
      const std::string busy = attribute(entry, "busy");
      *error = busy.empty()
                   ? QLTError::withDescription("test", 6, "no such meter")
                   // As of a line, which root is never refused.
                   : QLTUtil::handleError(QLTError("test", EBUSY, {{"path", busy}}), "no line");
      return nullptr;
    }
    const std::string after = attribute(entry, "diesAfter");
    if (std::filesystem::exists(after)) {
      append(after + ".deaths", "x");
      const auto deaths = std::filesystem::file_size(after + ".deaths") / 2;
      if (deaths <= std::stoul(attribute(entry, "times"))) std::raise(SIGKILL);
    }
    if (attribute(entry, "dies") == "kill") std::raise(SIGKILL);
    if (attribute(entry, "dies") == "exit") std::exit(0);
    if (entry.contains("stopsAfter")) return std::make_shared<Line>(entry);
    return std::make_shared<Instrument>(entry);
  }

  std::shared_ptr<QLTObject> onDUTStart(const QLTDictionary& dutInfo, QLTError* error) override {
    QLTestSuite::onDUTStart(dutInfo, error);
    called("onDUTStart " + attribute(dutInfo, "serialNumber") + " " + attribute(dutInfo, "flow") +
               " " + attribute(dutInfo, "round"),
           "onDUTStart", error);
    takeAway(attribute(siteAttributes(), "takesAway"));
    return nullptr;
  }
  bool onDUTFinished(QLTError* error) override {
    return called("onDUTFinished", "onDUTFinished", error);
  }
  bool onDUTFail(QLTError* error) override { return called("onDUTFail", "onDUTFail", error); }
  bool onException(QLTError* error) override { return called("onException", "onException", error); }

  bool onSafeState(QLTError* error) override {
    const std::string how = siteName() == "left" ? attribute(siteAttributes(), "safeState") : "";
    if (how == "crashes") crash();
    if (how == "hangs") std::this_thread::sleep_for(std::chrono::minutes(5));
    return called("onSafeState", "onSafeState", error);
  }

  std::shared_ptr<QLTLogger> logger() override {
    takeAway(attribute(siteAttributes(), "loggerTakesAway"));
    const std::string path = attribute(siteAttributes(), "ownLogger");
    if (path == "throw") throw 42;
    if (path.empty()) return nullptr;
    static const auto shared = std::make_shared<OwnLogger>(path);
    return shared;
  }

 private:
  void takeAway(const std::string& what) {
    if (what == "tests") flowForName("default")->clear();
    if (what == "flow") removeFlow("default");
  }

  bool called(const std::string& text, const std::string& hook, QLTError* error) {
    if (siteAttributes().contains("calls")) {
      append(attribute(siteAttributes(), "calls"), siteName() + " " + text);
    }
    if (siteName() != "left") return true;
    const std::string waits = attribute(siteAttributes(), "waits");
    if (waits.starts_with(hook + " ")) {
      append(waits.substr(hook.size() + 1) + ".hook", hook);
      waitForFile(waits.substr(hook.size() + 1));
    }
    if (attribute(siteAttributes(), "throws") == hook) throw std::runtime_error("hook trouble");
    if (attribute(siteAttributes(), "fails") == hook) {
      *error = QLTError::withDescription("test", 1, "the database is away");
    }
    return attribute(siteAttributes(), "returnsFalse") != hook;
  }
};

/// Has no hooks.
class PlainSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry, QLTError* error) {
    return TroubleSuite::createInstrument(entry, error);
  }
};

/// Does what its parameters say; "at" restricts the trouble to one site. Reports its first sub-test
/// with "value". "asks" names a console that is to answer; "measures" one that is asked for that
/// value, with "command".
class TroubleTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;

  bool willRun(std::int32_t index, QLTError* error) override {
    if (does("refuse")) {
      if (error != nullptr) *error = QLTError::withDescription("test", 2, "the door is open");
      return false;
    }
    // Without the base's there is no list that keeps the records.
    return does("ownWillRun") || QLTestMethod::willRun(index, error);
  }

  bool run(std::int32_t, QLTError* error) override {
    ++attempts_;
    if (const QLTValue* text = param("log")) QLTLog(text->text());
    if (does("ignoresTerminate")) std::signal(SIGTERM, SIG_IGN);
    if (param("dies") != nullptr && isHere()) die(param("dies")->text());
    if (param("flood") != nullptr) flood(param("flood")->intValue());
    if (does("closesOutput")) {
      close(STDOUT_FILENO);
      close(STDERR_FILENO);
    }
    while (does("printsForEver")) std::puts("on and on");
    if (does("readsTerminal")) readTerminal();
    QLTExclusive<Instrument> held;
    if (does("exclusive")) held = exclusive<Instrument>("m", error);
    if (param("await") != nullptr && isHere()) await();
    if (param("asks") != nullptr && isHere() && !asks(param("asks")->text(), error)) {
      return false;
    }
    if (param("measures") != nullptr && isHere()) {
      return measures(param("measures")->text(), error);
    }
    if (does("throwInt")) throw 42;
    if (does("failSilently")) return false;
    if (does("failWithError")) {
      *error = QLTError::withDescription("test", 3, "no answer\nfrom the device");
      return false;
    }
    if (const QLTValue* code = param("code"))
      addResult(1, "odd", {}, 1)->setResult(code->intValue());
    if (const QLTValue* text = param("text")) {
      return addResultAndMatch(1, text->text()) == kQLTestResultPass;
    }
    if (does("measuresNothing")) return true;
    if (param("ask") != nullptr && isHere()) return ask(param("ask")->text(), error);
    if (const QLTValue* name = param("byHand")) reportByHand(name->text());
    if (const QLTValue* number = param("number")) addResultAndCompare(number->intValue(), 1.5);
    if (does("passWithError")) *error = QLTError::withDescription("test", 3, "stale");
    const bool secondTime = does("secondTime") && attempts_ == 1;
    if (does("secondOnRetest") && attempts_ > 1) addResultAndCompare(2, 1.5);
    const double value = param("value") != nullptr ? param("value")->doubleValue() : 1.5;
    const std::int32_t result = addResultAndCompare(1, secondTime ? 9.0 : (isHere() ? value : 1.5),
                                                    QLTDictionary{{"note", "n"}});
    if (does("throw")) throw std::runtime_error("the cable is off");
    return result == kQLTestResultPass || does("lie");
  }

  std::shared_ptr<QLTestResults> didRun(std::int32_t index, QLTError* error) override {
    if (does("failDidRun")) *error = QLTError::withDescription("test", 4, "records are gone");
    auto records = does("loseRecords") ? nullptr : QLTestMethod::didRun(index, error);
    if (records && byHand_) records->push_back(std::exchange(byHand_, nullptr));
    return records;
  }

 private:
  bool isHere() const {
    const QLTValue* const at = param("at");
    return at == nullptr || at->text() == suite()->siteName();
  }
  bool does(const char* key) const {
    const QLTValue* const wanted = param(key);
    return wanted != nullptr && wanted->boolValue() && isHere();
  }

  /// Asks the operator, and reports the answer as the first sub-test.
  bool ask(const std::string& kind, QLTError* error) {
    const auto person = op(error);
    if (!person) return false;
    QLTAskOptions options;
    if (param("timeOut") != nullptr) options.timeOutInSeconds = param("timeOut")->doubleValue();
    std::optional<std::string> answer;
    if (kind == "confirm" && person->confirm("Connect J4.", options, error)) answer = "done";
    if (kind == "choose")
      answer = person->choose("Colour of the LED?", {"red", "green"}, options, error);
    if (kind == "text") answer = person->enterText("Label?", "[A-Z][0-9]", options, error);
    if (kind == "number") {
      const auto number = person->enterNumber("Volts?", 1, 5, options, error);
      if (number) answer = QLTValue(*number).text();
    }
    if (kind == "show") {
      person->show("Look at the fixture.", "j4.png", error);
      if (person->progress(0.5, "half", error)) answer = "shown";
    }
    if (!answer) return false;
    if (does("thenHangs")) std::this_thread::sleep_for(std::chrono::minutes(5));
    addResult(1, *answer);
    return true;
  }

  /// Makes a record without the number of a sub-test.
  void reportByHand(const std::string& name) {
    byHand_ = QLTestResult::resultWithValues(*this, name, "", testIndex(), 99, std::nullopt, "1",
                                             kQLTestResultPass);
  }

  /// Takes its process along, each way in another manner. Reports its first sub-test before.
  void die(const std::string& how) {
    if (const QLTValue* const marker = param("unless")) {
      if (std::filesystem::exists(marker->text())) return;
      append(marker->text(), "died");
    }
    addResultAndCompare(1, 1.5);
    if (how.starts_with("after ")) {
      waitForFile(how.substr(6));
      crash();
    }
    if (how == "segfault") crash();
    if (how == "fault") fault();
    if (how == "stack") exhaustStack(1);
    if (how == "handled fault") {
      std::signal(SIGSEGV, [](int) { _exit(7); });
      std::raise(SIGSEGV);  // not by a store, which sanitizers end in their own way
    }
    if (how == "abort") std::abort();
    if (how == "kill") std::raise(SIGKILL);
    if (how == "exit") std::exit(3);
    if (how == "exit 0") std::exit(0);
    if (how == "thread") std::thread([] { throw std::runtime_error("nobody catches it"); }).join();
    if (how == "descriptors") {
      for (int descriptor = 0; descriptor < 256; ++descriptor) close(descriptor);
    }
    if (how == "half a message") return send(std::string("\x10\0\0\0{", 5));
    if (how == "no message") send(std::string("\x05\0\0\0hello", 9));
    if (how == "huge message") send("\xff\xff\xff\xff");
    if (how == "false message")
      send(std::string("\x0d\0\0\0", 4) +
           "\xa1"
           "dtypefsecret");
    if (how == "fork") {
      if (fork() == 0) {
        QLTLog("the child logs");
        std::this_thread::sleep_for(std::chrono::minutes(5));
        _exit(0);
      }
      crash();
    }
    std::this_thread::sleep_for(std::chrono::minutes(5));
  }
  /// Writes into the connection of the station, which a plug-in has no business with.
  static void send(const std::string& bytes) {
    if (write(3, bytes.data(), bytes.size()) < 0) std::abort();
  }
  /// As tools do that ask for a password.
  static void readTerminal() {
    const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC);
    char key = 0;
    const bool isRead = terminal >= 0 && read(terminal, &key, 1) == 1;
    QLTLog(isRead ? "read from the terminal" : "no terminal");
    if (terminal >= 0) close(terminal);
  }
  bool asks(const std::string& name, QLTError* error) const {
    const auto console = resource<QLTDiags>(name, error);
    if (console) console->setTimeOutInSeconds(0.3);
    return console && console->open(error);
  }
  bool measures(const std::string& name, QLTError* error) {
    const auto console = resource<QLTDiags>(name, error);
    if (!console) return false;
    console->setTimeOutInSeconds(1);
    const auto answer = console->sendCommand(param("command")->text(), error);
    return answer && addResultAndCompare(1, std::stod(answer->front())) == kQLTestResultPass;
  }
  static void flood(int lines) {
    for (int i = 0; i < lines; ++i) QLTLog("line " + std::to_string(i) + std::string(200, '.'));
  }

  /// Tells that it runs by the file "await".SITE, and goes on when the file "await" is there.
  void await() const {
    const std::string path = param("await")->text();
    append(path + "." + suite()->siteName(), "running " + std::to_string(getpid()));
    waitForFile(path);
  }

  int attempts_ = 0;
  std::shared_ptr<QLTestResult> byHand_;
};

}  // namespace

QLT_CLASS(PlainSuite);
QLT_CLASS(TroubleSuite);
QLT_CLASS(TroubleTest);
