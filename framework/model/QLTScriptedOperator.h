#pragma once

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTOperator.h>
#include <QLTQuestion.h>
#include <QLTText.h>

/// An operator that nobody sits behind: it answers at once, from what it was given. For the tests
/// of plug-ins, and for stations that answer from a file:
///
///     const auto person = std::make_shared<QLTScriptedOperator>();
///     person->setAnswer("Colour of the LED?", "green");
///     suite->addResource(person, "operator");
///
/// The answer to a question of exactly that text comes first, every time; another question takes
/// the next answer of the script. When there is neither, there is nobody to ask. An answer must fit
/// the question, its pattern too: it is never asked again, so one that does not fit fails with
/// `kQLTErrorOperatorAnswerUnfit`. Give each site an operator of its own where they take from a
/// script; any thread may use one.
class QLT_EXPORT QLTScriptedOperator : public QLTOperator {
 public:
  /// An operator that answers from `script`, in order.
  explicit QLTScriptedOperator(std::vector<std::string> script = {});
  /// An operator with the answers of the property list at `path`: a dictionary with "answers" (a
  /// dictionary, from question to answer), "script" (an array of answers) or both. Answers are
  /// texts or numbers. Null when the file cannot be read or holds anything else; `error` names the
  /// place.
  static std::shared_ptr<QLTScriptedOperator> initWithFile(const std::filesystem::path& path,
                                                           QLTError* error = nullptr);

  /// Sets or replaces the answer to every question of that text.
  void setAnswer(const QLTText& question, const QLTText& answer);

  /// The questions so far, answered or not, in order.
  std::vector<QLTQuestion> asked() const;
  /// The texts that were shown so far, in order.
  std::vector<std::string> shown() const;

  std::optional<std::string> ask(const QLTQuestion& question, QLTError* error = nullptr) override;
  bool showText(const std::string& text, const std::optional<std::string>& image,
                QLTError* error = nullptr) override;  ///< true
  bool showProgress(double fraction, const std::string& text,
                    QLTError* error = nullptr) override;  ///< true; keeps nothing

 private:
  std::optional<std::string> next(const QLTQuestion& question);

  mutable std::mutex mutex_;
  std::map<std::string, std::string, std::less<>> answers_;
  std::vector<std::string> script_;
  std::size_t place_ = 0;
  std::vector<QLTQuestion> asked_;
  std::vector<std::string> shown_;
};
