#include "QLTUtil.h"

#include <utility>

#include <QLTConsoleLog.h>

#include "common/Format.h"

using quillon::internal::format;

QLTError QLTUtil::handleError(std::int32_t code, QLTText message) {
  return handleError(code, QLTFrameworkErrorDomain, std::move(message));
}

QLTError QLTUtil::handleError(std::int32_t code, QLTText domain, QLTText message) {
  QLTLog(format("error number is: %@ (%d)\n", message.text(), code));
  return QLTError::withDescription(std::move(domain), code, std::move(message));
}

QLTError QLTUtil::handleError(const QLTError& error, const QLTText& extraMessage) {
  QLTDictionary userInfo;
  userInfo.set(kQLTErrorDescriptionKey,
               format("%@. Details: %@", extraMessage.text(), error.description()));
  return {error.domain(), error.code(), std::move(userInfo), error};
}

std::string QLTUtil::arrayToString(const std::vector<std::string>& strings,
                                   const QLTText& delineator) {
  const std::string between = delineator.orEmpty();
  std::string joined;
  for (std::size_t i = 0; i < strings.size(); ++i) {
    if (i > 0) joined += between;
    joined += strings[i];
  }
  return joined;
}
