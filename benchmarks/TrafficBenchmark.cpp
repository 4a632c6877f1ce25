// What the recording of traffic costs: an exchange with an instrument, beside the same one without
// recording; its two lines in the file, beside the same bytes appended by bare calls; and what a
// line does while nobody records.

#include <cstdint>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <QLTBenchTcp.h>
#include <QLTConsoleLog.h>
#include <QLTTraffic.h>

#include "Comparison.h"
#include "PromptDevice.h"
#include "ThreadName.h"
#include "support/TcpPeer.h"
#include "support/TemporaryFolder.h"
#include "traffic/Recording.h"
#include "worker/TrafficRecorder.h"

namespace {

using bench::Comparison;
using bench::timeOf;

constexpr int kQueries = 100;  // in an iteration

/// A question over TCP and its answer, on one line: recorded, and not.
void recordedExchange(benchmark::State& state) {
  QLTSetLogSink([](std::string_view) {});
  const test::TemporaryFolder folder;
  station::TrafficRecorder recorder;
  recorder.beginTesting({{"left", {}}});
  recorder.deviceStarts(
      {"left", "A", 1, (folder.path() / "recorded").string(), station::RecordingHead{}.line()});
  station::threadName() = "left";
  const test::TcpPeer peer;
  QLTBenchTcp line({"127.0.0.1", static_cast<std::uint16_t>(peer.port())});
  line.open();
  const test::Endpoint end = peer.accept();
  const bench::PromptDevice device(end.descriptor(), "+1.23450000E+00\n");
  const auto exchange = [&] { benchmark::DoNotOptimize(line.query("MEAS:VOLT:DC?")); };
  Comparison comparison;
  for (auto _ : state) {
    QLTSetTrafficWatcher(&recorder);
    const auto recorded = timeOf(exchange);
    QLTSetTrafficWatcher(nullptr);
    comparison.add(state, recorded, timeOf(exchange));
  }
  comparison.report(state);
  recorder.deviceEnds("left");
  QLTSetLogSink({});
}
BENCHMARK(recordedExchange)->UseManualTime()->Iterations(5000);

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
