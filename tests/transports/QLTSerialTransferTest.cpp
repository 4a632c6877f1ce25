#include <QLTSerial.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <sys/prctl.h>

#include "support/Errors.h"
#include "support/SignalStorm.h"
#include "support/SystemCalls.h"
#include "support/Watchdog.h"
#include "transports/SerialPortFixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::isUntouched;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::string_literals;

using QLTSerialTransferTest = test::SerialPortFixture;

std::string lineOfLength(std::size_t length) {
  std::string line(length, 'x');
  line.back() = '\n';
  return line;
}

// Writing.

TEST_F(QLTSerialTransferTest, WriteSendsTheTextAsItStands) {
  open();
  EXPECT_TRUE(port_.write("&1,0000", &error_));
  EXPECT_THAT(error_, isUntouched());
  EXPECT_EQ(pty_.master().receive(7), "&1,0000");
  EXPECT_EQ(pty_.master().receivePending(), "");
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Write " + pty_.path() + "}: &1,0000"));
}

TEST_F(QLTSerialTransferTest, WriteSendsByteByByteWithAPauseAfterEach) {
  open();
  test::SystemCalls calls;
  std::string sent;
  std::vector<steady_clock::time_point> times;
  calls.onWrite = [&](int descriptor, const void* bytes,
                      std::size_t size) -> std::optional<ssize_t> {
    if (descriptor != port_.fd()) return std::nullopt;
    EXPECT_EQ(size, 1U);
    sent += *static_cast<const char*>(bytes);
    times.push_back(steady_clock::now());
    return 1;
  };
  port_.setInterCharDelayInMicroSeconds(5000);
  EXPECT_TRUE(port_.write("abc"));
  times.push_back(steady_clock::now());
  EXPECT_EQ(sent, "abc");
  ASSERT_EQ(times.size(), 4U);
  for (std::size_t i = 1; i < times.size(); ++i)
    EXPECT_GE(times[i] - times[i - 1], milliseconds(5));
}

TEST_F(QLTSerialTransferTest, PausesAreWithoutTheSystemsSlackWhichIsGivenBack) {
  open();
  const int slack = prctl(PR_GET_TIMERSLACK);
  if (slack == 0) GTEST_SKIP() << "a real-time thread has none";
  ASSERT_GT(slack, 1);
  test::SystemCalls calls;
  std::vector<int> slackAtCalls;
  const auto note = [&](int descriptor, const void*, std::size_t) -> std::optional<ssize_t> {
    if (descriptor == port_.fd()) slackAtCalls.push_back(prctl(PR_GET_TIMERSLACK));
    return std::nullopt;
  };
  calls.onWrite = note;
  EXPECT_TRUE(port_.write("ab"));
  EXPECT_THAT(slackAtCalls, ElementsAre(1, 1));
  EXPECT_EQ(prctl(PR_GET_TIMERSLACK), slack);
  arrive("OK\n");
  calls.onRead = note;
  EXPECT_EQ(port_.readLine(5), "OK\n");
  EXPECT_THAT(slackAtCalls, ElementsAre(1, 1, 1));
  EXPECT_EQ(prctl(PR_GET_TIMERSLACK), slack);
}

TEST_F(QLTSerialTransferTest, WriteOfTextBeyondAsciiSendsAsManyBytesAsCharacters) {
  open();
  EXPECT_TRUE(port_.write("5\u00B5A\u20AC\n"));  // 5 characters, 8 bytes
  EXPECT_EQ(pty_.master().receive(5),
            "5\xC2\xB5"
            "A\xE2");
  EXPECT_EQ(pty_.master().receivePending(), "");
}

TEST_F(QLTSerialTransferTest, WriteDoesNotTakeTheTextForAFormat) {
  open();
  EXPECT_TRUE(port_.write("%s%n%@"));
  EXPECT_EQ(pty_.master().receive(6), "%s%n%@");
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Write " + pty_.path() + "}: %s%n%@"));
}

TEST_F(QLTSerialTransferTest, WriteToAClosedPortIsNotChecked) {
  EXPECT_TRUE(port_.write("x", &error_));
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSerialTransferTest, WriteToALineThatIsGoneIsNotChecked) {
  open();
  pty_.master().close();
  EXPECT_TRUE(port_.write("hello\n", &error_));
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSerialTransferTest, WriteToALineThatTakesNothingMoreDropsTheRest) {
  const test::Watchdog watchdog;
  open();
  const std::size_t capacity = test::fillOutput(port_.fd());
  const auto start = steady_clock::now();
  EXPECT_TRUE(port_.write("one\n", &error_));
  EXPECT_GE(steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Write " + pty_.path() + "}: one\n",
                                        "timeout writing to serial port " + pty_.path()));
  EXPECT_EQ(pty_.master().receive(capacity).size(), capacity);
  EXPECT_TRUE(port_.write("two\n"));
  EXPECT_EQ(pty_.master().receive(4), "two\n");
}

TEST_F(QLTSerialTransferTest, WriteWaitsForALineThatTakesItsTime) {
  const test::Watchdog watchdog;
  port_.setTimeOutInSeconds(20);
  open();
  const std::size_t capacity = test::fillOutput(port_.fd());
  std::thread device([&] {
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(pty_.master().receive(capacity).size(), capacity);
  });
  {
    const test::SignalStorm storm;
    EXPECT_TRUE(port_.write("late\n"));
  }
  device.join();
  EXPECT_EQ(pty_.master().receive(5), "late\n");
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Write " + pty_.path() + "}: late\n"));
}

TEST_F(QLTSerialTransferTest, WriteOutlastsSignals) {
  open();
  const std::string text = "a line that many signals interrupt\n";
  port_.setInterCharDelayInMicroSeconds(3000);
  const auto start = steady_clock::now();
  {
    const test::SignalStorm storm;
    EXPECT_TRUE(port_.write(text));
  }
  EXPECT_GE(steady_clock::now() - start, milliseconds(3) * text.size());
  EXPECT_EQ(pty_.master().receive(text.size()), text);
}

TEST_F(QLTSerialTransferTest, InterruptedWriteIsMadeAgain) {
  open();
  test::SystemCalls calls;
  int interruptions = 2;
  calls.onWrite = [&](int descriptor, const void*, std::size_t) -> std::optional<ssize_t> {
    if (descriptor != port_.fd() || interruptions-- <= 0) return std::nullopt;
    return test::failWith(EINTR);
  };
  EXPECT_TRUE(port_.write("ok"));
  EXPECT_EQ(pty_.master().receive(2), "ok");
}

// Reading.

TEST_F(QLTSerialTransferTest, ReadGivesWhatIsThere) {
  open();
  arrive("OK\r\n");
  EXPECT_EQ(port_.read(100, &error_), "OK\r\n");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Read " + pty_.path() + "}: OK\r\n"));
}

TEST_F(QLTSerialTransferTest, ReadOfNothingGivesTheEmptyText) {
  open();
  EXPECT_EQ(port_.read(100, &error_), "");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Read " + pty_.path() + "}: "));
}

TEST_F(QLTSerialTransferTest, ReadTakesOneByteLessThanItsSize) {
  open();
  arrive("abcdef");
  EXPECT_EQ(port_.read(4), "abc");
  EXPECT_EQ(port_.read(2), "d");
  EXPECT_EQ(port_.read(100), "ef");
}

TEST_F(QLTSerialTransferTest, ReadOfSizeOneOrLessReadsNothing) {
  open();
  arrive("abc");
  for (const std::int32_t size : {1, 0, -1, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(port_.read(size, &error_), "") << size;
  }
  EXPECT_THAT(error_, isUntouched());
  EXPECT_EQ(port_.read(100), "abc");
}

TEST_F(QLTSerialTransferTest, ReadOfSizeOneDoesNotWait) {
  const test::Watchdog watchdog;
  port_.setTimeOutInSeconds(25);
  open();
  for (int i = 0; i < 5; ++i) EXPECT_EQ(port_.read(1), "");
}

TEST_F(QLTSerialTransferTest, ReadOfTheLargestSizeTakes4999Bytes) {
  open();
  test::SystemCalls calls;
  calls.onRead = [&](int descriptor, void* bytes, std::size_t size) -> std::optional<ssize_t> {
    if (descriptor != port_.fd()) return std::nullopt;
    EXPECT_EQ(size, 4999U);
    std::memset(bytes, 'x', size);
    return static_cast<ssize_t>(size);
  };
  EXPECT_EQ(port_.read(5000), std::string(4999, 'x'));
}

TEST_F(QLTSerialTransferTest, ReadOfALargerSizeFailsWithoutReading) {
  open();
  arrive("abc");
  EXPECT_EQ(port_.read(5001, &error_), std::nullopt);
  EXPECT_EQ(error_.domain(), "QLTSerial Error Domain");
  EXPECT_EQ(error_.code(), -10001);
  EXPECT_EQ(error_.userInfo(), (QLTDictionary{{"msg", "read size greater than max read size"}}));
  EXPECT_EQ(error_.description(), std::nullopt);
  EXPECT_EQ(port_.read(5001, nullptr), std::nullopt);
  EXPECT_THAT(log_.lines(), IsEmpty());
  EXPECT_EQ(port_.read(100), "abc");
}

TEST_F(QLTSerialTransferTest, ReadDropsZeroBytesInFrontAndEndsAtTheNext) {
  open();
  arrive("\0\0OK\0rest"s);
  EXPECT_EQ(port_.read(100), "OK");
  arrive("\0\0"s);
  EXPECT_EQ(port_.read(100), "");
}

TEST_F(QLTSerialTransferTest, ReadShowsBytesBeyondAsciiAsQuestionMarks) {
  open();
  arrive(
      "5\xC2\xB5"
      "A\xFF\x7F");
  EXPECT_EQ(port_.read(100), "5??A?\x7F");
}

TEST_F(QLTSerialTransferTest, ReadOfAClosedPortReportsTheSystemsFailure) {
  EXPECT_EQ(port_.read(100, &error_), std::nullopt);
  expectSystemError(error_, EBADF);
  EXPECT_THAT(log_.lines(),
              ElementsAre("read serial port failed. From system: Bad file descriptor (9)\n",
                          "Failed read from serial port " + pty_.path()));
  EXPECT_EQ(port_.read(100, nullptr), std::nullopt);
}

TEST_F(QLTSerialTransferTest, ReadWaitsForTheTimeOutAlsoWhenSignalsInterruptIt) {
  port_.setTimeOutInSeconds(1);
  open();
  const auto start = steady_clock::now();
  {
    const test::SignalStorm storm;
    EXPECT_EQ(port_.read(100, &error_), "");
  }
  EXPECT_GE(steady_clock::now() - start, milliseconds(900));
  EXPECT_THAT(error_, isUntouched());
}

TEST_F(QLTSerialTransferTest, ReadWaitsNoLongerThanTheTimeOutWhenSignalsRestartIt) {
  const test::Watchdog watchdog;
  port_.setTimeOutInSeconds(1);
  open();
  const test::SignalStorm storm(SA_RESTART);
  EXPECT_EQ(port_.read(100, &error_), "");
  EXPECT_EQ(port_.readLine(0, &error_), std::nullopt);
  expectReadError(error_, "timeout trying to read from serial port");
}

TEST_F(QLTSerialTransferTest, ReadTakesWhatComesWhileSignalsInterruptIt) {
  port_.setTimeOutInSeconds(20);
  open();
  std::thread device([this] {
    std::this_thread::sleep_for(milliseconds(30));
    pty_.master().send("late");
  });
  {
    const test::SignalStorm storm;
    const std::optional<std::string> text = port_.read(100);
    ASSERT_TRUE(text);
    EXPECT_EQ(text->substr(0, 1), "l");
  }
  device.join();
}

// Reading lines.

TEST_F(QLTSerialTransferTest, ReadLineKeepsTheLineEnd) {
  open();
  arrive("OK\r\n");
  EXPECT_EQ(port_.readLine(5, &error_), "OK\r\n");
  EXPECT_THAT(error_, isUntouched());
  EXPECT_THAT(log_.lines(), ElementsAre("{Serial_Read " + pty_.path() + "}: OK\r\n"));
}

TEST_F(QLTSerialTransferTest, ReadLineKeepsWhatFollowsTheLineEnd) {
  open();
  arrive("a\rb");
  EXPECT_EQ(port_.readLine(5), "a\rb");
  arrive("a\nb\nc");
  EXPECT_EQ(port_.readLine(5), "a\nb\nc");
}

TEST_F(QLTSerialTransferTest, ReadLineAssemblesALineOfAnyPieces) {
  open();
  const std::string line = "123.45,OK\n";
  std::thread device([&] {
    for (const char byte : line) {
      pty_.master().send({&byte, 1});
      std::this_thread::sleep_for(milliseconds(2));
    }
  });
  EXPECT_EQ(port_.readLine(20), line);
  device.join();
}

TEST_F(QLTSerialTransferTest, ReadLineWithoutATimeReadsOnce) {
  open();
  arrive("OK\n");
  EXPECT_EQ(port_.readLine(0), "OK\n");
  arrive("-1\n");
  EXPECT_EQ(port_.readLine(-1), "-1\n");
  log_.clear();

  arrive("no end");
  EXPECT_EQ(port_.readLine(0, &error_), std::nullopt);
  expectReadError(error_, "timeout trying to read from serial port");
  EXPECT_THAT(log_.lines(),
              ElementsAre("timeout reading from serial port " + pty_.path(),
                          "error number is: timeout trying to read from serial port (-10001)\n"));
  EXPECT_EQ(port_.read(100), "");
}

TEST_F(QLTSerialTransferTest, ReadLineOfASilentLineTimesOut) {
  open();
  test::SystemCalls calls;
  int reads = 0;
  calls.onRead = [&](int descriptor, void*, std::size_t) {
    if (descriptor == port_.fd()) ++reads;
    return std::optional<ssize_t>();
  };
  const auto start = steady_clock::now();
  EXPECT_EQ(port_.readLine(1, &error_), std::nullopt);
  EXPECT_GE(steady_clock::now() - start, std::chrono::seconds(1));
  EXPECT_LE(reads, 1001);  // with a pause of 1 ms after each
  expectReadError(error_, "timeout trying to read from serial port");
}

TEST_F(QLTSerialTransferTest, ReadLineDropsZeroBytesInFrontAndEndsAtTheNext) {
  open();
  arrive("\0\0OK\0rest\n"s);
  EXPECT_EQ(port_.readLine(5), "OK");
}

TEST_F(QLTSerialTransferTest, ReadLineShowsBytesBeyondAsciiAsQuestionMarks) {
  open();
  arrive(
      "5\xC2\xB5"
      "A\n");
  EXPECT_EQ(port_.readLine(5), "5??A\n");
}

TEST_F(QLTSerialTransferTest, ReadLineOfAClosedPortFails) {
  EXPECT_EQ(port_.readLine(5, &error_), std::nullopt);
  expectReadError(error_, "error reading from serial port, read returns a negative byte count");
  EXPECT_THAT(log_.lines(),
              ElementsAre("error reading from serial port " + pty_.path() +
                              ", read returns a negative byte count",
                          "error number is: error reading from serial port, read returns a "
                          "negative byte count (-10001)\n"));
  EXPECT_EQ(port_.readLine(5, nullptr), std::nullopt);
}

TEST_F(QLTSerialTransferTest, ReadLineOfALineThatIsGoneTimesOut) {
  open();
  pty_.master().close();
  EXPECT_EQ(port_.readLine(0, &error_), std::nullopt);
  expectReadError(error_, "timeout trying to read from serial port");
  EXPECT_EQ(port_.readLine(0, nullptr), std::nullopt);
}

TEST_F(QLTSerialTransferTest, ReadLineTakes4999Bytes) {
  open();
  const std::string line = lineOfLength(4999);
  std::thread device([&] { pty_.master().send(line); });
  EXPECT_EQ(port_.readLine(20), line);
  device.join();
}

TEST_F(QLTSerialTransferTest, ReadLineOf5000BytesFails) {
  open();
  std::thread device([&] { pty_.master().send(lineOfLength(5000)); });
  EXPECT_EQ(port_.readLine(20, &error_), std::nullopt);
  device.join();
  const std::string message =
      "error reading from serial port " + pty_.path() + ", read too many bytes 5000";
  expectReadError(error_, message);
  EXPECT_THAT(log_.lines(), ElementsAre(message, "error number is: " + message + " (-10001)\n"));
}

TEST_F(QLTSerialTransferTest, ReadLineHasRoomForAWholeChunkPastTheLimit) {
  open();
  test::SystemCalls calls;
  std::vector<ssize_t> counts{1000, 1000, 1000, 1000, 999, 1000};
  auto next = counts.begin();
  calls.onRead = [&](int descriptor, void* bytes, std::size_t size) -> std::optional<ssize_t> {
    if (descriptor != port_.fd()) return std::nullopt;
    EXPECT_EQ(size, 1000U);
    if (next == counts.end()) return test::failWith(EIO);
    std::memset(bytes, 'x', size);
    return *next++;
  };
  EXPECT_EQ(port_.readLine(20, &error_), std::nullopt);
  expectReadError(error_,
                  "error reading from serial port " + pty_.path() + ", read too many bytes 5999");
  next = counts.begin();
  EXPECT_EQ(port_.readLine(20, nullptr), std::nullopt);
}

TEST_F(QLTSerialTransferTest, ReadLineOutlastsSignals) {
  port_.setTimeOutInSeconds(2);
  open();
  std::thread device([this] {
    for (const std::string_view piece : {"12", "3.4", "5\n"}) {
      std::this_thread::sleep_for(milliseconds(10));
      pty_.master().send(piece);
    }
  });
  {
    const test::SignalStorm storm;
    EXPECT_EQ(port_.readLine(20, &error_), "123.45\n");
  }
  device.join();
  EXPECT_THAT(error_, isUntouched());
}

}  // namespace
