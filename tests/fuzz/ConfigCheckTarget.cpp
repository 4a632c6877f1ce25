#include <QLTConfigCheck.h>
#include <QLTConsoleLog.h>
#include <QLTSimSocket.h>
#include <QLTStationPlan.h>
#include <QLTestSiteManager.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "Check.h"
#include "EntryPoints.h"

namespace fs = std::filesystem;

namespace {

void writeFile(const fs::path& path, std::string_view content) {
  std::ofstream(path, std::ios::binary) << content;
}

/// The tester-config with every instrument simulated; a malformed line stays so.
std::string simulated(std::string_view testerConfig) {
  std::string result;
  std::string line;
  bool isHeader = true;
  const auto endLine = [&] {
    std::size_t commas = 0;
    std::size_t end = line.size();
    for (std::size_t i = 0; i < line.size(); ++i) {
      if (line[i] == ',' && ++commas == 4) end = i;
    }
    if (commas >= 3 && !isHeader) line.insert(end, ";sim=1");
    isHeader = false;
    result += line;
    line.clear();
  };
  for (const char c : testerConfig) {
    if (c == '\n' || c == '\v' || c == '\f' || c == '\r') {
      endLine();
      result += c;
    } else {
      line += c;
    }
  }
  endLine();
  return result;
}

/// A bundle of its own in a temporary folder, with a configuration that changes from input to
/// input.
class Station {
 public:
  Station() {
    QLTSetLogSink([](std::string_view) {});
    // The simulated video-test unit answers the question for its version.
    QLTSimSocket::setResponseMap({{"&1,0000\n", "P,1.1,2.2,3.3,4.4\r\n"}});
    std::string pattern = (fs::temp_directory_path() / "quillon-fuzz-XXXXXX").string();
    FUZZ_CHECK(mkdtemp(pattern.data()) != nullptr);
    folder_ = pattern;
    const fs::path contents = folder_ / "F.bundle" / "Contents";
    fs::create_directories(contents / "Resources");
    fs::copy_file(CONFIG_CHECK_PLUGIN, contents / "F.so");
    writeFile(contents / "Info.plist",
              "<plist><dict><key>Executable</key><string>F.so</string><key>PrincipalClass</key>"
              "<string>FuzzSuite</string><key>FrameworkVersion</key><string>" +
                  *QLTBundle::frameworkBundle().version() + "</string></dict></plist>");
    config_ = contents / "Resources" / "TestConfig.plist";
    // Loading reads the tester's own file, so this runs with a /vault to itself.
    const fs::path vault = QLTestSiteManager::testerConfigPath().parent_path();
    FUZZ_CHECK(fs::is_directory(vault));
    bundle_ = QLTBundle::open(folder_ / "F.bundle");
    FUZZ_CHECK(bundle_ != nullptr);
  }
  ~Station() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }
  Station(const Station&) = delete;
  Station& operator=(const Station&) = delete;

  void set(std::string_view config, std::string_view testerConfig) {
    writeFile(config_, config);
    writeFile(QLTestSiteManager::testerConfigPath(), testerConfig);
  }
  std::vector<QLTConfigFinding> check() const {
    return QLTConfigCheck::check(*bundle_, QLTestSiteManager::testerConfigPath());
  }
  QLTStationPlan plan() const {
    return QLTStationPlan::read(*bundle_, QLTestSiteManager::testerConfigPath());
  }
  bool loads() const {
    QLTError error;
    const bool loaded = QLTestSiteManager::sharedInstance()->loadConfig(*bundle_, {}, &error);
    FUZZ_CHECK(loaded || error);
    QLTestSiteManager::releaseSharedInstance();
    return loaded;
  }

 private:
  fs::path folder_;
  fs::path config_;
  const QLTBundle* bundle_ = nullptr;
};

bool isError(const QLTConfigFinding& finding) {
  return finding.severity == QLTConfigFinding::Severity::Error;
}

/// What may stand where a value stands, right or wrong.
constexpr std::array kValues{"<true/>",
                             "<false/>",
                             "<dict/>",
                             "<array/>",
                             "<integer>5</integer>",
                             "<real>-1.5</real>",
                             "<date>2026-01-01T00:00:00Z</date>",
                             "<string></string>",
                             "<string>x</string>",
                             "<string>yes</string>",
                             "<string>2.5</string>",
                             "<string>1e999</string>",
                             "<string>dut</string>",
                             "<string>main</string>",
                             "<string>default</string>",
                             "<string>FuzzTest</string>",
                             "<string>FuzzSuite</string>",
                             "<string>QLTestMethodDelay</string>",
                             "<array><dict/></array>",
                             "<dict><key>main</key><array/></dict>",
                             "<dict><key>console</key><string>dut</string></dict>"};
constexpr std::array kKeys{
    "stationAttributes", "Sites",        "Flows",       "defaultFlow", "disable",
    "Resources",         "class",        "displayName", "params",      "retest",
    "stopOnFail",        "subTestInfos", "name",        "priority",    "expected",
    "lowLimit",          "highLimit",    "failMessage", "main",        "left",
    "timeLimit",         "optional",     "unit"};
constexpr std::array kLines{"dut,QLTDiags,0,bsdPath=/dev/x\n",   "dut,Nothing,0,a=b\n",
                            "dut,QLTDavDPEther,1,ip=10.0.0.1\n", "dut,QLTDiags,1,path=/dev/x\n",
                            "dut,QLTDavDPSerial,0,a=b;c\n",      "\n"};

/// Where a whole element without elements in it begins, at or after `from`; its length is entered.
std::size_t findElement(const std::string& text, std::size_t from, std::size_t& length) {
  for (std::size_t start = text.find('<', from); start != std::string::npos;
       start = text.find('<', start + 1)) {
    const std::size_t end = text.find('>', start);
    if (end == std::string::npos) break;
    if (text[start + 1] == '/' || text.compare(start, 5, "<key>") == 0) continue;
    length = end + 1 - start;
    if (text[end - 1] == '/') return start;
    const std::size_t next = text.find('<', end);
    if (next != std::string::npos && text.compare(next, 2, "</") == 0) {
      length = text.find('>', next) + 1 - start;
      return start;
    }
  }
  return std::string::npos;
}

/// One change that leaves the property list well formed.
std::string changed(std::string input, unsigned seed) {
  const std::size_t place = input.empty() ? 0 : seed / 16 % input.size();
  if (seed % 4 == 0) {
    const std::size_t line = input.find('\n');
    return line == std::string::npos ? input
                                     : input.insert(line + 1, kLines[seed / 16 % kLines.size()]);
  }
  if (seed % 4 == 1) {
    const std::size_t start = input.find("<key>", place);
    const std::size_t end = input.find("</key>", start);
    return end == std::string::npos
               ? input
               : input.replace(start + 5, end - start - 5, kKeys[seed / 64 % kKeys.size()]);
  }
  std::size_t length = 0;
  const std::size_t start = findElement(input, place, length);
  return start == std::string::npos
             ? input
             : input.replace(start, length, kValues[seed / 64 % kValues.size()]);
}

}  // namespace

/// The input is a tester-config, a line "====", and a TestConfig.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Station station;
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  constexpr std::string_view separator = "====\n";
  const std::size_t end = input.find(separator);
  const std::string_view testerConfig = input.substr(0, end);
  const std::string_view config =
      end == std::string_view::npos ? std::string_view() : input.substr(end + separator.size());
  station.set(config, simulated(testerConfig));
  const std::vector<QLTConfigFinding> findings = station.check();
  for (const QLTConfigFinding& finding : findings) {
    FUZZ_CHECK(!finding.file.empty() && !finding.message.empty());
    FUZZ_CHECK(finding.line >= 0 && finding.column >= 0);
    FUZZ_CHECK(finding.text().starts_with(finding.file + ":"));
  }
  const bool isRefused = std::any_of(findings.begin(), findings.end(), isError);
  FUZZ_CHECK(isRefused != station.loads());
  FUZZ_CHECK(isRefused || station.plan().firstError() == nullptr);
  return 0;
}

// Most changes of single bytes only spoil the property list.
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t capacity,
                                    unsigned seed) {
  if (seed % 8 == 7) return LLVMFuzzerMutate(data, size, capacity);
  const std::string result = changed(std::string(data, data + size), seed / 8);
  if (result.size() > capacity) return size;
  std::copy(result.begin(), result.end(), data);
  return result.size();
}
