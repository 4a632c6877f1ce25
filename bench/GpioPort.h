#pragma once

// Internal: not installed.

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <QLTDigitalIO.h>
#include <QLTDigitalPort.h>

struct gpiod_line;

namespace quillon::bench {

/// Lines of the machine's GPIO chips. A channel is the number of a line on the chip, or a line's
/// name, which is looked for on all chips where no chip is given. The lines are taken for this
/// process, as "quillon", when the port is opened, outputs low; whoever else wants one is refused.
/// What becomes of an output behind the process's end is the chip's affair.
class GpioPort : public QLTDigitalPort {
 public:
  enum class Bias { AsItIs, None, Up, Down };

  /// `chip` is a name such as "gpiochip0", a path, a label, or "" for all.
  GpioPort(std::string chip, Bias bias, std::vector<QLTDigitalIO::Line> lines);
  ~GpioPort() override;

  std::optional<bool> readInput(const std::string& channel, QLTError* error) override;
  std::optional<bool> readOutput(const std::string& channel, QLTError* error) override;
  bool writeOutput(const std::string& channel, bool isHigh, QLTError* error) override;
  /// Woken by the line's edges where the chip can tell of them.
  std::optional<bool> waitForInput(const std::string& channel, bool isHigh, double seconds,
                                   QLTError* error) override;

  bool isLost() const override { return !isOpen_; }
  std::string where() const override;
  bool reopen(QLTError* error) override;

 private:
  struct Taken {
    gpiod_line* line = nullptr;
    bool tellsEdges = false;
  };

  gpiod_line* find(const std::string& channel) const;
  bool take(const QLTDigitalIO::Line& line, QLTError* error);
  std::optional<bool> valueOf(const std::string& channel, QLTError* error);
  const Taken* taken(const std::string& channel, QLTError* error) const;
  void giveUp();

  const std::string chip_;
  const Bias bias_;
  const std::vector<QLTDigitalIO::Line> lines_;
  std::map<std::string, Taken> taken_;
  bool isOpen_ = false;
};

}  // namespace quillon::bench
