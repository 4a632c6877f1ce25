#include "QLTUtil.h"

#include <QLTConsoleLog.h>

#include "common/Format.h"

using quillon::internal::format;

QLTError QLTUtil::handleError(std::int32_t code, const std::optional<std::string>& message) {
  return handleError(code, QLTFrameworkErrorDomain, message);
}

QLTError QLTUtil::handleError(std::int32_t code, const std::string& domain,
                              const std::optional<std::string>& message) {
  QLTLog(format("error number is: %@ (%d)\n", message, code));
  if (!message) return {domain, code, {}};
  return QLTError::withDescription(domain, code, *message);
}

QLTError QLTUtil::handleError(const QLTError& error, const std::string& extraMessage) {
  QLTDictionary userInfo;
  userInfo.set(kQLTErrorDescriptionKey,
               format("%@. Details: %@", extraMessage, error.description()));
  return {error.domain(), error.code(), std::move(userInfo), error};
}

std::string QLTUtil::arrayToString(const std::vector<std::string>& strings,
                                   const std::string& delineator) {
  std::string joined;
  for (std::size_t i = 0; i < strings.size(); ++i) {
    if (i > 0) joined += delineator;
    joined += strings[i];
  }
  return joined;
}
