#include "QLTSubTestInfo.h"

#include "common/Format.h"

std::shared_ptr<QLTSubTestInfo> QLTSubTestInfo::subTestInfo(QLTText name, std::int32_t priority) {
  auto info = std::make_shared<QLTSubTestInfo>();
  info->setName(std::move(name));
  info->setPriority(priority);
  return info;
}

std::shared_ptr<QLTSubTestInfo> QLTSubTestInfo::subTestInfo(QLTText name, std::int32_t priority,
                                                            QLTText failMessage) {
  auto info = subTestInfo(std::move(name), priority);
  info->setFailMessage(std::move(failMessage));
  return info;
}

std::shared_ptr<QLTSubTestInfo> QLTSubTestInfo::subTestInfo(QLTText name, std::int32_t priority,
                                                            QLTText expected, QLTText failMessage) {
  auto info = subTestInfo(std::move(name), priority, std::move(failMessage));
  info->setExpected(std::move(expected));
  return info;
}

std::shared_ptr<QLTSubTestInfo> QLTSubTestInfo::subTestinfo(QLTText name, std::int32_t priority,
                                                            double lowLimit, double highLimit,
                                                            QLTText failMessage) {
  auto info = subTestInfo(std::move(name), priority, std::move(failMessage));
  info->setLimits(lowLimit, highLimit);
  return info;
}

std::string QLTSubTestInfo::defaultFailMessage(const QLTText& name) {
  return quillon::internal::format("failed %@", name.text());
}

void QLTSubTestInfo::setLimits(double lowLimit, double highLimit) {
  setLowLimit(lowLimit);
  setHighLimit(highLimit);
  setExpected("from " + lowLimitText_ + " to " + highLimitText_);
}

void QLTSubTestInfo::setLowLimit(double lowLimit) {
  lowLimit_ = lowLimit;
  lowLimitText_ = quillon::internal::sixDecimals(lowLimit);
  hasLimits_ = true;
}

void QLTSubTestInfo::setHighLimit(double highLimit) {
  highLimit_ = highLimit;
  highLimitText_ = quillon::internal::sixDecimals(highLimit);
}

const std::optional<std::string>& QLTSubTestInfo::unit() const {
  static const std::optional<std::string> none;
  return unit_ ? *unit_ : none;
}

void QLTSubTestInfo::setUnit(QLTText unit) {
  unit_.reset();
  if (unit.text()) unit_ = std::make_unique<std::optional<std::string>>(std::move(unit).text());
}

void QLTSubTestInfo::deaclloc() {
  name_.reset();
  expected_.reset();
  failMessage_.reset();
}
