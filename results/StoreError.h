#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace results {

/// What keeps a results store from being opened, read or written. `what()` is for a person: the
/// file, then the reason, "logs/results.db: the disk is full".
class StoreError : public std::runtime_error {
 public:
  StoreError(std::string file, std::string reason)
      : std::runtime_error(file + ": " + reason),
        texts_(std::make_shared<Texts>(Texts{std::move(file), std::move(reason)})) {}

  const std::string& file() const { return texts_->file; }
  const std::string& reason() const { return texts_->reason; }

 private:
  struct Texts {
    std::string file;
    std::string reason;
  };
  std::shared_ptr<const Texts> texts_;  // so that copying one throws nothing
};

}  // namespace results
