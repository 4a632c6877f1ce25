#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QLTDigitalPort.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTMakesSafe.h>
#include <QLTObject.h>
#include <QLTReopenable.h>
#include <QLTText.h>

/// Named digital lines: relays and other outputs that are switched on and off, and inputs that are
/// on or off. What is behind the names is the tester's affair, and a test need not know:
///
///     const auto fixture = resource<QLTDigitalIO>("fixture", error);
///     if (!fixture || !fixture->switchOn("power", error)) return false;
///     const auto closed = fixture->waitUntil("lid", true, 2, error);
///
/// A line may be inverted: it is on when its channel is low.
///
/// Errors are the port's; a name that there is not has code -36000, with the names that there are.
/// The console log has a line for each output that is switched, "{Digital_Write WHERE}: power on".
/// One thread at a time.
class QLT_EXPORT QLTDigitalIO : public QLTObject, public QLTReopenable, public QLTMakesSafe {
 public:
  struct Line {
    std::string name;
    std::string channel;  ///< as the port has it
    bool isOutput = true;
    bool isInverted = false;
    friend bool operator==(const Line&, const Line&) = default;
  };

  /// Lines as the tester-config file has them, "power:0 lamp:!7": names and channels, `!` for an
  /// inverted line, blanks between them. Absent with an error, code -40003, for another text or for
  /// a name that is there twice.
  static std::optional<std::vector<Line>> linesIn(const QLTText& outputs, const QLTText& inputs,
                                                  QLTError* error = nullptr);

  /// `port` must not be null. Switches nothing.
  QLTDigitalIO(std::shared_ptr<QLTDigitalPort> port, std::vector<Line> lines);
  /// Switches all outputs off, unless that is not wanted or the port is lost.
  ~QLTDigitalIO() override;

  bool switchOn(const QLTText& name, QLTError* error = nullptr) { return set(name, true, error); }
  bool switchOff(const QLTText& name, QLTError* error = nullptr) { return set(name, false, error); }
  /// Switches an output; true when the hardware has taken it.
  bool set(const QLTText& name, bool isOn, QLTError* error = nullptr);
  /// Whether an input or an output is on, asked of the hardware.
  std::optional<bool> isOn(const QLTText& name, QLTError* error = nullptr);
  /// Waits for at most so many seconds until an input is on, or off: whether it came to that.
  /// Absent only when it cannot be told.
  std::optional<bool> waitUntil(const QLTText& name, bool isOn, double seconds,
                                QLTError* error = nullptr);
  /// Switches all outputs off, for `onSafeState` and the end of a device: each is tried, whatever
  /// becomes of the others. False when one did not switch off, with the first one's error.
  bool allOff(QLTError* error = nullptr);

  /// Tells all outputs to be off; see `QLTDigitalPort::tellOutput`.
  void tellSafe() override;
  /// `tellSafe`, then `allOff`.
  bool makeSafe(QLTError* error = nullptr) override;

  std::vector<std::string> outputs() const;  ///< the names
  std::vector<std::string> inputs() const;
  QLTDigitalPort& port() { return *port_; }

  /// Whether all outputs are switched off when this ends; they are at first.
  void setOffAtEnd(bool isOffAtEnd) { isOffAtEnd_ = isOffAtEnd; }

  bool isLost() const override { return port_->isLost(); }
  std::string where() const override { return port_->where(); }
  /// Opens the port again and switches all outputs off: nobody knows what they did meanwhile.
  bool reopen(QLTError* error = nullptr) override;

 private:
  const Line* find(const std::string& name, QLTError* error) const;
  std::vector<std::string> names(bool areOutputs) const;
  bool write(const Line& line, bool isOn, QLTError* error);

  std::shared_ptr<QLTDigitalPort> port_;
  std::vector<Line> lines_;
  bool isOffAtEnd_ = true;
};
