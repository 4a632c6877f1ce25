#include "CanSimulation.h"

#include <deque>

#include <QLTSimSocket.h>

#include "common/Text.h"

namespace quillon::bench {
namespace {

class Simulation : public QLTTrafficStandIn {
 public:
  explicit Simulation(const std::string& where) : socket_(QLTSimSocket::init(where, 0)) {}

  int open() override { return 0; }
  int write(std::string_view bytes) override {
    socket_->write(std::string(bytes));
    const std::string answer = socket_->read().value_or("");
    if (answer.starts_with("no reponse set up for ")) return 0;
    for (std::string& frame : internal::split(answer, " ")) {
      if (!frame.empty()) frames_.push_back(std::move(frame));
    }
    return 0;
  }
  QLTTrafficAnswer read(std::size_t, std::chrono::nanoseconds) override {
    if (frames_.empty()) return {QLTTrafficAnswer::Kind::Silent};
    QLTTrafficAnswer answer{QLTTrafficAnswer::Kind::Bytes, std::move(frames_.front())};
    frames_.pop_front();
    return answer;
  }
  bool isLost() const override { return false; }
  void close() override { frames_.clear(); }

 private:
  std::shared_ptr<QLTSimSocket> socket_;
  std::deque<std::string> frames_;
};

}  // namespace

std::unique_ptr<QLTTrafficStandIn> canSimulation(const std::string& where) {
  return std::make_unique<Simulation>(where);
}

}  // namespace quillon::bench
