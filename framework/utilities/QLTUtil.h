#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTErrorCodes.h>
#include <QLTExport.h>
#include <QLTMathUtil.h>
#include <QLTText.h>

/// Builders of error records, and small helpers; with the conversions of `QLTMathUtil`. Stateless;
/// any thread.
class QLT_EXPORT QLTUtil : public QLTMathUtil {
 public:
  /// As the three-argument form, in the framework's domain.
  static QLTError handleError(std::int32_t code, QLTText message);
  /// Logs "error number is: MESSAGE (CODE)" and returns a record that holds only the message; an
  /// absent message shows as "(null)" and gives a record without a description.
  static QLTError handleError(std::int32_t code, QLTText domain, QLTText message);
  /// Wraps an error from below: same domain and code, description "EXTRA. Details: DESCRIPTION",
  /// the given error as the underlying one. Logs nothing.
  static QLTError handleError(const QLTError& error, const QLTText& extraMessage);

  /// The strings in order, `delineator` between each two.
  static std::string arrayToString(const std::vector<std::string>& strings,
                                   const QLTText& delineator);
};
