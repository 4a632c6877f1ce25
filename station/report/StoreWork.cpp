#include "StoreWork.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "CannotRun.h"
#include "Screen.h"
#include "Text.h"
#include "common/Files.h"
#include "reports/Request.h"
#include "results/StoreError.h"

namespace station {

int withStore(const std::function<int()>& work) {
  constexpr int kProblem = 1;
  try {
    return work();
  } catch (const reports::NoReport& reason) {
    Screen().problem(reason.what(), reason.advice());
  } catch (const results::StoreError& problem) {
    Screen().problem("cannot use the results store " + printable(problem.what()),
                     "--store FILE names another one.");
  }
  return kProblem;
}

void writeOutput(const std::string& text) {
  if (quillon::internal::writeWhole(STDOUT_FILENO, text)) return;
  throw CannotRun(std::string("cannot write to standard output: ") + std::strerror(errno));
}

}  // namespace station
