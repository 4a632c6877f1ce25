// Mistakes in a header, each with the check that must find it.

#pragma once

#include <string>
#include <vector>

namespace mistakes {

struct _Reserved {  // finds: bugprone-reserved-identifier
  int value = 0;
};

const int notAsConstantsAre = 1;  // finds: readability-identifier-naming

class Shape {
 public:
  virtual ~Shape() = default;
  virtual double area() const = 0;
};

class Square : public Shape {
 public:
  explicit Square(double side) : side_(side) {}
  virtual double area() const { return side_ * side_; }  // finds: modernize-use-override

 private:
  double side_;
};

inline bool hasNone(const std::vector<int>& items) {
  return items.size() == 0;  // finds: readability-container-size-empty
}

inline std::size_t lengthOf(std::string text) {  // finds: performance-unnecessary-value-param
  return text.size();
}

inline int truncated(double number) {
  return number;  // finds: bugprone-narrowing-conversions
}

}  // namespace mistakes
