#include "QLTBenchMatrix.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "common/Format.h"

using quillon::bench::fail;
using quillon::internal::format;

namespace {

std::string listOf(const std::vector<std::int32_t>& relays) {
  std::string list;
  for (const std::int32_t relay : relays) {
    list += (list.empty() ? "" : ",") + std::to_string(relay);
  }
  return list;
}

}  // namespace

std::shared_ptr<QLTBenchMatrix> QLTBenchMatrix::on(std::shared_ptr<QLTBenchScpi> scpi,
                                                   QLTBenchDialect dialect, QLTError* error) {
  if (!scpi) return nullptr;
  std::shared_ptr<QLTBenchMatrix> matrix(
      new QLTBenchMatrix("matrix", std::move(scpi), std::move(dialect)));
  return matrix->begin(error) ? matrix : nullptr;
}

bool QLTBenchMatrix::close(const std::vector<std::int32_t>& relays, QLTError* error) {
  return change(relays, true, error);
}

bool QLTBenchMatrix::open(const std::vector<std::int32_t>& relays, QLTError* error) {
  return change(relays, false, error);
}

bool QLTBenchMatrix::closeOnly(const std::vector<std::int32_t>& relays, QLTError* error) {
  return openAll(error) && close(relays, error);
}

bool QLTBenchMatrix::openAll(QLTError* error) {
  const auto& asked = relays_.empty() ? touched_ : relays_;
  if (!tell("openAll", {}, error) || !verify(asked, false, error)) return false;
  touched_.clear();
  return true;
}

bool QLTBenchMatrix::change(const std::vector<std::int32_t>& relays, bool closed, QLTError* error) {
  if (relays.empty()) return true;
  // Before the command, since one whose answer is lost may have been done.
  if (closed) touched_.insert(touched_.end(), relays.begin(), relays.end());
  if (!tell(closed ? "close" : "open", {{"list", listOf(relays)}}, error)) return false;
  if (!verify(relays, closed, error)) return false;
  if (!closed) {
    std::erase_if(touched_, [&](std::int32_t relay) {
      return std::find(relays.begin(), relays.end(), relay) != relays.end();
    });
  }
  return true;
}

bool QLTBenchMatrix::verify(const std::vector<std::int32_t>& relays, bool closed, QLTError* error) {
  if (!verifies_ || relays.empty()) return true;
  const auto states = areClosed(relays, error);
  if (!states) return false;
  std::vector<std::int32_t> wrong;
  for (std::size_t i = 0; i < relays.size(); ++i) {
    if ((*states)[i] != closed) wrong.push_back(relays[i]);
  }
  if (wrong.empty()) return true;
  return fail(
      error, kQLTErrorScpiNotDone,
      format("relays of the matrix %@ that were told to %s say that they are %s: %@", where(),
             closed ? "close" : "open", closed ? "open" : "closed", listOf(wrong)));
}

std::optional<std::vector<bool>> QLTBenchMatrix::areClosed(const std::vector<std::int32_t>& relays,
                                                           QLTError* error) {
  if (relays.empty()) return std::vector<bool>{};
  auto states = booleans("closed?", {{"list", listOf(relays)}}, error);
  if (states && states->size() != relays.size()) {
    return fail(error, kQLTErrorScpiAnswer,
                format("the matrix %@ tells of %d relays, asked for %d", where(), states->size(),
                       relays.size()));
  }
  return states;
}

void QLTBenchMatrix::tellSafe() { tellUnasked("openAll", {}); }

bool QLTBenchMatrix::makeSafe(QLTError* error) {
  QLTBenchMatrix::tellSafe();  // before anything that the matrix may not answer
  return insist([this](QLTError* reason) { return openAll(reason); }, error);
}
