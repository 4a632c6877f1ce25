#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <QLTBenchScpi.h>
#include <QLTBenchTcp.h>

#include "support/Endpoint.h"
#include "support/TcpPeer.h"

namespace test {

/// The pieces of the answer to each query.
using Answers = std::map<std::string, std::vector<std::string>>;

/// An instrument that says what it is told to, and the driver that talks to it over TCP.
class ScpiPeer {
 public:
  using Answer = std::function<std::vector<std::string>()>;

  /// Without an answer the instrument is silent.
  explicit ScpiPeer(Answers answers = {}, QLTBenchScpiSettings settings = patient(),
                    char lineEnd = '\n')
      : line_(std::make_shared<QLTBenchTcp>(
            QLTHostAndPort{"127.0.0.1", static_cast<std::uint16_t>(peer_.port())})) {
    answers.try_emplace("*IDN?", std::vector<std::string>{"ACME, M1,4711 ,1.2,beta\n"});
    answers.try_emplace("SYST:ERR?", std::vector<std::string>{"+0,\"No error\"\n"});
    for (auto& [query, pieces] : answers) {
      answers_[query] = [pieces = std::move(pieces)] { return pieces; };
    }
    line_->open();
    connection_ = std::make_unique<Endpoint>(peer_.accept());
    device_ = std::make_unique<Device>(
        *connection_, [this](const std::string& line) { return answerTo(line); }, lineEnd);
    scpi_ = QLTBenchScpi::open(line_, std::move(settings));
  }

  static QLTBenchScpiSettings patient() { return withTimeOut(20); }
  static QLTBenchScpiSettings impatient() { return withTimeOut(0.05); }
  static QLTBenchScpiSettings withTimeOut(double seconds) {
    QLTBenchScpiSettings settings;
    settings.timeOutInSeconds = seconds;
    return settings;
  }

  /// Another answer to a query from now on.
  void answer(const std::string& query, Answer answer) {
    const std::lock_guard lock(mutex_);
    answers_[query] = std::move(answer);
  }
  void answer(const std::string& query, const std::string& text) {
    answer(query, [text] { return std::vector<std::string>{text}; });
  }
  /// What came, in order.
  std::vector<std::string> heard() const {
    const std::lock_guard lock(mutex_);
    return heard_;
  }
  QLTBenchScpi* operator->() const { return scpi_.get(); }
  const std::shared_ptr<QLTBenchScpi>& scpi() const { return scpi_; }
  void hangUp() {
    device_.reset();
    connection_->close();
  }
  /// Takes the connection of a driver that comes again.
  void acceptAgain() {
    connection_ = std::make_unique<Endpoint>(peer_.accept());
    device_ = std::make_unique<Device>(*connection_,
                                       [this](const std::string& line) { return answerTo(line); });
  }

 private:
  std::vector<std::string> answerTo(const std::string& line) {
    Answer answer;
    {
      const std::lock_guard lock(mutex_);
      heard_.push_back(line);
      const auto found = answers_.find(line);
      if (found == answers_.end()) return {};
      answer = found->second;
    }
    return answer();
  }

  TcpPeer peer_;
  std::shared_ptr<QLTBenchTcp> line_;
  mutable std::mutex mutex_;
  std::map<std::string, Answer> answers_;
  std::vector<std::string> heard_;
  std::unique_ptr<Endpoint> connection_;
  std::unique_ptr<Device> device_;
  std::shared_ptr<QLTBenchScpi> scpi_;
};

}  // namespace test
