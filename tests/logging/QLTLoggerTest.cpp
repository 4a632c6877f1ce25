#include <QLTLogger.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/ConsoleLog.h"
#include "support/TemporaryFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;
using Records = std::vector<std::shared_ptr<const QLTestResult>>;
using test::ConsoleLog;
using test::TemporaryFolder;

const QLTError kFilled = QLTError::withDescription("domain", 7, "left from before");

/// Notes every call that reaches it, and fails `open` and `close` when told to.
class NotingLogger : public QLTLogger {
 public:
  bool open(const Strings& deviceAttributeKeys, const Strings& extraKeys,
            QLTError* error) override {
    calls.push_back("open");
    openedWith = {deviceAttributeKeys, extraKeys};
    return outcome(error);
  }
  void log(const std::shared_ptr<const QLTestResult>& result) override { logged = result; }
  bool close(QLTError* error) override {
    calls.push_back("close");
    return outcome(error);
  }
  void startDevice(QLTDictionary) override { calls.push_back("startDevice"); }

  bool outcome(QLTError* error) const {
    if (fails && error != nullptr) *error = QLTError::withDescription("lower", 3, "refused");
    return !fails;
  }

  bool fails = false;
  Strings calls;
  std::pair<Strings, Strings> openedWith;
  std::shared_ptr<const QLTestResult> logged;
};

TEST(QLTLoggerTest, NewLoggerHasNothing) {
  const QLTLogger logger;
  EXPECT_EQ(logger.lowerLogger(), nullptr);
  EXPECT_EQ(logger.extraKeys(), Strings{});
  EXPECT_EQ(logger.deviceAttributeKeys(), Strings{});
  EXPECT_TRUE(logger.deviceAttributes().empty());
}

TEST(QLTLoggerTest, LoneLoggerSucceedsAndDoesNothing) {
  QLTLogger logger;
  QLTError error = kFilled;
  EXPECT_TRUE(logger.open({"station"}, {"temp"}));
  EXPECT_TRUE(logger.open({"station"}, {"temp"}, &error));
  logger.log(std::make_shared<QLTestResult>());
  EXPECT_TRUE(logger.close());
  EXPECT_TRUE(logger.close(&error));
  EXPECT_EQ(error.code(), 7);
  EXPECT_EQ(logger.extraKeys(), Strings{});
  EXPECT_EQ(logger.deviceAttributeKeys(), Strings{});
}

TEST(QLTLoggerTest, OpenHandsOnItsOwnExtraKeys) {
  const auto lower = std::make_shared<NotingLogger>();
  QLTLogger logger;
  logger.setLowerLogger(lower);
  logger.setExtraKeys({"own"});
  logger.setDeviceAttributeKeys({"not these"});
  EXPECT_TRUE(logger.open({"station"}, {"argument"}));
  EXPECT_EQ(lower->openedWith.first, Strings{"station"});
  EXPECT_EQ(lower->openedWith.second, Strings{"own"});
}

TEST(QLTLoggerTest, FailureOfALowerLoggerIsTheChains) {
  const auto lower = std::make_shared<NotingLogger>();
  lower->fails = true;
  const auto middle = std::make_shared<QLTLogger>();
  middle->setLowerLogger(lower);
  QLTLogger logger;
  logger.setLowerLogger(middle);
  EXPECT_FALSE(logger.open({}, {}));
  EXPECT_FALSE(logger.close());
  QLTError error = kFilled;
  EXPECT_FALSE(logger.open({}, {}, &error));
  EXPECT_EQ(error.domain(), "lower");
  EXPECT_EQ(error.description(), "refused");
  error = kFilled;
  EXPECT_FALSE(logger.close(&error));
  EXPECT_EQ(error.description(), "refused");
  EXPECT_EQ(lower->calls, (Strings{"open", "close", "open", "close"}));
}

TEST(QLTLoggerTest, LogHandsOnTheRecordItself) {
  const auto lower = std::make_shared<NotingLogger>();
  QLTLogger logger;
  logger.setLowerLogger(lower);
  const auto record = std::make_shared<QLTestResult>();
  logger.log(record);
  EXPECT_EQ(lower->logged, record);
}

/// A link of a plug-in: writes one record at a time, and some not.
class OneByOneLogger : public QLTLogger {
 public:
  void log(const std::shared_ptr<const QLTestResult>& result) override {
    logged.push_back(result->runIndex());
    if (result->runIndex() < 0) {
      noteFailure(QLTError::withDescription("own", result->runIndex(), "refused"));
    }
    QLTLogger::log(result);
  }
  bool open(const Strings& keys, const Strings& extras, QLTError* error) override {
    forgetFailure();
    return QLTLogger::open(keys, extras, error);
  }
  std::vector<int> logged;
};

Records recordsOf(const std::vector<int>& runIndexes) {
  Records records;
  for (const int runIndex : runIndexes) {
    const auto record = std::make_shared<QLTestResult>();
    record->setRunIndex(runIndex);
    records.push_back(record);
  }
  return records;
}

TEST(QLTLoggerTest, LoggingAllLogsEachInOrder) {
  OneByOneLogger logger;
  QLTError error = kFilled;
  EXPECT_TRUE(logger.logAll(recordsOf({1, 2, 3}), &error));
  EXPECT_EQ(logger.logged, (std::vector{1, 2, 3}));
  EXPECT_EQ(error.code(), 7);
  EXPECT_TRUE(logger.logAll({}));
  EXPECT_FALSE(logger.failure());
}

TEST(QLTLoggerTest, LoggingAllGivesTheFirstFailureAndTriesTheRest) {
  OneByOneLogger logger;
  QLTError error = kFilled;
  EXPECT_FALSE(logger.logAll(recordsOf({1, -2, 3, -4, 5}), &error));
  EXPECT_EQ(logger.logged, (std::vector{1, -2, 3, -4, 5}));
  EXPECT_EQ(error.code(), -2);
  EXPECT_FALSE(logger.logAll(recordsOf({-6})));
  EXPECT_TRUE(logger.logAll(recordsOf({7})));
  EXPECT_EQ(logger.failure().code(), -2);
  logger.open({}, {}, nullptr);
  EXPECT_FALSE(logger.failure());
}

TEST(QLTLoggerTest, FailureBelowIsTheChains) {
  const auto lower = std::make_shared<OneByOneLogger>();
  const auto upper = std::make_shared<OneByOneLogger>();
  upper->setLowerLogger(lower);
  QLTError error;
  EXPECT_FALSE(upper->logAll(recordsOf({1, -2}), &error));
  EXPECT_EQ(lower->logged, (std::vector{1, -2}));
  QLTLogger top;
  top.setLowerLogger(upper);
  EXPECT_EQ(top.failure().code(), -2);
  EXPECT_FALSE(QLTLogger().failure());
}

TEST(QLTLoggerTest, LinkThatLogsSeveralWhereItWasGivenOneStillFails) {
  /// Hands each record on twice.
  class Doubling : public QLTLogger {
   public:
    void log(const std::shared_ptr<const QLTestResult>& result) override {
      lowerLogger()->logAll(Records{result, result});
    }
  };
  Doubling doubling;
  doubling.setLowerLogger(std::make_shared<OneByOneLogger>());
  QLTError error;
  EXPECT_TRUE(doubling.logAll(recordsOf({1}), &error));
  EXPECT_FALSE(doubling.logAll(recordsOf({1, -2}), &error));
  EXPECT_EQ(error.code(), -2);
}

TEST(QLTLoggerTest, FailureOfAnotherThreadIsNotThatOfTheseRecords) {
  OneByOneLogger logger;
  /// Lets another thread fail while it logs.
  class Meanwhile : public QLTLogger {
   public:
    explicit Meanwhile(QLTLogger& other) : other_(other) {}
    void log(const std::shared_ptr<const QLTestResult>&) override {
      std::thread([this] { EXPECT_FALSE(other_.logAll(recordsOf({-1}))); }).join();
      other_.log(recordsOf({1}).front());
    }
    QLTLogger& other_;
  };
  Meanwhile meanwhile(logger);
  EXPECT_TRUE(meanwhile.logAll(recordsOf({1})));
  EXPECT_EQ(logger.failure().code(), -1);
}

TEST(QLTLoggerTest, StartDeviceIsNotHandedOn) {
  const auto lower = std::make_shared<NotingLogger>();
  QLTLogger logger;
  logger.setLowerLogger(lower);
  logger.startDevice({{"station", "A1"}});
  EXPECT_EQ(logger.deviceAttributes(), (QLTDictionary{{"station", "A1"}}));
  EXPECT_EQ(lower->calls, Strings{});
  EXPECT_TRUE(lower->deviceAttributes().empty());
  logger.startDevice({});
  EXPECT_TRUE(logger.deviceAttributes().empty());
}

TEST(QLTLoggerTest, PropertiesAreCopies) {
  QLTLogger logger;
  logger.setExtraKeys({"temp"});
  logger.setDeviceAttributeKeys({"station"});
  logger.setDeviceAttributes({{"station", "A1"}});
  Strings keys = logger.extraKeys();
  keys.push_back("more");
  logger.deviceAttributes().set("station", "changed");
  EXPECT_EQ(logger.extraKeys(), Strings{"temp"});
  EXPECT_EQ(logger.deviceAttributeKeys(), Strings{"station"});
  EXPECT_EQ(logger.deviceAttributes(), (QLTDictionary{{"station", "A1"}}));
}

TEST(QLTLoggerTest, OwnsItsLowerLogger) {
  auto lower = std::make_shared<QLTLogger>();
  const std::weak_ptr<QLTLogger> watched = lower;
  auto logger = std::make_unique<QLTLogger>();
  logger->setLowerLogger(std::move(lower));
  EXPECT_FALSE(watched.expired());
  logger.reset();
  EXPECT_TRUE(watched.expired());
}

TEST(QLTLoggerTest, PropertiesMayBeUsedFromSeveralThreads) {
  QLTLogger logger;
  const auto use = [&logger](const std::string& name) {
    for (int i = 0; i < 500; ++i) {
      logger.startDevice({{"key", name}});
      logger.setExtraKeys({name, name});
      logger.setDeviceAttributeKeys({name});
      logger.setLowerLogger(std::make_shared<QLTLogger>());
      EXPECT_EQ(logger.extraKeys().size(), 2U);
      EXPECT_EQ(logger.deviceAttributeKeys().size(), 1U);
      EXPECT_EQ(logger.deviceAttributes().size(), 1U);
      EXPECT_NE(logger.lowerLogger(), nullptr);
    }
  };
  std::thread other(use, "other");
  use("this");
  other.join();
}

TEST(QLTLoggerCreateLogPathTest, MakesTheFolderAndThoseAboveIt) {
  const TemporaryFolder folder;
  const std::string path = (folder.path() / "a/b/c").string();
  QLTError error = kFilled;
  const ConsoleLog log;
  EXPECT_TRUE(QLTLogger::createLogPath(path, &error));
  EXPECT_TRUE(fs::is_directory(path));
  EXPECT_TRUE(QLTLogger::createLogPath(path, &error));
  EXPECT_TRUE(QLTLogger::createLogPath(path + "/d/"));
  EXPECT_TRUE(fs::is_directory(path + "/d"));
  EXPECT_EQ(error.code(), 7);
  EXPECT_EQ(log.lines(),
            (Strings{"createLogPath called", "createLogPath called", "createLogPath called"}));
}

TEST(QLTLoggerCreateLogPathTest, MakesFoldersWithDefaultPermissions) {
  const TemporaryFolder folder;
  const ConsoleLog log;
  const mode_t mask = umask(027);
  EXPECT_TRUE(QLTLogger::createLogPath((folder.path() / "a/b").string()));
  umask(mask);
  EXPECT_EQ(static_cast<int>(fs::status(folder.path() / "a/b").permissions()), 0750);
  EXPECT_EQ(static_cast<int>(fs::status(folder.path() / "a").permissions()), 0750);
}

TEST(QLTLoggerCreateLogPathTest, AnythingThatExistsWillDo) {
  const TemporaryFolder folder;
  const ConsoleLog log;
  EXPECT_TRUE(QLTLogger::createLogPath(folder.write("file", "x").string()));
}

TEST(QLTLoggerCreateLogPathTest, TildeIsAFolderOfThatName) {
  const TemporaryFolder folder;
  const ConsoleLog log;
  const fs::path before = fs::current_path();
  fs::current_path(folder.path());
  EXPECT_TRUE(QLTLogger::createLogPath("~/logs"));
  fs::current_path(before);
  EXPECT_TRUE(fs::is_directory(folder.path() / "~/logs"));
}

TEST(QLTLoggerCreateLogPathTest, FailureGivesTheSystemsError) {
  const TemporaryFolder folder;
  const ConsoleLog log;
  const std::string path = folder.write("file", "x").string() + "/below";
  EXPECT_FALSE(QLTLogger::createLogPath(path));
  QLTError error = kFilled;
  EXPECT_FALSE(QLTLogger::createLogPath(path, &error));
  EXPECT_EQ(error.domain(), "POSIX");
  EXPECT_EQ(error.code(), ENOTDIR);
  EXPECT_EQ(error.description(), path + ": Not a directory");
  error = {};
  EXPECT_FALSE(QLTLogger::createLogPath("", &error));
  EXPECT_EQ(error.domain(), "POSIX");
}

/// A log folder whose items are of a given age.
class QLTLoggerClearLogsTest : public testing::Test {
 protected:
  static constexpr long kHour = 3600;

  fs::path make(const std::string& name, long ageInSeconds) {
    const fs::path path = folder_.write(name, "x");
    age(path, ageInSeconds);
    return path;
  }
  static void age(const fs::path& path, long ageInSeconds) {
    timespec times[2];
    clock_gettime(CLOCK_REALTIME, &times[0]);
    times[0].tv_sec -= ageInSeconds;
    times[1] = times[0];
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
  void clear() { QLTLogger::clearLogs(folder_.path().string()); }
  static bool exists(const fs::path& path) { return fs::exists(fs::symlink_status(path)); }

  TemporaryFolder folder_;
};

TEST_F(QLTLoggerClearLogsTest, RemovesOnlyWhatIsOlderThanTwelveHours) {
  const fs::path old = make("old.csv", 13 * kHour);
  const fs::path young = make("young.csv", kHour);
  const fs::path justOld = make("just-old.csv", 12 * kHour + 5);
  const fs::path justYoung = make("just-young.csv", 12 * kHour - 60);
  const fs::path hidden = make(".hidden", 13 * kHour);
  const ConsoleLog log;
  clear();
  EXPECT_FALSE(exists(old));
  EXPECT_TRUE(exists(young));
  EXPECT_FALSE(exists(justOld));
  EXPECT_TRUE(exists(justYoung));
  EXPECT_FALSE(exists(hidden));
  EXPECT_EQ(log.lines(), Strings{});
}

TEST_F(QLTLoggerClearLogsTest, LooksIntoFolders) {
  const fs::path old = make("sub/deeper/old.csv", 13 * kHour);
  const fs::path young = make("sub/deeper/young.csv", kHour);
  clear();
  EXPECT_FALSE(exists(old));
  EXPECT_TRUE(exists(young));
}

TEST_F(QLTLoggerClearLogsTest, OldFolderGoesWithItsContents) {
  make("sub/deeper/young.csv", kHour);
  age(folder_.path() / "sub", 13 * kHour);
  clear();
  EXPECT_FALSE(exists(folder_.path() / "sub"));
}

TEST_F(QLTLoggerClearLogsTest, FolderItselfStays) {
  age(folder_.path(), 13 * kHour);
  clear();
  EXPECT_TRUE(exists(folder_.path()));
}

TEST_F(QLTLoggerClearLogsTest, ModificationInTheFutureIsNoAge) {
  const fs::path future = make("future.csv", -100 * kHour);
  clear();
  EXPECT_TRUE(exists(future));
}

TEST_F(QLTLoggerClearLogsTest, LinksAreRemovedAndNeverFollowed) {
  const TemporaryFolder outside;
  const fs::path target = outside.write("target.csv", "x");
  age(target, 13 * kHour);
  age(outside.path(), 13 * kHour);
  const fs::path oldLink = folder_.path() / "old-link";
  const fs::path youngLink = folder_.path() / "young-link";
  const fs::path oldFileLink = folder_.path() / "old-file-link";
  const fs::path dangling = folder_.path() / "dangling";
  fs::create_symlink(outside.path(), oldLink);
  fs::create_symlink(outside.path(), youngLink);
  fs::create_symlink(target, oldFileLink);
  fs::create_symlink(outside.path() / "nowhere", dangling);
  for (const fs::path& link : {oldLink, oldFileLink, dangling}) age(link, 13 * kHour);
  clear();
  EXPECT_FALSE(exists(oldLink));
  EXPECT_FALSE(exists(oldFileLink));
  EXPECT_FALSE(exists(dangling));
  EXPECT_TRUE(exists(youngLink));
  EXPECT_TRUE(exists(target));
}

TEST_F(QLTLoggerClearLogsTest, FolderBehindAGivenLinkIsCleared) {
  const fs::path old = make("logs/old.csv", 13 * kHour);
  const fs::path young = make("logs/young.csv", kHour);
  const fs::path link = folder_.path() / "link";
  fs::create_directory_symlink("logs", link);
  QLTLogger::clearLogs(link.string());
  EXPECT_FALSE(exists(old));
  EXPECT_TRUE(exists(young));
  EXPECT_TRUE(exists(link));
}

TEST_F(QLTLoggerClearLogsTest, LinkWithinAnOldFolderSparesItsTarget) {
  const TemporaryFolder outside;
  const fs::path target = outside.write("target.csv", "x");
  fs::create_directory(folder_.path() / "sub");
  fs::create_symlink(outside.path(), folder_.path() / "sub/link");
  age(folder_.path() / "sub", 13 * kHour);
  clear();
  EXPECT_FALSE(exists(folder_.path() / "sub"));
  EXPECT_TRUE(exists(target));
}

TEST_F(QLTLoggerClearLogsTest, MissingFolderIsNothingToDo) {
  const fs::path missing = folder_.path() / "missing";
  QLTLogger::clearLogs(missing.string());
  QLTLogger::clearLogs("");
  QLTLogger::clearLogs(make("file", 13 * kHour).string());
  EXPECT_FALSE(exists(missing));
  EXPECT_TRUE(exists(folder_.path() / "file"));
}

/// Gives `folder` and what is in it to an ordinary user, and acts as that user while it lives. Does
/// nothing for somebody who is one already.
class AsOrdinaryUser {
 public:
  explicit AsOrdinaryUser(const fs::path& folder) {
    if (geteuid() != 0) return;
    changed_ = true;
    EXPECT_EQ(chown(folder.c_str(), kNobody, kNobody), 0);
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      EXPECT_EQ(lchown(entry.path().c_str(), kNobody, kNobody), 0);
    }
    EXPECT_EQ(seteuid(kNobody), 0);
  }
  ~AsOrdinaryUser() {
    if (changed_) {
      EXPECT_EQ(seteuid(0), 0);
    }
  }
  AsOrdinaryUser(const AsOrdinaryUser&) = delete;
  AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;

 private:
  static constexpr uid_t kNobody = 65534;
  bool changed_ = false;
};

TEST_F(QLTLoggerClearLogsTest, WhatCannotBeRemovedStaysAndTheRestGoes) {
  const fs::path kept = make("locked/kept.csv", 13 * kHour);
  const fs::path old = make("old.csv", 13 * kHour);
  fs::permissions(folder_.path() / "locked", fs::perms(0500));
  {
    // Root could remove everything.
    const AsOrdinaryUser user(folder_.path());
    clear();
  }
  EXPECT_TRUE(exists(kept));
  EXPECT_FALSE(exists(old));
  fs::permissions(folder_.path() / "locked", fs::perms(0700));
}

}  // namespace
