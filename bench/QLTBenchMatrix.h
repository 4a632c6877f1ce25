#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <QLTBenchInstrument.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTMakesSafe.h>

/// A switch matrix or multiplexer that speaks SCPI. A relay has the number that the instrument
/// gives it, "(@101)". Whoever switches relays learns whether they are so: the instrument is asked.
///
/// The safe state opens all of them; the end of the object leaves them as they are.
///
/// One thread uses a matrix at a time.
class QLT_EXPORT QLTBenchMatrix : public QLTBenchInstrument, public QLTMakesSafe {
 public:
  /// A matrix to talk to through `scpi`, that may be lost. Null for none, or without such a
  /// dialect.
  static std::shared_ptr<QLTBenchMatrix> on(std::shared_ptr<QLTBenchScpi> scpi,
                                            QLTBenchDialect dialect = {},
                                            QLTError* error = nullptr);

  /// Whether relays that were switched are asked; true at first. For instruments that cannot tell.
  bool verifies() const { return verifies_; }
  void setVerifies(bool verifies) { verifies_ = verifies; }

  /// All relays that a fixture uses: those that are asked when all were opened. Without them only
  /// those are asked that were closed here.
  void setRelays(std::vector<std::int32_t> relays) { relays_ = std::move(relays); }

  // Of an empty list nothing is done. -33003, with their numbers, when relays are not as they were
  // told.

  bool close(const std::vector<std::int32_t>& relays, QLTError* error = nullptr);
  bool open(const std::vector<std::int32_t>& relays, QLTError* error = nullptr);
  /// Opens all others first, so that no two connections meet on the way.
  bool closeOnly(const std::vector<std::int32_t>& relays, QLTError* error = nullptr);
  /// Opens all; see `setRelays`.
  bool openAll(QLTError* error = nullptr);
  /// Whether they are closed, one by one.
  std::optional<std::vector<bool>> areClosed(const std::vector<std::int32_t>& relays,
                                             QLTError* error = nullptr);

  void tellSafe() override;
  /// `tellSafe`, then `openAll`.
  bool makeSafe(QLTError* error = nullptr) override;

 private:
  using QLTBenchInstrument::QLTBenchInstrument;

  bool change(const std::vector<std::int32_t>& relays, bool closed, QLTError* error);
  bool verify(const std::vector<std::int32_t>& relays, bool closed, QLTError* error);

  bool verifies_ = true;
  std::vector<std::int32_t> relays_;
  std::vector<std::int32_t> touched_;  // closed here, and not opened since
};
