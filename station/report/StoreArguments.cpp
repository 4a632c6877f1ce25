#include "StoreArguments.h"

#include <cstdint>
#include <filesystem>
#include <optional>

#include <CLI/CLI.hpp>

#include "RunOptions.h"
#include "reports/Moment.h"
#include "results/Clock.h"
#include "results/central/ServerAddress.h"

namespace station {
namespace {

using results::ServerAddress;

void describeMoment(CLI::App& command, const std::string& option,
                    std::optional<std::int64_t>& moment, const std::string& what) {
  command
      .add_option_function<std::string>(
          option,
          [&moment, option](const std::string& text) {
            moment = reports::momentOf(text, results::microsecondsNow());
            if (moment) return;
            throw CLI::ValidationError(option, text + " is no time; " + reports::kMoments);
          },
          what)
      ->type_name("TIME");
}

std::optional<results::RunKind> kindOf(const std::string& word) {
  using results::RunKind;
  for (const RunKind kind :
       {RunKind::Production, RunKind::Retest, RunKind::Golden, RunKind::Study, RunKind::Debug}) {
    if (word == results::text(kind)) return kind;
  }
  return std::nullopt;
}

}  // namespace

std::string StoreArguments::defaultStore() {
  return (std::filesystem::path(kDefaultLogFolder) / kStoreName).string();
}

bool StoreArguments::isServer() const { return ServerAddress::isMeant(store_); }

std::string StoreArguments::storeName() const {
  return isServer() ? ServerAddress(store_).name() : store_;
}

void StoreArguments::describeStoreTo(CLI::App& command, Stores stores) {
  const bool takesServers = stores == Stores::FilesAndServers;
  command
      .add_option("--store", store_,
                  takesServers ? "The results store: a file that 'quillon run' has written, or the "
                                 "server of all stations, postgresql://HOST/DATABASE"
                               : "The results store, a file that 'quillon run' has written")
      ->type_name(takesServers ? "FILE-OR-URL" : "FILE")
      ->check([takesServers](const std::string& text) -> std::string {
        if (!ServerAddress::isMeant(text)) return "";
        try {
          const ServerAddress address(text);
          return takesServers ? "" : address.name() + ": this is for files, no server";
        } catch (const results::NoAddress& reason) {
          return std::string(reason.what()) + ". " + reason.advice();
        }
      })
      ->capture_default_str();
}

void StoreArguments::describeNames(CLI::App& command, const std::string& option,
                                   std::vector<std::string>& names, const std::string& what) {
  command.add_option(option, names, what)->type_name("NAME")->allow_extra_args(false);
}

void StoreArguments::describeFilterTo(CLI::App& command) {
  describeMoment(command, "--since", filter_.sinceUs,
                 std::string("Only runs that began then or later: ") + reports::kMoments);
  describeMoment(command, "--until", filter_.untilUs, "Only runs that began before then");
  describeNames(command, "--part", filter_.parts,
                "Only devices of this part; repeatable, as all "
                "that follow");
  describeNames(command, "--process", filter_.processes, "Only runs of this step of production");
  describeNames(command, "--station", filter_.stations, "Only runs of this station");
  describeNames(command, "--site", filter_.sites, "Only runs at this site");
  describeNames(command, "--flow", filter_.flows, "Only runs of this flow");
  describeNames(command, "--plugin-version", filter_.versions,
                "Only runs of this version of a plug-in");
  describeNames(command, "--operator", filter_.operators, "Only runs of this operator");
  describeNames(command, "--serial", filter_.serials, "Only runs of this serial number");
  command
      .add_option_function<std::vector<std::string>>(
          "--kind",
          [this](const std::vector<std::string>& words) {
            for (const std::string& word : words) {
              const auto kind = kindOf(word);
              if (!kind) {
                throw CLI::ValidationError(
                    "--kind", word + " is none of production, retest, golden, study, debug");
              }
              filter_.kinds.push_back(*kind);
            }
          },
          "Only runs of this kind: production, retest, golden, study, debug")
      ->type_name("KIND")
      ->allow_extra_args(false);
}

void StoreArguments::describeSubTestsTo(CLI::App& command) {
  describeNames(command, "--test", filter_.tests, "Only this test");
  describeNames(command, "--sub-test", filter_.subTests, "Only this sub-test");
}

}  // namespace station
