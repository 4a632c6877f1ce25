#include "QLTBenchInstrument.h"

#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "bench/Fail.h"
#include "bench/ScpiDialect.h"
#include "bench/ScpiText.h"
#include "common/Format.h"

using quillon::bench::fail;
using quillon::bench::failWith;
using quillon::bench::isScpiArgument;
using quillon::internal::format;

QLTBenchInstrument::QLTBenchInstrument(std::string kind, std::shared_ptr<QLTBenchScpi> scpi,
                                       QLTBenchDialect dialect)
    : kind_(std::move(kind)), scpi_(std::move(scpi)), wanted_(std::move(dialect)) {}

bool QLTBenchInstrument::begin(QLTError* error) {
  QLTError problem;
  auto dialect = quillon::bench::dialectFor(kind_, wanted_.name, wanted_.file,
                                            scpi_->identityAtCreation().value_or(""), &problem);
  if (!dialect) return failWith(error, QLTUtil::handleError(problem, where()));
  dialect_ = std::move(dialect);
  return true;
}

bool QLTBenchInstrument::isLost() const { return scpi_->isLost(); }

std::string QLTBenchInstrument::where() const { return scpi_->where(); }

bool QLTBenchInstrument::reopen(QLTError* error) { return scpi_->reopen(error) && begin(error); }

const std::string& QLTBenchInstrument::dialect() const { return dialect_->name(); }

bool QLTBenchInstrument::offers(const std::string& operation) const {
  return dialect_->offers(operation);
}

std::optional<std::string> QLTBenchInstrument::commandFor(const std::string& operation,
                                                          const Values& values,
                                                          QLTError* error) const {
  for (const auto& [place, value] : values) {
    const bool isNumber = place == "value" || place == "range" || place == "cycles";
    if (isNumber && !isScpiArgument(value)) {
      return fail(error, kQLTErrorLineCommand,
                  format("%@: \"%@\" cannot be %@", where(), operation, value));
    }
  }
  return dialect_->command(operation, values, error);
}

bool QLTBenchInstrument::tell(const std::string& operation, const Values& values, QLTError* error) {
  const auto command = commandFor(operation, values, error);
  return command && scpi_->send(*command, error);
}

bool QLTBenchInstrument::tellUnasked(const std::string& operation, const Values& values) {
  const auto command = commandFor(operation, values, nullptr);
  return command && scpi_->sendUnasked(*command);
}

std::optional<double> QLTBenchInstrument::number(const std::string& operation, const Values& values,
                                                 QLTError* error, double seconds) {
  const auto query = commandFor(operation, values, error);
  return query ? scpi_->number(*query, error, seconds) : std::nullopt;
}

std::optional<std::vector<double>> QLTBenchInstrument::numbers(const std::string& operation,
                                                               const Values& values,
                                                               QLTError* error, double seconds) {
  const auto query = commandFor(operation, values, error);
  return query ? scpi_->numbers(*query, error, seconds) : std::nullopt;
}

std::optional<bool> QLTBenchInstrument::boolean(const std::string& operation, const Values& values,
                                                QLTError* error) {
  const auto query = commandFor(operation, values, error);
  return query ? scpi_->boolean(*query, error) : std::nullopt;
}

std::optional<std::vector<bool>> QLTBenchInstrument::booleans(const std::string& operation,
                                                              const Values& values,
                                                              QLTError* error) {
  const auto query = commandFor(operation, values, error);
  return query ? scpi_->booleans(*query, error) : std::nullopt;
}

bool QLTBenchInstrument::insist(const std::function<bool(QLTError*)>& attempt, QLTError* error) {
  QLTError problem;
  if (attempt(&problem)) return true;
  const bool isOfTheQueue = problem.domain() == kQLTScipErrorDomain;
  if (isOfTheQueue && attempt(&problem)) return true;
  return failWith(error, problem);
}
