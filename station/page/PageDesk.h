#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "PageState.h"
#include "QuestionDesk.h"

namespace station {

/// The questions of tests, answered at the page. Any thread.
class PageDesk : public QuestionDesk {
 public:
  explicit PageDesk(PageState& state) : state_(state) {}

  /// A site has one open question at a time; further ones of the same device wait for it.
  Answered answer(const Asked& asked, const std::stop_token& cancelled) override;
  void show(const Shown& shown) override { state_.shows(shown); }
  void show(const Progressed& progressed) override { state_.shows(progressed); }

  /// The answer of a person to the site's open question. Why it is none, in words for him; "" when
  /// it is taken.
  std::string give(const std::string& site, const std::string& question, const std::string& answer);
  /// The device is to end: its question stays without an answer.
  void cancel(const std::string& site);

 private:
  struct Open {
    std::string id;
    Asked asked;
    std::optional<std::string> answer;
    bool isCancelled = false;
  };

  PageState& state_;
  std::mutex mutex_;  // guards what follows
  std::condition_variable_any changed_;
  std::map<std::string, Open> open_;  // by site
  int last_ = 0;
};

}  // namespace station
