#include "Serve.h"

#include <chrono>
#include <ctime>
#include <memory>
#include <optional>
#include <string>

#include "CannotRun.h"
#include "PageFace.h"
#include "PageFiles.h"
#include "PageSite.h"
#include "PageState.h"
#include "Screen.h"
#include "Signals.h"
#include "StationInfo.h"
#include "StationRun.h"
#include "Text.h"
#include "common/Files.h"
#include "forward/ForwardService.h"
#include "forward/ForwardText.h"
#include "web/Server.h"

namespace station {
namespace {

std::optional<std::string> tokenOf(const std::filesystem::path& file) {
  if (file.empty()) return std::nullopt;
  auto token = quillon::internal::readWhole(file.string());
  if (!token) {
    throw CannotRun("cannot read the token file " + printable(file.string()),
                    "It holds the one line that pages have to show.");
  }
  while (!token->empty() && (token->back() == '\n' || token->back() == '\r')) token->pop_back();
  return token;
}

web::Options webOptions(const ServeOptions& options) {
  web::Options web;
  web.address = options.listen;
  web.files = pageFiles();
  web.token = tokenOf(options.tokenFile);
  web.allowedHosts = options.allowedHosts;
  return web;
}

std::unique_ptr<web::Server> listen(const ServeOptions& options, PageSite& site) {
  try {
    return std::make_unique<web::Server>(webOptions(options), site);
  } catch (const web::CannotListen& problem) {
    throw CannotRun(std::string("cannot serve the page: ") + problem.what(),
                    options.tokenFile.empty()
                        ? "Other addresses than this computer's own need --token-file FILE."
                        : "");
  }
}

/// The next time of the day that is so many minutes after midnight, local time.
std::chrono::system_clock::time_point next(std::chrono::minutes timeOfDay) {
  constexpr int kMinutes = 60;
  const std::time_t now = std::time(nullptr);
  std::tm day{};
  localtime_r(&now, &day);
  const auto at = [&day, timeOfDay](int days) {
    std::tm moment = day;
    moment.tm_mday += days;
    moment.tm_hour = static_cast<int>(timeOfDay.count()) / kMinutes;
    moment.tm_min = static_cast<int>(timeOfDay.count()) % kMinutes;
    moment.tm_sec = 0;
    moment.tm_isdst = -1;
    return std::mktime(&moment);
  };
  return std::chrono::system_clock::from_time_t(at(0) > now ? at(0) : at(1));
}

}  // namespace

int serve(const ServeOptions& options) {
  // How long until a station that could not record is tried again by itself.
  constexpr std::chrono::seconds kAgain{30};
  Signals::takeForGood();
  Screen screen;
  PageState state(hostName(), applicationVersion());
  PageSite site(state);
  const std::unique_ptr<web::Server> server = listen(options, site);
  site.setCounts([&server] { return server->counts(); });
  std::optional<Notice> lastProblem;
  screen.observe([&](const Notice& notice) {
    state.noticed(notice);
    if (notice.isProblem) lastProblem = notice;
  });
  ForwardTeller tellScreen(screen);
  std::optional<ForwardService> forwarding;
  if (!options.forwardTo.empty()) {
    forwarding.emplace(
        results::ForwardOptions{std::filesystem::path(options.run.logFolder) / kStoreName,
                                serverOf(options.forwardTo), applicationVersion()},
        [&](const results::ForwardStatus& status) {
          state.forwards(status);
          tellScreen(status);
        });
  }
  screen.line("The page is at http://" + server->address() + "/");
  RunPurpose purpose = options.run.purpose;
  state.purposeIs(purpose);
  const FaceMaker makeFace = [&](const FaceContext& context) {
    return std::make_unique<PageFace>(context, options.run.logFolder, next(options.freshAt),
                                      purpose, state, site);
  };
  while (!Signals::stopRequested()) {
    state.loading();
    lastProblem.reset();
    StationRun run(options.run, makeFace, screen);
    try {
      run.run();
    } catch (const CannotRun& reason) {
      screen.problem(reason.what(), reason.advice());
    }
    if (Signals::stopRequested()) break;
    if (site.awaitReload({})) continue;  // a new day
    Notice why = lastProblem.value_or(
        Notice{true, "no device can be tested any more", "See the warnings, then start anew."});
    if (run.notRecorded()) {
      why = {true, *run.notRecorded(),
             "Test the devices that were broken off again. The station tries again by itself every "
             "half minute."};
    }
    state.broken(why.text, why.advice);
    while (!site.awaitReload(kAgain) && !run.notRecorded() && !Signals::stopRequested()) {
    }
  }
  server->stop();
  return 0;
}

}  // namespace station
