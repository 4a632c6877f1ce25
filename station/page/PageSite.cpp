#include "PageSite.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "PageReports.h"
#include "RunJson.h"
#include "Signals.h"
#include "StationInfo.h"
#include "Text.h"
#include "common/Files.h"
#include "common/Text.h"
#include "host/TrafficFiles.h"
#include "results/Clock.h"
#include "results/Queries.h"

namespace station {
namespace {

using Object = nlohmann::json;
using quillon::internal::numberIn;
using web::Response;

constexpr std::size_t kRuns = 20;
constexpr std::size_t kMostRuns = 500;
constexpr std::size_t kLines = 200;
constexpr std::size_t kMostLines = 5000;
constexpr std::uintmax_t kMostLogBytes = 1024UL * 1024;
constexpr std::uintmax_t kMostNewLogBytes = 64UL * 1024;
constexpr std::uintmax_t kMostImageBytes = 16UL * 1024 * 1024;

/// A command that lacks a part.
class Lacking : public std::runtime_error {
 public:
  explicit Lacking(const std::string& part)
      : std::runtime_error("the command needs the text \"" + part + "\"") {}
};

std::string part(const Object& command, const char* name) {
  const auto found = command.find(name);
  if (found == command.end() || !found->is_string()) throw Lacking(name);
  return found->get<std::string>();
}

std::string partOr(const Object& command, const char* name, const std::string& otherwise) {
  return command.contains(name) ? part(command, name) : otherwise;
}

std::optional<std::string> orAbsent(const std::string& text) {
  if (text.empty()) return std::nullopt;
  return text;
}

Response refused(const std::string& complaint) {
  return Response::json(409, {{"done", false}, {"message", complaint}});
}

Response done(const std::string& complaint) {
  return complaint.empty() ? Response::json(200, {{"done", true}}) : refused(complaint);
}

std::size_t count(const web::Request& request, const char* name, std::size_t usual,
                  std::size_t most) {
  const auto given = request.query.find(name);
  if (given == request.query.end()) return usual;
  return std::min(most, numberIn<std::size_t>(given->second).value_or(usual));
}

/// Whole lines of a file, from `from` on; the bytes that they take.
std::pair<std::vector<std::string>, std::uintmax_t> linesOf(const std::filesystem::path& path,
                                                            std::uintmax_t from) {
  std::ifstream file(path, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(from));
  std::vector<std::string> lines;
  std::uintmax_t bytes = 0;
  std::string line;
  while (std::getline(file, line) && !file.eof()) {
    bytes += line.size() + 1;
    lines.push_back(std::move(line));
  }
  return {std::move(lines), bytes};
}

const char* imageType(const std::filesystem::path& image) {
  static const std::map<std::string, const char*> kTypes{
      {".png", "image/png"}, {".jpg", "image/jpeg"},  {".jpeg", "image/jpeg"},
      {".gif", "image/gif"}, {".webp", "image/webp"}, {".svg", "image/svg+xml"}};
  std::string ending = image.extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto type = kTypes.find(ending);
  return type == kTypes.end() ? nullptr : type->second;
}

Object measurementOf(const results::Measurement& measurement,
                     const std::map<std::string, const results::Spec*>& specs) {
  Object json{{"sequence", measurement.sequence},
              {"step", measurement.step},
              {"attempt", measurement.attempt},
              {"superseded", measurement.superseded},
              {"verdict", results::text(measurement.verdict)}};
  if (measurement.value) json["value"] = *measurement.value;
  if (measurement.text) json["text"] = *measurement.text;
  if (measurement.message) json["message"] = *measurement.message;
  const auto spec = specs.find(measurement.specId);
  if (spec == specs.end()) return json;
  json["number"] = spec->second->number;
  json["test"] = spec->second->test;
  json["subTest"] = spec->second->subTest;
  if (spec->second->low) json["low"] = *spec->second->low;
  if (spec->second->high) json["high"] = *spec->second->high;
  if (spec->second->expected) json["expected"] = *spec->second->expected;
  if (spec->second->unit) json["unit"] = *spec->second->unit;
  return json;
}

/// Whether a site in this state has a device that can be stopped.
bool isInProgress(const std::string& word) {
  return word == "RUNNING" || word == "ASKING" || word == "WAITING" || word == "STOPPING";
}

/// A label's value as the text format of metrics wants it.
std::string quoted(const std::string& text) {
  std::string escaped = "\"";
  for (const char c : text) {
    if (c == '\\' || c == '"') escaped += '\\';
    escaped += c == '\n' ? ' ' : c;
  }
  return escaped + '"';
}

void writeMetrics(std::ostream& text, const results::ForwardStatus& status) {
  const std::int64_t now = results::microsecondsNow();
  constexpr double kMicroseconds = 1e6;
  const auto gauge = [&](const std::string& name, const std::string& help, const auto& value) {
    text << "# HELP " << name << ' ' << help << "\n# TYPE " << name << " gauge\n"
         << name << ' ' << value << '\n';
  };
  gauge("quillon_forward_up", "Whether the server takes runs.", status.trouble.empty() ? 1 : 0);
  gauge("quillon_forward_waiting_runs", "Runs that have ended and are not on the server.",
        status.waiting);
  gauge("quillon_forward_oldest_seconds", "How long the oldest of them has been waiting.",
        status.oldestEndedUs
            ? std::max(0.0, static_cast<double>(now - *status.oldestEndedUs) / kMicroseconds)
            : 0.0);
  gauge("quillon_forward_parked_runs", "Runs that a person has to look at.", status.parked);
  text << "# HELP quillon_forward_sent_total Runs sent since the station was started.\n"
       << "# TYPE quillon_forward_sent_total counter\nquillon_forward_sent_total " << status.sent
       << '\n';
}

}  // namespace

void PageSite::enter(const Session& session) {
  const std::lock_guard lock(mutex_);
  session_ = session;
  logRead_ = 0;
}

void PageSite::leave() {
  const std::scoped_lock lock(commands_, mutex_);
  session_.devices = nullptr;
  session_.desk = nullptr;
  session_.engine = nullptr;
  session_.events = nullptr;
}

void PageSite::setCounts(std::function<web::Counts()> counts) {
  const std::lock_guard lock(mutex_);
  counts_ = std::move(counts);
}

void PageSite::reload() {
  const std::lock_guard lock(mutex_);
  isReloadDue_ = true;
  changed_.notify_all();
}

bool PageSite::awaitReload(std::chrono::milliseconds atMost) {
  constexpr std::chrono::milliseconds kLook{200};
  const auto until = std::chrono::steady_clock::now() + atMost;
  std::unique_lock lock(mutex_);
  while (!isReloadDue_ && !Signals::stopRequested() && std::chrono::steady_clock::now() < until) {
    changed_.wait_for(lock, kLook);
  }
  return std::exchange(isReloadDue_, false);
}

PageSite::Session PageSite::session() const {
  const std::lock_guard lock(mutex_);
  return session_;
}

std::uint64_t PageSite::generation() {
  if (Signals::stopRequested()) state_.stopping();
  return state_.generation();
}

std::vector<std::string> PageSite::newLogLines() {
  const std::lock_guard lock(mutex_);
  std::error_code problem;
  const std::uintmax_t size = std::filesystem::file_size(session_.diagnostics, problem);
  if (problem || size <= logRead_) return {};
  // Of a flood the end is enough: the file has all of it.
  const bool isFlood = size - logRead_ > kMostNewLogBytes;
  if (isFlood) logRead_ = size - kMostNewLogBytes;
  auto [lines, bytes] = linesOf(session_.diagnostics, logRead_);
  logRead_ += bytes;
  if (isFlood && !lines.empty()) lines.erase(lines.begin());
  return std::move(lines);
}

Response PageSite::get(const web::Request& request) {
  const std::string& path = request.path;
  const std::string kRunPath = "/api/1/runs/";
  const std::string kImagePath = "/api/1/images/";
  if (path == "/metrics") return metrics();
  try {
    if (path == "/api/1/runs") return runs(request);
    if (path.starts_with(kRunPath)) return run(path.substr(kRunPath.size()));
    if (path.starts_with(kReportPath)) {
      const std::filesystem::path store = session().store;
      if (store.empty()) return Response::refusal(503, "the station is not ready");
      return reportPage(request, store);
    }
  } catch (const results::StoreError& problem) {
    return Response::refusal(503, problem.what());
  }
  if (path == "/api/1/log") return log(request);
  if (path.starts_with(kImagePath)) return image(path.substr(kImagePath.size()));
  return Response::refusal(404, "there is nothing at " + path);
}

Response PageSite::runs(const web::Request& request) const {
  const Session now = session();
  Object list = Object::array();
  if (!now.store.empty()) {
    results::Queries queries(now.store);
    const std::size_t most = count(request, "most", kRuns, kMostRuns);
    const auto serial = request.query.find("serial");
    std::vector<results::Run> found = serial == request.query.end()
                                          ? queries.lastRuns(now.stationId, most)
                                          : queries.runsOf(serial->second);
    if (serial != request.query.end()) std::reverse(found.begin(), found.end());
    if (found.size() > most) found.resize(most);
    for (const results::Run& run : found) list.push_back(jsonOf(run, queries));
  }
  return Response::json(200, {{"runs", std::move(list)}});
}

Response PageSite::run(const std::string& id) const {
  const Session now = session();
  std::optional<results::Queries> queries;
  if (!now.store.empty()) queries.emplace(now.store);
  const auto content = queries ? queries->run(id) : std::nullopt;
  if (!content) return Response::refusal(404, "there is no run " + id);
  std::map<std::string, const results::Spec*> specs;
  for (const results::Spec& spec : content->specs) specs[spec.id] = &spec;
  Object json = jsonOf(content->run, *queries);
  json["bundle"] = content->plan.bundle;
  if (content->plan.bundleVersion) json["bundleVersion"] = *content->plan.bundleVersion;
  json["flow"] = content->plan.flow;
  const auto traffic = trafficFile(now.store.parent_path(), content->run.id);
  std::error_code unknown;
  if (std::filesystem::exists(traffic, unknown)) json["traffic"] = traffic.string();
  json["steps"] = Object::array();
  for (const results::Step& step : content->steps) {
    Object row{{"step", step.step},
               {"attempt", step.attempt},
               {"test", step.test},
               {"startedAt", step.startedUs},
               {"verdict", results::text(step.verdict)}};
    if (step.endedUs) row["endedAt"] = *step.endedUs;
    if (step.errorText) row["error"] = *step.errorText;
    json["steps"].push_back(std::move(row));
  }
  json["measurements"] = Object::array();
  for (const results::Measurement& measurement : content->measurements) {
    json["measurements"].push_back(measurementOf(measurement, specs));
  }
  return Response::json(200, json);
}

Response PageSite::log(const web::Request& request) const {
  const std::filesystem::path file = session().diagnostics;
  std::error_code problem;
  const std::uintmax_t size = std::filesystem::file_size(file, problem);
  const std::uintmax_t from = problem || size < kMostLogBytes ? 0 : size - kMostLogBytes;
  std::vector<std::string> lines = linesOf(file, from).first;
  const std::size_t most = count(request, "lines", kLines, kMostLines);
  if (lines.size() > most)
    lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(most));
  return Response::json(200, {{"lines", std::move(lines)}});
}

Response PageSite::image(const std::string& site) const {
  const auto name = state_.image(site);
  if (!name) return Response::refusal(404, "site " + site + " shows no image");
  const char* const type = imageType(*name);
  if (type == nullptr) return Response::refusal(415, *name + " is no image that a browser shows");
  // Nothing but the plug-in's own resources, links out of them included.
  std::error_code problem;
  const auto folder = std::filesystem::canonical(session().resources, problem);
  const auto file = std::filesystem::canonical(folder / *name, problem);
  const bool isWithin =
      !problem &&
      std::mismatch(folder.begin(), folder.end(), file.begin(), file.end()).first == folder.end();
  if (!isWithin || std::filesystem::file_size(file, problem) > kMostImageBytes || problem) {
    return Response::refusal(404, *name + " is no image within the plug-in's resources");
  }
  auto content = quillon::internal::readWhole(file.string());
  if (!content) return Response::refusal(404, *name + " cannot be read");
  Response response = Response::text(std::move(*content), type);
  // An SVG may hold scripts.
  response.headers.emplace_back("Content-Security-Policy", "sandbox; default-src 'none'");
  return response;
}

Response PageSite::metrics() const {
  std::ostringstream text;
  text << "# HELP quillon_info What runs here.\n# TYPE quillon_info gauge\nquillon_info{version="
       << quoted(applicationVersion()) << "} 1\n"
       << "# HELP quillon_ready Whether devices can be tested.\n# TYPE quillon_ready gauge\n"
       << "quillon_ready " << (state_.isReady() ? 1 : 0) << '\n'
       << "# HELP quillon_devices_total Devices since the station was started.\n"
       << "# TYPE quillon_devices_total counter\n";
  for (const auto& [site, counters] : state_.counters()) {
    const std::array<std::pair<const char*, int>, 3> byVerdict{
        {{"PASS", counters.passed}, {"FAIL", counters.failed}, {"BROKEN_OFF", counters.brokenOff}}};
    for (const auto& [verdict, number] : byVerdict) {
      text << "quillon_devices_total{site=" << quoted(site) << ",verdict=\"" << verdict << "\"} "
           << number << '\n';
    }
  }
  text << "# HELP quillon_site_state The state that a site is in.\n"
       << "# TYPE quillon_site_state gauge\n";
  for (const auto& [site, word] : state_.words()) {
    text << "quillon_site_state{site=" << quoted(site) << ",state=" << quoted(word) << "} 1\n";
  }
  if (const auto forwarding = state_.forwarding()) writeMetrics(text, *forwarding);
  std::function<web::Counts()> counts;
  {
    const std::lock_guard lock(mutex_);
    counts = counts_;
  }
  if (counts) {
    const web::Counts server = counts();
    text << "# HELP quillon_pages Pages that watch.\n# TYPE quillon_pages gauge\nquillon_pages "
         << server.streams << '\n'
         << "# HELP quillon_requests_total Requests answered.\n"
         << "# TYPE quillon_requests_total counter\nquillon_requests_total " << server.requests
         << '\n'
         << "# HELP quillon_pages_dropped_total Pages that did not keep up.\n"
         << "# TYPE quillon_pages_dropped_total counter\nquillon_pages_dropped_total "
         << server.dropped << '\n';
  }
  return Response::text(text.str(), "text/plain; version=0.0.4; charset=utf-8");
}

Response PageSite::command(const nlohmann::json& command) {
  const std::lock_guard busy(commands_);
  const Session now = session();
  try {
    const std::string name = part(command, "command");
    if (name == "reload") {
      if (!state_.isBroken()) return refused("The plug-in is loaded.");
      reload();
      return done("");
    }
    if (now.devices == nullptr) return refused("The station is not ready.");
    PageDevices& devices = *now.devices;
    const std::string person = devices.purpose().operatorName.value_or("");
    if (name == "scan") {
      const auto scanned = devices.scan(part(command, "text"));
      if (!scanned.complaint.empty()) return refused(scanned.complaint);
      Object answer{{"done", true}, {"site", scanned.site}};
      if (scanned.isLabel) answer["expects"] = "device";
      return Response::json(200, answer);
    }
    if (name == "serial")
      return done(devices.serial(part(command, "site"), part(command, "serial")));
    if (name == "clear") return done(devices.clear(part(command, "site")));
    if (name == "start") return done(devices.start(part(command, "site")));
    if (name == "answer") {
      return done(now.desk->give(part(command, "site"), part(command, "question"),
                                 part(command, "answer")));
    }
    if (name == "stop") return done(stop(part(command, "site")));
    if (name == "stopNow") return done(stopNow());
    if (name == "acknowledge") {
      return done(devices.acknowledge(part(command, "site"), part(command, "who")));
    }
    if (name == "disable") {
      return done(devices.disable(part(command, "site"), part(command, "reason"),
                                  partOr(command, "who", person)));
    }
    if (name == "enable") {
      return done(devices.enable(part(command, "site"), partOr(command, "who", person)));
    }
    if (name == "operator") {
      RunPurpose purpose = devices.purpose();
      purpose.operatorName = orAbsent(part(command, "name"));
      devices.setPurpose(purpose);
      return done("");
    }
    if (name == "mode") {
      RunPurpose purpose = devices.purpose();
      const std::string word = part(command, "kind");
      const auto kind = purposeOf(word);
      if (!kind) return refused("Devices are not tested for " + printable(word) + ".");
      purpose.kind = *kind;
      purpose.reason = orAbsent(partOr(command, "reason", ""));
      if (purpose.kind == results::RunKind::Production) purpose.reason.reset();
      devices.setPurpose(purpose);
      return done("");
    }
    return Response::refusal(400, "there is no command \"" + name + "\"");
  } catch (const Lacking& problem) {
    return Response::refusal(400, problem.what());
  }
}

std::string PageSite::stop(const std::string& site) {
  const Session now = session();
  const std::string word = state_.word(site);
  if (!isInProgress(word)) {
    return word.empty() ? "There is no site " + printable(site) + "."
                        : "Site " + printable(site) +
                              " has no device that could be stopped: it is " + word + ".";
  }
  now.events->add("stopped", site, "after the running test", now.devices->purpose().operatorName);
  state_.isStopping(site);
  now.engine->tell(Stop{site, kStoppedOnRequest});
  now.desk->cancel(site);
  return "";
}

std::string PageSite::stopNow() {
  const Session now = session();
  const auto words = state_.words();
  const bool isTesting = std::any_of(words.begin(), words.end(),
                                     [](const auto& site) { return isInProgress(site.second); });
  if (!isTesting) return "No device is in progress.";
  now.events->add("stopped", std::nullopt, "all sites at once",
                  now.devices->purpose().operatorName);
  for (const auto& [site, word] : words) {
    state_.isStopping(site);
    now.desk->cancel(site);
  }
  now.engine->endNow();
  return "";
}

}  // namespace station
