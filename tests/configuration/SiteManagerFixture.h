#pragma once

#include <QLTestSiteManager.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "support/ConsoleLog.h"
#include "support/PluginBundle.h"

namespace test {

inline constexpr const char* kTesterConfig = "/vault/Quillon/TesterConfig_oc.csv";
inline const std::string kHeader = "name,class,sim,attributes\n";

/// Every test has the process and the folder /vault to itself: the tests run one a process, in a
/// private mount namespace.
class SiteManagerFixture : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(std::filesystem::is_directory("/vault/Quillon") &&
                std::filesystem::is_empty("/vault/Quillon"))
        << "run this test with station/quillon-with-vault";
  }
  void TearDown() override {
    QLTestSiteManager::releaseSharedInstance();
    std::filesystem::remove(kTesterConfig);
  }

  static void setTesterConfig(const std::string& text) {
    std::ofstream(kTesterConfig, std::ios::binary) << text;
  }

  /// Loads a bundle through the principal class, as a station application does.
  bool load(const PluginBundle& files, QLTError* error = nullptr, const QLTDictionary& info = {}) {
    const QLTBundle* bundle = files.open(error);
    if (bundle == nullptr) return false;
    return manager().loadConfig(*bundle, info, error);
  }
  /// What a load that must fail says.
  std::string failureOf(const PluginBundle& files, std::int64_t code,
                        const QLTDictionary& info = {}) {
    QLTError error;
    EXPECT_FALSE(load(files, &error, info));
    EXPECT_EQ(error.code(), code) << error.description().value_or("(none)");
    EXPECT_FALSE(load(files, nullptr, info));
    return error.description().value_or("(none)");
  }
  static QLTestSiteManager& manager() { return *QLTestSiteManager::sharedInstance(); }

  ConsoleLog log_;
};

}  // namespace test
