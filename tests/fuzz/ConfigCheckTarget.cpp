#include <QLTConfigCheck.h>
#include <QLTConsoleLog.h>
#include <QLTStationPlan.h>
#include <QLTestSiteManager.h>

#include <algorithm>
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
