#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Json.h"

namespace station {

// What was said on the lines while one device was tested: a file of JSON lines, of which
// docs/file-formats.md tells. Bytes are texts there, one character from U+0000 to U+00FF a byte.

inline constexpr int kTrafficVersion = 1;

/// A file that is no recording.
struct BrokenRecording : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Appends bytes as a JSON text with its quotes.
void appendJsonText(std::string& json, std::string_view bytes);
/// The other way round, from the text as UTF-8. Throws `BrokenRecording` for other characters.
std::string bytesIn(const std::string& text);

/// What a run was, the first line of its recording.
struct RecordingHead {
  std::string run = {};
  std::string serial = {};
  std::string site = {};
  std::string station = {};
  std::string bundle = {};         ///< its identifier
  std::string bundleVersion = {};  ///< empty: none
  std::string bundlePath = {};
  std::string flow = {};
  std::string configSha256 = {};
  std::int64_t startedUs = 0;  ///< what the times of the other lines count from, UTC

  std::string line() const;  ///< with its line end
};

/// A recording as it was read.
struct Recording {
  enum class Kind { Opened, Sent, Received, Silent, Failed, Closed };
  struct Entry {
    Kind kind = Kind::Opened;
    std::string bytes = {};
    int code = 0;
    std::size_t place = 0;  ///< the number of its line in the file
  };
  /// All that was said on one line to an instrument.
  struct Line {
    std::string instrument = {};
    std::string where = {};
    std::vector<Entry> entries = {};
  };

  RecordingHead head = {};
  std::vector<Line> lines = {};
  bool isWhole = false;  ///< it goes on to the end of the device

  /// Throws `BrokenRecording`. The last line may be there in part, as a process that is killed
  /// leaves it.
  static Recording read(const std::filesystem::path& file);
  /// The first line only.
  static RecordingHead headOf(const std::filesystem::path& file);
};

}  // namespace station
