#include "PageDevices.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <utility>

#include "Json.h"
#include "Signals.h"
#include "Text.h"
#include "common/Files.h"

namespace station {
namespace {

// How often a site that waits looks whether the station is to stop.
constexpr std::chrono::milliseconds kLook{200};

std::string trimmed(const std::string& text) {
  constexpr const char* kBlanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::optional<std::string> orAbsent(const std::string& text) {
  if (text.empty()) return std::nullopt;
  return text;
}

}  // namespace

PageDevices::PageDevices(Options options, PageState& state, const EventLog& events)
    : options_(std::move(options)), state_(state), events_(events), rules_(options_.pattern) {
  for (const std::string& site : options_.sites) sites_[site];
  readDisabled();
}

std::optional<NextDevice> PageDevices::next(const std::string& name) {
  std::unique_lock lock(mutex_);
  Site& site = sites_[name];
  site.isWaiting = true;
  while (!(site.serial && site.isStarted)) {
    if (isEnded_ || Signals::stopRequested() || isOver()) return std::nullopt;
    changed_.wait_for(lock, kLook);
  }
  site.isWaiting = false;
  site.isBusy = true;
  site.isStarted = false;
  NextDevice device{*std::exchange(site.serial, std::nullopt), purpose_};
  state_.isReady(name, std::nullopt);
  return device;
}

std::optional<std::string> PageDevices::whoMadeSafe(const std::string& name,
                                                    const std::string& reason) {
  std::unique_lock lock(mutex_);
  Site& site = sites_[name];
  site.isUnsafe = true;
  state_.isUnsafe(name, reason);
  while (!site.who) {
    if (Signals::stopRequested()) return std::nullopt;
    changed_.wait_for(lock, kLook);
  }
  site.isUnsafe = false;
  state_.isUnsafe(name, std::nullopt);
  return std::exchange(site.who, std::nullopt);
}

void PageDevices::release(const std::string& site) {
  rules_.release(site);
  const std::lock_guard lock(mutex_);
  sites_[site].isBusy = false;
}

/// Whether the session ends: its time is over, and no site has a device.
bool PageDevices::isOver() {
  if (hasEnded_ || !options_.endAfter || std::chrono::system_clock::now() < *options_.endAfter) {
    return hasEnded_;
  }
  hasEnded_ = std::none_of(sites_.begin(), sites_.end(), [](const auto& each) {
    return each.second.isBusy || each.second.isUnsafe || each.second.serial;
  });
  if (hasEnded_) changed_.notify_all();
  return hasEnded_;
}

bool PageDevices::hasEnded() const {
  const std::lock_guard lock(mutex_);
  return hasEnded_;
}

void PageDevices::leave(const std::string& site) {
  const std::lock_guard lock(mutex_);
  sites_[site].isWaiting = false;
}

void PageDevices::end() {
  const std::lock_guard lock(mutex_);
  isEnded_ = true;
  changed_.notify_all();
}

PageDevices::Site* PageDevices::find(const std::string& name) {
  const auto site = sites_.find(name);
  return site == sites_.end() ? nullptr : &site->second;
}

/// Why a site can take no device now; "" when it can.
std::string PageDevices::complaintOfSite(const std::string& name) {
  const Site* const site = find(name);
  const std::string word = state_.word(name);
  if (site == nullptr && word.empty()) return "There is no site " + printable(name) + ".";
  if (site != nullptr && site->isWaiting && !site->disabled && !site->serial && !hasEnded_ &&
      !isEnded_) {
    return "";
  }
  if (site != nullptr && site->serial) {
    return "Site " + printable(name) + " has " + printable(*site->serial) + " already.";
  }
  return "Site " + printable(name) + " is not free: it is " + word + ".";
}

std::string PageDevices::take(const std::string& name, const std::string& serialNumber) {
  std::string complaint = complaintOfSite(name);
  if (complaint.empty()) complaint = rules_.complaintAbout(serialNumber);
  if (!complaint.empty()) return complaint;
  Site& site = sites_[name];
  rules_.take(name, serialNumber);
  site.serial = serialNumber;
  site.isStarted = options_.startOnScan;
  labelled_.reset();
  if (!site.isStarted) state_.isReady(name, serialNumber);
  changed_.notify_all();
  return "";
}

PageDevices::Scanned PageDevices::scan(const std::string& text) {
  const std::string read = trimmed(text);
  const std::lock_guard lock(mutex_);
  if (find(read) != nullptr) {
    const std::string complaint = complaintOfSite(read);
    if (!complaint.empty()) return {complaint};
    labelled_ = read;
    return {"", read, true};
  }
  if (labelled_) {
    const std::string site = *std::exchange(labelled_, std::nullopt);
    return {take(site, read), site};
  }
  if (options_.mode == ScanMode::Site) return {"Scan the label of a site first."};
  // A wrong number is wrong at any site.
  const std::string complaint = rules_.complaintAbout(read);
  if (!complaint.empty()) return {complaint};
  // A site whose last device may still be in it comes after one that is empty.
  const auto& sites = options_.sites;
  const auto isFree = [this](const std::string& name) { return complaintOfSite(name).empty(); };
  auto site = std::find_if(sites.begin(), sites.end(), [&](const std::string& name) {
    return isFree(name) && state_.word(name) == "EMPTY";
  });
  if (site == sites.end()) site = std::find_if(sites.begin(), sites.end(), isFree);
  if (site == sites.end()) return {"No site is free for " + printable(read) + "."};
  return {take(*site, read), *site};
}

std::string PageDevices::serial(const std::string& site, const std::string& serialNumber) {
  const std::lock_guard lock(mutex_);
  return take(site, trimmed(serialNumber));
}

std::string PageDevices::clear(const std::string& name) {
  const std::lock_guard lock(mutex_);
  Site* const site = find(name);
  if (site == nullptr || !site->serial || site->isStarted) {
    return "Site " + printable(name) + " has no device that waits for its start.";
  }
  site->serial.reset();
  rules_.release(name);
  state_.isReady(name, std::nullopt);
  return "";
}

std::string PageDevices::start(const std::string& name) {
  const std::lock_guard lock(mutex_);
  Site* const site = find(name);
  if (site == nullptr || !site->serial || site->isStarted) {
    return "Site " + printable(name) + " has no device that waits for its start.";
  }
  site->isStarted = true;
  changed_.notify_all();
  return "";
}

std::string PageDevices::acknowledge(const std::string& name, const std::string& who) {
  const std::string person = trimmed(who);
  const std::lock_guard lock(mutex_);
  Site* const site = find(name);
  if (site == nullptr || !site->isUnsafe) return "Site " + printable(name) + " is not unsafe.";
  if (person.empty()) return "A name is needed.";
  site->who = person;
  changed_.notify_all();
  return "";
}

std::string PageDevices::disable(const std::string& name, const std::string& reason,
                                 const std::string& who) {
  const std::string why = trimmed(reason);
  const std::lock_guard lock(mutex_);
  Site* const site = find(name);
  if (site == nullptr) return "There is no site " + printable(name) + " to take out of use.";
  if (why.empty()) return "A reason is needed.";
  if (site->disabled) return "Site " + printable(name) + " is out of use already.";
  site->disabled = why;
  if (site->serial && !site->isStarted) {
    site->serial.reset();
    rules_.release(name);
    state_.isReady(name, std::nullopt);
  }
  state_.isDisabled(name, why);
  events_.add("disabled", name, why, orAbsent(trimmed(who)));
  writeDisabled();
  return "";
}

std::string PageDevices::enable(const std::string& name, const std::string& who) {
  const std::lock_guard lock(mutex_);
  Site* const site = find(name);
  if (site == nullptr || !site->disabled) {
    return "Site " + printable(name) + " was not taken out of use here.";
  }
  site->disabled.reset();
  state_.isDisabled(name, std::nullopt);
  events_.add("enabled", name, "in use again", orAbsent(trimmed(who)));
  writeDisabled();
  return "";
}

void PageDevices::setPurpose(const RunPurpose& purpose) {
  const std::lock_guard lock(mutex_);
  purpose_ = purpose;
  state_.purposeIs(purpose);
}

RunPurpose PageDevices::purpose() const {
  const std::lock_guard lock(mutex_);
  return purpose_;
}

/// Sites that were out of use when the station ended still are.
void PageDevices::readDisabled() {
  const auto text = quillon::internal::readWhole(options_.disabledFile.string());
  if (!text) return;
  const Json known = Json::parse(*text, nullptr, false);
  if (!known.is_object()) return;
  for (const auto& [name, reason] : known.items()) {
    Site* const site = find(name);
    if (site == nullptr || !reason.is_string()) continue;
    site->disabled = reason.get<std::string>();
    state_.isDisabled(name, site->disabled);
  }
}

void PageDevices::writeDisabled() {
  Json known = Json::object();
  for (const auto& [name, site] : sites_) {
    if (site.disabled) known[name] = *site.disabled;
  }
  // Replaced as a whole. What cannot be kept is lost at the next start only.
  const std::filesystem::path fresh = options_.disabledFile.string() + ".new";
  std::ofstream(fresh) << textOf(known) << '\n';
  std::error_code ignored;
  std::filesystem::rename(fresh, options_.disabledFile, ignored);
}

}  // namespace station
