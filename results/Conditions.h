#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include <soci/soci.h>

#include "results/Filter.h"

namespace results {

// Internal to the library, for its sources only.

/// The condition of a statement, with its parameters.
class Conditions {
 public:
  /// Runs, as "r", that a filter means.
  void runs(const Filter& filter);
  /// Sub-tests, as "s", that a filter means.
  void specs(const Filter& filter);
  /// Another one, without parameters.
  void add(const std::string& condition);
  void compares(const std::string& comparison, std::int64_t value);
  void compares(const std::string& comparison, const std::string& value);
  void oneOf(const std::string& column, const std::vector<std::string>& values);

  /// What was added so far, behind another condition, " AND a AND b"; the rest stands later in the
  /// statement.
  std::string takeFirst();
  /// " WHERE a AND b"; "" when there is none.
  std::string text() const;
  /// Binds the parameters to a statement that is prepared; this must outlive it.
  void bind(soci::details::prepare_temp_type& preparing) const;

 private:
  struct Parameter {
    bool isText = false;
    std::string text;
    long long integer = 0;
  };
  std::string parameter(Parameter value);

  std::string text_;
  std::deque<Parameter> parameters_;  // their addresses are the statement's
};

}  // namespace results
