#include <QLTConfigCheck.h>
#include <QLTConsoleLog.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "Check.h"
#include "EntryPoints.h"

namespace fs = std::filesystem;

namespace {

void write(const fs::path& path, std::string_view content) {
  std::ofstream(path, std::ios::binary) << content;
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
    write(contents / "Info.plist",
          "<plist><dict><key>Executable</key><string>F.so</string><key>PrincipalClass</key>"
          "<string>FuzzSuite</string><key>FrameworkVersion</key><string>" +
              *QLTBundle::frameworkBundle().version() + "</string></dict></plist>");
    config_ = contents / "Resources" / "TestConfig.plist";
    testerConfig_ = folder_ / "TesterConfig_oc.csv";
    bundle_ = QLTBundle::open(folder_ / "F.bundle");
    FUZZ_CHECK(bundle_ != nullptr);
  }
  ~Station() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }
  Station(const Station&) = delete;
  Station& operator=(const Station&) = delete;

  std::vector<QLTConfigFinding> check(std::string_view config, std::string_view testerConfig) {
    write(config_, config);
    write(testerConfig_, testerConfig);
    return QLTConfigCheck::check(*bundle_, testerConfig_);
  }

 private:
  fs::path folder_;
  fs::path config_;
  fs::path testerConfig_;
  const QLTBundle* bundle_ = nullptr;
};

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
  for (const QLTConfigFinding& finding : station.check(config, testerConfig)) {
    FUZZ_CHECK(!finding.file.empty() && !finding.message.empty());
    FUZZ_CHECK(finding.line >= 0 && finding.column >= 0);
    FUZZ_CHECK(finding.text().starts_with(finding.file + ":"));
  }
  return 0;
}
