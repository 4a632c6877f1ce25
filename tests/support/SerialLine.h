#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include <QLTDavDPSerial.h>
#include <QLTSerial.h>

#include "support/Pty.h"
#include "support/TemporaryFolder.h"

namespace test {

/// A port that shows what only subclasses see.
class OpenPort : public QLTSerial {
 public:
  using QLTSerial::fd;
  using QLTSerial::options;
  using QLTSerial::QLTSerial;
};

/// A unit that is neither woken nor asked for its revisions when it is made.
class QuickSerialUnit : public QLTDavDPSerial {
 public:
  explicit QuickSerialUnit(std::shared_ptr<QLTSerial> port) : QLTDavDPSerial(std::move(port)) {}
};

/// A device file that leads to a pty, or is missing.
class PluggedLine {
 public:
  PluggedLine() : path_(folder_.path() / "tty") { plugIn(); }

  /// Another device comes to the device file.
  void plugIn() {
    pty_ = std::make_unique<Pty>();
    std::filesystem::remove(path_);
    std::filesystem::create_symlink(pty_->path(), path_);
  }
  void unplug() {
    pty_->master().close();
    std::filesystem::remove(path_);
  }
  Endpoint& device() { return pty_->master(); }
  const std::string& path() const { return path_; }

 private:
  TemporaryFolder folder_;
  std::string path_;
  std::unique_ptr<Pty> pty_;
};

}  // namespace test
