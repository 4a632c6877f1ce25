// What reading and loading a large configuration costs, beside a bare Expat that keeps every key
// and text: one site, 10,000 tests of 5 sub-tests, 19 MB of XML.

#include <QLTConsoleLog.h>
#include <QLTPropertyList.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>

#include <array>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <benchmark/benchmark.h>
#include <expat.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Comparison.h"
#include "support/TemporaryFolder.h"

namespace {

constexpr int kTests = 10'000;
constexpr int kSubTests = 5;

class BenchSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;
};
QLT_CLASS(BenchSuite);

class BenchTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;
};
QLT_CLASS(BenchTest);

/// The configuration, as an editor indents it.
class Configuration {
 public:
  Configuration() {
    std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n";
    text += "\t<key>Sites</key>\n\t<dict>\n\t\t<key>left</key>\n\t\t<dict/>\n\t</dict>\n";
    text += "\t<key>defaultFlow</key>\n\t<string>main</string>\n";
    text += "\t<key>Flows</key>\n\t<dict>\n\t\t<key>main</key>\n\t\t<array>\n";
    for (int test = 0; test < kTests; ++test) addTest(std::to_string(test), text);
    text += "\t\t</array>\n\t</dict>\n</dict>\n</plist>\n";
    std::ofstream(path_, std::ios::binary) << text;
    size_ = text.size();
  }

  const std::filesystem::path& path() const { return path_; }
  std::size_t size() const { return size_; }

 private:
  static void add(const char* indent, const char* key, const std::string& value,
                  std::string& text) {
    text += std::string(indent) + "<key>" + key + "</key>\n" + indent + value + "\n";
  }

  static void addTest(const std::string& number, std::string& text) {
    constexpr const char* indent = "\t\t\t\t";
    text += "\t\t\t<dict>\n";
    add(indent, "class", "<string>BenchTest</string>", text);
    add(indent, "displayName", "<string>Supply rails, board " + number + "</string>", text);
    add(indent, "retest", "<true/>", text);
    text += "\t\t\t\t<key>subTestInfos</key>\n\t\t\t\t<array>\n";
    for (int subTest = 0; subTest < kSubTests; ++subTest) {
      addSubTest(number + "." + std::to_string(subTest), text);
    }
    text += "\t\t\t\t</array>\n\t\t\t</dict>\n";
  }

  static void addSubTest(const std::string& number, std::string& text) {
    constexpr const char* indent = "\t\t\t\t\t\t";
    text += "\t\t\t\t\t<dict>\n";
    add(indent, "name", "<string>VBUS " + number + "</string>", text);
    add(indent, "priority", "<integer>2</integer>", text);
    add(indent, "lowLimit", "<real>4.75</real>", text);
    add(indent, "highLimit", "<real>5.25</real>", text);
    add(indent, "failMessage",
        "<string>rail " + number + " is out of its range; check the regulator</string>", text);
    text += "\t\t\t\t\t</dict>\n";
  }

  test::TemporaryFolder folder_;
  std::filesystem::path path_ = folder_.path() / "TestConfig.plist";
  std::size_t size_ = 0;
};

const Configuration& configuration() {
  static const Configuration configuration;
  return configuration;
}

// The floor: every key and text kept, in order, nothing else.

struct Kept {
  std::deque<std::string> texts;
  bool isText = false;
};

void XMLCALL startElement(void* data, const XML_Char* name, const XML_Char**) {
  Kept& kept = *static_cast<Kept*>(data);
  const std::string_view element = name;
  kept.isText =
      element == "key" || element == "string" || element == "real" || element == "integer";
  if (kept.isText) kept.texts.emplace_back();
}
void XMLCALL endElement(void* data, const XML_Char*) { static_cast<Kept*>(data)->isText = false; }
void XMLCALL characters(void* data, const XML_Char* text, int length) {
  Kept& kept = *static_cast<Kept*>(data);
  if (kept.isText) kept.texts.back().append(text, static_cast<std::size_t>(length));
}

std::size_t readBare(const std::filesystem::path& path) {
  Kept kept;
  XML_Parser parser = XML_ParserCreate(nullptr);
  XML_SetUserData(parser, &kept);
  XML_SetElementHandler(parser, startElement, endElement);
  XML_SetCharacterDataHandler(parser, characters);
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::array<char, 65536> buffer{};
  ssize_t count = 0;
  while ((count = read(file, buffer.data(), buffer.size())) > 0) {
    XML_Parse(parser, buffer.data(), static_cast<int>(count), XML_FALSE);
  }
  if (XML_Parse(parser, nullptr, 0, XML_TRUE) != XML_STATUS_OK) std::abort();
  close(file);
  XML_ParserFree(parser);
  return kept.texts.size();
}

void load() {
  const auto manager = QLTestSiteManager::sharedInstance();
  manager->config() = *QLTPropertyList::readDictionary(configuration().path());
  if (!manager->loadInstruments(nullptr, {}) || !manager->loadSites(QLTClass::of<BenchSuite>()) ||
      !manager->loadFlows(QLTBundle::mainBundle()) ||
      manager->suiteForSite("left")->flowForName("default")->size() != kTests) {
    std::abort();
  }
}

/// "VmRSS", "VmHWM" of this process, in MB.
double memory(const std::string& what) {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word) {
    double kilobytes = 0;
    if (word == what + ":" && status >> kilobytes) return kilobytes / 1024;
  }
  return 0;
}

/// What a load leaves in memory, and its peak above what was there before, in MB, of a process of
/// its own.
std::pair<double, double> memoryOfLoad() {
  static_cast<void>(configuration());  // not part of it
  malloc_trim(0);
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) std::abort();
  const pid_t process = fork();
  if (process == 0) {
    const double before = memory("VmRSS");
    load();
    const double peak = memory("VmHWM") - before;
    malloc_trim(0);
    const std::pair<double, double> result{memory("VmRSS") - before, peak};
    if (write(ends[1], &result, sizeof result) != sizeof result) std::abort();
    _exit(0);
  }
  std::pair<double, double> result;
  if (read(ends[0], &result, sizeof result) != sizeof result) std::abort();
  close(ends[0]);
  close(ends[1]);
  waitpid(process, nullptr, 0);
  return result;
}

void reading(benchmark::State& state) {
  bench::Comparison comparison;
  const std::filesystem::path& path = configuration().path();
  for (auto _ : state) {
    std::optional<QLTDictionary> read;
    const auto framework = bench::timeOf([&] { read = QLTPropertyList::readDictionary(path); });
    const auto floor = bench::timeOf([&] { benchmark::DoNotOptimize(readBare(path)); });
    if (!read) std::abort();
    comparison.add(state, framework, floor);
  }
  comparison.report(state);
}
BENCHMARK(reading)->UseManualTime()->Iterations(15);

void loading(benchmark::State& state) {
  QLTSetLogSink([](std::string_view) {});
  const auto [left, peak] = memoryOfLoad();
  bench::Comparison comparison;
  const std::filesystem::path& path = configuration().path();
  for (auto _ : state) {
    const auto framework = bench::timeOf(load);
    const auto floor = bench::timeOf([&] { benchmark::DoNotOptimize(readBare(path)); });
    QLTestSiteManager::releaseSharedInstance();
    comparison.add(state, framework, floor);
  }
  comparison.report(state);
  state.counters["left_MB"] = left;
  state.counters["peak_MB"] = peak;
  state.counters["file_MB"] = static_cast<double>(configuration().size()) / 1e6;
}
BENCHMARK(loading)->UseManualTime()->Iterations(15);

}  // namespace
