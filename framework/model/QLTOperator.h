#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTQuestion.h>
#include <QLTText.h>

/// What goes along with a question: `{.image = "j4.png", .timeOutInSeconds = 60}`.
struct QLTAskOptions {
  /// An image file of the plug-in's resources, its path counted from their folder.
  QLTText image = {};
  /// How long to wait for the answer; absent: for ever.
  std::optional<double> timeOutInSeconds = {};
};

/// The person at the station, whom a test may ask. The station application enters one in every
/// suite as the resource "operator", unless the plug-in has a resource of that name:
///
///     const auto person = op(error);
///     if (!person || !person->confirm("Connect J4.", {.image = "j4.png"}, error)) return false;
///     const auto colour = person->choose("Colour of the LED?", {"red", "green"}, {}, error);
///     if (!colour) return false;
///     addResultAndMatch(1, colour);
///
/// Questions wait for the answer, as long as their time-out allows, and hold up the calling thread
/// only: other sites go on. Without an answer they fail, which is no measurement and no verdict on
/// the device: pass the error on. All codes are of the framework's domain:
///
/// - `kQLTErrorOperatorAbsent`: there is nobody to ask, nor to show something to;
/// - `kQLTErrorOperatorTimedOut`: nobody answered in time;
/// - `kQLTErrorOperatorCancelled`: the run is being stopped;
/// - `kQLTErrorOperatorAnswerUnfit`: the answer does not fit the question, of an operator that does
///   not ask again;
/// - `kQLTErrorQuestionWrong`: the question cannot be answered (no choices, limits the wrong way
///   round or not numbers, a pattern that is none, a time-out that is not above 0).
///
/// Questions and answers go to the console log. Sites may share an operator: every implementation
/// may be called from several threads at once.
class QLT_EXPORT QLTOperator : public QLTObject {
 public:
  // For tests. `text` is what the person reads: say what to do.

  /// Waits until the person says that it is done. True then.
  bool confirm(const QLTText& text, const QLTAskOptions& options = {}, QLTError* error = nullptr);
  /// Lets the person choose one of `choices`, and returns it: `{"pass", "fail"}`, say.
  std::optional<std::string> choose(const QLTText& text, const std::vector<std::string>& choices,
                                    const QLTAskOptions& options = {}, QLTError* error = nullptr);
  /// What the person types or scans. The whole of it matches `pattern`, a regular expression, where
  /// there is one; see `QLTQuestion::pattern`.
  std::optional<std::string> enterText(const QLTText& text, const QLTText& pattern = {},
                                       const QLTAskOptions& options = {},
                                       QLTError* error = nullptr);
  /// The number that the person types, from `lowLimit` to `highLimit`, both inclusive.
  std::optional<double> enterNumber(const QLTText& text, double lowLimit, double highLimit,
                                    const QLTAskOptions& options = {}, QLTError* error = nullptr);
  /// Shows `text`, and `image` with it, in place of what was shown before, until the test ends.
  /// Does not wait.
  bool show(const QLTText& text, const QLTText& image = {}, QLTError* error = nullptr);
  /// Shows how much of the test is done, from 0 to 1 (what is beyond that, or no number, counts as
  /// the nearer end, or 0), and what it is doing. Does not wait.
  bool progress(double fraction, const QLTText& text = {}, QLTError* error = nullptr);

  // For station applications: what an implementation does.

  /// Asks `question`, which can be answered, and returns the answer. An implementation that speaks
  /// to people asks again, with the reason, where `QLTQuestion::objection` or the pattern refuses
  /// it. On failure `error` tells; see `failure`.
  virtual std::optional<std::string> ask(const QLTQuestion& question,
                                         QLTError* error = nullptr) = 0;
  /// See `show`.
  virtual bool showText(const std::string& text, const std::optional<std::string>& image,
                        QLTError* error = nullptr) = 0;
  /// See `progress`; `fraction` is from 0 to 1.
  virtual bool showProgress(double fraction, const std::string& text,
                            QLTError* error = nullptr) = 0;

  /// The record of one of the first three codes above, with the same words whoever asks.
  static QLTError failure(std::int32_t code, const QLTQuestion& question);
  /// The record of an answer that does not fit, `reason` being what is wrong with it.
  static QLTError unfit(const QLTQuestion& question, const std::string& answer,
                        const std::string& reason);

 private:
  std::optional<std::string> answerTo(const QLTQuestion& question, QLTError* error);
};
