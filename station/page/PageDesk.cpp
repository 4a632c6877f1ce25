#include "PageDesk.h"

#include <chrono>
#include <cmath>

#include <QLTErrorCodes.h>

#include "Questions.h"
#include "Signals.h"
#include "Text.h"
#include "results/Clock.h"

namespace station {
namespace {

// How often an open question looks whether the station is to stop.
constexpr std::chrono::milliseconds kLook{200};

}  // namespace

Answered PageDesk::answer(const Asked& asked, const std::stop_token& cancelled) {
  if (auto refused = refusal(asked)) return *refused;
  const auto deadline = deadlineOf(asked);
  const auto isOver = [&] { return deadline && std::chrono::steady_clock::now() >= *deadline; };
  const auto isStopped = [&] { return cancelled.stop_requested() || Signals::stopRequested(); };

  std::unique_lock lock(mutex_);
  while (open_.contains(asked.site) && !isOver() && !isStopped()) {
    changed_.wait_for(lock, cancelled, kLook, [&] { return !open_.contains(asked.site); });
  }
  if (isStopped()) return unanswered(asked, kQLTErrorOperatorCancelled);
  if (isOver()) return unanswered(asked, kQLTErrorOperatorTimedOut);

  const std::string id = asked.site + "-" + std::to_string(++last_);
  Open& open = open_[asked.site];
  open = {id, asked, std::nullopt, false};
  PageState::Question question{id, asked, results::microsecondsNow()};
  if (asked.timeOut) {
    question.untilUs = question.askedUs + std::llround(std::min(*asked.timeOut, 1e9) * 1e6);
  }
  state_.asks(asked.site, question);
  while (!open.answer && !open.isCancelled && !isOver() && !isStopped()) {
    changed_.wait_for(lock, cancelled, kLook, [&] { return open.answer || open.isCancelled; });
  }
  const std::optional<std::string> answer = open.answer;
  const bool isCancelled = open.isCancelled || isStopped();
  open_.erase(asked.site);
  state_.asks(asked.site, std::nullopt);
  changed_.notify_all();
  if (answer) return {asked.site, asked.id, answer, 0, ""};
  return unanswered(asked, isCancelled ? kQLTErrorOperatorCancelled : kQLTErrorOperatorTimedOut);
}

std::string PageDesk::give(const std::string& site, const std::string& question,
                           const std::string& answer) {
  const std::lock_guard lock(mutex_);
  const auto open = open_.find(site);
  if (open == open_.end() || open->second.id != question || open->second.answer) {
    return "The question is not open any more.";
  }
  std::string complaint = complaintAbout(open->second.asked, answer);
  if (!complaint.empty()) return complaint;
  open->second.answer = answer;
  changed_.notify_all();
  return "";
}

void PageDesk::cancel(const std::string& site) {
  const std::lock_guard lock(mutex_);
  const auto open = open_.find(site);
  if (open == open_.end()) return;
  open->second.isCancelled = true;
  changed_.notify_all();
}

}  // namespace station
