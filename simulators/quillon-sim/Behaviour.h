#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// How a reply is sent, and what goes wrong beside it. Without any of its faults: at once and
/// whole.
struct Behaviour {
  /// An entry of an instrument's error queue.
  struct QueuedError {
    int number;
    std::string text;
  };

  static constexpr std::uint64_t kEndless = std::numeric_limits<std::uint64_t>::max();

  std::chrono::milliseconds delay{0};             ///< before the reply
  std::chrono::milliseconds byteDelay{0};         ///< after each byte
  std::vector<std::size_t> splits;                ///< pauses after so many bytes, ascending
  std::chrono::milliseconds pause{50};            ///< how long such a pause is
  std::string garbage;                            ///< bytes before the reply
  std::uint64_t flood = 0;                        ///< bytes of 'x' before all that
  bool withoutEnd = false;                        ///< leaves out the line end and the prompt
  bool silent = false;                            ///< sends nothing
  std::optional<QueuedError> error;               ///< is in a SCPI device's queue afterwards
  std::optional<std::size_t> hangUpAfter;         ///< hangs up after so many bytes
  std::optional<std::chrono::milliseconds> away;  ///< then cannot be reached for so long

  /// Sets one fault by its name. Throws `Problem` for an unknown name or a value that does not fit.
  void set(std::string_view name, const std::string& value);
};

/// A fault as the user sees it: an option "--name", and a word in a reply file.
struct Fault {
  std::string_view name;
  std::string_view value;  ///< what stands behind the name; empty when nothing does
  std::string_view help;
  void (*apply)(Behaviour& behaviour, const std::string& value);
};

const std::vector<Fault>& faults();
/// Null when there is none of that name.
const Fault* findFault(std::string_view name);

/// A time in milliseconds, or "forever". Throws `Problem`.
std::chrono::milliseconds timeIn(std::string_view text);

}  // namespace sim
