#include "QLTCSVLogger.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <typeinfo>
#include <utility>

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <QLTConsoleLog.h>

#include "common/Descriptor.h"
#include "common/Format.h"
#include "common/Retried.h"
#include "common/TimeStamp.h"
#include "logging/LineFile.h"
#include "platform/Failed.h"

using quillon::internal::Descriptor;
using quillon::internal::failWith;
using quillon::internal::format;
using quillon::internal::LineFile;
using quillon::internal::retried;

namespace {

using Text = const std::optional<std::string>& (QLTestResult::*)() const;

constexpr std::array<std::pair<std::string_view, Text>, 10> kTexts{{
    {"serialNumber", &QLTestResult::serialNumber},
    {"siteName", &QLTestResult::siteName},
    {"testName", &QLTestResult::testName},
    {"subTestName", &QLTestResult::subTestName},
    {"testNumber", &QLTestResult::testNumber},
    {"expected", &QLTestResult::expected},
    {"actual", &QLTestResult::actual},
    {"lowLimit", &QLTestResult::lowLimit},
    {"highLimit", &QLTestResult::highLimit},
    {"failMessage", &QLTestResult::failMessage},
}};

/// Bytes that hold most lines.
constexpr std::size_t kUsualLine = 256;

std::optional<std::string> homeFolder() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
  std::array<char, 16384> buffer;
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) != 0) found = nullptr;
  if (found == nullptr) return std::nullopt;
  return found->pw_dir;
}

std::string withHomeExpanded(const std::string& path) {
  if (path != "~" && !path.starts_with("~/")) return path;
  const std::optional<std::string> home = homeFolder();
  return home ? *home + path.substr(1) : path;
}

QLTError notOpen(const std::optional<std::string>& path) {
  return QLTError::withDescription(kQLTPosixErrorDomain, EBADF,
                                   format("%@: the log is not open", path));
}

std::string headerLine(const std::vector<std::string>& deviceAttributeKeys,
                       const std::vector<std::string>& extraKeys) {
  std::string line;
  for (const std::string& key : deviceAttributeKeys) line += key + ",";
  line += "runIndex, sn,site,test,subtest,number,expected,value,PF,fail message,";
  for (const std::string& key : extraKeys) line += key + ",";
  return line + "\n";
}

void appendText(const std::optional<std::string>& text, std::string& line) {
  if (!text) return;
  line += *text;
  line += ',';
}

void appendEntries(const QLTDictionary& dictionary, const std::vector<std::string>& keys,
                   std::string& line) {
  for (const std::string& key : keys) {
    const QLTValue* const value = dictionary.find(key);
    line += value != nullptr ? value->text() : "(null)";
    line += ',';
  }
}

std::string_view passFailField(std::int32_t result) {
  switch (result) {
    case kQLTestResultPass:
    case kQLTestResultNA:
      return "P,";
    case kQLTestResultFail:
      return "F,";
    default:
      return "";
  }
}

}  // namespace

QLTCSVLogger::QLTCSVLogger(const QLTText& path) {
  if (path.text()) path_ = withHomeExpanded(*path.text());
}

QLTCSVLogger::~QLTCSVLogger() = default;

bool QLTCSVLogger::open(const std::vector<std::string>& deviceAttributeKeys,
                        const std::vector<std::string>& extraKeys, QLTError* error) {
  if (!file() && !openFile(deviceAttributeKeys, extraKeys)) return false;
  setDeviceAttributeKeys(deviceAttributeKeys);
  setExtraKeys(extraKeys);
  return QLTLogger::open(deviceAttributeKeys, extraKeys, error);
}

bool QLTCSVLogger::openFile(const std::vector<std::string>& deviceAttributeKeys,
                            const std::vector<std::string>& extraKeys) {
  const std::optional<std::string> path = this->path();
  Descriptor descriptor;
  QLTError problem;
  if (path) {
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC;
    descriptor.reset(retried([&] { return ::open(path->c_str(), kFlags, 0700); }));
    if (!descriptor) problem = QLTError::fromErrno(errno, *path);
  } else {
    problem = notOpen(path);
  }
  forgetFailure();
  if (!descriptor) {
    QLTLog(format("In CSV logger, unable to open file %@ for write", path));
    if (path) QLTLog(format("In CSV logger, %@", problem.description()));
    noteFailure(problem);
    return false;
  }
  const auto file = std::make_shared<LineFile>(std::move(descriptor), *path);
  const std::string header = headerLine(deviceAttributeKeys, extraKeys);
  const std::size_t end = header.size();
  noteFailure(file->append(header, {&end, 1}));
  // Known to other threads only now, so that no record comes before the header.
  const std::lock_guard lock(mutex_);
  file_ = file;
  return true;
}

void QLTCSVLogger::log(const std::shared_ptr<const QLTestResult>& result) {
  std::string line;
  line.reserve(kUsualLine);
  appendLine(*result, *columns(), line);
  writeString(line);
  QLTLogger::log(result);
}

bool QLTCSVLogger::logAll(std::span<const std::shared_ptr<const QLTestResult>> results,
                          QLTError* error) {
  if (results.empty()) return true;
  // A derived logger may see to each record in a `log` of its own, which must not be passed by.
  if (typeid(*this) != typeid(QLTCSVLogger)) return QLTLogger::logAll(results, error);
  std::string lines;
  lines.reserve(results.size() * kUsualLine);
  std::vector<std::size_t> ends;
  ends.reserve(results.size());
  const std::shared_ptr<const Columns> columns = this->columns();
  for (const std::shared_ptr<const QLTestResult>& result : results) {
    appendLine(*result, *columns, lines);
    ends.push_back(lines.size());
  }
  const QLTError lost = append(lines, ends);
  const std::shared_ptr<QLTLogger> lower = lowerLogger();
  const bool writtenBelow = !lower || lower->logAll(results, lost ? nullptr : error);
  if (lost) return failWith(error, lost);
  return writtenBelow;
}

bool QLTCSVLogger::close(QLTError* error) {
  {
    const std::lock_guard lock(mutex_);
    file_.reset();
  }
  return QLTLogger::close(error);
}

void QLTCSVLogger::writeString(std::string_view text) {
  const std::size_t end = text.size();
  append(text, {&end, 1});
}

QLTError QLTCSVLogger::append(std::string_view text, std::span<const std::size_t> ends) {
  const std::shared_ptr<LineFile> file = this->file();
  QLTError failure = file ? file->append(text, ends) : notOpen(path());
  noteFailure(failure);
  return failure;
}

void QLTCSVLogger::appendProperty(std::string_view name, const QLTestResult& result,
                                  std::string& line) {
  for (const auto& [textName, text] : kTexts) {
    if (textName == name) appendText((result.*text)(), line);
  }
}

void QLTCSVLogger::appendLine(const QLTestResult& result, const Columns& columns,
                              std::string& line) {
  appendEntries(columns.deviceAttributes, columns.deviceAttributeKeys, line);
  line += std::to_string(result.runIndex());
  line += ',';
  appendText(result.serialNumber(), line);
  appendText(result.siteName(), line);
  appendText(result.testName(), line);
  appendText(result.subTestName(), line);
  appendText(result.testNumber(), line);
  appendText(result.expected(), line);
  appendText(result.actual(), line);
  line += passFailField(result.result());
  line += '"';
  line += result.failMessage() ? std::string_view(*result.failMessage()) : "(null)";
  line += "\",";
  if (result.extras()) appendEntries(*result.extras(), columns.extraKeys, line);
  line += '\n';
}

std::string QLTCSVLogger::timeStampedFileName(const QLTText& prefix) {
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  return prefix.orEmpty() + "_" + quillon::internal::utcText(now, '_') + ".csv";
}

std::optional<std::string> QLTCSVLogger::path() const {
  const std::lock_guard lock(mutex_);
  return path_;
}

void QLTCSVLogger::setPath(QLTText path) {
  const std::lock_guard lock(mutex_);
  path_ = std::move(path).text();
}

void QLTCSVLogger::dealooc() {
  setPath(std::nullopt);
  if (!file()) close();
}

std::shared_ptr<LineFile> QLTCSVLogger::file() const {
  const std::lock_guard lock(mutex_);
  return file_;
}
