#include "PageState.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <utility>

#include <QLTQuestion.h>

#include "Calibration.h"
#include "RunJson.h"
#include "Text.h"
#include "Today.h"
#include "results/Clock.h"
#include "results/Queries.h"
#include "view/ResultText.h"
#include "view/VerdictWords.h"

namespace station {
namespace {

using results::microsecondsNow;
using Object = nlohmann::json;

constexpr std::size_t kMostRecent = 20;
constexpr std::size_t kMostNotices = 20;
constexpr double kMicroseconds = 1e6;
constexpr const char* kUp = "up";
constexpr const char* kLost = "lost";
constexpr const char* kReady = "ready";
constexpr const char* kStopping = "stopping";
constexpr const char* kBroken = "broken";

template <typename T>
void put(Object& object, const char* key, const std::optional<T>& value) {
  if (value) object[key] = *value;
}

void put(Object& object, const char* key, const std::string& value) {
  if (!value.empty()) object[key] = value;
}

int dayOfYear() {
  const std::time_t now = std::time(nullptr);
  std::tm day{};
  localtime_r(&now, &day);
  return day.tm_yday;
}

/// The station's word for a verdict, as the store has it.
const char* storedWord(Verdict verdict) {
  switch (verdict) {
    case Verdict::Pass:
      return results::text(results::Verdict::Pass);
    case Verdict::Fail:
      return results::text(results::Verdict::Fail);
    case Verdict::BrokenOff:
      break;
  }
  return results::text(results::Verdict::BrokenOff);
}

void count(Counters& counters, Verdict verdict) {
  ++(verdict == Verdict::Pass   ? counters.passed
     : verdict == Verdict::Fail ? counters.failed
                                : counters.brokenOff);
}

const char* kindOf(const Asked& asked) {
  switch (static_cast<QLTQuestion::Kind>(asked.kind)) {
    case QLTQuestion::Kind::Confirm:
      return "confirm";
    case QLTQuestion::Kind::Choose:
      return "choose";
    case QLTQuestion::Kind::EnterText:
      return "text";
    case QLTQuestion::Kind::EnterNumber:
      return "number";
  }
  return "confirm";
}

Object recordJson(const QLTestResult& record) {
  Object json{{"name", record.subTestName().value_or("")}, {"verdict", markText(record)}};
  put(json, "number", record.testNumber());
  put(json, "value", shortNumber(record.actual().value_or("")));
  put(json, "low", shortNumber(record.lowLimit().value_or("")));
  put(json, "high", shortNumber(record.highLimit().value_or("")));
  put(json, "expected", record.expected());
  put(json, "unit", record.unit());
  return json;
}

const char* wordOf(Calibration::State state) {
  switch (state) {
    case Calibration::State::Valid:
      return "valid";
    case Calibration::State::DueSoon:
      return "due_soon";
    case Calibration::State::Overdue:
      return "overdue";
    case Calibration::State::Simulated:
      return "simulated";
    case Calibration::State::Unknown:
    case Calibration::State::Malformed:
      break;
  }
  return "unknown";
}

Object forwardingJson(const results::ForwardStatus& status) {
  Object json{{"server", status.server}, {"waiting", status.waiting}, {"parked", status.parked}};
  put(json, "oldestAt", status.oldestEndedUs);
  put(json, "trouble", status.trouble);
  if (!status.trouble.empty()) json["since"] = status.sinceUs;
  return json;
}

Object instrumentsOf(const Loaded& loaded) {
  const auto today = std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
  Object list = Object::array();
  for (const auto& [site, names] : loaded.instruments) {
    if (names.dictionary() == nullptr) continue;
    for (const auto& [name, value] : *names.dictionary()) {
      const QLTDictionary* const entry = value.dictionary();
      if (entry == nullptr) continue;
      const Calibration calibration = calibrationOf(*entry, today);
      const bool isSimulated = calibration.state == Calibration::State::Simulated;
      Object instrument{{"site", site},
                        {"name", name},
                        {"state", isSimulated ? "simulated" : kUp},
                        {"calibration", wordOf(calibration.state)}};
      if (entry->contains("class")) instrument["class"] = entry->text("class");
      for (const char* const key : {"address", "ip", "bsdPath", "path"}) {
        if (!entry->contains(key)) continue;
        std::string address = entry->text(key);
        if (entry->contains("port")) address += ":" + entry->text("port");
        instrument["address"] = address;
        break;
      }
      put(instrument, "due", calibration.due);
      list.push_back(std::move(instrument));
    }
  }
  return list;
}

}  // namespace

PageState::PageState(std::string name, std::string version)
    : name_(std::move(name)), version_(std::move(version)), day_(dayOfYear()) {}

std::uint64_t PageState::generation() const {
  const std::lock_guard lock(mutex_);
  return generation_;
}

nlohmann::json PageState::json() const {
  const std::lock_guard lock(mutex_);
  Object station{{"name", name_},
                 {"version", version_},
                 {"state", phase_},
                 {"kind", results::text(purpose_.kind)},
                 {"scan", scan_ == ScanMode::Site ? "site" : "next"},
                 {"startOnScan", startOnScan_}};
  put(station, "bundle", bundle_);
  put(station, "bundleVersion", bundleVersion_);
  put(station, "flow", flow_);
  put(station, "part", part_);
  put(station, "process", process_);
  put(station, "operator", purpose_.operatorName);
  put(station, "reason", purpose_.reason);
  if (problem_) {
    station["problem"] = {{"text", problem_->text}};
    put(station["problem"], "advice", problem_->advice);
  }
  Object sites = Object::object();
  for (const auto& [name, site] : sites_) sites[name] = jsonOf(name, site);
  Object today{
      {"passed", today_.passed}, {"failed", today_.failed}, {"brokenOff", today_.brokenOff}};
  const int judged = today_.passed + today_.failed;
  if (judged > 0) today["yield"] = static_cast<double>(today_.passed) / judged;
  Object json{{"station", std::move(station)}, {"order", order_},   {"sites", std::move(sites)},
              {"today", std::move(today)},     {"recent", recent_}, {"notices", notices_},
              {"instruments", instruments_}};
  if (forwarding_) json["forwarding"] = forwardingJson(*forwarding_);
  return json;
}

void PageState::forwards(const results::ForwardStatus& status) {
  const std::lock_guard lock(mutex_);
  if (!forwarding_ || forwardingJson(*forwarding_) != forwardingJson(status)) ++generation_;
  forwarding_ = status;
}

std::optional<results::ForwardStatus> PageState::forwarding() const {
  const std::lock_guard lock(mutex_);
  return forwarding_;
}

nlohmann::json PageState::jsonOf(const std::string& name, const Site& site) const {
  Object json{{"state", wordOf(site)}, {"since", site.sinceUs}, {"todo", todoOf(site)}};
  if (!site.unavailable.empty()) {
    std::string causes;
    for (const std::string& cause : site.unavailable)
      causes += (causes.empty() ? "" : "\n") + cause;
    json["reason"] = causes;
  } else if (site.unsafe) {
    json["reason"] = *site.unsafe;
  } else {
    put(json, "reason", site.disabled);
  }
  put(json, "waitsFor", site.waitsFor);
  if (site.isTesting) {
    json["serial"] = site.serial;
    json["kind"] = results::text(site.purpose.kind);
    json["startedAt"] = site.startedUs;
    double usual = 0;
    for (const auto& [test, seconds] : usualSeconds_) usual += seconds;
    if (usual > 0) json["usualSeconds"] = usual;
    put(json, "firstFailure", site.firstFailure);
    if (site.isRetested) json["attempt"] = 2;
    if (!site.last.is_null()) json["last"] = site.last;
  } else {
    put(json, "serial", site.ready);
  }
  if (site.test) {
    Object& test = json["test"];
    test = {{"index", site.test->index},
            {"count", site.test->count},
            {"name", site.test->name},
            {"startedAt", site.testStartedUs}};
    const auto usual = usualSeconds_.find(site.test->name);
    if (usual != usualSeconds_.end()) test["usualSeconds"] = usual->second;
    put(test, "limitSeconds", site.test->timeLimit);
  }
  // One image at a time: that of the question, else that of what is shown.
  const std::string image = "/api/1/images/" + name + "?v=" + std::to_string(site.image);
  if (site.shown) {
    json["shown"] = {{"text", site.shown->text}};
    if (site.shown->image) json["shown"]["image"] = image;
  }
  if (site.progress) {
    json["progress"] = {{"fraction", site.progress->fraction}};
    put(json["progress"], "text", site.progress->text);
  }
  if (site.question) {
    const Asked& asked = site.question->asked;
    Object& question = json["question"];
    question = {{"id", site.question->id},
                {"kind", kindOf(asked)},
                {"text", asked.text},
                {"askedAt", site.question->askedUs}};
    put(question, "until", site.question->untilUs);
    put(question, "pattern", asked.pattern);
    if (asked.image) question["image"] = image;
    if (!asked.choices.empty()) question["choices"] = asked.choices;
    if (static_cast<QLTQuestion::Kind>(asked.kind) == QLTQuestion::Kind::EnterNumber) {
      if (std::isfinite(asked.low)) question["low"] = asked.low;
      if (std::isfinite(asked.high)) question["high"] = asked.high;
    }
  }
  if (!site.verdict.is_null() && !site.isTesting) json["verdict"] = site.verdict;
  return json;
}

/// The state of a site in its word, the most urgent one of those that hold.
std::string PageState::wordOf(const Site& site) {
  if (!site.unavailable.empty()) return "NOT AVAILABLE";
  if (site.state == SiteState::Ended) return "ENDED";
  if (site.unsafe) return "UNSAFE";
  if (site.isTesting) {
    if (site.question) return "ASKING";
    if (site.state == SiteState::Saving) return "SAVING";
    return site.isStopping ? "STOPPING" : "RUNNING";
  }
  if (site.disabled) return "DISABLED";
  if (site.ready) return "READY";
  if (site.state == SiteState::Empty) {
    return site.verdict.is_null() ? "EMPTY" : site.verdict["word"].get<std::string>();
  }
  return "WAITING";
}

std::string PageState::todoOf(const Site& site) {
  const std::string word = wordOf(site);
  if (word == "NOT AVAILABLE") return "Mend what is named, then start the station anew.";
  if (word == "ENDED") return "Takes no more devices.";
  if (word == "UNSAFE") return "Make the fixture safe by hand, then say so with your name.";
  if (word == "ASKING") return "Answer the question.";
  if (word == "SAVING") return "Wait: the results are being saved.";
  if (word == "STOPPING") return "Wait: it ends after the running test.";
  if (word == "RUNNING") return "Wait: the device is being tested.";
  if (word == "DISABLED") return "Use another site.";
  if (word == "READY") return "Press Start.";
  if (word == "EMPTY") return "Scan a device.";
  if (word == "PASS") return "Passed: take it out, and scan the next device.";
  if (word == "FAIL") return "Failed: put it aside, and scan the next device.";
  if (word == "BROKEN OFF") return "Not tested to its end: scan it again.";
  return site.waitsFor.empty() ? "Wait." : "See to what it waits for.";
}

void PageState::touch(Site& site) {
  ++generation_;
  const std::string word = wordOf(site);
  if (word == site.word && site.sinceUs != 0) return;
  site.word = word;
  site.sinceUs = microsecondsNow();
}

void PageState::change(const std::string& name, const std::function<void(Site&)>& change) {
  const std::lock_guard lock(mutex_);
  const auto site = sites_.find(name);
  if (site == sites_.end()) return;
  change(site->second);
  touch(site->second);
}

void PageState::loading() {
  const std::lock_guard lock(mutex_);
  ++generation_;
  phase_ = "loading";
  problem_.reset();
}

void PageState::loaded(const FaceContext& context) {
  std::deque<nlohmann::json> runs;
  std::map<std::string, std::int64_t> usual;
  try {
    results::Queries queries(context.store.file());
    for (const results::Run& run : queries.lastRuns(context.store.stationId(), kMostRecent)) {
      runs.push_back(station::jsonOf(run, queries));
    }
    usual = queries.usualDurations(context.loaded.bundle, context.loaded.flow);
  } catch (const results::StoreError&) {
    // They are only shown.
  }
  const Counters today = countersOfToday(context.store);

  const std::lock_guard lock(mutex_);
  phase_ = kReady;
  bundle_ = context.loaded.bundle;
  bundleVersion_ = context.loaded.bundleVersion;
  flow_ = context.loaded.flow;
  part_ = context.words.part;
  process_ = context.words.process;
  scan_ = context.words.scan;
  startOnScan_ = context.words.startOnScan;
  today_ = today;
  recent_ = std::move(runs);
  usualSeconds_.clear();
  for (const std::string& test : context.loaded.tests) {
    const auto time = usual.find(test);
    if (time != usual.end())
      usualSeconds_[test] = static_cast<double>(time->second) / kMicroseconds;
  }
  instruments_ = instrumentsOf(context.loaded);
  order_ = context.loaded.sites;
  sites_.clear();
  for (const std::string& name : order_) touch(sites_[name]);
  for (const auto& [name, causes] : context.loaded.unavailable) {
    order_.push_back(name);
    sites_[name].unavailable = causes;
    touch(sites_[name]);
  }
  for (const std::string& name : context.loaded.disabledSites) {
    order_.push_back(name);
    sites_[name].disabled = "disabled in the station's configuration";
    touch(sites_[name]);
  }
}

void PageState::stopping() {
  const std::lock_guard lock(mutex_);
  if (phase_ == kStopping) return;
  ++generation_;
  phase_ = kStopping;
}

void PageState::broken(const std::string& problem, const std::string& advice) {
  const std::lock_guard lock(mutex_);
  ++generation_;
  phase_ = kBroken;
  problem_ = Notice{true, problem, advice};
}

void PageState::noticed(const Notice& notice) {
  const std::lock_guard lock(mutex_);
  ++generation_;
  Object json{{"id", ++lastNotice_},
              {"at", microsecondsNow()},
              {"kind", notice.isProblem ? "problem" : "warning"},
              {"text", notice.text}};
  put(json, "advice", notice.advice);
  notices_.push_front(std::move(json));
  if (notices_.size() > kMostNotices) notices_.pop_back();
}

void PageState::purposeIs(const RunPurpose& purpose) {
  const std::lock_guard lock(mutex_);
  ++generation_;
  purpose_ = purpose;
}

void PageState::isDisabled(const std::string& site, const std::optional<std::string>& reason) {
  change(site, [&](Site& tile) { tile.disabled = reason; });
}

void PageState::isReady(const std::string& site, const std::optional<std::string>& serialNumber) {
  change(site, [&](Site& tile) { tile.ready = serialNumber; });
}

void PageState::isUnsafe(const std::string& site, const std::optional<std::string>& reason) {
  change(site, [&](Site& tile) { tile.unsafe = reason; });
}

void PageState::waitsFor(const std::string& site, const std::string& what) {
  change(site, [&](Site& tile) {
    tile.waitsFor = what;
    for (Object& instrument : instruments_) {
      const std::string address = instrument.value("address", "");
      if (instrument["site"] != site || address.empty()) continue;
      if (what.find(address) == std::string::npos) continue;
      instrument["state"] = kLost;
      instrument["problem"] = what;
    }
  });
}

/// A device of the site is tested, so its instruments are there.
void PageState::instrumentsAreBack(const std::string& site) {
  for (Object& instrument : instruments_) {
    if (instrument["site"] != site || instrument["state"] != kLost) continue;
    instrument["state"] = kUp;
    instrument.erase("problem");
  }
}

void PageState::isStopping(const std::string& site) {
  change(site, [&](Site& tile) { tile.isStopping = tile.isTesting; });
}

void PageState::asks(const std::string& site, std::optional<Question> question) {
  change(site, [&](Site& tile) {
    tile.question = std::move(question);
    ++tile.image;
  });
}

void PageState::shows(const Shown& shown) {
  change(shown.site, [&](Site& tile) {
    tile.shown = shown;
    ++tile.image;
  });
}

void PageState::shows(const Progressed& progressed) {
  change(progressed.site, [&](Site& tile) { tile.progress = progressed; });
}

std::string PageState::word(const std::string& site) const {
  const std::lock_guard lock(mutex_);
  const auto tile = sites_.find(site);
  return tile == sites_.end() ? "" : wordOf(tile->second);
}

std::optional<std::string> PageState::image(const std::string& site) const {
  const std::lock_guard lock(mutex_);
  const auto tile = sites_.find(site);
  if (tile == sites_.end()) return std::nullopt;
  if (tile->second.question && tile->second.question->asked.image) {
    return tile->second.question->asked.image;
  }
  return tile->second.shown ? tile->second.shown->image : std::nullopt;
}

std::map<std::string, Counters> PageState::counters() const {
  const std::lock_guard lock(mutex_);
  return counters_;
}

std::map<std::string, std::string> PageState::words() const {
  const std::lock_guard lock(mutex_);
  std::map<std::string, std::string> words;
  for (const auto& [name, site] : sites_) words[name] = wordOf(site);
  return words;
}

bool PageState::isReady() const {
  const std::lock_guard lock(mutex_);
  return phase_ == kReady;
}

bool PageState::isBroken() const {
  const std::lock_guard lock(mutex_);
  return phase_ == kBroken;
}

void PageState::siteIs(const std::string& site, SiteState state) {
  change(site, [&](Site& tile) {
    tile.state = state;
    tile.waitsFor.clear();
  });
}

void PageState::deviceStarted(const Outcome& device) {
  change(device.site, [&](Site& tile) {
    instrumentsAreBack(device.site);
    tile.isTesting = true;
    tile.isStopping = false;
    tile.serial = device.serialNumber;
    tile.purpose = device.purpose;
    tile.startedUs = microsecondsNow();
    tile.ready.reset();
    tile.firstFailure.reset();
    tile.isRetested = false;
    tile.last = nullptr;
    tile.verdict = nullptr;
    tile.waitsFor.clear();
  });
}

void PageState::testStarted(const TestStarted& test) {
  change(test.site, [&](Site& tile) {
    tile.test = test;
    tile.testStartedUs = microsecondsNow();
    tile.isRetested = false;
    tile.waitsFor.clear();
  });
}

void PageState::reported(const Reported& records) {
  if (records.records.empty()) return;
  change(records.site, [&](Site& tile) {
    tile.last = recordJson(*records.records.back());
    tile.waitsFor.clear();
  });
}

void PageState::testDone(const FinishedTest& test) {
  change(test.site, [&](Site& tile) {
    tile.shown.reset();
    tile.progress.reset();
    tile.isRetested = test.retested;
    if (test.verdict != Verdict::Pass && !tile.firstFailure) {
      tile.firstFailure = test.test + ": " + test.failure;
    }
  });
}

void PageState::deviceDone(const Outcome& outcome, const std::vector<FinishedTest>&) {
  const std::int64_t now = microsecondsNow();
  Object verdict{{"verdict", storedWord(outcome.verdict)},
                 {"word", verdictText(outcome.verdict)},
                 {"serial", outcome.serialNumber},
                 {"seconds", outcome.seconds},
                 {"endedAt", now}};
  put(verdict, "run", outcome.run);
  put(verdict, "firstFailure", outcome.firstFailure);
  put(verdict, "brokenOff", outcome.brokenOff);
  put(verdict, "hookProblem", outcome.hookProblem);
  put(verdict, "traffic", outcome.traffic);
  Object run{{"id", outcome.run},
             {"site", outcome.site},
             {"serial", outcome.serialNumber},
             {"kind", results::text(outcome.purpose.kind)},
             {"startedAt", now - static_cast<std::int64_t>(outcome.seconds * kMicroseconds)},
             {"endedAt", now},
             {"verdict", storedWord(outcome.verdict)}};
  put(run, "operator", outcome.purpose.operatorName);
  put(run, "message", reasonText(outcome));
  change(outcome.site, [&](Site& tile) {
    tile.isTesting = false;
    tile.isStopping = false;
    tile.test.reset();
    tile.shown.reset();
    tile.progress.reset();
    tile.question.reset();
    tile.waitsFor.clear();
    tile.verdict = std::move(verdict);
    recent_.push_front(std::move(run));
    if (recent_.size() > kMostRecent) recent_.pop_back();
    count(counters_[outcome.site], outcome.verdict);
    if (outcome.purpose.kind != results::RunKind::Production) return;
    countDay();
    count(today_, outcome.verdict);
  });
}

/// A new day counts from nothing.
void PageState::countDay() {
  const int day = dayOfYear();
  if (day == day_) return;
  day_ = day;
  today_ = {};
}

}  // namespace station
