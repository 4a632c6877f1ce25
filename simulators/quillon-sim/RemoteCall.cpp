#include "RemoteCall.h"

#include <utility>

namespace sim {
namespace {

constexpr std::uint32_t kCall = 0;
constexpr std::uint32_t kReply = 1;
constexpr std::uint32_t kRpcVersion = 2;
constexpr std::uint32_t kAccepted = 0;

enum Status : std::uint32_t { Success, NoProgram, OtherVersion, NoProcedure };

constexpr std::uint32_t kLastFragment = 0x80000000;
constexpr std::uint32_t kLongestFragment = 16 << 20;
constexpr std::size_t kHeader = 4;

}  // namespace

std::optional<RemoteCall> RemoteCall::in(std::string_view message) {
  RemoteCall call;
  call.arguments = XdrReader(message);
  XdrReader& reader = call.arguments;
  call.id = reader.number();
  if (reader.number() != kCall || reader.number() != kRpcVersion) return std::nullopt;
  call.program = reader.number();
  call.version = reader.number();
  call.procedure = reader.number();
  for (int proof = 0; proof < 2; ++proof) {  // who calls, which anybody may
    reader.number();
    reader.bytes();
  }
  if (!reader.isWhole()) return std::nullopt;
  return call;
}

XdrWriter RemoteCall::accepted(std::uint32_t status) const {
  XdrWriter writer;
  writer.number(id).number(kReply).number(kAccepted).number(0).number(0).number(status);
  return writer;
}

std::string RemoteCall::reply(const XdrWriter& results) const {
  return accepted(Success).text() + results.text();
}

std::string RemoteCall::onlyVersion(std::uint32_t version) const {
  return accepted(OtherVersion).number(version).number(version).text();
}

std::string RemoteCall::noSuchProgram() const { return accepted(NoProgram).text(); }

std::string RemoteCall::noSuchProcedure() const { return accepted(NoProcedure).text(); }

std::string asRecord(const std::string& message) {
  XdrWriter header;
  header.number(kLastFragment | static_cast<std::uint32_t>(message.size()));
  return header.text() + message;
}

std::optional<std::string> RecordReader::next() {
  while (bytes_.size() >= kHeader) {
    const std::uint32_t header = XdrReader(bytes_).number();
    const std::size_t length = header & ~kLastFragment;
    if (bytes_.size() < kHeader + length) break;
    message_.append(bytes_, kHeader, length);
    bytes_.erase(0, kHeader + length);
    if ((header & kLastFragment) != 0) return std::exchange(message_, {});
  }
  return std::nullopt;
}

bool RecordReader::isSenseless() const {
  return message_.size() > kLongestFragment ||
         (bytes_.size() >= kHeader &&
          (XdrReader(bytes_).number() & ~kLastFragment) > kLongestFragment);
}

}  // namespace sim
