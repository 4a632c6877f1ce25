#include "ForwardText.h"

#include "CannotRun.h"
#include "Text.h"
#include "reports/Format.h"

namespace station {

results::ServerAddress serverOf(const std::string& url) {
  try {
    return results::ServerAddress(url);
  } catch (const results::NoAddress& reason) {
    throw CannotRun(reason.what(), reason.advice());
  }
}

std::string troubleText(const results::ForwardStatus& status) {
  return "cannot send to " + printable(status.server) + ": " + printable(status.trouble) + "; " +
         reports::counted(status.waiting, "run") + (status.waiting == 1 ? " waits" : " wait") +
         ", and nothing is lost";
}

std::string parkedText(const results::ForwardStatus& status) {
  return reports::counted(status.parked, "run") + (status.parked == 1 ? " is" : " are") +
         " parked and not on " + printable(status.server) + ": 'quillon results queue' tells why";
}

}  // namespace station
