#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include <QLTValue.h>

#include "CannotRun.h"
#include "Commands.h"
#include "Screen.h"
#include "Signals.h"
#include "StationRun.h"
#include "TerminalFace.h"
#include "Text.h"
#include "host/TrafficFiles.h"
#include "report/RunChoice.h"
#include "report/StoreArguments.h"
#include "report/StoreWork.h"
#include "reports/Request.h"
#include "results/Archive.h"
#include "traffic/Recording.h"

namespace station {
namespace {

constexpr int kSame = 0;
constexpr int kDifferent = 1;

struct ReplayArguments : StoreArguments {
  std::string run;
  std::filesystem::path traffic;  // empty: beside the store
  std::filesystem::path bundle;   // empty: that of the recording
  std::filesystem::path answers;
  bool anyway = false;
  bool details = false;
  bool verbose = false;
};

/// What a replay writes, which is no result of production: gone at the end, unless it is kept.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "quillon-replay-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw CannotRun("cannot make the folder " + name + ": " + std::strerror(errno));
    }
    path_ = name;
  }
  ~ScratchFolder() {
    std::error_code unknown;
    if (!isKept_) std::filesystem::remove_all(path_, unknown);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  void keep() { isKept_ = true; }

 private:
  std::filesystem::path path_;
  bool isKept_ = false;
};

std::string valueText(const results::Measurement& measurement) {
  std::string text = measurement.value ? QLTValue(*measurement.value).text()
                                       : "\"" + printable(measurement.text.value_or("")) + "\"";
  return text + ", " + results::text(measurement.verdict);
}

std::string nameOf(const results::RunContent& content, const results::Measurement& measurement) {
  for (const results::Spec& spec : content.specs) {
    if (spec.id == measurement.specId) return spec.number + " " + spec.test + " / " + spec.subTest;
  }
  return "record " + std::to_string(measurement.sequence);
}

bool areSame(const results::Measurement& a, const results::Measurement& b) {
  return a.specId == b.specId && a.value == b.value && a.text == b.text && a.verdict == b.verdict &&
         a.attempt == b.attempt && a.superseded == b.superseded;
}

/// Where the results differ first, in words; absent when they are the same.
std::optional<std::string> differenceOf(const results::RunContent& was,
                                        const results::RunContent& is) {
  const std::size_t count = std::min(was.measurements.size(), is.measurements.size());
  for (std::size_t i = 0; i < count; ++i) {
    const auto& before = was.measurements[i];
    const auto& now = is.measurements[i];
    if (areSame(before, now)) continue;
    return "value " + printable(nameOf(was, before)) + ": was " + valueText(before) + "; is " +
           (before.specId == now.specId ? "" : printable(nameOf(is, now)) + ": ") + valueText(now);
  }
  if (was.measurements.size() != is.measurements.size()) {
    return "there were " + std::to_string(was.measurements.size()) + " values, and are " +
           std::to_string(is.measurements.size());
  }
  if (was.run.verdict == is.run.verdict) return std::nullopt;
  return std::string("the verdict was ") + results::text(was.run.verdict) + ", and is " +
         results::text(is.run.verdict);
}

results::RunContent storedRun(const ReplayArguments& arguments) {
  results::Archive archive(arguments.store());
  const auto record = archive.run(idOfRun(arguments.run, archive));
  if (!record) throw reports::NoReport("the run is gone");
  return record->content;
}

std::filesystem::path recordingOf(const ReplayArguments& arguments, const std::string& run) {
  if (!arguments.traffic.empty()) return std::filesystem::absolute(arguments.traffic);
  const auto file = trafficFile(std::filesystem::path(arguments.store()).parent_path(), run);
  std::error_code unknown;
  if (std::filesystem::exists(file, unknown)) return std::filesystem::absolute(file);
  throw CannotRun(
      "there is no recording of the run " + run + ": " + printable(file.string()) + " is missing",
      "Traffic is kept of devices that did not pass, and of all with 'quillon run "
      "--record-traffic'.\nName another file with --traffic FILE.");
}

RunOptions optionsFor(const ReplayArguments& arguments, const results::RunContent& run,
                      const std::filesystem::path& scratch) {
  RunOptions options;
  options.replay = Replay{recordingOf(arguments, run.run.id), arguments.anyway};
  RecordingHead head;
  try {
    head = Recording::headOf(options.replay->file);
  } catch (const BrokenRecording& problem) {
    throw CannotRun(printable(problem.what()));
  }
  if (head.run != run.run.id && !arguments.anyway) {
    throw CannotRun("the recording is of the run " + printable(head.run) + ", not of " + run.run.id,
                    "Name that run, or replay it with --anyway all the same.");
  }
  options.bundle =
      arguments.bundle.empty() ? std::filesystem::path(head.bundlePath) : arguments.bundle;
  options.flow = run.plan.flow;
  options.sites = {run.run.site};
  options.serialNumbers = {{run.run.site, run.run.serial}};
  options.answers = arguments.answers;
  options.logFolder = scratch.string();
  options.purpose.kind = results::RunKind::Debug;
  options.purpose.reason = "replay of " + run.run.id;
  options.allowUnknownKeys = true;
  options.calibrationOverride = "replay:no instrument is used";
  options.keepTraffic = KeepTraffic::None;
  options.verbose = arguments.verbose;
  options.details = arguments.details;
  options.quiet = !arguments.details;
  return options;
}

int replay(const ReplayArguments& arguments) {
  const results::RunContent was = storedRun(arguments);
  ScratchFolder scratch;
  const RunOptions options = optionsFor(arguments, was, scratch.path());
  Signals::takeForGood();
  Screen screen(STDOUT_FILENO, STDERR_FILENO);
  const FaceMaker makeFace = [&options](const FaceContext& context) {
    return std::make_unique<TerminalFace>(options, context);
  };
  StationRun run(options, makeFace, screen);
  std::optional<std::string> different;
  try {
    run.run();
    results::Archive archive(scratch.path() / kStoreName);
    const auto ids = archive.runsBeginning("", 1);
    const auto is = ids.empty() ? std::nullopt : archive.run(ids.front());
    different = is ? differenceOf(was, is->content) : "no device was tested";
  } catch (const CannotRun& reason) {
    // One that comes of the traffic is told with it.
    if (!run.difference()) throw;
    different = reason.what();
  }
  if (!run.difference() && !different) {
    screen.line("The replay of run " + was.run.id + " is the same: traffic, " +
                std::to_string(was.measurements.size()) + " values, verdict " +
                results::text(was.run.verdict) + ".");
    return kSame;
  }
  scratch.keep();
  std::string text = "The replay of run " + was.run.id + " is DIFFERENT.\n";
  if (run.difference()) text += "Traffic: " + printable(*run.difference()) + "\n";
  if (different) text += "Results: " + printable(*different) + "\n";
  screen.line(text + "Its diagnostics are in " + scratch.path().string());
  return kDifferent;
}

}  // namespace

void addReplayCommand(CLI::App& app, Command& chosen) {
  const auto arguments = std::make_shared<ReplayArguments>();
  CLI::App* const command = app.add_subcommand(
      "replay", "Run a device's test again, against the recording of what its instruments said");
  command
      ->add_option("RUN", arguments->run,
                   "Its id, the beginning of its id, or a serial number for its last run")
      ->required();
  arguments->describeStoreTo(*command);
  command
      ->add_option("--traffic", arguments->traffic,
                   "The recording (default: that of the run, beside the store)")
      ->type_name("FILE");
  command
      ->add_option("--bundle", arguments->bundle,
                   "The test plug-in (default: where it was when the recording was made)")
      ->type_name("BUNDLE");
  command
      ->add_option("--answers", arguments->answers,
                   "Answer the questions of tests from this file instead of the terminal")
      ->type_name("FILE");
  command->add_flag("--anyway", arguments->anyway,
                    "Replay with another plug-in or configuration than the recording was made "
                    "with");
  command->add_flag("--details", arguments->details,
                    "Show the tests and all values, with limits and margins");
  command->add_flag("--verbose", arguments->verbose,
                    "Show the diagnostics on standard error as well");
  command->footer(
      "No instrument is used and nothing is stored. Exit status: 0 traffic, values and verdict "
      "are\n"
      "as they were; 1 they differ, and the first difference is named; 2 it could not run.");
  command->callback([arguments, &chosen] {
    chosen = [arguments] { return withStore([&] { return replay(*arguments); }); };
  });
}

}  // namespace station
