#include "ModbusCarrier.h"

#include <memory>
#include <utility>

#include <QLTBenchTcp.h>
#include <QLTSimSocket.h>

namespace quillon::bench {
namespace {

/// The way to the descriptor of a line of this library, which stays a closed line to others.
template <typename Line>
class Carrier : public ModbusCarrier {
 public:
  template <typename... Arguments>
  explicit Carrier(bool isSerial, Arguments&&... arguments)
      : line_(std::forward<Arguments>(arguments)...), isSerial_(isSerial) {}

  bool open(std::string& reason) override {
    line_.closeLine();
    return line_.openLine(reason);
  }
  void close() override { line_.closeLine(); }
  int descriptor() const override { return line_.descriptor(); }
  std::string where() const override { return line_.where(); }
  bool isSerial() const override { return isSerial_; }
  std::string settings() const override { return settings_; }

  Line& line() { return line_; }
  void setSettings(std::string settings) { settings_ = std::move(settings); }

 private:
  struct OpenLine : Line {
    using Line::Line;
    ~OpenLine() override { Line::closeLine(); }
    using Line::closeLine;
    using Line::descriptor;
    using Line::openLine;
  };

  OpenLine line_;
  bool isSerial_;
  std::string settings_;
};

/// Answers with what the response map has for a request. A write that is not in it is confirmed.
class Simulation : public QLTTrafficStandIn {
 public:
  explicit Simulation(const std::string& where) : socket_(QLTSimSocket::init(where, 0)) {}

  int open() override { return 0; }
  int write(std::string_view bytes) override {
    isWrite_ = bytes.find(": write ") != bytes.npos;
    socket_->write(std::string(bytes));
    return 0;
  }
  QLTTrafficAnswer read(std::size_t, std::chrono::nanoseconds) override {
    std::string answer = socket_->read().value_or("");
    if (answer.starts_with("no reponse set up for ")) answer.clear();
    if (answer.empty() && isWrite_) answer = "done";
    if (answer.empty()) return {QLTTrafficAnswer::Kind::Silent};
    return {QLTTrafficAnswer::Kind::Bytes, answer};
  }
  bool isLost() const override { return false; }
  void close() override {}

 private:
  std::shared_ptr<QLTSimSocket> socket_;
  bool isWrite_ = false;
};

class SimulatedCarrier : public ModbusCarrier {
 public:
  explicit SimulatedCarrier(std::string where) : where_(std::move(where)), simulation_(where_) {}

  bool open(std::string&) override { return true; }
  void close() override {}
  int descriptor() const override { return -1; }
  std::string where() const override { return where_; }
  bool isSerial() const override { return false; }
  std::string settings() const override { return "simulated"; }
  QLTTrafficStandIn* simulation() override { return &simulation_; }

 private:
  std::string where_;
  Simulation simulation_;
};

}  // namespace

std::unique_ptr<ModbusCarrier> modbusSimulation(const std::string& where) {
  return std::make_unique<SimulatedCarrier>(where);
}

std::unique_ptr<ModbusCarrier> modbusTcp(const QLTHostAndPort& peer) {
  return std::make_unique<Carrier<QLTBenchTcp>>(false, peer);
}

}  // namespace quillon::bench
