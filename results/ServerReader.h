#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "results/StoreReader.h"
#include "results/central/ServerAddress.h"

namespace results {

// Internal to the library, for its sources only.

/// Reads the store of many stations from PostgreSQL, in one transaction that sees one moment and
/// can change nothing.
class ServerReader : public StoreReader {
 public:
  ServerReader(const ServerAddress& address, std::chrono::milliseconds patience);
  ~ServerReader() override;

  void attempt(const std::function<void(soci::session&)>& work) override;
  bool isServer() const override { return true; }
  std::optional<IdRange> idsOf(std::optional<std::int64_t> sinceUs,
                               std::optional<std::int64_t> untilUs) override;

 private:
  void requireVersion();

  const std::string name_;
  std::unique_ptr<soci::session> session_;
};

}  // namespace results
