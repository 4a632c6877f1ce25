#include "Recording.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>

#include "Text.h"
#include "common/Text.h"

using quillon::internal::appendHex;

namespace station {
namespace {

constexpr const char* kFormatKey = "quillonTraffic";

RecordingHead headIn(const std::string& text, const std::string& file) {
  const Json json = Json::parse(text, nullptr, false);
  if (!json.is_object() || !json.contains(kFormatKey)) {
    throw BrokenRecording(file + " is no recording of traffic");
  }
  if (json.at(kFormatKey) != kTrafficVersion) {
    throw BrokenRecording(file + " was recorded by another version of quillon");
  }
  const auto word = [&](const char* key) { return json.value(key, std::string()); };
  return {word("run"),          word("serial"),
          word("site"),         word("station"),
          word("bundle"),       word("bundleVersion"),
          word("bundlePath"),   word("flow"),
          word("configSha256"), json.value("startedUs", std::int64_t{0})};
}

std::ifstream opened(const std::filesystem::path& file) {
  std::ifstream stream(file);
  if (!stream) {
    throw BrokenRecording("cannot read the recording " + file.string() + ": " +
                          std::strerror(errno));
  }
  return stream;
}

/// Absent for what is not said on a line: a test's beginning, for instance.
std::optional<Recording::Entry> entryIn(const Json& json) {
  using Kind = Recording::Kind;
  const auto bytes = [&](const char* key) { return bytesIn(json.at(key).get<std::string>()); };
  if (json.contains("opened")) return {{Kind::Opened}};
  if (json.contains("sent")) return {{Kind::Sent, bytes("sent")}};
  if (json.contains("received")) return {{Kind::Received, bytes("received")}};
  if (json.contains("silent")) return {{Kind::Silent}};
  if (json.contains("failed")) return {{Kind::Failed, "", json.at("failed").get<int>()}};
  if (json.contains("closed")) return {{Kind::Closed}};
  return std::nullopt;
}

}  // namespace

void appendJsonText(std::string& json, std::string_view bytes) {
  json += '"';
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (byte == '"' || byte == '\\') {
      json += '\\';
      json += byte;
    } else if (byte == '\n') {
      json += "\\n";
    } else if (byte == '\r') {
      json += "\\r";
    } else if (value >= 0x20 && value < 0x7f) {
      json += byte;
    } else {
      json += "\\u00";
      appendHex(json, value);
    }
  }
  json += '"';
}

std::string bytesIn(const std::string& text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto value = static_cast<unsigned char>(text[i]);
    if (value < 0x80) {
      bytes += text[i];
    } else if ((value == 0xc2 || value == 0xc3) && i + 1 < text.size()) {
      const auto low = static_cast<unsigned char>(text[++i]);
      bytes += static_cast<char>(((value & 0x03U) << 6U) | (low & 0x3fU));
    } else {
      throw BrokenRecording("a character beyond U+00FF, which is no byte");
    }
  }
  return bytes;
}

std::string RecordingHead::line() const {
  const Json json{{kFormatKey, kTrafficVersion},
                  {"run", run},
                  {"serial", serial},
                  {"site", site},
                  {"station", station},
                  {"bundle", bundle},
                  {"bundleVersion", bundleVersion},
                  {"bundlePath", bundlePath},
                  {"flow", flow},
                  {"configSha256", configSha256},
                  {"startedUs", startedUs}};
  return lineOf(json) + "\n";
}

RecordingHead Recording::headOf(const std::filesystem::path& file) {
  std::ifstream stream = opened(file);
  std::string text;
  std::getline(stream, text);
  return headIn(text, file.string());
}

Recording Recording::read(const std::filesystem::path& file) {
  std::ifstream stream = opened(file);
  Recording recording;
  std::map<std::uint64_t, std::size_t> indexOf;
  std::string text;
  std::getline(stream, text);
  recording.head = headIn(text, file.string());
  for (std::size_t place = 2; std::getline(stream, text); ++place) {
    const bool isLast = stream.eof();  // without a line end
    try {
      const Json json = Json::parse(text);
      if (json.contains("end")) recording.isWhole = true;
      // What follows was said after a gap.
      if (json.contains("dropped")) break;
      if (!json.contains("line")) continue;
      const auto number = json.at("line").get<std::uint64_t>();
      const auto [known, isNew] = indexOf.emplace(number, recording.lines.size());
      if (isNew) {
        recording.lines.push_back(
            {json.at("instrument").get<std::string>(), json.at("where").get<std::string>()});
      }
      auto entry = entryIn(json);
      if (!entry) continue;
      entry->place = place;
      recording.lines[known->second].entries.push_back(*std::move(entry));
    } catch (const std::exception& problem) {
      if (isLast) break;
      throw BrokenRecording(file.string() + ", line " + std::to_string(place) + ": " +
                            printable(problem.what()));
    }
  }
  return recording;
}

}  // namespace station
