#include "SerialNumberSource.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "CannotRun.h"
#include "Signals.h"
#include "Text.h"
#include "common/Files.h"

using quillon::internal::Pipe;

namespace station {
namespace {

constexpr const char* kEnds = " (Ctrl-D ends.)";

}  // namespace

SerialNumberSource::SerialNumberSource(SerialNumbers given, std::vector<std::string> sites,
                                       Screen& screen, std::optional<SerialPattern> pattern,
                                       RunPurpose purpose)
    : given_(std::move(given)),
      sites_(std::move(sites)),
      screen_(screen),
      purpose_(std::move(purpose)),
      rules_(std::move(pattern)),
      over_(Pipe::make(O_NONBLOCK)),
      prompt_(screen) {
  checkSites();
  checkThatNoneIsTwice();
  checkPattern();
  checkThatOthersCanBeAsked();
  for (const std::string& site : sites_) {
    if (!given_.contains(site)) waiting_.insert(rankOf(site));
  }
}

/// One device is at one site only, whoever says otherwise has mistaken one.
void SerialNumberSource::checkThatNoneIsTwice() const {
  std::map<std::string, std::string> siteOf;  // by serial number
  for (const std::string& site : sites_) {
    const auto given = given_.find(site);
    if (given == given_.end()) continue;
    const auto [same, isNew] = siteOf.emplace(given->second, site);
    if (isNew) continue;
    throw CannotRun("--sn gives the sites " + printable(same->second) + " and " + printable(site) +
                        " the same serial number " + printable(given->second),
                    "A device is at one site only. Look at both, and give each its own number.");
  }
}

void SerialNumberSource::checkSites() const {
  for (const auto& given : given_) {
    if (std::find(sites_.begin(), sites_.end(), given.first) != sites_.end()) continue;
    throw CannotRun("--sn names the site \"" + printable(given.first) +
                        "\", which is not one of those to test at",
                    "The sites are: " + listOf(sites_));
  }
}

void SerialNumberSource::checkPattern() const {
  for (const auto& [site, serialNumber] : given_) {
    const std::string complaint = rules_.complaintOfPattern(serialNumber);
    if (complaint.empty()) continue;
    std::string option = "--sn ";
    option.append(printable(site)).append("=").append(printable(serialNumber));
    throw CannotRun(option.append(": ").append(complaint),
                    "The plug-in's station attribute serialPattern says so.");
  }
}

void SerialNumberSource::checkThatOthersCanBeAsked() const {
  std::vector<std::string> missing;
  for (const std::string& site : sites_) {
    if (!given_.contains(site)) missing.push_back(site);
  }
  if (missing.empty() || SerialNumberPrompt::isPossible()) return;
  throw CannotRun("no serial number for: " + listOf(missing),
                  "Give it with --sn " + missing.front() +
                      "=SERIAL, or start quillon on a terminal, where it asks.");
}

std::optional<NextDevice> SerialNumberSource::next(const std::string& site) {
  std::unique_lock lock(mutex_);
  const auto given = given_.find(site);
  if (given != given_.end()) {
    rules_.take(site, given->second);
    return NextDevice{given->second, purpose_};
  }
  const std::ptrdiff_t rank = rankOf(site);
  waiting_.insert(rank);
  changed_.wait(
      lock, [&] { return ended_ || (!asking_ && questions_ == 0 && *waiting_.begin() == rank); });
  if (ended_) return std::nullopt;
  asking_ = true;
  lock.unlock();
  auto answer = prompt_.ask("Serial number of the device at site " + site + ": ",
                            [&](const std::string& text) { return rules_.complaintAbout(text); },
                            {.cancelled = over_.reading.get(), .hint = kEnds});
  lock.lock();
  asking_ = false;
  waiting_.erase(rank);
  if (answer) {
    rules_.take(site, *answer);
  } else {
    ended_ = true;
  }
  changed_.notify_all();
  if (!answer) return std::nullopt;
  return NextDevice{*answer, purpose_};
}

std::optional<std::string> SerialNumberSource::whoMadeSafe(const std::string& site,
                                                           const std::string& reason) {
  if (!SerialNumberPrompt::isPossible()) return std::nullopt;
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return ended_ || !asking_; });
  if (ended_) return std::nullopt;
  asking_ = true;
  lock.unlock();
  auto name = prompt_.ask(
      "Site " + printable(site) + " is UNSAFE: " + printable(reason) +
          "\nMake the fixture safe by hand, then type your name: ",
      [](const std::string& text) { return std::string(text.empty() ? "A name is needed." : ""); },
      {.hint = kEnds});
  lock.lock();
  asking_ = false;
  if (!name) ended_ = true;
  changed_.notify_all();
  return name;
}

std::optional<std::string> SerialNumberSource::answerTo(
    const std::string& question, const std::function<std::string(const std::string&)>& complaint,
    SerialNumberPrompt::Patience patience, const std::stop_token& cancelled) {
  const Pipe pipe = Pipe::make(O_NONBLOCK);
  const std::stop_callback tell(
      cancelled, [&] { [[maybe_unused]] const auto sent = write(pipe.writing.get(), "", 1); });
  patience.cancelled = pipe.reading.get();
  const auto isFree = [&] { return !asking_; };
  std::unique_lock lock(mutex_);
  ++questions_;
  const bool isOurTurn = patience.until
                             ? changed_.wait_until(lock, cancelled, *patience.until, isFree)
                             : changed_.wait(lock, cancelled, isFree);
  std::optional<std::string> answer;
  if (isOurTurn && !cancelled.stop_requested() && !Signals::stopRequested()) {
    asking_ = true;
    lock.unlock();
    answer = prompt_.ask(question, complaint, patience);
    lock.lock();
    asking_ = false;
  }
  --questions_;
  changed_.notify_all();
  return answer;
}

void SerialNumberSource::release(const std::string& site) { rules_.release(site); }

void SerialNumberSource::leave(const std::string& site) {
  const std::lock_guard lock(mutex_);
  waiting_.erase(rankOf(site));
  changed_.notify_all();
}

void SerialNumberSource::end() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  changed_.notify_all();
  [[maybe_unused]] const auto sent = write(over_.writing.get(), "", 1);
}

std::ptrdiff_t SerialNumberSource::rankOf(const std::string& site) const {
  return std::distance(sites_.begin(), std::find(sites_.begin(), sites_.end(), site));
}

}  // namespace station
