#pragma once

// Who watches the traffic of lines in tests: a listener, and a recording that speaks.

#include <QLTTraffic.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace test {

/// Keeps what is told, in words.
class Listener : public QLTTrafficWatcher {
 public:
  Listener() { QLTSetTrafficWatcher(this); }
  ~Listener() override { QLTSetTrafficWatcher(nullptr); }

  void happened(const QLTTrafficLine&, QLTTrafficEvent event, std::string_view bytes,
                int code) override {
    errno = ENOTTY;  // which a line is not to notice
    constexpr const char* kWords[] = {"opened", "sent ",   "received ",
                                      "silent", "failed ", "closed"};
    const auto index = static_cast<std::size_t>(event);
    events.push_back(kWords[index] + std::string(bytes) +
                     (event == QLTTrafficEvent::Failed ? std::to_string(code) : ""));
  }

  std::vector<std::string> events;
};

/// Answers from a list, and keeps what was sent.
class Recording : public QLTTrafficWatcher {
 public:
  Recording() { QLTSetTrafficWatcher(this); }
  ~Recording() override { QLTSetTrafficWatcher(nullptr); }
  void happened(const QLTTrafficLine&, QLTTrafficEvent, std::string_view, int) override {
    ADD_FAILURE() << "told of a line with a stand-in";
  }
  std::unique_ptr<QLTTrafficStandIn> standIn(const QLTTrafficLine&) override {
    return std::make_unique<Speaker>(*this);
  }

  std::deque<QLTTrafficAnswer> answers;
  std::deque<std::string> expected;
  bool isLost = false;
  int openCode = 0;

 private:
  class Speaker : public QLTTrafficStandIn {
   public:
    explicit Speaker(Recording& recording) : recording_(recording) {}
    int open() override { return recording_.openCode; }
    int write(std::string_view bytes) override {
      const bool isAsRecorded =
          !recording_.expected.empty() && recording_.expected.front() == bytes;
      if (isAsRecorded) recording_.expected.pop_front();
      return isAsRecorded ? 0 : EPROTO;
    }
    QLTTrafficAnswer read(std::size_t, std::chrono::nanoseconds) override {
      if (recording_.answers.empty()) return {QLTTrafficAnswer::Kind::Silent};
      QLTTrafficAnswer answer = recording_.answers.front();
      recording_.answers.pop_front();
      return answer;
    }
    bool isLost() const override { return recording_.isLost; }
    void close() override {}

   private:
    Recording& recording_;
  };
};

}  // namespace test
