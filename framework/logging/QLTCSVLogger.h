#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTLogger.h>
#include <QLTText.h>
#include <QLTestResult.h>

namespace quillon::internal {
class LineFile;
}

/// Appends one comma-separated line a record to a text file (UTF-8), after a header line that each
/// opening writes. Nothing is ever truncated, and every line is on the disk before the call
/// returns. Lines that several threads log meanwhile go to the disk together, so many sites cost
/// little more than one.
///
///     runIndex, sn,site,test,subtest,number,expected,value,PF,fail message,
///     3,C02X,site1,Power,VBUS,1.2,from 4.750000 to 5.250000,5.010000,P,"",
///
/// In front stand the device attributes, at the end the extras of a record that has any. Nothing is
/// escaped: a line feed in a text breaks the line, and so does an attribute or extra that is an
/// array or a dictionary, whose text has several lines. An absent text among `sn` to `value` leaves
/// out its comma as well, so the later fields move one column to the left; an absent attribute,
/// extra or fail message is written as (null).
///
/// Errors while writing do not stop the caller: each cause gives one console line per opening, and
/// a line that was broken off is ended before the next one. `logAll` and `failure` tell of them as
/// records: domain `kQLTPosixErrorDomain`, the code that of errno, the path in the text; a record
/// that is logged while no file is open is lost as well (EBADF). All operations may be called from
/// any thread; whole lines never mix. Two `open` or `close` calls at once are the application's to
/// avoid.
class QLT_EXPORT QLTCSVLogger : public QLTLogger {
 public:
  /// A leading "~" of `path` stands for the home folder (HOME, else the user database). No file is
  /// touched.
  explicit QLTCSVLogger(const QLTText& path);
  /// Closes the file without calling `close`.
  ~QLTCSVLogger() override;

  /// Opens the file unless it is open already, makes it if need be, and writes the header; then
  /// takes over both lists of keys and opens the lower logger. False with `error` untouched, and
  /// nothing else done, when the file cannot be opened.
  bool open(const std::vector<std::string>& deviceAttributeKeys,
            const std::vector<std::string>& extraKeys, QLTError* error = nullptr) override;
  /// Writes the record's line, if the file is open, and hands the record on.
  void log(const std::shared_ptr<const QLTestResult>& result) override;
  /// Writes the records' lines as one text with one flush, and hands the records on. A derived
  /// class that does not override this has its `log` called for each.
  bool logAll(std::span<const std::shared_ptr<const QLTestResult>> results,
              QLTError* error = nullptr) override;
  /// Closes the file, if it is open, then the lower logger, whose result it returns.
  bool close(QLTError* error = nullptr) override;

  /// Appends `text` and waits until it is on the disk. Does nothing while no file is open.
  void writeString(std::string_view text);
  /// Appends the record's text of that name ("serialNumber", "actual", any text of `QLTestResult`)
  /// and a comma to `line`; nothing at all when it is absent or there is no such text.
  static void appendProperty(std::string_view name, const QLTestResult& result, std::string& line);

  /// The name of a log file made now, "PREFIX_YYYY-MM-DD_HH:MM:SS.csv", in universal time.
  static std::string timeStampedFileName(const QLTText& prefix);

  /// The file's path; what is set is kept as it is and serves the next opening.
  std::optional<std::string> path() const;
  void setPath(QLTText path);

  /// Gives up the path and, only when no file is open, calls `close`. Nothing needs to call it; the
  /// spelling is the interface's own.
  void dealooc();

 private:
  std::shared_ptr<quillon::internal::LineFile> file() const;
  bool openFile(const std::vector<std::string>& deviceAttributeKeys,
                const std::vector<std::string>& extraKeys);
  static void appendLine(const QLTestResult& result, const Columns& columns, std::string& line);
  QLTError append(std::string_view text, std::span<const std::size_t> ends);

  mutable std::mutex mutex_;  // guards path and file, not the writing
  std::optional<std::string> path_;
  std::shared_ptr<quillon::internal::LineFile> file_;
};
