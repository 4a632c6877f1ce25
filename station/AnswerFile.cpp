#include "AnswerFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include <nlohmann/json.hpp>

#include "CannotRun.h"
#include "Text.h"

namespace station {
namespace {

constexpr const char* kForm =
    "Each line is an object like {\"site\": \"left\", \"question\": \"LED\", \"answer\": "
    "\"green\"};\nthe answer is a text or a number, the others may be left out.";

}  // namespace

AnswerFile::AnswerFile(std::filesystem::path path) : path_(std::move(path)) {
  std::ifstream file(path_);
  if (!file) {
    throw CannotRun("cannot read the answers " + printable(path_.string()) + ": " +
                    std::strerror(errno));
  }
  std::size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    if (!quillon::internal::trimmed(line).empty()) add(number, line);
  }
}

void AnswerFile::add(std::size_t number, const std::string& line) {
  auto json = nlohmann::json::parse(line, nullptr, false);
  if (!json.is_object()) json = nlohmann::json::object();
  Entry entry;
  entry.line = number;
  bool isRight = json.contains("answer");
  for (const auto& [key, value] : json.items()) {
    const std::string text = value.is_string()   ? value.get<std::string>()
                             : value.is_number() ? value.dump()
                                                 : "";
    isRight = isRight && (value.is_string() || (key == "answer" && value.is_number()));
    if (key == "answer") {
      entry.answer = text;
    } else if (key == "site") {
      entry.site = text;
    } else if (key == "question") {
      entry.question = text;
    } else {
      isRight = false;
    }
  }
  if (!isRight) {
    throw CannotRun(printable(path_.string()) + ":" + std::to_string(number) +
                        ": not an answer: " + printable(line),
                    kForm);
  }
  entries_.push_back(std::move(entry));
}

std::optional<std::string> AnswerFile::next(const std::string& site, const std::string& question) {
  const std::lock_guard lock(mutex_);
  for (Entry& entry : entries_) {
    if (entry.used || (entry.site && entry.site != site) ||
        question.find(entry.question) == std::string::npos) {
      continue;
    }
    entry.used = true;
    return entry.answer;
  }
  return std::nullopt;
}

std::vector<std::size_t> AnswerFile::unusedLines() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::size_t> lines;
  for (const Entry& entry : entries_) {
    if (!entry.used) lines.push_back(entry.line);
  }
  return lines;
}

}  // namespace station
