// What the recording of traffic adds to a query: the two lines of it in the file, beside the same
// bytes appended by bare calls; and what it adds while nobody records.

#include <string>
#include <string_view>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <QLTTraffic.h>

#include "Comparison.h"
#include "ThreadName.h"
#include "support/TemporaryFolder.h"
#include "traffic/Recording.h"
#include "worker/TrafficRecorder.h"

namespace {

using bench::Comparison;
using bench::timeOf;

constexpr int kQueries = 100;  // in an iteration

void query(QLTTrafficLine& line) {
  line.sent("MEAS:VOLT:DC? AUTO\r\n");
  line.received("+1.23450000E+00\r\n");
}

void recordedQuery(benchmark::State& state) {
  const test::TemporaryFolder folder;
  const int file = open((folder.path() / "bare").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  station::TrafficRecorder recorder;
  QLTSetTrafficWatcher(&recorder);
  recorder.beginTesting({{"left", {}}});
  station::threadName() = "left";
  Comparison comparison;
  {
    QLTTrafficLine line;
    line.begin("10.0.0.5:5025");
    line.opened();
    const std::string_view sent =
        "{\"t\":1.234567,\"line\":1,\"sent\":\"MEAS:VOLT:DC? AUTO\\r\\n\"}\n";
    const std::string_view received =
        "{\"t\":1.234567,\"line\":1,\"received\":\"+1.23450000E+00\\r\\n\"}\n";
    for (auto _ : state) {
      recorder.deviceStarts(
          {"left", "A", 1, (folder.path() / "recorded").string(), station::RecordingHead{}.line()});
      query(line);  // which makes the file
      const auto framework = timeOf([&] {
        for (int i = 0; i < kQueries; ++i) query(line);
      });
      recorder.deviceEnds("left");
      const auto floor = timeOf([&] {
        for (int i = 0; i < kQueries; ++i) {
          benchmark::DoNotOptimize(write(file, sent.data(), sent.size()));
          benchmark::DoNotOptimize(write(file, received.data(), received.size()));
        }
      });
      comparison.add(state, framework, floor);
    }
  }
  QLTSetTrafficWatcher(nullptr);
  close(file);
  comparison.report(state, kQueries);
}
BENCHMARK(recordedQuery)->UseManualTime()->Iterations(200);

void unwatchedQuery(benchmark::State& state) {
  QLTTrafficLine line;
  line.begin("10.0.0.5:5025");
  for (auto _ : state) query(line);
}
BENCHMARK(unwatchedQuery);

}  // namespace
