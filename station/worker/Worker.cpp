#include "Worker.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string_view>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <QLTConsoleLog.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>

#include "CannotRun.h"
#include "CrashWitness.h"
#include "HoldWatch.h"
#include "OwnLoggers.h"
#include "Plugin.h"
#include "PluginProcess.h"
#include "RemoteOperator.h"
#include "SiteLink.h"
#include "SiteRunner.h"
#include "StationCheck.h"
#include "StationInfo.h"
#include "Text.h"
#include "ThreadName.h"
#include "link/ExitStatus.h"
#include "results/Sha256.h"

namespace station {
namespace {

/// The host is gone: so are this process and what the plug-in has started.
[[noreturn]] void endWithHost() {
  if (getpgrp() == getpid()) kill(0, SIGKILL);
  _exit(kRefused);
}

std::vector<std::string> testNames(const QLTFlow& flow) {
  std::vector<std::string> names;
  for (const auto& method : flow) {
    names.push_back(SiteRunner::nameOf(*method, static_cast<std::int32_t>(names.size()) + 1));
  }
  return names;
}

/// Those that the plug-in's code has added have no place in the file; they come last.
std::vector<std::string> sitesInFileOrder(std::vector<QLTStationPlan::Site> sites) {
  const auto place = [](const QLTStationPlan::Site& site) {
    const QLTPosition& position = site.position;
    const bool isInFile = position.line > 0 || position.offset >= 0;
    return std::tuple(!isInFile, position.line, position.column, position.offset);
  };
  std::stable_sort(sites.begin(), sites.end(),
                   [&](const auto& a, const auto& b) { return place(a) < place(b); });
  std::vector<std::string> names;
  names.reserve(sites.size());
  for (const auto& site : sites) names.push_back(site.name);
  return names;
}

/// Checks the plug-in's configuration in a process of its own, so that the plug-in in this one is
/// still untouched when it is loaded. What it prints there, loading has it print again.
Message checked(const std::filesystem::path& bundle) {
  const auto check = [&] {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    Checked result;
    QLTStationPlan plan;
    for (const auto& found : checkStation(bundle, QLTestSiteManager::testerConfigPath(), &plan)) {
      result.findings.push_back({found.severity == QLTConfigFinding::Severity::Error, found.file,
                                 found.text(), found.advice, found.unknownKey});
    }
    result.sites = sitesInFileOrder(std::move(plan.sites));
    std::string bytes;
    Message::to_cbor(messageFrom(result), bytes);
    return bytes;
  };
  try {
    return Message::from_cbor(runApart(false, check));
  } catch (const PluginEnded& reason) {
    return messageFrom(
        Checked{{{true, bundle.string(), reason.what(), reason.advice(), std::nullopt}}, {}});
  }
}

/// What each site uses, by the names of the instruments.
std::map<std::string, std::set<std::string>> instrumentNames(QLTestSiteManager& manager,
                                                             const Suites& suites) {
  std::map<std::string, std::set<std::string>> names;
  for (const auto& suite : suites) {
    names[suite->siteName()] = instrumentsOf(manager.config(), suite->siteName());
  }
  return names;
}

/// Enters the person at the station in a suite, unless the plug-in has one of its own.
std::shared_ptr<RemoteOperator> personFor(QLTestSuite& suite, Channel& channel) {
  constexpr const char* kName = "operator";
  auto person = std::make_shared<RemoteOperator>(channel, suite.siteName());
  const auto& resources = suite.resources();
  if (!resources || !resources->contains(kName)) suite.addResource(person, kName);
  return person;
}

/// One site at work: its thread tests devices until it is told to unload.
struct Site {
  /// `number` is its place among the loaded ones, from 1.
  Site(const std::shared_ptr<QLTestSuite>& suite, bool hasEndHooks, int number,
       const std::string& flow, OwnLoggers& loggers, Channel& channel, Traffic* traffic)
      : number(number),
        link(channel, suite->siteName()),
        person(personFor(*suite, channel)),
        runner(suite, hasEndHooks, flow, loggers, link, traffic) {
    suite->setResultObserver([this](const QLTestMethod&, const auto& record) {
      link.tell(Reported{link.site(), {record}});
    });
  }

  ~Site() { person->close(); }  // the plug-in may keep it
  Site(const Site&) = delete;
  Site& operator=(const Site&) = delete;

  void work() {
    threadName() = link.site();
    const CrashWitness witness(number);
    while (true) {
      const Message message = link.wait();
      if (typeOf(message) == Unload::kType) return;
      if (typeOf(message) == Prepare::kType) {
        runner.prepare();
      } else {
        runner.test(take<TestDevice>(message));
      }
    }
  }

  void deliver(Message message) {
    if (typeOf(message) == Answered::kType) {
      person->deliver(take<Answered>(message));
    } else {
      link.deliver(std::move(message));
    }
  }

  const int number;
  SiteLink link;
  std::shared_ptr<RemoteOperator> person;
  SiteRunner runner;
};

}  // namespace

Worker::Worker(Channel& channel, std::filesystem::path bundle)
    : channel_(channel), bundle_(std::move(bundle)) {
  QLTSetLogSink([&channel](std::string_view message) {
    const int earlierErrno = errno;
    channel.send(messageFrom(Logged{threadName(), std::string(message)}));
    errno = earlierErrno;
  });
}

/// What the plug-in's static objects log later goes where it prints to.
Worker::~Worker() { QLTSetLogSink({}); }

int Worker::run() {
  tell(Hello{});
  try {
    work();
  } catch (const CannotRun& reason) {
    tell(Refused{reason.what(), reason.advice()});
    return kRefused;
  } catch (const BrokenMessage&) {
    endWithHost();  // one that speaks another language
  } catch (const std::exception& unexpected) {
    tell(Refused{unexpected.what(), ""});
    return kRefused;
  }
  tell(Unloaded{});
  return kDone;
}

void Worker::work() {
  const QLTBundle& bundle = Plugin::openBundle(bundle_);
  const auto warn = [this](const std::string& text) { tell(Warned{text}); };
  Plugin plugin(bundle, warn);
  tell(Opened{bundle.path().string()});
  const auto load = expectLoad();
  if (!load) return;
  traffic_ = installTraffic(*load, [this](const std::string& text) { tell(Differed{text}); });
  QLTDictionary info = stationInfo(bundle, load->logFolder);
  if (!load->replay.empty()) info.set("isReplay", true);
  plugin.load(info, *load);
  Unavailable unavailable = unavailableSites(plugin.manager());
  const CalibrationNotes calibrations =
      judgeCalibrations(plugin.manager(), load->calibrationOverride, unavailable);
  for (const std::string& text : calibrations.texts) {
    QLTLog(text);
    warn(printable(text));
  }
  for (const std::string& text : unusedFailures(plugin.manager())) {
    warn(printable(text) + ". No site needs it.");
  }
  const Suites suites = chooseSites(plugin.manager(), load->sites, unavailable);
  checkFlow(suites, load->flow);
  Loaded loaded;
  loaded.sites = siteNames(suites);
  loaded.disabledSites = plugin.manager().disabledSiteNames();
  loaded.unavailable = unavailable;
  loaded.overridden = calibrations.overridden;
  loaded.tests = testNames(*suites.front()->flowForName(load->flow));
  loaded.bundle = bundle.identifier().empty() ? bundle.path().stem().string() : bundle.identifier();
  loaded.bundleVersion = bundle.version();
  loaded.flow = load->flow == "default" ? plugin.manager().config().text("defaultFlow", load->flow)
                                        : load->flow;
  loaded.frameworkVersion = QLTBundle::frameworkBundle().version().value_or("");
  loaded.configSha256 = results::sha256(plugin.manager().config().text());
  loaded.instruments = instrumentsOfSites(plugin.manager());
  loaded.stationAttributes = plugin.manager().stationAttributes();
  tell(loaded);
  const auto columns = prepare(suites);
  if (!columns) return;
  OwnLoggers loggers(suites, warn);
  checkFlow(suites, load->flow);  // again: the suites' `logger` has run
  loggers.open(*columns);
  if (traffic_ != nullptr) traffic_->beginTesting(instrumentNames(plugin.manager(), suites));
  tell(Ready{});
  serve(plugin, suites, load->flow, loggers);
}

std::optional<OpenLoggers> Worker::prepare(const Suites& suites) {
  std::vector<std::jthread> threads;  // all sites at once: who waits for one may be at another
  while (true) {
    const Message message = receive();
    if (typeOf(message) == Unload::kType) return std::nullopt;
    if (typeOf(message) != SafeState::kType) {
      threads.clear();
      return take<OpenLoggers>(message);
    }
    const auto wanted = take<SafeState>(message);
    const auto suite = std::find_if(suites.begin(), suites.end(), [&](const auto& each) {
      return each->siteName() == wanted.site;
    });
    if (suite == suites.end()) endWithHost();
    const auto number = static_cast<int>(suite - suites.begin()) + 1;
    threads.emplace_back([this, wanted, number, &suite = **suite] {
      threadName() = wanted.site;
      const CrashWitness witness(number);
      tell(SiteRunner::makeSafe(suite, wanted));
    });
  }
}

/// Checks for a host that asks for it before it says what to load; absent when it wants no more.
std::optional<Load> Worker::expectLoad() {
  Message message = receive();
  if (typeOf(message) == Check::kType) {
    channel_.send(checked(bundle_));
    message = receive();
  }
  if (typeOf(message) == Unload::kType) return std::nullopt;
  return take<Load>(message);
}

void Worker::serve(const Plugin& plugin, const Suites& suites, const std::string& flow,
                   OwnLoggers& loggers) {
  std::deque<Site> sites;  // which never moves them
  std::map<std::string, Site*> siteOf;
  const HoldWatch holds([this](const std::string& site, const std::string& text) {
    tell(Noted{site, text});
  });
  std::vector<std::jthread> threads;  // end before the sites
  for (const auto& suite : suites) {
    Site& site =
        sites.emplace_back(suite, plugin.hasEndHooks(*suite), static_cast<int>(sites.size()) + 1,
                           flow, loggers, channel_, traffic_);
    siteOf[site.link.site()] = &site;
  }
  // Only now: each site has asked its instruments who they are, and may share them.
  threads.reserve(sites.size());
  for (Site& site : sites) threads.emplace_back([&site] { site.work(); });
  while (true) {
    Message message = receive();
    if (typeOf(message) == Unload::kType) {
      for (Site& site : sites) site.link.deliver(message);
      return;
    }
    const auto site = siteOf.find(message.value("site", ""));
    if (site == siteOf.end()) endWithHost();
    site->second->deliver(std::move(message));
  }
}

template <typename T>
std::optional<T> Worker::expect() {
  const Message message = receive();
  if (typeOf(message) == Unload::kType) return std::nullopt;
  return take<T>(message);
}

Message Worker::receive() {
  auto message = channel_.receive();
  if (!message && channel_.isLost()) _exit(kConnectionLost);
  if (!message) endWithHost();
  return *std::move(message);
}

}  // namespace station
