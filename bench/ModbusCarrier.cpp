#include "ModbusCarrier.h"

#include <cerrno>
#include <memory>
#include <utility>

#include <QLTBenchTcp.h>
#include <QLTSimSocket.h>

#include "common/Format.h"

namespace quillon::bench {
namespace {

/// A line of this library that stays a closed one to others: only its descriptor is used.
template <typename Line>
struct OpenLine : Line {
  using Line::Line;
  ~OpenLine() override { Line::closeLine(); }
  using Line::closeLine;
  using Line::descriptor;
  using Line::openLine;
  using Line::traffic;
};

class TcpCarrier : public ModbusCarrier {
 public:
  explicit TcpCarrier(const QLTHostAndPort& peer) : line_(peer) {}

  bool open(std::string& reason) override {
    close();
    if (auto* const standIn = traffic_.begin(where())) {
      errno = standIn->open();
      return errno == 0;
    }
    if (!line_.openLine(reason)) {
      const int problem = errno;
      traffic_.failed(problem);
      errno = problem;
      return false;
    }
    traffic_.opened();
    return true;
  }
  void close() override {
    line_.closeLine();
    traffic_.closed();
  }
  int descriptor() const override { return line_.descriptor(); }
  std::string where() const override { return line_.where(); }
  bool isSerial() const override { return false; }
  std::string settings() const override { return ""; }
  QLTTrafficLine* traffic() override { return &traffic_; }

 private:
  OpenLine<QLTBenchTcp> line_;
  QLTTrafficLine traffic_;
};

class SerialCarrier : public ModbusCarrier {
 public:
  SerialCarrier(const std::string& port, const QLTBenchSerial::Settings& settings)
      : line_(port), where_(port) {
    line_.setSettings(settings);
  }

  bool open(std::string& reason) override {
    line_.closeLine();
    return line_.openLine(reason);  // the port tells of it
  }
  void close() override { line_.closeLine(); }
  int descriptor() const override { return line_.descriptor(); }
  std::string where() const override { return where_; }
  bool isSerial() const override { return true; }
  std::string settings() const override {
    const QLTBenchSerial::Settings& settings = line_.settings();
    constexpr const char* parities = "NOEMS";
    return internal::format("%d baud, %d%@%d", settings.baudRate, settings.dataBits,
                            std::string(1, parities[static_cast<int>(settings.parity)]),
                            settings.stopBits);
  }
  QLTTrafficLine* traffic() override { return line_.traffic(); }

 private:
  OpenLine<QLTBenchSerial> line_;
  std::string where_;  // as it was named, also when its device file was found
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
  QLTTrafficLine* traffic() override { return nullptr; }  // the simulated socket tells
  QLTTrafficStandIn* standIn() override { return &simulation_; }

 private:
  std::string where_;
  Simulation simulation_;
};

}  // namespace

std::unique_ptr<ModbusCarrier> modbusSimulation(const std::string& where) {
  return std::make_unique<SimulatedCarrier>(where);
}

std::unique_ptr<ModbusCarrier> modbusTcp(const QLTHostAndPort& peer) {
  return std::make_unique<TcpCarrier>(peer);
}

std::unique_ptr<ModbusCarrier> modbusSerial(const std::string& port,
                                            const QLTBenchSerial::Settings& settings) {
  return std::make_unique<SerialCarrier>(port, settings);
}

}  // namespace quillon::bench
