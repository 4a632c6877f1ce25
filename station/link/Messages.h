#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <QLTValue.h>
#include <QLTestResult.h>

#include "Channel.h"
#include "Outcome.h"

namespace station {

// What host and worker tell each other. Each is a structure with its name on the line, `kType`, and
// its `parts` by their names there; `messageFrom` and `take` translate, see below.

inline constexpr int kMessageVersion = 1;

// From the worker, in this order, but for those that may come at any time.

/// The first message.
struct Hello {
  static constexpr const char* kType = "hello";
  int version = kMessageVersion;

  template <typename Part>
  void parts(const Part& part) {
    part("version", version);
  }
};

/// Any time until `Ready`: nothing can be tested. The worker ends.
struct Refused {
  static constexpr const char* kType = "refused";
  std::string problem = {};
  std::string advice = {};

  template <typename Part>
  void parts(const Part& part) {
    part("problem", problem);
    part("advice", advice);
  }
};

/// Any time: something for the operator to read.
struct Warned {
  static constexpr const char* kType = "warned";
  std::string text = {};

  template <typename Part>
  void parts(const Part& part) {
    part("text", text);
  }
};

/// Any time: the first difference from the recording that is replayed, in words.
struct Differed {
  static constexpr const char* kType = "differed";
  std::string text = {};

  template <typename Part>
  void parts(const Part& part) {
    part("text", text);
  }
};

/// Any time: what a site waits for, in words for the operator.
struct Noted {
  static constexpr const char* kType = "noted";
  std::string site = {};
  std::string text = {};

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("text", text);
  }
};

/// Any time: a line of the console log.
struct Logged {
  static constexpr const char* kType = "logged";
  std::string site = {};  ///< whose thread logged; "station" outside of any
  std::string text = {};

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("text", text);
  }
};

/// The bundle is open; waits for `Load`.
struct Opened {
  static constexpr const char* kType = "opened";
  std::string path = {};  ///< of the bundle, absolute

  template <typename Part>
  void parts(const Part& part) {
    part("path", path);
  }
};

/// What is wrong, or looks wrong, with the plug-in's configuration.
struct Finding {
  bool isError = true;
  std::string file = {};
  std::string text = {};    ///< with its place
  std::string advice = {};  ///< may be empty
  /// The key, when the finding is that nothing reads it.
  std::optional<std::string> unknownKey = {};

  template <typename Part>
  void parts(const Part& part) {
    part("isError", isError);
    part("file", file);
    part("text", text);
    part("advice", advice);
    part("unknownKey", unknownKey);
  }
};

/// The answer to `Check`.
struct Checked {
  static constexpr const char* kType = "checked";
  std::vector<Finding> findings = {};
  std::vector<std::string> sites = {};  ///< in the order of the configuration file

  template <typename Part>
  void parts(const Part& part) {
    part("findings", findings);
    part("sites", sites);
  }
};

/// The station is loaded; waits for `OpenLoggers`, and for any number of `SafeState` before it.
struct Loaded {
  static constexpr const char* kType = "loaded";
  std::vector<std::string> sites = {};  ///< to test at, in their order
  std::vector<std::string> disabledSites = {};
  /// Why sites cannot be tested at, by their names.
  std::map<std::string, std::vector<std::string>> unavailable = {};
  std::vector<std::string> overridden = {};  ///< what `Load::calibrationOverride` was needed for
  std::vector<std::string> tests = {};       ///< the names of the flow's tests, at the first site
  std::string bundle = {};                   ///< its identifier, else its name
  std::optional<std::string> bundleVersion = {};
  std::string flow = {};  ///< by its own name, where "default" was asked for
  std::string frameworkVersion = {};
  std::string configSha256 = {};   ///< of the configuration as it was used
  QLTDictionary instruments = {};  ///< see `instrumentsOfSites`
  QLTDictionary stationAttributes = {};

  template <typename Part>
  void parts(const Part& part) {
    part("sites", sites);
    part("disabledSites", disabledSites);
    part("unavailable", unavailable);
    part("overridden", overridden);
    part("tests", tests);
    part("bundle", bundle);
    part("bundleVersion", bundleVersion);
    part("flow", flow);
    part("frameworkVersion", frameworkVersion);
    part("configSha256", configSha256);
    part("instruments", instruments);
    part("stationAttributes", stationAttributes);
  }
};

/// A site has its safe state, or has not.
struct SafeStateDone {
  static constexpr const char* kType = "safeStateDone";
  std::string site = {};
  std::optional<std::string> problem = {};   ///< why the fixture may not be safe
  std::optional<std::string> waitsFor = {};  ///< a lost instrument; nothing was done then

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("problem", problem);
    part("waitsFor", waitsFor);
  }
};

/// The plug-in's loggers are open; waits for devices.
struct Ready {
  static constexpr const char* kType = "ready";

  template <typename Part>
  void parts(const Part&) {}
};

/// A site waits for an instrument whose line is gone. Told once, until `Prepared`.
struct Waiting {
  static constexpr const char* kType = "waiting";
  std::string site = {};
  std::string what = {};  ///< "console-left, /dev/ttyUSB0: No such file or directory"

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("what", what);
  }
};

/// A site's instruments are there.
struct Prepared {
  static constexpr const char* kType = "prepared";
  std::string site = {};
  bool isReady = false;  ///< false when the waiting was stopped
  /// Who its instruments are, by the names that tests use, as far as they tell: "vendor", "model",
  /// "serial", "firmware".
  QLTDictionary identities = {};

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("isReady", isReady);
    part("identities", identities);
  }
};

/// A hook of a device begins: its `name` is that of the suite's operation.
struct HookStarted {
  static constexpr const char* kType = "hookStarted";
  std::string site = {};
  std::string name = {};

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("name", name);
  }
};

/// A site's `onDUTStart` is done.
struct DeviceStarted {
  static constexpr const char* kType = "deviceStarted";
  std::string site = {};
  int runIndex = 0;
  bool hasEndHooks = true;  ///< without, the device ends with `FlowEnded`

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("runIndex", runIndex);
    part("hasEndHooks", hasEndHooks);
  }
};

struct TestStarted {
  static constexpr const char* kType = "testStarted";
  std::string site = {};
  int index = 0;  ///< from 1
  int count = 0;  ///< tests of the flow
  std::string name = {};
  std::optional<double> timeLimit = {};  ///< in seconds

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("index", index);
    part("count", count);
    part("name", name);
    part("timeLimit", timeLimit);
  }
};

/// A record of the test in progress, as soon as it is reported. What counts are those of `Tested`.
struct Reported {
  static constexpr const char* kType = "reported";
  std::string site = {};
  QLTestResults records = {};

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("records", records);
  }
};

struct Tested {
  static constexpr const char* kType = "tested";
  std::string site = {};
  int index = 0;
  std::string name = {};
  bool passed = false;
  bool retested = false;
  double seconds = 0;
  QLTestResults records = {};
  QLTestResults superseded = {};  ///< of a first attempt, as far as a retest took them away
  std::optional<double> firstSeconds = {};      ///< how long the first attempt took, of two
  std::optional<std::string> errorDomain = {};  ///< of the error that the test left
  std::optional<std::int64_t> errorCode = {};
  std::optional<std::string> errorText = {};
  /// Why the plug-in's own logger does not have them; absent when it has.
  std::optional<std::string> notLogged = {};

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("index", index);
    part("name", name);
    part("passed", passed);
    part("retested", retested);
    part("seconds", seconds);
    part("records", records);
    part("superseded", superseded);
    part("firstSeconds", firstSeconds);
    part("errorDomain", errorDomain);
    part("errorCode", errorCode);
    part("errorText", errorText);
    part("notLogged", notLogged);
  }
};

/// A test asks the operator something, see `QLTQuestion`; it waits for `Answered`.
struct Asked {
  static constexpr const char* kType = "asked";
  std::string site = {};
  int id = 0;    ///< of the question, at its site
  int kind = 0;  ///< a `QLTQuestion::Kind`
  std::string text = {};
  std::optional<std::string> image = {};
  std::vector<std::string> choices = {};
  std::optional<std::string> pattern = {};
  double low = 0;
  double high = 0;
  std::optional<double> timeOut = {};  ///< in seconds

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("id", id);
    part("kind", kind);
    part("text", text);
    part("image", image);
    part("choices", choices);
    part("pattern", pattern);
    part("low", low);
    part("high", high);
    part("timeOut", timeOut);
  }
};

/// A test shows the operator something.
struct Shown {
  static constexpr const char* kType = "shown";
  std::string site = {};
  std::string text = {};
  std::optional<std::string> image = {};

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("text", text);
    part("image", image);
  }
};

struct Progressed {
  static constexpr const char* kType = "progressed";
  std::string site = {};
  double fraction = 0;  ///< of the test, from 0 to 1
  std::string text = {};

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("fraction", fraction);
    part("text", text);
  }
};

/// The last test of a device is done, or it was broken off. The site waits for `Confirmed`, which
/// it calls its hooks for, where it has any.
struct FlowEnded {
  static constexpr const char* kType = "flowEnded";
  std::string site = {};
  Verdict verdict = Verdict::BrokenOff;
  std::optional<std::string> brokenOff = {};  ///< why

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("verdict", verdict);
    part("brokenOff", brokenOff);
  }
};

/// The hook at the end of a device is done; the site waits for its next device.
struct HookEnded {
  static constexpr const char* kType = "hookEnded";
  std::string site = {};
  std::optional<std::string> problem = {};  ///< what went wrong in it

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("problem", problem);
  }
};

/// The plug-in is unloaded; the worker ends.
struct Unloaded {
  static constexpr const char* kType = "unloaded";

  template <typename Part>
  void parts(const Part&) {}
};

// From the host.

/// Before `Load`: check the configuration, in a process apart.
struct Check {
  static constexpr const char* kType = "check";

  template <typename Part>
  void parts(const Part&) {}
};

struct Load {
  static constexpr const char* kType = "load";
  std::string flow = {};
  std::vector<std::string> sites = {};  ///< empty: all
  std::string logFolder = {};
  std::string diagnostics = {};          ///< the file, for messages
  std::string calibrationOverride = {};  ///< NAME:REASON; empty: none
  bool again = false;  ///< as an earlier worker did: instruments that are lost now are waited for
  bool recordsTraffic = false;
  std::string replay = {};  ///< the recording that speaks for the instruments; empty: they do

  template <typename Part>
  void parts(const Part& part) {
    part("flow", flow);
    part("sites", sites);
    part("logFolder", logFolder);
    part("diagnostics", diagnostics);
    part("calibrationOverride", calibrationOverride);
    part("again", again);
    part("recordsTraffic", recordsTraffic);
    part("replay", replay);
  }
};

/// Bring this site's fixture into its safe state.
struct SafeState {
  static constexpr const char* kType = "safeState";
  std::string site = {};
  /// The fixture may be in the middle of a test. When it is not, a site with a lost instrument is
  /// left as it is.
  bool inTest = true;

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("inTest", inTest);
  }
};

struct OpenLoggers {
  static constexpr const char* kType = "openLoggers";
  std::vector<std::string> attributeKeys = {};
  std::vector<std::string> extraKeys = {};

  template <typename Part>
  void parts(const Part& part) {
    part("attributeKeys", attributeKeys);
    part("extraKeys", extraKeys);
  }
};

/// Before each device: open again what instruments the site has lost, and wait for them.
struct Prepare {
  static constexpr const char* kType = "prepare";
  std::string site = {};

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
  }
};

struct TestDevice {
  static constexpr const char* kType = "testDevice";
  std::string site = {};
  std::string serialNumber = {};
  int round = 1;                 ///< which device of the site this is, from 1
  std::string traffic = {};      ///< the file for its traffic; empty: none
  std::string trafficHead = {};  ///< the first line of that file

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("serialNumber", serialNumber);
    part("round", round);
    part("traffic", traffic);
    part("trafficHead", trafficHead);
  }
};

/// The answer to a question, or why there is none.
struct Answered {
  static constexpr const char* kType = "answered";
  std::string site = {};
  int id = 0;  ///< of the question
  std::optional<std::string> answer = {};
  int code = 0;             ///< 0, or the framework's error code
  std::string reason = {};  ///< of an error, where its code does not tell all

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("id", id);
    part("answer", answer);
    part("code", code);
    part("reason", reason);
  }
};

/// Everything of the device is recorded, and this is its verdict; or it is broken off.
struct Confirmed {
  static constexpr const char* kType = "confirmed";
  std::string site = {};
  Verdict verdict = Verdict::BrokenOff;

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("verdict", verdict);
  }
};

/// Break off the device before its next test.
struct Stop {
  static constexpr const char* kType = "stop";
  std::string site = {};
  std::string reason = {};  ///< "stopped on request"

  template <typename Part>
  void parts(const Part& part) {
    part("site", site);
    part("reason", reason);
  }
};

struct Unload {
  static constexpr const char* kType = "unload";

  template <typename Part>
  void parts(const Part&) {}
};

// Translation. `take` throws `BrokenMessage` where a part is missing or of a wrong kind.

template <typename T>
Message messageFrom(const T& told);
template <typename T>
T take(const Message& message);
/// The type of a message; "" when it has none.
std::string typeOf(const Message& message);

}  // namespace station
