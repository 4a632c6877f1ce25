#include "ReplyFile.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <system_error>
#include <utility>
#include <vector>

#include "Problem.h"
#include "Text.h"
#include "common/Files.h"
#include "common/Text.h"

namespace sim {
namespace {

struct Token {
  enum class Kind { Text, Word, Arrow, Star };
  Kind kind;
  std::string value;  // of a text what stands between the quotes, escapes as written
  std::size_t line;
};

[[noreturn]] void fail(const std::string& name, std::size_t line, const std::string& what) {
  throw Problem(name + ":" + std::to_string(line) + ": " + what);
}

/// Where the text that begins at `start` ends: at its closing quote, else `npos`.
std::size_t closingQuote(std::string_view line, std::size_t start) {
  for (std::size_t i = start + 1; i < line.size(); ++i) {
    if (line[i] == '"') return i;
    if (line[i] == '\\') ++i;
  }
  return std::string_view::npos;
}

/// Appends the tokens of one line.
void tokenize(std::string_view line, std::size_t number, const std::string& name,
              std::vector<Token>& tokens) {
  std::size_t i = 0;
  while (i < line.size() && line[i] != '#') {
    if (line[i] == ' ' || line[i] == '\t') {
      ++i;
    } else if (line[i] == '"') {
      const std::size_t end = closingQuote(line, i);
      if (end == line.npos) fail(name, number, "a text without its closing '\"'");
      tokens.push_back({Token::Kind::Text, std::string(line.substr(i + 1, end - i - 1)), number});
      i = end + 1;
    } else if (line[i] == '*') {
      tokens.push_back({Token::Kind::Star, "*", number});
      ++i;
    } else {
      const std::size_t end = std::min(line.find_first_of(" \t\"#*", i), line.size());
      const std::string_view word = line.substr(i, end - i);
      const auto kind = word == "->" ? Token::Kind::Arrow : Token::Kind::Word;
      tokens.push_back({kind, std::string(word), number});
      i = end;
    }
  }
}

/// Reads the tokens of one entry.
class EntryParser {
 public:
  EntryParser(const std::vector<Token>& tokens, const std::string& name)
      : tokens_(tokens), name_(name) {}

  void addTo(ReplyTable& table) {
    const bool hasCommand = at(Token::Kind::Text);
    const std::string command = hasCommand ? takeText() : "";
    const bool isPrefix = at(Token::Kind::Star);
    if (isPrefix) ++next_;
    if (!hasCommand && !isPrefix) fail("an entry begins with a command in quotes, or with *");
    if (!at(Token::Kind::Arrow)) fail("'->' is missing after the command");
    ++next_;

    ReplyTable::Answer answer{std::nullopt, table.behaviour()};
    while (at(Token::Kind::Text)) {
      if (!answer.lines) answer.lines.emplace();
      answer.lines->push_back(takeText());
    }
    while (next_ < tokens_.size()) takeFault(answer.behaviour);
    table.add(command, isPrefix, std::move(answer));
  }

 private:
  bool at(Token::Kind kind) const { return next_ < tokens_.size() && tokens_[next_].kind == kind; }

  [[noreturn]] void fail(const std::string& what) const {
    const Token& token = next_ < tokens_.size() ? tokens_[next_] : tokens_.back();
    sim::fail(name_, token.line, what);
  }

  std::string takeText() {
    try {
      std::string text = unescaped(tokens_[next_].value);
      ++next_;
      return text;
    } catch (const Problem& problem) {
      fail(problem.what());
    }
  }

  void takeFault(Behaviour& behaviour) {
    if (!at(Token::Kind::Word)) fail("a text or * where a fault should stand");
    const std::string& name = tokens_[next_].value;
    const Fault* const fault = findFault(name);
    if (fault == nullptr) fail("unknown word '" + name + "'");
    const bool hasValue = !fault->value.empty();
    const std::size_t valueAt = next_ + 1;
    if (hasValue && (valueAt >= tokens_.size() || tokens_[valueAt].kind == Token::Kind::Star)) {
      fail(name + " needs " + std::string(fault->value));
    }
    try {
      behaviour.set(name, hasValue ? tokens_[valueAt].value : "");
    } catch (const Problem& problem) {
      fail(problem.what());
    }
    next_ += hasValue ? 2 : 1;
  }

  const std::vector<Token>& tokens_;
  const std::string& name_;
  std::size_t next_ = 0;
};

bool beginsEntry(std::string_view line) { return !line.empty() && line.find_first_of(" \t#") != 0; }

}  // namespace

void parseReplies(std::string_view content, const std::string& name, ReplyTable& table) {
  std::vector<Token> entry;
  const auto finishEntry = [&] {
    if (!entry.empty()) EntryParser(entry, name).addTo(table);
    entry.clear();
  };
  std::size_t number = 0;
  for (std::string_view line : quillon::internal::split(content, "\n")) {
    ++number;
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (beginsEntry(line)) finishEntry();
    tokenize(line, number, name, entry);
  }
  finishEntry();
}

void readReplyFile(const std::filesystem::path& path, ReplyTable& table) {
  const auto content = quillon::internal::readWhole(path.string());
  if (!content) throw Problem(path.string() + ": " + std::generic_category().message(errno));
  parseReplies(*content, path.string(), table);
}

}  // namespace sim
