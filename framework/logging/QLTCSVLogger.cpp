#include "QLTCSVLogger.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <set>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QLTConsoleLog.h>

#include "common/Descriptor.h"
#include "common/Format.h"
#include "common/PipeWrite.h"
#include "common/Retried.h"
#include "common/TimeStamp.h"
#include "platform/Failed.h"

using quillon::internal::Descriptor;
using quillon::internal::failWith;
using quillon::internal::format;
using quillon::internal::retried;
using quillon::internal::writeWithoutSignal;

namespace {

using Text = const std::optional<std::string>& (QLTestResult::*)() const;

constexpr std::array<std::pair<std::string_view, Text>, 10> texts{{
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

Descriptor opened(const char* path, int flags, mode_t mode = 0) {
  return Descriptor(retried([&] { return ::open(path, flags | O_CLOEXEC, mode); }));
}

/// Whether a file ends amid a line, as a crash or a full disk may leave it.
bool endsAmidLine(int descriptor, const char* path) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) {
    return false;
  }
  const Descriptor reader = opened(path, O_RDONLY);
  if (!reader) return false;
  char last = '\n';
  retried([&] { return pread(reader.get(), &last, 1, status.st_size - 1); });
  return last != '\n';
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

void appendEntry(const QLTDictionary& dictionary, const std::string& key, std::string& line) {
  const QLTValue* value = dictionary.find(key);
  line += (value != nullptr ? value->text() : "(null)") + ",";
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

/// The open file. Its lock keeps whole lines together; it closes with the last user.
class QLTCSVLogger::FileHandle {
 public:
  FileHandle(Descriptor descriptor, std::string path)
      : descriptor_(std::move(descriptor)),
        path_(std::move(path)),
        amidLine_(endsAmidLine(descriptor_.get(), path_.c_str())) {}

  /// Writes each text whole or not at all, as far as the disk lets it, with one flush for all.
  /// Returns the first failure.
  QLTError write(std::span<const std::string> texts) {
    const std::lock_guard lock(mutex_);
    QLTError failure;
    for (const std::string& text : texts) {
      const QLTError lost = append(text);
      if (!failure) failure = lost;
    }
    const QLTError unflushed = flush();
    return failure ? failure : unflushed;
  }

 private:
  QLTError append(std::string_view text) {
    std::string begun;
    if (amidLine_) text = begun = "\n" + std::string(text);
    while (!text.empty()) {
      const ssize_t count = writeWithoutSignal(descriptor_.get(), text);
      if (count <= 0) return report("writing to", count < 0 ? errno : EIO);
      const auto written = static_cast<std::size_t>(count);
      amidLine_ = written < text.size() && text[written - 1] != '\n';
      text.remove_prefix(written);
    }
    return {};
  }

  QLTError flush() {
    if (retried([&] { return fdatasync(descriptor_.get()); }) == 0) return {};
    // A pipe or a device has nothing to flush, and says so.
    if (errno == EINVAL || errno == EROFS) return {};
    return report("flushing", errno);
  }

  QLTError report(const char* action, int cause) {
    if (reported_.insert(cause).second) {
      QLTLog(format("In CSV logger, error %s file %@: %s", action, path_,
                    std::generic_category().message(cause)));
    }
    return QLTError::fromErrno(cause, path_);
  }

  std::recursive_mutex mutex_;  // a sink of the console log may lead back here
  const Descriptor descriptor_;
  const std::string path_;
  bool amidLine_;  // the file ends with a text that was broken off
  std::set<int> reported_;
};

QLTCSVLogger::QLTCSVLogger(const std::string& path) : path_(withHomeExpanded(path)) {}

QLTCSVLogger::~QLTCSVLogger() = default;

bool QLTCSVLogger::open(const std::vector<std::string>& deviceAttributeKeys,
                        const std::vector<std::string>& extraKeys, QLTError* error) {
  if (!handle() && !openFile(deviceAttributeKeys, extraKeys)) return false;
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
    descriptor = opened(path->c_str(), O_WRONLY | O_APPEND | O_CREAT, 0700);
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
  const auto file = std::make_shared<FileHandle>(std::move(descriptor), *path);
  const std::string header = headerLine(deviceAttributeKeys, extraKeys);
  noteFailure(file->write({&header, 1}));
  // Known to other threads only now, so that no record comes before the header.
  const std::lock_guard lock(mutex_);
  handle_ = file;
  return true;
}

void QLTCSVLogger::log(const std::shared_ptr<const QLTestResult>& result) {
  writeString(lineOf(*result));
  QLTLogger::log(result);
}

bool QLTCSVLogger::logAll(std::span<const std::shared_ptr<const QLTestResult>> results,
                          QLTError* error) {
  std::vector<std::string> lines;
  lines.reserve(results.size());
  for (const std::shared_ptr<const QLTestResult>& result : results)
    lines.push_back(lineOf(*result));
  const QLTError lost = lines.empty() ? QLTError() : write(lines);
  const std::shared_ptr<QLTLogger> lower = lowerLogger();
  const bool writtenBelow = !lower || lower->logAll(results, lost ? nullptr : error);
  if (lost) return failWith(error, lost);
  return writtenBelow;
}

bool QLTCSVLogger::close(QLTError* error) {
  {
    const std::lock_guard lock(mutex_);
    handle_.reset();
  }
  return QLTLogger::close(error);
}

void QLTCSVLogger::writeString(std::string_view text) {
  const std::string copy(text);
  write({&copy, 1});
}

QLTError QLTCSVLogger::write(std::span<const std::string> texts) {
  const std::shared_ptr<FileHandle> file = handle();
  const QLTError failure =
      file ? file->write(texts)
           : QLTError::withDescription(kQLTPosixErrorDomain, EBADF,
                                       path().value_or("(null)") + ": the log is not open");
  noteFailure(failure);
  return failure;
}

void QLTCSVLogger::appendProperty(std::string_view name, const QLTestResult& result,
                                  std::string& line) {
  for (const auto& [textName, text] : texts) {
    if (textName == name && (result.*text)()) line += *(result.*text)() + ",";
  }
}

std::string QLTCSVLogger::lineOf(const QLTestResult& result) const {
  std::string line;
  const QLTDictionary attributes = deviceAttributes();
  for (const std::string& key : deviceAttributeKeys()) appendEntry(attributes, key, line);
  line += format("%d,", result.runIndex());
  for (const std::string_view name : {"serialNumber", "siteName", "testName", "subTestName",
                                      "testNumber", "expected", "actual"}) {
    appendProperty(name, result, line);
  }
  line += passFailField(result.result());
  line += format("\"%@\",", result.failMessage());
  if (result.extras()) {
    for (const std::string& key : extraKeys()) appendEntry(*result.extras(), key, line);
  }
  return line + "\n";
}

std::string QLTCSVLogger::timeStampedFileName(const std::string& prefix) {
  const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  return prefix + "_" + quillon::internal::utcText(now, '_') + ".csv";
}

std::optional<std::string> QLTCSVLogger::path() const {
  const std::lock_guard lock(mutex_);
  return path_;
}

void QLTCSVLogger::setPath(std::optional<std::string> path) {
  const std::lock_guard lock(mutex_);
  path_ = std::move(path);
}

void QLTCSVLogger::dealooc() {
  setPath(std::nullopt);
  if (!handle()) close();
}

std::shared_ptr<QLTCSVLogger::FileHandle> QLTCSVLogger::handle() const {
  const std::lock_guard lock(mutex_);
  return handle_;
}
