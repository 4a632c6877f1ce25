#include "TrafficRecorder.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "ThreadName.h"
#include "common/Files.h"
#include "common/Format.h"
#include "traffic/Recording.h"

using quillon::internal::format;
using quillon::internal::openFile;
using quillon::internal::writeWhole;

namespace station {
namespace {

// Bounds in bytes: for what is said while the station is loaded, for one device, and for the last
// of what a device says beyond that.
constexpr std::size_t kMostBefore = std::size_t{8} << 20U;
constexpr std::size_t kMost = std::size_t{64} << 20U;
constexpr std::size_t kMostLast = std::size_t{1} << 20U;

constexpr const char* kOutsideOfSites = "station";

std::string textOf(QLTTrafficEvent event, std::string_view bytes, int code) {
  std::string text;
  switch (event) {
    case QLTTrafficEvent::Opened:
      return "\"opened\":true";
    case QLTTrafficEvent::Sent:
      text = "\"sent\":";
      appendJsonText(text, bytes);
      return text;
    case QLTTrafficEvent::Received:
      text = "\"received\":";
      appendJsonText(text, bytes);
      return text;
    case QLTTrafficEvent::Silent:
      return "\"silent\":true";
    case QLTTrafficEvent::Failed:
      return "\"failed\":" + std::to_string(code);
    case QLTTrafficEvent::Closed:
      break;
  }
  return "\"closed\":true";
}

/// A line is named where it is first told of.
std::string namesOf(const QLTTrafficLine& line) {
  std::string names = "\"instrument\":";
  appendJsonText(names, line.instrument());
  names += ",\"where\":";
  appendJsonText(names, line.where());
  return names + ",";
}

}  // namespace

TrafficRecorder::TrafficRecorder() : owner_(getpid()) {}

void TrafficRecorder::beginTesting(
    const std::map<std::string, std::set<std::string>>& instruments) {
  for (const auto& [site, names] : instruments) sites_[site].instruments = names;
  isTesting_.store(true, std::memory_order_release);
}

void TrafficRecorder::happened(const QLTTrafficLine& line, QLTTrafficEvent event,
                               std::string_view bytes, int code) {
  if (getpid() != owner_) return;  // what the plug-in forks has the files, too
  Said said{Clock::now(), line.number(), {}, textOf(event, bytes, code)};
  if (!isTesting_.load(std::memory_order_acquire)) {
    // Safe states, on threads of their sites, are no part of the loading.
    if (threadName() != kOutsideOfSites) return;
    const std::lock_guard lock(mutex_);
    if (beforeSize_ > kMostBefore) return;
    if (namedBefore_.insert(line.number()).second) said.names = namesOf(line);
    beforeSize_ += said.text.size() + said.names.size();
    before_.push_back(std::move(said));
    return;
  }
  if (const auto own = sites_.find(threadName()); own != sites_.end()) {
    add(own->second, line, said);
    return;
  }
  // A thread of the plug-in's own: it works for whoever uses the instrument.
  for (auto& [name, site] : sites_) {
    if (line.instrument().empty() || site.instruments.contains(line.instrument())) {
      add(site, line, said);
    }
  }
}

void TrafficRecorder::deviceStarts(const TestDevice& device) {
  const auto found = sites_.find(device.site);
  if (found == sites_.end() || device.traffic.empty()) return;
  Site& site = found->second;
  const std::lock_guard lock(site.mutex);
  site.isActive = true;
  site.path = device.traffic;
  site.head = device.trafficHead;
  site.started = Clock::now();
  site.size = 0;
  site.known.clear();
  site.test.clear();
  site.last.clear();
  site.lastSize = 0;
  site.dropped = 0;
  site.problem.reset();
  bool isAnyBefore = false;
  {
    const std::lock_guard beforeLock(mutex_);
    isAnyBefore = !before_.empty();
  }
  if (isAnyBefore) open(site);
}

/// With the head, and what was said before. False when nothing can be written.
bool TrafficRecorder::open(Site& site) {
  if (site.file) return true;
  if (!site.isActive) return false;
  const int flags = O_WRONLY | O_CREAT | O_APPEND | O_TRUNC;
  site.file = openFile(site.path, flags, 0600);
  if (!site.file && errno == ENOENT) {
    std::error_code unknown;
    std::filesystem::create_directories(std::filesystem::path(site.path).parent_path(), unknown);
    site.file = openFile(site.path, flags, 0600);
  }
  if (!site.file) {
    site.problem = std::strerror(errno);
    site.isActive = false;
    return false;
  }
  std::string text = site.head;
  {
    const std::lock_guard lock(mutex_);
    for (const Said& said : before_) {
      site.known.insert(said.line);
      text += timed(site, said.at,
                    "\"line\":" + std::to_string(said.line) + "," + said.names + said.text);
    }
  }
  text += timed(site, site.started, "\"device\":true");
  put(site, text + std::exchange(site.test, {}));
  return site.isActive;
}

void TrafficRecorder::add(Site& site, const QLTTrafficLine& line, const Said& said) {
  const std::lock_guard lock(site.mutex);
  if (!site.isActive || !open(site)) return;
  const bool isNew = site.known.insert(said.line).second;
  write(site, timed(site, said.at,
                    "\"line\":" + std::to_string(said.line) + "," + (isNew ? namesOf(line) : "") +
                        said.text));
}

void TrafficRecorder::testStarts(const TestStarted& test) {
  const auto found = sites_.find(test.site);
  if (found == sites_.end()) return;
  Site& site = found->second;
  const std::lock_guard lock(site.mutex);
  if (!site.isActive) return;
  const std::string text =
      timed(site, Clock::now(),
            "\"test\":" + std::to_string(test.index) + ",\"name\":" + lineOf(Json(test.name)));
  if (site.file) {
    write(site, text);
  } else {
    site.test = text;
  }
}

std::optional<std::string> TrafficRecorder::deviceEnds(const std::string& name) {
  const auto found = sites_.find(name);
  if (found == sites_.end()) return std::nullopt;
  Site& site = found->second;
  const std::lock_guard lock(site.mutex);
  if (site.isActive && site.file) {
    std::string text;
    if (site.dropped > 0) text = "{\"dropped\":" + std::to_string(site.dropped) + "}\n";
    for (const std::string& line : site.last) text += line;
    put(site, text + timed(site, Clock::now(), "\"end\":true"));
  }
  site.isActive = false;
  site.file.reset();
  site.last.clear();
  if (!site.problem) return std::nullopt;
  return "the traffic of this device is not recorded: " + site.path + ": " + *site.problem;
}

/// Writes a line, or keeps it as one of the last where the file is as long as it may be.
void TrafficRecorder::write(Site& site, const std::string& text) {
  if (site.size + text.size() <= kMost && site.last.empty()) return put(site, text);
  site.last.push_back(text);
  site.lastSize += text.size();
  while (site.lastSize > kMostLast && site.last.size() > 1) {
    site.lastSize -= site.last.front().size();
    site.last.pop_front();
    ++site.dropped;
  }
}

void TrafficRecorder::put(Site& site, const std::string& text) {
  if (writeWhole(site.file.get(), text)) {
    site.size += text.size();
    return;
  }
  site.problem = std::strerror(errno);
  // What is there stays whole.
  static_cast<void>(ftruncate(site.file.get(), static_cast<off_t>(site.size)));
  site.file.reset();
  site.isActive = false;
}

std::string TrafficRecorder::timed(const Site& site, Clock::time_point at,
                                   const std::string& text) {
  const double seconds = std::chrono::duration<double>(at - site.started).count();
  return format("{\"t\":%f,", seconds) + text + "}\n";
}

}  // namespace station
