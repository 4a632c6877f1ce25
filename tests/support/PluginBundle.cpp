#include "PluginBundle.h"

namespace test {
namespace {

std::string dictionaryFile(const std::string& body) {
  return "<plist version=\"1.0\"><dict>\n" + body + "</dict></plist>\n";
}

std::string text(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key><string>" + value + "</string>\n";
}

}  // namespace

PluginBundle::PluginBundle(const std::filesystem::path& sharedObject,
                           const std::string& principalClass) {
  setInfo(info(principalClass));
  if (!sharedObject.empty()) {
    std::filesystem::copy_file(sharedObject, path() / "Contents" / "T.so");
  }
}

std::string PluginBundle::info(const std::string& principalClass) {
  return text("BundleIdentifier", "test.plugin") + text("BundleVersion", "7.1") +
         text("Executable", "T.so") + text("PrincipalClass", principalClass) +
         text("FrameworkVersion", *QLTBundle::frameworkBundle().version());
}

void PluginBundle::setInfo(const std::string& body) const {
  folder_.write("T.bundle/Contents/Info.plist", dictionaryFile(body));
}

void PluginBundle::setConfig(const std::string& body) const {
  folder_.write("T.bundle/Contents/Resources/TestConfig.plist", dictionaryFile(body));
}

}  // namespace test
