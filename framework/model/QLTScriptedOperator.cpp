#include "QLTScriptedOperator.h"

#include <regex>
#include <string_view>
#include <utility>

#include <QLTErrorCodes.h>
#include <QLTPropertyList.h>
#include <QLTValue.h>

#include "common/Format.h"
#include "platform/Failed.h"
#include "platform/Place.h"

using quillon::internal::Failed;
using quillon::internal::failWith;
using quillon::internal::format;
using quillon::internal::placedError;

namespace {

/// A key as a message may show it.
std::string excerpt(std::string_view key) { return quillon::internal::shown(key); }

Failed failAt(QLTError* error, const std::string& file, const QLTValue& value,
              const std::string& keyPath, std::string_view reason) {
  return failWith(error,
                  placedError(kQLTErrorConfigWrong, {file, value.position(), keyPath}, reason));
}

std::optional<std::string> answerIn(const QLTValue& value, const std::string& file,
                                    const std::string& keyPath, QLTError* error) {
  using Type = QLTValue::Type;
  const Type type = value.type();
  if (type == Type::Text || type == Type::Integer || type == Type::Real) return value.text();
  return failAt(error, file, value, keyPath, "expected an answer, a text or a number");
}

/// Whether the whole of `answer` matches; absent when the pattern is none.
std::optional<bool> matches(const std::string& answer, const std::string& pattern) {
  try {
    return std::regex_match(answer, std::regex(pattern));
  } catch (const std::regex_error&) {
    return std::nullopt;
  }
}

}  // namespace

QLTScriptedOperator::QLTScriptedOperator(std::vector<std::string> script)
    : script_(std::move(script)) {}

std::shared_ptr<QLTScriptedOperator> QLTScriptedOperator::initWithFile(
    const std::filesystem::path& path, QLTError* error) {
  const std::optional<QLTDictionary> file = QLTPropertyList::readDictionary(path, error);
  if (!file) return nullptr;

  const std::string name = path.filename().string();
  auto made = std::make_shared<QLTScriptedOperator>();
  for (const auto& [key, value] : *file) {
    if (key == "answers" && value.dictionary() != nullptr) {
      for (const auto& [question, entry] : *value.dictionary()) {
        const auto answer = answerIn(entry, name, "answers/" + excerpt(question), error);
        if (!answer) return nullptr;
        made->setAnswer(question, *answer);
      }
    } else if (key == "script" && value.array() != nullptr) {
      for (const QLTValue& entry : *value.array()) {
        const std::string keyPath = format("script/%u", made->script_.size());
        const auto answer = answerIn(entry, name, keyPath, error);
        if (!answer) return nullptr;
        made->script_.push_back(*answer);
      }
    } else {
      return failAt(error, name, value, excerpt(key),
                    R"(expected "answers", a dictionary, or "script", an array)");
    }
  }
  return made;
}

void QLTScriptedOperator::setAnswer(const QLTText& question, const QLTText& answer) {
  const std::lock_guard lock(mutex_);
  answers_.insert_or_assign(question.orEmpty(), answer.orEmpty());
}

std::vector<QLTQuestion> QLTScriptedOperator::asked() const {
  const std::lock_guard lock(mutex_);
  return asked_;
}

std::vector<std::string> QLTScriptedOperator::shown() const {
  const std::lock_guard lock(mutex_);
  return shown_;
}

std::optional<std::string> QLTScriptedOperator::ask(const QLTQuestion& question, QLTError* error) {
  std::optional<std::string> answer = next(question);
  if (!answer) return failWith(error, failure(kQLTErrorOperatorAbsent, question));
  if (const auto objection = question.objection(*answer)) {
    return failWith(error, unfit(question, *answer, *objection));
  }
  if (!question.pattern) return answer;
  const std::optional<bool> fits = matches(*answer, *question.pattern);
  if (!fits) {
    return failWith(error, QLTError::withDescription(
                               QLTFrameworkErrorDomain, kQLTErrorQuestionWrong,
                               format("a question that nobody can answer, for its pattern \"%@\" "
                                      "is no regular expression: %@",
                                      *question.pattern, question.text)));
  }
  if (*fits) return answer;
  return failWith(error, unfit(question, *answer, format("no match of \"%@\"", *question.pattern)));
}

bool QLTScriptedOperator::showText(const std::string& text, const std::optional<std::string>&,
                                   QLTError*) {
  const std::lock_guard lock(mutex_);
  shown_.push_back(text);
  return true;
}

bool QLTScriptedOperator::showProgress(double, const std::string&, QLTError*) { return true; }

/// Keeps the question, and takes its answer.
std::optional<std::string> QLTScriptedOperator::next(const QLTQuestion& question) {
  const std::lock_guard lock(mutex_);
  asked_.push_back(question);
  if (const auto found = answers_.find(question.text); found != answers_.end()) {
    return found->second;
  }
  if (place_ == script_.size()) return std::nullopt;
  return script_[place_++];
}
