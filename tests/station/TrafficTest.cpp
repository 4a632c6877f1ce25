// What the station keeps of traffic, and how it plays it back, by the lines of simulated devices.

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QLTTraffic.h>

#include "ThreadName.h"
#include "support/TemporaryFolder.h"
#include "traffic/Recording.h"
#include "worker/TrafficPlayer.h"
#include "worker/TrafficRecorder.h"

namespace {

using station::BrokenRecording;
using station::Recording;
using station::RecordingHead;
using station::TestDevice;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Kind = QLTTrafficAnswer::Kind;
using Strings = std::vector<std::string>;

std::string everyByte() {
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  return bytes;
}

/// A transport as short as it can be.
class Line {
 public:
  explicit Line(const std::string& where = "10.0.0.5:5025") { open(where); }
  int open(const std::string& where = "10.0.0.5:5025") {
    if (auto* const standIn = line_.begin(where)) return standIn->open();
    line_.opened();
    return 0;
  }
  QLTTrafficLine& tell() { return line_; }
  QLTTrafficStandIn& speaker() { return *line_.standIn(); }

 private:
  QLTTrafficLine line_;
};

class TrafficTest : public testing::Test {
 protected:
  TrafficTest() { station::threadName() = "station"; }
  ~TrafficTest() override {
    QLTSetTrafficWatcher(nullptr);
    station::threadName() = "station";
  }

  const std::string& path() const { return path_; }
  std::string content() const {
    std::ostringstream text;
    text << std::ifstream(path_).rdbuf();
    return text.str();
  }
  Strings lines() const {
    Strings lines;
    std::istringstream stream(content());
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }
  void write(const std::string& text) const { std::ofstream(path_) << text; }

  TestDevice device() const {
    return {"left", "A", 1, path_, RecordingHead{.run = "R", .serial = "A"}.line()};
  }

 private:
  test::TemporaryFolder folder_;
  const std::string path_ = (folder_.path() / "traffic" / "R.jsonl").string();
};

class RecorderTest : public TrafficTest {
 protected:
  RecorderTest() { QLTSetTrafficWatcher(&recorder_); }
  void begin() {
    recorder_.beginTesting({{"left", {"meter"}}, {"right", {"other"}}});
    station::threadName() = "left";
  }

  station::TrafficRecorder recorder_;
};

TEST_F(RecorderTest, KeepsAllBytesOfADeviceAndOfTheLoading) {
  std::optional<Line> meter;
  {
    const std::string name = "meter";
    const QLTInstrumentScope scope(name);
    meter.emplace();
  }
  meter->tell().sent("*IDN?\n");
  meter->tell().received("maker\n");
  begin();
  meter->tell().sent("between devices");
  recorder_.deviceStarts(device());
  recorder_.testStarts({.site = "left", .index = 3, .name = "Volt\"ages"});
  meter->tell().sent(everyByte());
  meter->tell().silent();
  meter->tell().failed(EIO);
  meter.reset();
  EXPECT_EQ(recorder_.deviceEnds("left"), std::nullopt);

  const Recording recording = Recording::read(path());
  EXPECT_TRUE(recording.isWhole);
  EXPECT_EQ(recording.head.run, "R");
  EXPECT_EQ(recording.head.serial, "A");
  ASSERT_EQ(recording.lines.size(), 1U);
  EXPECT_EQ(recording.lines[0].instrument, "meter");
  EXPECT_EQ(recording.lines[0].where, "10.0.0.5:5025");
  const auto& entries = recording.lines[0].entries;
  ASSERT_EQ(entries.size(), 7U);
  EXPECT_EQ(entries[0].kind, Recording::Kind::Opened);
  EXPECT_EQ(entries[1].bytes, "*IDN?\n");
  EXPECT_EQ(entries[2].bytes, "maker\n");
  EXPECT_EQ(entries[3].bytes, everyByte());
  EXPECT_EQ(entries[4].kind, Recording::Kind::Silent);
  EXPECT_EQ(entries[5].code, EIO);
  EXPECT_EQ(entries[6].kind, Recording::Kind::Closed);
  EXPECT_EQ(entries[3].place, 7U);  // after the marks of the device and of the test
  EXPECT_THAT(lines()[5], HasSubstr("\"test\":3,\"name\":\"Volt\\\"ages\"}"));
  EXPECT_THAT(content(), Not(HasSubstr("between devices")));
}

TEST_F(RecorderTest, WritesEachLineAtOnceSoThatAKilledProcessLeavesIt) {
  begin();
  recorder_.deviceStarts(device());
  Line line;
  line.tell().sent("x");
  EXPECT_THAT(lines().back(), HasSubstr("\"sent\":\"x\"}"));
  EXPECT_FALSE(Recording::read(path()).isWhole);
  recorder_.deviceEnds("left");
}

TEST_F(RecorderTest, MakesNoFileWhereNothingIsSaid) {
  begin();
  recorder_.deviceStarts(device());
  recorder_.testStarts({.site = "left", .index = 1, .name = "Looks"});
  EXPECT_EQ(recorder_.deviceEnds("left"), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(RecorderTest, GivesThreadsOfThePluginToTheSitesOfTheirInstrument) {
  begin();
  recorder_.deviceStarts(device());
  const auto said = [](const std::string& instrument, const std::string& text) {
    const QLTInstrumentScope scope(instrument);
    Line(text).tell().sent(text);
  };
  std::jthread([&] {
    said("meter", "of the site");
    said("other", "of another site");
    said("", "of nobody");
  }).join();
  EXPECT_THAT(content(), AllOf(HasSubstr("of the site"), HasSubstr("of nobody"),
                               Not(HasSubstr("of another site"))));
}

TEST_F(RecorderTest, TellsWhatCouldNotBeWrittenAndTestsOn) {
  begin();
  TestDevice full = device();
  full.traffic = "/dev/full";
  recorder_.deviceStarts(full);
  Line line;
  for (int i = 0; i < 3; ++i) line.tell().sent("x");
  const auto problem = recorder_.deviceEnds("left");
  ASSERT_TRUE(problem);
  EXPECT_THAT(*problem, HasSubstr("/dev/full: No space left on device"));
  recorder_.deviceStarts(device());  // the next device has its own
  line.tell().sent("y");
  EXPECT_EQ(recorder_.deviceEnds("left"), std::nullopt);
  EXPECT_THAT(content(), HasSubstr("\"sent\":\"y\"}"));
}

TEST_F(RecorderTest, KeepsTheBeginningAndTheEndOfAFlood) {
  begin();
  recorder_.deviceStarts(device());
  Line line;
  const std::string megabyte(1 << 20, 'x');
  for (int i = 0; i < 66; ++i) line.tell().received(megabyte);
  line.tell().sent("the last");
  EXPECT_EQ(recorder_.deviceEnds("left"), std::nullopt);
  EXPECT_LT(std::filesystem::file_size(path()), 68U << 20U);
  const Strings all = lines();
  EXPECT_THAT(all[all.size() - 3], testing::StartsWith("{\"dropped\":"));
  EXPECT_THAT(all[all.size() - 2], HasSubstr("\"sent\":\"the last\"}"));
  EXPECT_FALSE(Recording::read(path()).isWhole);
}

TEST_F(TrafficTest, FilesThatAreNoRecordingAreRefused) {
  EXPECT_THROW(Recording::read("/nowhere"), BrokenRecording);
  std::filesystem::create_directories(std::filesystem::path(path()).parent_path());
  const std::string head = RecordingHead{}.line();
  for (const std::string& text :
       {std::string(), std::string("{}\n"), std::string("{\"quillonTraffic\":2}\n"),
        head + "{\"line\":1,\"sent\":\"x\"}\nmore\n", head + "[\n{}\n",
        head + "{\"line\":1,\"instrument\":\"\",\"where\":\"\",\"sent\":\"\u0100\"}\nmore\n"}) {
    write(text);
    EXPECT_THROW(Recording::read(path()), BrokenRecording) << text;
  }
  write(head +
        "{\"line\":1,\"instrument\":\"m\",\"where\":\"w\",\"sent\":\"x\"}\n{\"line\":1,\"se");
  EXPECT_EQ(Recording::read(path()).lines.at(0).entries.size(), 1U);
}

// Playing it back.

class PlayerTest : public TrafficTest {
 protected:
  using Entry = Recording::Entry;
  using K = Recording::Kind;

  /// The recording of one line, from the second line of its file on.
  void play(std::vector<Entry> entries, bool isWhole = true, bool isSilent = false) {
    std::size_t place = 2;
    for (Entry& entry : entries) entry.place = place++;
    Recording recording;
    recording.isWhole = isWhole;
    recording.lines.push_back({"", "10.0.0.5:5025", std::move(entries)});
    player_.emplace(std::move(recording), isSilent,
                    [this](const std::string& text) { told_.push_back(text); });
    QLTSetTrafficWatcher(&*player_);
    player_->deviceStarts({});
    player_->testStarts({.site = "left", .index = 3, .name = "Voltages"});
  }
  static std::string read(Line& line) { return line.speaker().read(100, {}).bytes; }

  std::optional<station::TrafficPlayer> player_;
  Strings told_;
};

TEST_F(PlayerTest, PlaysTheSameToTheSame) {
  play({{K::Opened},
        {K::Sent, "a"},
        {K::Sent, "b\n"},
        {K::Received, "one"},
        {K::Received, "two"},
        {K::Silent},
        {K::Sent, "c"},
        {K::Failed, "", EIO},
        {K::Closed},
        {K::Failed, "", ENOENT},
        {K::Closed},
        {K::Opened}});
  {
    Line line;
    EXPECT_EQ(line.speaker().write("ab"), 0);  // joined otherwise
    EXPECT_EQ(line.speaker().write("\n"), 0);
    EXPECT_EQ(line.speaker().read(2, {}).bytes, "on");
    EXPECT_EQ(line.speaker().read(9, {}).bytes, "e");
    EXPECT_EQ(read(line), "two");
    EXPECT_EQ(line.speaker().read(9, std::chrono::hours(1)).kind, Kind::Silent);
    EXPECT_EQ(line.speaker().read(9, {}).kind, Kind::Silent);  // one more
    EXPECT_EQ(line.speaker().write("c"), 0);
    EXPECT_FALSE(line.speaker().isLost());
    EXPECT_EQ(line.speaker().read(9, {}).code, EIO);
    EXPECT_TRUE(line.speaker().isLost());
    EXPECT_EQ(line.open(), ENOENT);
    EXPECT_TRUE(line.speaker().isLost());
    EXPECT_EQ(line.open(), 0);
    EXPECT_FALSE(line.speaker().isLost());
    player_->deviceEnds("left");
  }
  EXPECT_THAT(told_, IsEmpty());
}

TEST_F(PlayerTest, NamesWhatWasSentInstead) {
  play({{K::Opened}, {K::Sent, "MEAS:VOLT?\n"}, {K::Received, "1\n"}});
  Line line;
  EXPECT_EQ(line.speaker().write("MEAS:CURR?\n"), EPROTO);
  ASSERT_EQ(told_.size(), 1U);
  EXPECT_THAT(
      told_[0],
      HasSubstr("10.0.0.5:5025, line 3 of the recording: expected to send "
                "\"MEAS:VOLT?\\n\", but sent \"MEAS:CURR?\\n\"; in test 3 Voltages, after "));
  // Only the first one is told, and nothing is answered any more.
  EXPECT_EQ(line.speaker().write("x"), EPROTO);
  EXPECT_EQ(line.speaker().read(9, {}).kind, Kind::Failed);
  player_->deviceEnds("left");
  EXPECT_EQ(told_.size(), 1U);
}

TEST_F(PlayerTest, NamesWhatElseDiffers) {
  struct Case {
    std::vector<Entry> entries;
    bool isWhole;
    void (*act)(Line&);
    const char* told;
  };
  const std::vector<Case> cases{
      {{{K::Opened}, {K::Sent, "ab"}},
       true,
       [](Line& line) { line.speaker().write("abc"); },
       ": expected nothing more, but sent \"abc\""},
      {{{K::Opened}, {K::Sent, "ab"}},
       true,
       [](Line& line) { line.speaker().write("a"); },
       ", line 3 of the recording: expected to send \"ab\", but the device was done"},
      {{{K::Opened}, {K::Received, "x"}},
       true,
       [](Line& line) { line.speaker().write("a"); },
       ", line 3 of the recording: expected to receive \"x\", but sent \"a\""},
      {{{K::Opened}, {K::Received, "x"}},
       true,
       [](Line&) {},
       ", line 3 of the recording: expected to receive \"x\", but the device was done"},
      {{{K::Opened}, {K::Sent, "x"}},
       true,
       [](Line& line) { line.open(); },
       ", line 3 of the recording: expected to send \"x\", but it was closed"},
      {{{K::Opened}, {K::Closed}, {K::Sent, "x"}},
       true,
       [](Line& line) { line.open(); },
       ", line 4 of the recording: expected to send \"x\", but it was opened"},
      {{{K::Opened}},
       true,
       [](Line& line) { line.open("/dev/ttyUSB9"); },
       "/dev/ttyUSB9: it was opened, but never in the recording"},
      {{{K::Opened}},
       false,
       [](Line& line) { line.speaker().write("a"); },
       ": the recording is cut off here, but sent \"a\""},
      {{{K::Opened}},
       false,
       [](Line& line) { line.speaker().read(1, {}); },
       ": the recording is cut off here, but more was read"},
  };
  for (const Case& each : cases) {
    told_.clear();
    play(each.entries, each.isWhole);
    {
      Line line;
      each.act(line);
      player_->deviceEnds("left");
    }
    ASSERT_EQ(told_.size(), 1U) << each.told;
    EXPECT_THAT(told_[0], HasSubstr(each.told));
  }
}

TEST_F(PlayerTest, WhatIsAskedAfterTheDeviceReachesNoInstrument) {
  play({{K::Opened}});
  Line line;
  player_->deviceEnds("left");
  EXPECT_EQ(line.speaker().write("off"), EPROTO);
  EXPECT_NE(line.open(), 0);
  EXPECT_THAT(told_, IsEmpty());
}

TEST_F(PlayerTest, AfterACrashItTakesAllAndTellsNothing) {
  play({{K::Opened}, {K::Sent, "x"}}, true, true);
  Line line("/dev/anything");
  EXPECT_EQ(line.speaker().write("OUTP OFF\n"), 0);
  EXPECT_EQ(line.speaker().read(9, {}).kind, Kind::Silent);
  EXPECT_FALSE(line.speaker().isLost());
  player_->deviceEnds("left");
  EXPECT_THAT(told_, IsEmpty());
}

TEST_F(PlayerTest, LinesToTheSamePlaceGoByTheirInstruments) {
  Recording recording;
  recording.isWhole = true;
  recording.lines.push_back({"one", "w", {{K::Opened}, {K::Received, "1"}}});
  recording.lines.push_back({"two", "w", {{K::Opened}, {K::Received, "2"}}});
  player_.emplace(std::move(recording), false,
                  [this](const std::string& text) { told_.push_back(text); });
  QLTSetTrafficWatcher(&*player_);
  const auto lineOf = [](const std::string& name) {
    const QLTInstrumentScope scope(name);
    return std::make_unique<Line>("w");
  };
  const auto two = lineOf("two");
  const auto one = lineOf("one");
  EXPECT_EQ(read(*two), "2");
  EXPECT_EQ(read(*one), "1");
  player_->deviceEnds("left");
  EXPECT_THAT(told_, IsEmpty());
}

}  // namespace
