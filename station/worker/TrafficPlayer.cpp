#include "TrafficPlayer.h"

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

#include "CannotRun.h"
#include "Text.h"
#include "TrafficRecorder.h"

namespace station {
namespace {

using Kind = Recording::Kind;

constexpr std::size_t kMostShown = 200;

std::string shown(std::string_view bytes) {
  const std::string text = printable(bytes.substr(0, kMostShown));
  return "\"" + text + (bytes.size() > kMostShown ? "\"..." : "\"");
}

std::string wordsOf(const Recording::Entry& entry) {
  switch (entry.kind) {
    case Kind::Opened:
      return "to open it";
    case Kind::Sent:
      return "to send " + shown(entry.bytes);
    case Kind::Received:
      return "to receive " + shown(entry.bytes);
    case Kind::Silent:
      return "a time-out";
    case Kind::Failed:
      return "a failure";
    case Kind::Closed:
      break;
  }
  return "to close it";
}

}  // namespace

/// One line of this process.
class TrafficPlayer::Speaker : public QLTTrafficStandIn {
 public:
  Speaker(TrafficPlayer& player, Played* played, std::string name)
      : player_(player), played_(played), name_(std::move(name)) {}

  int open() override {
    const std::lock_guard lock(player_.mutex_);
    return player_.open(played_, name_);
  }
  int write(std::string_view bytes) override {
    const std::lock_guard lock(player_.mutex_);
    return player_.write(played_, bytes);
  }
  QLTTrafficAnswer read(std::size_t size, std::chrono::nanoseconds timeOut) override {
    {
      const std::lock_guard lock(player_.mutex_);
      if (auto answer = player_.read(played_, size)) return *std::move(answer);
    }
    std::this_thread::sleep_for(timeOut);
    return {QLTTrafficAnswer::Kind::Silent};
  }
  bool isLost() const override {
    const std::lock_guard lock(player_.mutex_);
    return played_ != nullptr && played_->isLost;
  }
  void close() override {
    const std::lock_guard lock(player_.mutex_);
    player_.close(played_);
  }

 private:
  TrafficPlayer& player_;
  Played* const played_;  // null: the recording has no such line
  const std::string name_;
};

TrafficPlayer::TrafficPlayer(Recording recording, bool isSilent, Tell tell)
    : recording_(std::move(recording)), isSilent_(isSilent), tell_(std::move(tell)) {
  for (Recording::Line& line : recording_.lines) played_.push_back({&line});
}

std::unique_ptr<QLTTrafficStandIn> TrafficPlayer::standIn(const QLTTrafficLine& line) {
  const std::lock_guard lock(mutex_);
  Played*& played = byLine_[line.number()];
  const auto take = [&](bool sameInstrument) {
    const auto found = std::find_if(played_.begin(), played_.end(), [&](const Played& each) {
      return !each.isTaken && each.line->where == line.where() &&
             (!sameInstrument || each.line->instrument == line.instrument());
    });
    if (found == played_.end()) return;
    found->isTaken = true;
    played = &*found;
  };
  // One that is opened again goes on where it was.
  if (played != nullptr && played->line->where != line.where()) played = nullptr;
  if (played == nullptr) take(true);
  if (played == nullptr) take(false);
  return std::make_unique<Speaker>(*this, played, nameOf({line.instrument(), line.where(), {}}));
}

void TrafficPlayer::deviceStarts(const TestDevice&) {
  const std::lock_guard lock(mutex_);
  started_ = Clock::now();
  test_ = "before the first test";
}

void TrafficPlayer::testStarts(const TestStarted& test) {
  const std::lock_guard lock(mutex_);
  test_ = "in test " + std::to_string(test.index) + " " + printable(test.name);
}

std::optional<std::string> TrafficPlayer::deviceEnds(const std::string&) {
  const std::lock_guard lock(mutex_);
  const Played* first = nullptr;
  for (Played& played : played_) {
    const auto isSaid = [](const Recording::Entry& entry) {
      return entry.kind == Kind::Sent || entry.kind == Kind::Received;
    };
    const auto& entries = played.line->entries;
    auto entry = played.entry;
    while (entry < entries.size() && !isSaid(entries[entry])) ++entry;
    if (entry == entries.size()) continue;
    played.entry = entry;
    if (first == nullptr || entryOf(played)->place < entryOf(*first)->place) first = &played;
  }
  if (first != nullptr) differAt(*first, "the device was done");
  isOver_ = true;
  return std::nullopt;
}

/// Tells of the first difference only.
void TrafficPlayer::differ(const std::string& what) {
  if (isOver_ || isSilent_) return;
  isOver_ = true;
  const double seconds = std::chrono::duration<double>(Clock::now() - started_).count();
  tell_(what + "; " + test_ + ", after " + secondsText(seconds));
}

std::string TrafficPlayer::nameOf(const Recording::Line& line) {
  const std::string where = printable(line.where);
  return line.instrument.empty() ? where : printable(line.instrument) + " (" + where + ")";
}

/// Null at the end.
const Recording::Entry* TrafficPlayer::entryOf(const Played& played) {
  const auto& entries = played.line->entries;
  return played.entry < entries.size() ? &entries[played.entry] : nullptr;
}

void TrafficPlayer::skipSilence(Played& played) {
  while (entryOf(played) != nullptr && entryOf(played)->kind == Kind::Silent) ++played.entry;
}

void TrafficPlayer::differAt(const Played& played, const std::string& instead) {
  const Recording::Entry* const entry = entryOf(played);
  if (entry != nullptr) {
    differ(nameOf(*played.line) + ", line " + std::to_string(entry->place) +
           " of the recording: expected " + wordsOf(*entry) + ", but " + instead);
  } else {
    differ(nameOf(*played.line) +
           (recording_.isWhole ? ": expected nothing more, but "
                               : ": the recording is cut off here, but ") +
           instead);
  }
}

int TrafficPlayer::open(Played* played, const std::string& name) {
  if (isSilent_) return 0;
  if (isOver_) return EPROTO;
  if (played == nullptr) {
    differ(name + ": it was opened, but never in the recording");
    return EPROTO;
  }
  skipSilence(*played);
  const Recording::Entry* const entry = entryOf(*played);
  if (entry != nullptr && entry->kind == Kind::Opened) {
    ++played->entry;
    played->isLost = false;
    return 0;
  }
  if (entry != nullptr && entry->kind == Kind::Failed) {
    ++played->entry;
    played->isLost = true;
    return entry->code != 0 ? entry->code : ECONNRESET;
  }
  // One that was open before the recording begins.
  if (played->entry == 0 && played->offset == 0) return 0;
  differAt(*played, "it was opened");
  return EPROTO;
}

int TrafficPlayer::write(Played* played, std::string_view bytes) {
  if (isSilent_) return 0;
  if (isOver_ || played == nullptr) return EPROTO;
  std::string_view rest = bytes;
  while (!rest.empty()) {
    skipSilence(*played);
    const Recording::Entry* const entry = entryOf(*played);
    if (entry != nullptr && entry->kind == Kind::Failed) {
      ++played->entry;
      played->isLost = true;
      return entry->code != 0 ? entry->code : ECONNRESET;
    }
    const std::string_view wanted = entry != nullptr && entry->kind == Kind::Sent
                                        ? std::string_view(entry->bytes).substr(played->offset)
                                        : std::string_view();
    const std::size_t count = std::min(wanted.size(), rest.size());
    if (count == 0 || wanted.substr(0, count) != rest.substr(0, count)) {
      differAt(*played, "sent " + shown(bytes));
      return EPROTO;
    }
    rest.remove_prefix(count);
    played->offset += count;
    if (played->offset < entry->bytes.size()) continue;
    ++played->entry;
    played->offset = 0;
  }
  return 0;
}

std::optional<QLTTrafficAnswer> TrafficPlayer::read(Played* played, std::size_t size) {
  using Answer = QLTTrafficAnswer::Kind;
  if (isSilent_) return std::nullopt;
  if (isOver_ || played == nullptr) return QLTTrafficAnswer{Answer::Failed, {}, EPROTO};
  const Recording::Entry* const entry = entryOf(*played);
  if (entry == nullptr && !recording_.isWhole) {
    differAt(*played, "more was read");
    return QLTTrafficAnswer{Answer::Failed, {}, EPROTO};
  }
  if (entry == nullptr) return std::nullopt;
  if (entry->kind == Kind::Silent) {
    ++played->entry;
    return QLTTrafficAnswer{Answer::Silent};
  }
  if (entry->kind == Kind::Failed) {
    ++played->entry;
    played->isLost = true;
    return QLTTrafficAnswer{Answer::Failed, {}, entry->code};
  }
  // Where it was not read in the recording, or not before something was sent, nothing comes.
  if (entry->kind != Kind::Received || size == 0) return std::nullopt;
  QLTTrafficAnswer answer{Answer::Bytes, entry->bytes.substr(played->offset, size)};
  played->offset += answer.bytes.size();
  if (played->offset == entry->bytes.size()) {
    ++played->entry;
    played->offset = 0;
  }
  return answer;
}

void TrafficPlayer::close(Played* played) {
  if (isSilent_ || isOver_ || played == nullptr) return;
  skipSilence(*played);
  const Recording::Entry* const entry = entryOf(*played);
  if (entry != nullptr && entry->kind == Kind::Closed) {
    ++played->entry;
  } else if (entry != nullptr) {
    differAt(*played, "it was closed");
  }
}

Traffic* installTraffic(const Load& load, std::function<void(const std::string&)> tell) {
  static Traffic* installed = nullptr;  // which stays
  if (!load.replay.empty()) {
    try {
      installed = new TrafficPlayer(Recording::read(load.replay), load.again, std::move(tell));
    } catch (const BrokenRecording& problem) {
      throw CannotRun(problem.what(), "Name another one with --traffic FILE.");
    }
  } else if (load.recordsTraffic) {
    installed = new TrafficRecorder;
  }
  QLTSetTrafficWatcher(installed);
  return installed;
}

}  // namespace station
