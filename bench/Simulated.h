#pragma once

// Internal: not installed.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <type_traits>

#include <QLTSimSerial.h>
#include <QLTSimSocket.h>

namespace quillon::bench {

/// A line of the class `Line` without hardware: each write is answered, once, by what the response
/// map of the framework's simulated transport `Port` (`QLTSimSocket` or `QLTSimSerial`) holds for
/// its text. An answer without a line end gets one; as there, only the text written last has one.
/// Without a map there is none.
template <typename Line, typename Port = QLTSimSocket>
class Simulated : public Line {
 public:
  using Line::Line;
  ~Simulated() override { Line::close(); }

 protected:
  using typename Line::Deadline;

  bool openLine(std::string&) override {
    if constexpr (std::is_same_v<Port, QLTSimSocket>) {
      port_ = QLTSimSocket::init(this->where(), 0);
    } else {
      port_ = std::make_shared<Port>(this->where());
      port_->open();
    }
    return true;
  }
  void closeLine() override {
    port_.reset();
    answer_.clear();
  }
  std::ptrdiff_t receive(char* bytes, std::size_t size, Deadline) override {
    const std::size_t count = std::min(size, answer_.size());
    std::copy_n(answer_.begin(), count, bytes);
    answer_.erase(0, count);
    return static_cast<std::ptrdiff_t>(count);
  }
  std::ptrdiff_t send(const char* bytes, std::size_t size, Deadline) override {
    if (!port_->write(std::string(bytes, size))) return -1;
    if constexpr (std::is_same_v<Port, QLTSimSocket>) {
      answer_ = port_->read().value_or("");
    } else {
      answer_ = port_->read(1).value_or("");
    }
    if (!answer_.empty() && !answer_.ends_with(this->replyEnd())) answer_ += this->replyEnd();
    return static_cast<std::ptrdiff_t>(size);
  }
  bool hasEnded() const override { return false; }
  QLTTrafficLine* traffic() override { return nullptr; }  // the transport tells by itself

 private:
  std::shared_ptr<Port> port_;
  std::string answer_;
};

}  // namespace quillon::bench
