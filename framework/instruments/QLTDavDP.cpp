#include "QLTDavDP.h"

#include <stdexcept>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTUtil.h>
#include <QLTValue.h>

#include "common/Format.h"
#include "common/Text.h"
#include "utilities/Fail.h"

using quillon::internal::fail;
using quillon::internal::format;
using quillon::internal::split;
using quillon::internal::trimmed;

namespace {

constexpr std::int32_t kVersionTimeOutInSeconds = 5;
constexpr std::size_t kVersionFieldCount = 5;

}  // namespace

bool QLTDavDP::initVersionInfo() {
  const auto fields = sendCommand("&1,0000", kVersionTimeOutInSeconds);
  if (!fields) {
    QLTLog("error sending &1 to DAVDP");
    return false;
  }
  if (fields->size() != kVersionFieldCount) {
    const QLTValue listing(QLTArray(fields->begin(), fields->end()));
    QLTLog(format("unexpected result from &1 %@", listing.text()));
    return false;
  }
  revFPGA_ = (*fields)[1];
  revDPRx_ = (*fields)[2];
  revHDMIRx_ = (*fields)[3];
  revPIC_ = (*fields)[4];
  return true;
}

std::optional<std::vector<std::string>> QLTDavDP::sendCommand(const std::string& /*command*/,
                                                              std::int32_t /*timeOutInSeconds*/,
                                                              QLTError* /*error*/) {
  return std::nullopt;
}

std::optional<std::vector<std::string>> QLTDavDP::packageReturn(
    const std::optional<std::string>& reply, const std::string& addr, QLTError* /*error*/) {
  if (!reply) {
    QLTLog("nil string returned from DAVDP");
    return std::nullopt;
  }
  const std::string line = trimmed(*reply);
  QLTLog(format("{DAVDP_Read %@}: %@", addr, line));
  return split(line, ",");
}

bool QLTDavDP::parseForPassFail(const std::vector<std::string>& fields, std::int32_t resultIndex) {
  if (resultIndex < 0 || resultIndex >= std::ssize(fields)) {
    throw std::out_of_range(
        format("field %d of a reply: they count from 0, there are %d", resultIndex, fields.size()));
  }
  return fields[static_cast<std::size_t>(resultIndex)] == "P";
}

bool QLTDavDP::checkReturn(const std::optional<std::vector<std::string>>& fields,
                           std::int32_t expectedFieldCount, QLTError* error) {
  if (!fields) return false;
  if (static_cast<std::int64_t>(fields->size()) == expectedFieldCount) return true;
  return fail(error, kQLTErrorDavDPReply,
              format("unexpected return from DAVDP: %@", QLTUtil::arrayToString(*fields, ",")));
}

bool QLTDavDP::askVersionInfo(const std::string& where, QLTError* error) {
  if (initVersionInfo()) return true;
  return fail(error, kQLTErrorDavDPReply, format("no revisions from the DAVDP at %@", where));
}
