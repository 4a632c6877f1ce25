#pragma once

#include <optional>
#include <string>
#include <vector>

#include <QLTExport.h>

/// A question to the person at the station, as `QLTOperator` hands it to whoever asks it. Tests do
/// not make it: they call `QLTOperator::confirm`, `choose`, `enterText` or `enterNumber`.
///
/// Every answer is a text, as it was pressed, typed or scanned. A value type.
struct QLT_EXPORT QLTQuestion {
  enum class Kind { Confirm, Choose, EnterText, EnterNumber };

  Kind kind = Kind::Confirm;
  /// What is asked, for people.
  std::string text = {};
  /// An image file of the plug-in's resources, its path counted from their folder.
  std::optional<std::string> image = {};
  /// Of a choice: what can be answered, at least one.
  std::vector<std::string> choices = {};
  /// Of a text: a regular expression that the whole answer must match; absent when any text will
  /// do. Whoever asks checks it, with a matcher of its own: only what all of them have in common
  /// may stand there, such as "[A-Z]{2}\d+(-\d+)?", but no back references and no looking ahead.
  std::optional<std::string> pattern = {};
  // Of a number: the limits, both inclusive.
  double lowLimit = 0;
  double highLimit = 0;
  /// How long to wait for an answer; absent: for ever.
  std::optional<double> timeOutInSeconds = {};

  /// What is wrong with `answer`, in words for the person who gave it ("not a number", "over 5");
  /// absent when it will do. A confirmation takes any; a choice must be one of the choices, letter
  /// by letter; a number is decimal with a point, without exponent or with one, and blanks around
  /// it do not count; nothing may be longer than 1000 bytes. The pattern is not looked at.
  std::optional<std::string> objection(const std::string& answer) const;
};
