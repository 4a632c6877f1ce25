#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <QLTExport.h>
#include <QLTText.h>
#include <QLTValue.h>

/// The key of a record's user information that holds the description.
QLT_EXPORT extern const std::string kQLTErrorDescriptionKey;  // "description"

/// The domain of the framework's own errors.
QLT_EXPORT extern const std::string QLTFrameworkErrorDomain;  // "Quillon Framework Error Domain"

/// The domain of errors whose code is an errno value and whose origin is the file system.
QLT_EXPORT extern const std::string kQLTPosixErrorDomain;  // "POSIX"

/// An error record: the area that failed, a code, and what is known about it. A default-constructed
/// one is empty and means "no error".
///
/// Fallible operations return a "no" result and take a `QLTError*` as their last argument, which
/// may be null. They write to it only when they fail; on success they leave it as it was. So judge
/// a call by its result. The loading of a station (`QLTestSiteManager::loadConfig` and its steps)
/// is the exception that says so: where it succeeds without an instrument or a site that could not
/// be had, the record tells which.
///
/// Records are immutable and share their content: copies are cheap, and may be read from any
/// thread.
class QLT_EXPORT QLTError {
 public:
  QLTError() noexcept = default;
  /// A record with all its parts. `userInfo` holds the description under
  /// `kQLTErrorDescriptionKey`, if there is one; `underlyingError` is the record that it wraps.
  QLTError(std::string domain, std::int64_t code, QLTDictionary userInfo,
           QLTError underlyingError = {});
  /// A record whose user information holds only `description`, or nothing where that is absent.
  static QLTError withDescription(QLTText domain, std::int64_t code, QLTText description);
  /// A record of an errno value: domain `kQLTPosixErrorDomain`, the description being `subject` (a
  /// path, say), a colon and the system's text.
  static QLTError fromErrno(int errnoValue, const std::string& subject);

  /// True when there is an error.
  explicit operator bool() const noexcept { return payload_ != nullptr; }

  const std::string& domain() const;      ///< "" when empty
  std::int64_t code() const;              ///< 0 when empty
  const QLTDictionary& userInfo() const;  ///< empty when empty
  QLTError underlyingError() const;       ///< the wrapped record; empty when there is none
  /// The text under the description key; absent when the record carries none.
  std::optional<std::string> description() const;

 private:
  struct Payload;
  std::shared_ptr<const Payload> payload_;
};
