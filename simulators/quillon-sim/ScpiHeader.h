#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// A command's header as a manual writes it, "MEASure[:SCALar]:VOLTage[:DC]?": each keyword has a
/// short form, its capitals, and a long form; what is in brackets may be left out.
class ScpiHeader {
 public:
  explicit ScpiHeader(std::string_view pattern);

  /// Whether `header`, in whatever case, is a form of it. Only a query has a question mark.
  bool matches(std::string_view header) const;

 private:
  struct Keyword {
    std::string shortForm;
    std::string longForm;
    bool isOptional;
  };

  std::vector<Keyword> keywords_;
  bool isQuery_;
};

}  // namespace sim
