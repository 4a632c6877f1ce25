#include "QLTError.h"

#include <system_error>
#include <utility>

const std::string kQLTErrorDescriptionKey = "description";
const std::string QLTFrameworkErrorDomain = "Quillon Framework Error Domain";
const std::string kQLTPosixErrorDomain = "POSIX";

struct QLTError::Payload {
  std::string domain;
  std::int64_t code;
  QLTDictionary userInfo;
  QLTError underlyingError;
};

QLTError::QLTError(std::string domain, std::int64_t code, QLTDictionary userInfo,
                   QLTError underlyingError)
    : payload_(std::make_shared<const Payload>(
          Payload{std::move(domain), code, std::move(userInfo), std::move(underlyingError)})) {}

QLTError QLTError::withDescription(QLTText domain, std::int64_t code, QLTText description) {
  QLTDictionary userInfo;
  if (description.text()) {
    userInfo.set(kQLTErrorDescriptionKey, std::move(description).orEmpty());
  }
  return {std::move(domain).orEmpty(), code, std::move(userInfo)};
}

QLTError QLTError::fromErrno(int errnoValue, const std::string& subject) {
  return withDescription(kQLTPosixErrorDomain, errnoValue,
                         subject + ": " + std::generic_category().message(errnoValue));
}

const std::string& QLTError::domain() const {
  static const std::string none;
  return payload_ ? payload_->domain : none;
}

std::int64_t QLTError::code() const { return payload_ ? payload_->code : 0; }

const QLTDictionary& QLTError::userInfo() const {
  static const QLTDictionary none;
  return payload_ ? payload_->userInfo : none;
}

QLTError QLTError::underlyingError() const {
  return payload_ ? payload_->underlyingError : QLTError();
}

std::optional<std::string> QLTError::description() const {
  const QLTValue* description = userInfo().find(kQLTErrorDescriptionKey);
  if (description == nullptr) return std::nullopt;
  return description->text();
}
