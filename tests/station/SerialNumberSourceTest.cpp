#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include "CapturedScreen.h"
#include "common/Files.h"
#include "station/CannotRun.h"
#include "station/SerialNumberSource.h"

namespace {

using station::SerialNumberSource;
using testing::Optional;

/// Standard input is a file or device as long as it lives.
class Input {
 public:
  explicit Input(const std::string& path) : earlier_(dup(STDIN_FILENO)) {
    dup2(quillon::internal::openFile(path, O_RDONLY | O_NOCTTY).get(), STDIN_FILENO);
  }
  ~Input() { dup2(earlier_.get(), STDIN_FILENO); }
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

 private:
  quillon::internal::Descriptor earlier_;
};

std::string refusalOf(const station::SerialNumbers& given, const std::vector<std::string>& sites) {
  test::CapturedScreen captured;
  try {
    SerialNumberSource(given, sites, captured.screen());
  } catch (const station::CannotRun& reason) {
    return std::string(reason.what()) + "\n" + reason.advice();
  }
  return "accepted";
}

}  // namespace

TEST(SerialNumberSource, givesWhatTheCommandLineGaveForEachDevice) {
  test::CapturedScreen captured;
  SerialNumberSource source({{"left", "A"}, {"right", "B"}}, {"right", "left"}, captured.screen());
  for (int round = 1; round <= 2; ++round) {
    EXPECT_EQ(source.next("right").value().serialNumber, "B");
    EXPECT_EQ(source.next("left").value().serialNumber, "A");
    source.release("left");
    source.release("right");
  }
  EXPECT_EQ(captured.errors(), "");
}

TEST(SerialNumberSource, refusesTheSameNumberForTwoSites) {
  EXPECT_EQ(
      refusalOf({{"left", "A"}, {"middle", "B"}, {"right", "A"}}, {"right", "middle", "left"}),
      "--sn gives the sites right and left the same serial number A\n"
      "A device is at one site only. Look at both, and give each its own number.");
}

TEST(SerialNumberSource, refusesANumberForAnotherSite) {
  EXPECT_EQ(refusalOf({{"left", "A"}, {"middle", "B"}}, {"left"}),
            "--sn names the site \"middle\", which is not one of those to test at\n"
            "The sites are: left");
}

TEST(SerialNumberSource, refusesAMissingNumberWhereNobodyCanBeAsked) {
  const Input none("/dev/null");
  EXPECT_EQ(refusalOf({{"left", "A"}}, {"left", "right", "back"}),
            "no serial number for: right, back\n"
            "Give it with --sn right=SERIAL, or start quillon on a terminal, where it asks.");
}
