#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include <QLTSerial.h>

namespace test {

/// A serial port at "/dev/scripted" that answers as told and records what is asked of it.
class ScriptedPort : public QLTSerial {
 public:
  ScriptedPort() : QLTSerial("/dev/scripted") {}

  /// What the failing operations report.
  static QLTError error(const std::string& description) {
    return QLTError::withDescription("Port Domain", 5, description);
  }

  bool open(QLTError* slot) override {
    calls.push_back("open");
    return result(openFails, "open failed", slot);
  }
  bool close(QLTError* slot) override {
    calls.push_back("close");
    return result(closeFails, "close failed", slot);
  }
  bool flushBuffer(QLTError* slot) override {
    calls.push_back("flush");
    return result(flushFails, "flush failed", slot);
  }
  bool write(const std::string& text, QLTError* slot) override {
    calls.push_back("write " + text);
    return result(writeFails, "write failed", slot);
  }
  std::optional<std::string> read(std::int32_t size, QLTError* slot) override {
    calls.push_back("read " + std::to_string(size));
    if (replies.empty()) return "";
    return next(slot);
  }
  std::optional<std::string> readLine(std::int32_t timeOut, QLTError* slot) override {
    calls.push_back("readLine " + std::to_string(timeOut));
    if (replies.empty()) replies.emplace_back(std::nullopt);
    return next(slot);
  }

  std::vector<std::string> calls;
  /// What the reads give, in order; an absent one fails. After the last, `read` brings nothing and
  /// `readLine` fails.
  std::deque<std::optional<std::string>> replies;
  bool openFails = false;
  bool closeFails = false;
  bool flushFails = false;
  bool writeFails = false;

 private:
  static bool result(bool fails, const char* description, QLTError* slot) {
    if (fails && slot) *slot = error(description);
    return !fails;
  }
  std::optional<std::string> next(QLTError* slot) {
    const std::optional<std::string> reply = replies.front();
    replies.pop_front();
    result(!reply, "read failed", slot);
    return reply;
  }
};

}  // namespace test
