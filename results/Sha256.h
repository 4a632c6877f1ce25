#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace results {

/// The SHA-256 of bytes that come in pieces. For one thread at a time.
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;

  void add(std::string_view bytes);
  /// The sum of all that was added, as 64 hexadecimal digits. Ends the sum.
  std::string hex();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

/// The SHA-256 of `bytes`, as 64 hexadecimal digits.
std::string sha256(std::string_view bytes);

}  // namespace results
