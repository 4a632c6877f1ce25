#pragma once

#include <tuple>
#include <type_traits>

#include "results/Rows.h"

namespace results {

// Internal to the library: the columns of each table, in the order of the schema. Writing, reading
// and hashing of rows go by these lists.

template <typename Row, typename Field>
struct Column {
  const char* name;
  Field Row::*field;
};

template <typename Row, typename Field>
Column(const char*, Field Row::*) -> Column<Row, Field>;

template <typename Row>
struct Table;

template <>
struct Table<Station> {
  static constexpr const char* kName = "station";
  static constexpr auto kColumns =
      std::tuple{Column{"id", &Station::id}, Column{"name", &Station::name},
                 Column{"machine_id", &Station::machineId}, Column{"location", &Station::location}};
};

template <>
struct Table<Plan> {
  static constexpr const char* kName = "plan";
  static constexpr auto kColumns = std::tuple{Column{"id", &Plan::id},
                                              Column{"bundle", &Plan::bundle},
                                              Column{"bundle_version", &Plan::bundleVersion},
                                              Column{"framework_version", &Plan::frameworkVersion},
                                              Column{"flow", &Plan::flow},
                                              Column{"config_sha256", &Plan::configSha256}};
};

template <>
struct Table<Spec> {
  static constexpr const char* kName = "spec";
  static constexpr auto kColumns =
      std::tuple{Column{"id", &Spec::id},     Column{"bundle", &Spec::bundle},
                 Column{"flow", &Spec::flow}, Column{"number", &Spec::number},
                 Column{"test", &Spec::test}, Column{"sub_test", &Spec::subTest},
                 Column{"kind", &Spec::kind}, Column{"low", &Spec::low},
                 Column{"high", &Spec::high}, Column{"expected", &Spec::expected},
                 Column{"unit", &Spec::unit}, Column{"priority", &Spec::priority}};
};

template <>
struct Table<Run> {
  static constexpr const char* kName = "run";
  static constexpr auto kColumns = std::tuple{Column{"id", &Run::id},
                                              Column{"station_id", &Run::stationId},
                                              Column{"site", &Run::site},
                                              Column{"run_index", &Run::runIndex},
                                              Column{"batch", &Run::batch},
                                              Column{"serial", &Run::serial},
                                              Column{"part", &Run::part},
                                              Column{"revision", &Run::revision},
                                              Column{"process", &Run::process},
                                              Column{"operator", &Run::operatorName},
                                              Column{"plan_id", &Run::planId},
                                              Column{"kind", &Run::kind},
                                              Column{"retest_of", &Run::retestOf},
                                              Column{"reason", &Run::reason},
                                              Column{"started_us", &Run::startedUs},
                                              Column{"ended_us", &Run::endedUs},
                                              Column{"verdict", &Run::verdict},
                                              Column{"first_failure", &Run::firstFailure},
                                              Column{"message", &Run::message},
                                              Column{"records", &Run::records},
                                              Column{"sha256", &Run::sha256}};
};

template <>
struct Table<Step> {
  static constexpr const char* kName = "step";
  static constexpr auto kColumns = std::tuple{Column{"run_id", &Step::runId},
                                              Column{"step", &Step::step},
                                              Column{"attempt", &Step::attempt},
                                              Column{"number", &Step::number},
                                              Column{"test", &Step::test},
                                              Column{"started_us", &Step::startedUs},
                                              Column{"ended_us", &Step::endedUs},
                                              Column{"verdict", &Step::verdict},
                                              Column{"error_domain", &Step::errorDomain},
                                              Column{"error_code", &Step::errorCode},
                                              Column{"error_text", &Step::errorText}};
};

template <>
struct Table<Measurement> {
  static constexpr const char* kName = "measurement";
  static constexpr auto kColumns = std::tuple{Column{"run_id", &Measurement::runId},
                                              Column{"sequence", &Measurement::sequence},
                                              Column{"step", &Measurement::step},
                                              Column{"attempt", &Measurement::attempt},
                                              Column{"superseded", &Measurement::superseded},
                                              Column{"spec_id", &Measurement::specId},
                                              Column{"value", &Measurement::value},
                                              Column{"text", &Measurement::text},
                                              Column{"verdict", &Measurement::verdict},
                                              Column{"message", &Measurement::message}};
};

template <>
struct Table<Attribute> {
  static constexpr const char* kName = "attribute";
  static constexpr auto kColumns =
      std::tuple{Column{"run_id", &Attribute::runId}, Column{"sequence", &Attribute::sequence},
                 Column{"name", &Attribute::name}, Column{"value", &Attribute::value}};
};

template <>
struct Table<Instrument> {
  static constexpr const char* kName = "instrument";
  static constexpr auto kColumns = std::tuple{Column{"id", &Instrument::id},
                                              Column{"vendor", &Instrument::vendor},
                                              Column{"model", &Instrument::model},
                                              Column{"serial", &Instrument::serial},
                                              Column{"calibrated_us", &Instrument::calibratedUs},
                                              Column{"due_us", &Instrument::dueUs},
                                              Column{"certificate", &Instrument::certificate}};
};

template <>
struct Table<RunInstrument> {
  static constexpr const char* kName = "run_instrument";
  static constexpr auto kColumns = std::tuple{Column{"run_id", &RunInstrument::runId},
                                              Column{"name", &RunInstrument::name},
                                              Column{"instrument_id", &RunInstrument::instrumentId},
                                              Column{"firmware", &RunInstrument::firmware},
                                              Column{"due_us", &RunInstrument::dueUs},
                                              Column{"state", &RunInstrument::state}};
};

template <>
struct Table<Event> {
  static constexpr const char* kName = "event";
  static constexpr auto kColumns = std::tuple{Column{"station_id", &Event::stationId},
                                              Column{"sequence", &Event::sequence},
                                              Column{"at_us", &Event::atUs},
                                              Column{"kind", &Event::kind},
                                              Column{"site", &Event::site},
                                              Column{"run_id", &Event::runId},
                                              Column{"who", &Event::who},
                                              Column{"text", &Event::text}};
};

/// Calls `visit(name, field)` for each column of a row, in order.
template <typename Row, typename Visit>
void forEachColumn(Row& row, Visit visit) {
  std::apply([&](const auto&... column) { (visit(column.name, row.*column.field), ...); },
             Table<std::remove_const_t<Row>>::kColumns);
}

/// Sets `word` to the value that it names; false, with the value as it was, when it names none.
bool parse(const std::string& word, Verdict& value);
bool parse(const std::string& word, Mark& value);
bool parse(const std::string& word, RunKind& value);
bool parse(const std::string& word, SpecKind& value);
bool parse(const std::string& word, Calibration& value);

}  // namespace results
