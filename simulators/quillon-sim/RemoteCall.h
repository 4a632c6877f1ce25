#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Xdr.h"

namespace sim {

/// A call of ONC RPC, as RFC 5531 has it.
struct RemoteCall {
  std::uint32_t id = 0;
  std::uint32_t program = 0;
  std::uint32_t version = 0;
  std::uint32_t procedure = 0;
  XdrReader arguments{{}};

  /// Reads a call; absent when `message` is none. The arguments are read from `message`.
  static std::optional<RemoteCall> in(std::string_view message);

  /// A reply with these results.
  std::string reply(const XdrWriter& results) const;
  /// Refuses it: there is only this version of the program.
  std::string onlyVersion(std::uint32_t version) const;
  std::string noSuchProgram() const;
  std::string noSuchProcedure() const;

 private:
  XdrWriter accepted(std::uint32_t status) const;
};

/// A message as it is sent over TCP, as one fragment.
std::string asRecord(const std::string& message);

/// Puts the messages together that come over TCP.
class RecordReader {
 public:
  void add(std::string_view bytes) { bytes_ += bytes; }
  /// The next message that is whole; absent when none is.
  std::optional<std::string> next();
  /// Whether what comes cannot be messages of a reasonable length.
  bool isSenseless() const;

 private:
  std::string bytes_;
  std::string message_;  // its fragments so far
};

}  // namespace sim
