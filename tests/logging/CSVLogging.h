#pragma once

#include <QLTCSVLogger.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/TemporaryFolder.h"

#include <sys/resource.h>

/// What the tests of the CSV logger have in common.
namespace csv {

using Strings = std::vector<std::string>;
using Records = std::vector<std::shared_ptr<const QLTestResult>>;

inline constexpr const char* kHeader =
    "runIndex, sn,site,test,subtest,number,expected,value,PF,fail message,\n";

inline const QLTError kFilled = QLTError::withDescription("domain", 7, "left from before");

/// The record of the line `3,C02X,site1,Power,VBUS,1.2,5.01,P,"(null)",`: no expected text, no
/// extras.
inline std::shared_ptr<QLTestResult> powerRecord() {
  auto record = std::make_shared<QLTestResult>();
  record->setRunIndex(3);
  record->setSerialNumber("C02X");
  record->setSiteName("site1");
  record->setTestName("Power");
  record->setSubTestName("VBUS");
  record->setTestNumber("1.2");
  record->setActual("5.01");
  record->setFailMessage(std::nullopt);
  record->setResult(kQLTestResultPass);
  return record;
}
inline constexpr const char* kPowerLine = "3,C02X,site1,Power,VBUS,1.2,5.01,P,\"(null)\",\n";

/// Counts what is handed on to it.
class CountingLogger : public QLTLogger {
 public:
  bool open(const Strings& keys, const Strings& extras, QLTError* error) override {
    ++opened;
    openedWith = {keys, extras};
    if (fails && error != nullptr) *error = QLTError::withDescription("lower", 3, "refused");
    return !fails;
  }
  void log(const std::shared_ptr<const QLTestResult>& result) override {
    ++logged;
    last = result;
  }
  bool close(QLTError* error) override {
    ++closed;
    if (fails && error != nullptr) *error = QLTError::withDescription("lower", 4, "busy");
    return !fails;
  }
  bool fails = false;
  int opened = 0;
  int logged = 0;
  int closed = 0;
  std::pair<Strings, Strings> openedWith;
  std::shared_ptr<const QLTestResult> last;
};

/// Limits the size to which this process may grow a file, for as long as it lives.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(std::uintmax_t bytes) {
    handlerBefore_ = std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    rlimit limit = before_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handlerBefore_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  rlimit before_{};
  void (*handlerBefore_)(int) = SIG_DFL;
};

/// A test with a folder for its log.
class LoggingTest : public testing::Test {
 protected:
  std::string path() const { return (folder_.path() / "log.csv").string(); }
  std::string content() const { return test::contentOf(path()); }

  test::TemporaryFolder folder_;
};

}  // namespace csv
