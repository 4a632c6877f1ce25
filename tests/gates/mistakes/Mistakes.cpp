// Mistakes in a source, each with the check that must find it.

#include "common/Mistakes.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

using std::set;  // finds: misc-unused-using-decls

namespace unused = std;  // finds: misc-unused-alias-decls

namespace mistakes {

std::size_t useAfterMove(std::vector<int>& taken) {
  std::vector<int> items{1, 2};
  taken = std::move(items);
  return items.size();  // finds: bugprone-use-after-move
}

int unusedParameter(int number) { return 1; }  // finds: misc-unused-parameters

int narrowing(double number) {
  int whole = 0;
  whole += number;  // finds: bugprone-narrowing-conversions
  return whole;
}

std::size_t unnecessaryCopy(const std::vector<std::string>& names) {
  const std::string first = names.front();  // finds: performance-unnecessary-copy-initialization
  return first.size();
}

std::size_t copiesEach(const std::map<int, std::string>& names) {
  std::size_t all = 0;
  for (const auto name : names) {  // finds: performance-for-range-copy
    all += name.second.size();
  }
  return all;
}

bool noneThere(const std::string& text) {
  return text.size() == 0;  // finds: readability-container-size-empty
}

int* nothing() {
  return 0;  // finds: modernize-use-nullptr
}

void ignoresFailure() {
  std::fopen("name", "r");  // finds: cert-err33-c
}

void forever(int limit) {
  int count = 0;
  while (count < limit) {  // finds: bugprone-infinite-loop
    std::puts("again");
  }
}

int escapes() noexcept {  // finds: bugprone-exception-escape
  throw 1;
}

int byConversion(const char* text) {
  return std::atoi(text);  // finds: cert-err34-c
}

void catchesByValue(const std::function<void()>& work) {
  try {
    work();
  } catch (std::string text) {  // finds: cert-err09-cpp
    std::puts(text.c_str());
  }
}

long long multiplied(int count) {
  return count * 1000;  // finds: bugprone-implicit-widening-of-multiplication-result
}

bool sameBranches(int number) {
  if (number > 1) {  // finds: bugprone-branch-clone
    return noneThere("a");
  } else {
    return noneThere("a");
  }
}

std::string ofBothKinds(const std::string& name) {
  std::string text;
  for (int i = 0; i < 3; ++i) {
    text = text + name;  // finds: performance-inefficient-string-concatenation
  }
  return text;
}

std::size_t inALambda(const std::vector<std::string>& names) {
  const auto moved = [&names] {
    std::string name = names.front();
    const std::string other = std::move(name);
    return other.size() + name.size();  // finds: bugprone-use-after-move
  };
  return moved();
}

}  // namespace mistakes

namespace std {

template <>
struct hash<mistakes::Square> {
  std::size_t operator()(const mistakes::Square& square) const {
    const std::string text = std::to_string(square.area());
    const std::string copy = text;  // finds: performance-unnecessary-copy-initialization
    return copy.size() + text.size();
  }
};

}  // namespace std
