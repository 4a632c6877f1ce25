#pragma once

#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTText.h>
#include <QLTValue.h>
#include <QLTestResult.h>

/// One link of a logger chain. A link does its own writing and hands the same call on to its lower
/// logger; this base writes nothing and only hands on. Loggers derive from it, override `open`,
/// `log` and `close`, and call the base at the end of each.
///
/// A station application builds a chain and feeds it: `createLogPath`; `setLowerLogger` on each
/// link; `open` once on the top link; per device `startDevice` on every link that writes device
/// attributes, then `log` once a record; `close` at the end.
///
/// The properties may be read and written from different threads; getters return copies. `log`
/// takes no lock: a link that writes protects its own output, and one chain may then be fed by
/// several sites at once.
///
/// A record that cannot be written never stops a test: `log` returns nothing. Who must know whether
/// the records are safe logs with `logAll`, which tells it for just these records, whatever other
/// sites log meanwhile; `failure` tells whether anything was lost since the opening, a header line
/// for example.
class QLT_EXPORT QLTLogger : public QLTObject {
 public:
  /// Opens the chain below. What it hands on are the given `deviceAttributeKeys` and its own
  /// *property* `extraKeys`, not the argument; a subclass sets that property before it calls the
  /// base. True when there is no lower logger, else that one's result; `error` is the lower
  /// logger's to write.
  virtual bool open(const std::vector<std::string>& deviceAttributeKeys,
                    const std::vector<std::string>& extraKeys, QLTError* error = nullptr);
  /// Hands a record on. `result` is not null; whoever wants to keep it may share it.
  virtual void log(const std::shared_ptr<const QLTestResult>& result);
  /// Logs several records (none null) in their order; those of one test, say. True when this link
  /// and all below it wrote every one of them: with a `QLTCSVLogger`, when all lines are on the
  /// disk. Else false, `error` being the first failure; the records after it were tried all the
  /// same.
  ///
  /// The base calls `log` for each and gathers the failures that links note meanwhile on this
  /// thread, so a link need not override it. One that can write many at once does, and calls
  /// `logAll` of its lower logger itself.
  virtual bool logAll(std::span<const std::shared_ptr<const QLTestResult>> results,
                      QLTError* error = nullptr);
  /// Closes the chain below; result and error as with `open`.
  virtual bool close(QLTError* error = nullptr);
  /// Sets the attributes of the device that the next records belong to. Not handed on: each link
  /// that needs them is told by the application.
  virtual void startDevice(QLTDictionary attributes);
  /// The first thing that this link could not write since it was opened or, when there is none, a
  /// link below it; empty when nothing was lost. What succeeds later does not empty it; only a new
  /// opening of the link does.
  virtual QLTError failure() const;

  /// The next link of the chain, or null.
  std::shared_ptr<QLTLogger> lowerLogger() const;
  void setLowerLogger(std::shared_ptr<QLTLogger> lowerLogger);
  /// Names of extra columns: keys of each record's extras, in this order.
  std::vector<std::string> extraKeys() const;
  void setExtraKeys(std::vector<std::string> extraKeys);
  /// Names of the device attribute columns: keys of the device attributes, in this order.
  std::vector<std::string> deviceAttributeKeys() const;
  void setDeviceAttributeKeys(std::vector<std::string> deviceAttributeKeys);
  /// The current device's attributes.
  QLTDictionary deviceAttributes() const;
  void setDeviceAttributes(QLTDictionary deviceAttributes);

  // Upkeep of the folder that holds the logs.

  /// Makes the folder at `path` with all folders above it. True when it is made or when anything
  /// exists there already, whatever that is. `path` is taken as it stands: unlike the path of a
  /// `QLTCSVLogger`, a leading "~" is a folder of that name. `error` is the file system's (domain
  /// `kQLTPosixErrorDomain`).
  static bool createLogPath(const QLTText& path, QLTError* error = nullptr);
  /// Removes what was created more than 12 hours ago from the folder at `path` and the folders
  /// below it; a folder that old goes with all it contains. The creation date is the earlier of
  /// birth time (where the file system keeps one) and modification time. Links in it are removed
  /// like files, never followed; but when `path` itself is a link to a folder, that folder is
  /// cleared. What cannot be examined or removed stays; a missing folder is nothing to do.
  static void clearLogs(const QLTText& path);

 protected:
  // For links that write.

  /// Tells of something that could not be written: `failure` and every `logAll` that is under way
  /// on this thread keep it, unless they hold an earlier one. So call it on the thread that logs,
  /// before `log` returns; with each loss, not only with the first. An empty one is no failure.
  void noteFailure(const QLTError& failure);
  /// Empties what `failure` holds for this link, as an opening does before it writes.
  void forgetFailure();

  /// What the properties of the columns were at one moment.
  struct Columns {
    std::vector<std::string> extraKeys;
    std::vector<std::string> deviceAttributeKeys;
    QLTDictionary deviceAttributes;
  };
  /// The properties as they are, without copying them.
  std::shared_ptr<const Columns> columns() const;

 private:
  template <typename Change>
  void changeColumns(Change change);

  mutable std::mutex mutex_;  // guards the properties
  std::shared_ptr<QLTLogger> lowerLogger_;
  std::shared_ptr<const Columns> columns_ = std::make_shared<Columns>();
  QLTError failure_;
};
