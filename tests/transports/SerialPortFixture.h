#pragma once

#include <QLTSerial.h>

#include <chrono>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>

#include <sys/ioctl.h>
#include <termios.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ConsoleLog.h"
#include "support/Errors.h"
#include "support/Pty.h"
#include "support/SerialLine.h"

namespace test {

/// A port on a pty of its own, which neither paces its writes nor waits for its reads.
class SerialPortFixture : public ::testing::Test {
 protected:
  SerialPortFixture() {
    port_.setInterCharDelayInMicroSeconds(0);
    port_.setTimeOutInSeconds(0);
  }

  void open() {
    ASSERT_TRUE(port_.open());
    log_.clear();
  }
  termios attributes(Pty& pty) const {
    termios attributes{};
    EXPECT_EQ(tcgetattr(pty.master().descriptor(), &attributes), 0);
    return attributes;
  }
  /// Makes a difference that raw mode would undo.
  void mark(Pty& pty, cc_t interruptCharacter) const {
    termios marked = attributes(pty);
    marked.c_lflag |= ICANON | ECHO;
    marked.c_cc[VINTR] = interruptCharacter;
    ASSERT_EQ(tcsetattr(pty.master().descriptor(), TCSANOW, &marked), 0);
  }
  /// Waits until that many bytes are there for the port to read.
  void awaitPending(std::size_t count) const {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    int pending = 0;
    while (ioctl(port_.fd(), FIONREAD, &pending) == 0 && pending < static_cast<int>(count) &&
           std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_EQ(pending, static_cast<int>(count));
  }
  void arrive(std::string_view bytes) {
    ASSERT_TRUE(pty_.master().send(bytes));
    awaitPending(bytes.size());
  }

  /// A failure of a system call on the port: `errnoValue` in the caller's slot, with its text.
  void expectSystemError(const QLTError& error, int errnoValue) const {
    expectSystemError(error, errnoValue, port_.bsdPath());
  }
  static void expectSystemError(const QLTError& error, int errnoValue, const std::string& path) {
    EXPECT_EQ(error.domain(), "QLTSerial Error Domain");
    EXPECT_EQ(error.code(), errnoValue);
    EXPECT_EQ(error.userInfo(),
              (QLTDictionary{{"description", std::strerror(errnoValue)}, {"path", path}}));
    EXPECT_FALSE(error.underlyingError());
  }
  static void expectReadError(const QLTError& error, const std::string& description) {
    EXPECT_EQ(error.domain(), "Quillon Framework Error Domain");
    EXPECT_EQ(error.code(), -10001);
    EXPECT_EQ(error.userInfo(), (QLTDictionary{{"description", description}}));
  }

  ConsoleLog log_;
  Pty pty_;
  OpenPort port_{pty_.path()};
  QLTError error_ = earlierError();
};
}  // namespace test
