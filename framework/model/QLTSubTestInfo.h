#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTText.h>

/// Describes one sub-test before it runs: its name and priority, what passes (an expected text, or
/// a closed numeric range), and the message to record when it fails.
///
/// Not synchronised: a specification belongs to one test method, which one thread drives at a time.
class QLT_EXPORT QLTSubTestInfo : public QLTObject {
 public:
  QLTSubTestInfo() = default;

  /// Makes a specification without limits; what is not given is as in a default-constructed one.
  static std::shared_ptr<QLTSubTestInfo> subTestInfo(QLTText name, std::int32_t priority);
  static std::shared_ptr<QLTSubTestInfo> subTestInfo(QLTText name, std::int32_t priority,
                                                     QLTText failMessage);
  static std::shared_ptr<QLTSubTestInfo> subTestInfo(QLTText name, std::int32_t priority,
                                                     QLTText expected, QLTText failMessage);
  /// Makes a specification with both limits and the phrase "from LOW to HIGH" as its expected text.
  /// The spelling of the name is the interface's own.
  static std::shared_ptr<QLTSubTestInfo> subTestinfo(QLTText name, std::int32_t priority,
                                                     double lowLimit, double highLimit,
                                                     QLTText failMessage);

  /// The fail message that a configured sub-test has when it is given none: "failed NAME". An
  /// absent name shows as "(null)".
  static std::string defaultFailMessage(const QLTText& name);

  /// Sets both limits and replaces the expected text by "from LOW to HIGH", six decimals each. A
  /// low limit above the high one is kept as given; then no value passes.
  void setLimits(double lowLimit, double highLimit);

  const std::optional<std::string>& name() const { return name_; }
  void setName(QLTText name) { name_ = std::move(name).text(); }
  std::int32_t priority() const { return priority_; }
  void setPriority(std::int32_t priority) { priority_ = priority; }
  double lowLimit() const { return lowLimit_; }
  /// Sets the lower limit, from which on the specification has limits.
  void setLowLimit(double lowLimit);
  double highLimit() const { return highLimit_; }
  /// Sets the upper limit only: a specification has limits exactly when a lower one was given.
  void setHighLimit(double highLimit);
  const std::optional<std::string>& expected() const { return expected_; }
  void setExpected(QLTText expected) { expected_ = std::move(expected).text(); }
  const std::optional<std::string>& failMessage() const { return failMessage_; }
  void setFailMessage(QLTText message) { failMessage_ = std::move(message).text(); }
  bool hasLimits() const { return hasLimits_; }
  /// The unit of the value and the limits, such as "V", for those who show or evaluate them; absent
  /// when there is none.
  const std::optional<std::string>& unit() const;
  void setUnit(QLTText unit);
  /// Whether a test may pass without having reported this sub-test; no unless it is set. For the
  /// station application, which judges that.
  bool isOptional() const { return isOptional_; }
  void setOptional(bool isOptional) { isOptional_ = isOptional; }

  // The limits as records show them, with six decimals.

  const std::string& lowLimitText() const { return lowLimitText_; }
  const std::string& highLimitText() const { return highLimitText_; }

  /// Gives up name, expected text and fail message early. Nothing needs to call it; the spelling is
  /// the interface's own.
  void deaclloc();

 private:
  std::optional<std::string> name_;
  std::int32_t priority_ = 0;
  bool hasLimits_ = false;
  bool isOptional_ = false;
  double lowLimit_ = 0.0;
  double highLimit_ = 0.0;
  // Made once, not for every record.
  std::string lowLimitText_ = "0.000000";
  std::string highLimitText_ = "0.000000";
  std::optional<std::string> expected_ = "";
  std::optional<std::string> failMessage_;
  // Apart, as most sub-tests have none, and a station has many sub-tests. Null when there is none.
  std::unique_ptr<const std::optional<std::string>> unit_;
};
