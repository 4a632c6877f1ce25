#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <QLTBenchScpi.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTHasIdentity.h>
#include <QLTObject.h>
#include <QLTReopenable.h>

namespace quillon::bench {
class ScpiDialect;
}

/// Which commands a model has, where they are not those of the standard.
struct QLT_EXPORT QLTBenchDialect {
  std::string name;  ///< of a dialect; "" for the one that fits the answer to "*IDN?"
  std::string file;  ///< the path of a file with dialects of one's own; "" for none
};

/// What the classes of instruments that speak SCPI have in common: a `QLTBenchScpi` to talk
/// through, and a dialect of commands. Docs/instruments.md describes both, and the file of
/// dialects.
///
/// Errors beside those of `QLTBenchScpi`, in the framework's domain: -33003 when the instrument
/// says that it is not in the state that it was told to take, -33004 for a dialect that is not
/// known or has no command for what is wanted.
///
/// One thread uses an instrument at a time.
class QLT_EXPORT QLTBenchInstrument : public QLTObject,
                                      public QLTReopenable,
                                      public QLTHasIdentity {
 public:
  bool isLost() const override;
  std::string where() const override;
  /// Opens the line again, asks the instrument who it is, and chooses its dialect anew.
  bool reopen(QLTError* error = nullptr) override;

  /// For what the class has no operation for.
  const std::shared_ptr<QLTBenchScpi>& scpi() const { return scpi_; }
  /// Who the instrument is; asks nothing.
  QLTIdentity who() const override { return scpi_->who(); }
  /// The name of the dialect.
  const std::string& dialect() const;

 protected:
  using Values = std::vector<std::pair<std::string, std::string>>;

  QLTBenchInstrument(std::string kind, std::shared_ptr<QLTBenchScpi> scpi, QLTBenchDialect dialect);

  /// Chooses the dialect; for the makers of subclasses.
  bool begin(QLTError* error);
  bool offers(const std::string& operation) const;
  // The dialect's command for an operation, as `QLTBenchScpi` does it.
  bool tell(const std::string& operation, const Values& values, QLTError* error);
  /// As `QLTBenchScpi::sendUnasked`.
  bool tellUnasked(const std::string& operation, const Values& values);
  std::optional<double> number(const std::string& operation, const Values& values, QLTError* error,
                               double seconds = 0);
  std::optional<std::vector<double>> numbers(const std::string& operation, const Values& values,
                                             QLTError* error, double seconds = 0);
  std::optional<bool> boolean(const std::string& operation, const Values& values, QLTError* error);
  std::optional<std::vector<bool>> booleans(const std::string& operation, const Values& values,
                                            QLTError* error);
  /// The command alone. Absent with an error, too, for a value that is no number (-30004).
  std::optional<std::string> commandFor(const std::string& operation, const Values& values,
                                        QLTError* error) const;
  /// Makes an attempt at what must be done, and another one where the instrument has something
  /// against it: that may be of earlier, and is out of its queue then.
  static bool insist(const std::function<bool(QLTError*)>& attempt, QLTError* error);

 private:
  std::string kind_;
  std::shared_ptr<QLTBenchScpi> scpi_;
  QLTBenchDialect wanted_;
  std::shared_ptr<const quillon::bench::ScpiDialect> dialect_;
};
