#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "results/Samples.h"
#include "results/central/CentralSchema.h"
#include "results/central/Forwarder.h"
#include "results/central/Server.h"
#include "support/PostgresServer.h"

namespace test {

/// A server for many stations: prepared, with the user "station" who may add, and "reader".
class CentralServer : public PostgresServer {
 public:
  explicit CentralServer(const Options& options = {}) : PostgresServer(options) {
    results::Server connection{results::ServerAddress(url())};
    results::prepare(connection);
    ask("CREATE ROLE station LOGIN IN ROLE quillon_station; "
        "CREATE ROLE reader LOGIN IN ROLE quillon_reader");
  }
};

/// A station's store in a folder of its own, and what a forwarder needs to send it.
class FleetStation {
 public:
  explicit FleetStation(int number = 1) {
    folder.options.stationName = "line " + std::to_string(number);
    folder.options.patience = std::chrono::seconds(10);
  }

  results::ForwardOptions forwarding(const std::string& url) const {
    results::ForwardOptions options{folder.options.file, results::ServerAddress(url), "0.1.0"};
    options.look = std::chrono::milliseconds(20);
    options.firstPause = std::chrono::milliseconds(20);
    options.longestPause = std::chrono::milliseconds(200);
    return options;
  }

  StoreFolder folder;
};

/// Tests a device: a run with a step, so many measurements, an instrument and an attribute. Gives
/// its id.
inline std::string testDevice(results::Store& store, const std::string& serial, int records = 3,
                              const std::function<void(results::Run&)>& change = {}) {
  results::Run run = sampleRun(serial);
  if (change) change(run);
  const std::string id = store.beginRun(run, samplePlan()).id;
  store.putStep(sampleStep(id));
  for (int i = 1; i <= records; ++i) {
    store.addMeasurement(sampleMeasurement(id, i, i / 7.0), sampleSpec("1." + std::to_string(i)));
  }
  store.addAttribute({id, 0, "batch", "tab\there, \\ and\nline"});
  results::Instrument meter;
  meter.model = "meter";
  store.addInstrument({id, "meter", "", {}, {}, results::Calibration::Valid}, meter);
  store.finishRun(id, {results::Verdict::Pass, {}, {}, 0});
  return id;
}

/// Every row that stations and server share: those of the runs, as the server has them.
inline std::string tablesOf(const PostgresServer& server) {
  std::string all;
  for (const std::string table : {"run", "step", "measurement", "attribute", "run_instrument"}) {
    all += server.ask("SELECT * FROM " + table + " ORDER BY 1, 2, 3");
  }
  return all;
}

}  // namespace test
