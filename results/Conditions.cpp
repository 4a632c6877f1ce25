#include "Conditions.h"

#include <utility>

namespace results {

std::string Conditions::parameter(Parameter value) {
  parameters_.push_back(std::move(value));
  return ":c" + std::to_string(parameters_.size());
}

void Conditions::add(const std::string& condition) {
  text_ += (text_.empty() ? " WHERE " : " AND ") + condition;
}

void Conditions::compares(const std::string& comparison, const std::string& value) {
  add(comparison + " " + parameter({true, value, 0}));
}

void Conditions::compares(const std::string& comparison, std::int64_t value) {
  add(comparison + " " + parameter({false, "", value}));
}

void Conditions::oneOf(const std::string& column, const std::vector<std::string>& values) {
  if (values.empty()) return;
  std::string list;
  for (const std::string& value : values) {
    list += (list.empty() ? "" : ", ") + parameter({true, value, 0});
  }
  add(column + " IN (" + list + ")");
}

void Conditions::runs(const Filter& filter) {
  if (filter.sinceUs) compares("r.started_us >=", *filter.sinceUs);
  if (filter.untilUs) compares("r.started_us <", *filter.untilUs);
  oneOf("r.part", filter.parts);
  oneOf("r.process", filter.processes);
  oneOf("r.site", filter.sites);
  oneOf("r.operator", filter.operators);
  oneOf("r.serial", filter.serials);
  std::vector<std::string> kinds;
  kinds.reserve(filter.kinds.size());
  for (const RunKind kind : filter.kinds) kinds.emplace_back(results::text(kind));
  oneOf("r.kind", kinds);
  const auto inTable = [&](const std::string& column, const std::string& table,
                           const std::string& name, const std::vector<std::string>& values) {
    if (values.empty()) return;
    std::string list;
    for (const std::string& value : values) {
      list += (list.empty() ? "" : ", ") + parameter({true, value, 0});
    }
    add(column + " IN (SELECT id FROM " + table + " WHERE " + name + " IN (" + list + "))");
  };
  inTable("r.plan_id", "plan", "flow", filter.flows);
  inTable("r.plan_id", "plan", "bundle_version", filter.versions);
  if (!filter.stations.empty()) {
    // Twice, for an id may stand for a name.
    std::string list;
    for (int i = 0; i < 2; ++i) {
      std::string names;
      for (const std::string& value : filter.stations) {
        names += (names.empty() ? "" : ", ") + parameter({true, value, 0});
      }
      list += std::string(i == 0 ? "name" : " OR id") + " IN (" + names + ")";
    }
    add("r.station_id IN (SELECT id FROM station WHERE " + list + ")");
  }
}

void Conditions::specs(const Filter& filter) {
  oneOf("s.test", filter.tests);
  oneOf("s.sub_test", filter.subTests);
}

std::string Conditions::takeFirst() {
  std::string first;
  text_.swap(first);
  return first.empty() ? first : " AND " + first.substr(std::string(" WHERE ").size());
}

std::string Conditions::text() const { return text_; }

void Conditions::bind(soci::details::prepare_temp_type& preparing) const {
  for (const Parameter& parameter : parameters_) {
    if (parameter.isText) {
      preparing, soci::use(parameter.text);
    } else {
      preparing, soci::use(parameter.integer);
    }
  }
}

}  // namespace results
