#include "RemoteOperator.h"

#include <utility>

#include <QLTErrorCodes.h>

namespace station {
namespace {

QLTError nobody() {
  return QLTError::withDescription(QLTFrameworkErrorDomain, kQLTErrorOperatorAbsent,
                                   "there is nobody to show it to");
}

QLTError errorOf(const Answered& answered, const QLTQuestion& question) {
  if (answered.code == kQLTErrorOperatorAnswerUnfit) {
    return QLTOperator::unfit(question, answered.answer.value_or(""), answered.reason);
  }
  if (answered.reason.empty()) return QLTOperator::failure(answered.code, question);
  return QLTError::withDescription(QLTFrameworkErrorDomain, answered.code, answered.reason);
}

void report(QLTError reason, QLTError* error) {
  if (error != nullptr) *error = std::move(reason);
}

}  // namespace

std::optional<std::string> RemoteOperator::ask(const QLTQuestion& question, QLTError* error) {
  std::unique_lock lock(mutex_);
  if (closed_) {
    report(failure(kQLTErrorOperatorAbsent, question), error);
    return std::nullopt;
  }
  const int id = ++lastId_;
  asked_[id];
  lock.unlock();
  channel_.send(messageFrom(Asked{
      site_, id, static_cast<int>(question.kind), question.text, question.image, question.choices,
      question.pattern, question.lowLimit, question.highLimit, question.timeOutInSeconds}));
  lock.lock();
  // The host keeps the time: that of a person begins when he can read the question.
  changed_.wait(lock, [&] { return closed_ || asked_[id].has_value(); });
  const std::optional<Answered> answered = std::move(asked_[id]);
  asked_.erase(id);
  lock.unlock();
  if (answered && answered->code == 0 && answered->answer) return answered->answer;
  report(answered ? errorOf(*answered, question) : failure(kQLTErrorOperatorCancelled, question),
         error);
  return std::nullopt;
}

bool RemoteOperator::showText(const std::string& text, const std::optional<std::string>& image,
                              QLTError* error) {
  const std::lock_guard lock(mutex_);
  if (!closed_) return channel_.send(messageFrom(Shown{site_, text, image}));
  report(nobody(), error);
  return false;
}

bool RemoteOperator::showProgress(double fraction, const std::string& text, QLTError* error) {
  const std::lock_guard lock(mutex_);
  if (!closed_) return channel_.send(messageFrom(Progressed{site_, fraction, text}));
  report(nobody(), error);
  return false;
}

void RemoteOperator::deliver(Answered answered) {
  const std::lock_guard lock(mutex_);
  const auto asked = asked_.find(answered.id);
  if (asked == asked_.end()) return;
  asked->second = std::move(answered);
  changed_.notify_all();
}

void RemoteOperator::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  changed_.notify_all();
}

}  // namespace station
