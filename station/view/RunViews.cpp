#include "RunViews.h"

#include <utility>

#include <unistd.h>

#include "JsonView.h"
#include "LiveView.h"
#include "Report.h"
#include "Today.h"

namespace station {
namespace {

/// What people read, and what programs do.
class WithJson : public RunView {
 public:
  explicit WithJson(std::unique_ptr<RunView> people)
      : people_(std::move(people)), screen_(STDOUT_FILENO, STDERR_FILENO), json_(screen_) {}

  void siteIs(const std::string& site, SiteState state) override { people_->siteIs(site, state); }
  void deviceStarted(const Outcome& device) override { people_->deviceStarted(device); }
  void testStarted(const TestStarted& test) override { people_->testStarted(test); }
  void reported(const Reported& records) override { people_->reported(records); }
  void testDone(const FinishedTest& test) override { people_->testDone(test); }
  void deviceDone(const Outcome& outcome, const std::vector<FinishedTest>& tests) override {
    json_.deviceDone(outcome, tests);
    people_->deviceDone(outcome, tests);
  }
  void runEnded(const std::vector<Outcome>& outcomes) override { people_->runEnded(outcomes); }

 private:
  const std::unique_ptr<RunView> people_;
  Screen screen_;  // standard output
  JsonView json_;
};

Report::Detail detailOf(const RunOptions& options) {
  if (options.quiet) return Report::Detail::Verdicts;
  return options.details ? Report::Detail::Values : Report::Detail::Tests;
}

std::unique_ptr<RunView> viewForPeople(const RunOptions& options, const Loaded& loaded,
                                       Screen& screen, const results::Store& store) {
  // The diagnostics, or a debugger, would write into lines that are drawn in place.
  const bool isAlone = !options.verbose && options.wrap.empty();
  if (isAlone && LiveView::isPossible(screen)) {
    return std::make_unique<LiveView>(screen, loaded.sites, detailOf(options),
                                      countersOfToday(store), usualTimes(store, loaded));
  }
  return std::make_unique<Report>(screen, loaded.sites, loaded.tests, detailOf(options));
}

}  // namespace

std::unique_ptr<RunView> makeRunView(const RunOptions& options, const Loaded& loaded,
                                     Screen& screen, const results::Store& store) {
  auto people = viewForPeople(options, loaded, screen, store);
  if (!options.json) return people;
  return std::make_unique<WithJson>(std::move(people));
}

}  // namespace station
