#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
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
  /// Closes the chain below; result and error as with `open`.
  virtual bool close(QLTError* error = nullptr);
  /// Sets the attributes of the device that the next records belong to. Not handed on: each link
  /// that needs them is told by the application.
  virtual void startDevice(QLTDictionary attributes);

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
  /// exists there already, whatever that is. `error` is the file system's (domain
  /// `kQLTPosixErrorDomain`).
  static bool createLogPath(const std::string& path, QLTError* error = nullptr);
  /// Removes what was created more than 12 hours ago from the folder at `path` and the folders
  /// below it; a folder that old goes with all it contains. The creation date is the earlier of
  /// birth time (where the file system keeps one) and modification time. Links in it are removed
  /// like files, never followed. What cannot be examined or removed stays; a missing folder is
  /// nothing to do.
  static void clearLogs(const std::string& path);

 private:
  mutable std::mutex mutex_;  // guards the properties
  std::shared_ptr<QLTLogger> lowerLogger_;
  std::vector<std::string> extraKeys_;
  std::vector<std::string> deviceAttributeKeys_;
  QLTDictionary deviceAttributes_;
};
