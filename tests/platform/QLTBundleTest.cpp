#include <QLTBundle.h>
#include <QLTClass.h>
#include <QLTestMethod.h>
#include <QLTestSuite.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include <dlfcn.h>

#include "support/ConsoleLog.h"
#include "support/PluginBundle.h"
#include "support/TemporaryFolder.h"

using test::PluginBundle;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class MainProgramTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;
};
QLT_CLASS(MainProgramTest);

namespace inner {
class NamespacedSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;
  static void customizeConfig(QLTDictionary&, const QLTDictionary&) {}
};
}  // namespace inner
QLT_CLASS(inner::NamespacedSuite);

namespace {

std::string failureOf(const PluginBundle& bundle) {
  QLTError error;
  EXPECT_EQ(bundle.open(&error), nullptr);
  EXPECT_TRUE(error);
  EXPECT_EQ(bundle.open(), nullptr);
  return error.description().value_or("(none)");
}

/// The shared object that holds the code of an object's class.
std::string codeOf(const QLTestMethod& method) {
  Dl_info info{};
  // The table of virtual functions, which the object begins with, stands in that shared object.
  dladdr(*reinterpret_cast<void* const*>(&method), &info);
  return info.dli_fname;
}

TEST(QLTBundle, TellsItsInformation) {
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  QLTError error("earlier", 1, {});
  const QLTBundle* bundle = files.open(&error);
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(error.domain(), "earlier");
  EXPECT_EQ(bundle->identifier(), "test.plugin");
  EXPECT_EQ(bundle->version(), "7.1");
  EXPECT_EQ(bundle->path(), std::filesystem::canonical(files.path()));
  EXPECT_EQ(bundle->infoDictionary().find("Executable")->text(), "T.so");
  EXPECT_EQ(bundle->pathForResource("TestConfig", "plist"),
            bundle->path() / "Contents/Resources/TestConfig.plist");
  EXPECT_EQ(bundle->pathForResource("Missing", "plist"), std::nullopt);
}

TEST(QLTBundle, FindsTheClassesThatItsObjectRegisters) {
  const PluginBundle files(STATION_PLUGIN);
  const QLTBundle* bundle = files.open();
  ASSERT_NE(bundle, nullptr);
  EXPECT_THAT(
      bundle->classNames(),
      ElementsAre("DescribedSuite", "HookedSuite", "OwnLoadSuite", "PlainSuite", "PowerTest",
                  "ResourcesTest", "ThrowingDescriptionSuite", "ThrowingSuite", "ThrowingTest"));
  const QLTClass* cls = bundle->classNamed("PowerTest");
  ASSERT_NE(cls, nullptr);
  EXPECT_EQ(cls->name(), "PowerTest");
  EXPECT_EQ(&cls->bundle(), bundle);
  EXPECT_NE(cls->operations().makeMethod, nullptr);
  EXPECT_EQ(cls->operations().makeSuite, nullptr);
  EXPECT_EQ(bundle->classNamed("MainProgramTest"), nullptr);
  EXPECT_EQ(bundle->principalClass(), bundle->classNamed("HookedSuite"));
}

TEST(QLTBundle, IsOpenedOnce) {
  const PluginBundle files(STATION_PLUGIN);
  const QLTBundle* bundle = files.open();
  EXPECT_EQ(QLTBundle::open(files.path() / "Contents" / ".."), bundle);
}

TEST(QLTBundle, TwoBundlesEachFindTheirOwnClassOfTheSameName) {
  const PluginBundle first(STATION_PLUGIN);
  const PluginBundle second(STATION_PLUGIN);
  const QLTClass* one = first.open()->classNamed("PowerTest");
  const QLTClass* other = second.open()->classNamed("PowerTest");
  ASSERT_NE(one, nullptr);
  ASSERT_NE(other, nullptr);
  EXPECT_NE(one, other);
  const std::shared_ptr<QLTestMethod> ofOne = one->operations().makeMethod({}, {}, {}, {});
  const std::shared_ptr<QLTestMethod> ofOther = other->operations().makeMethod({}, {}, {}, {});
  EXPECT_NE(codeOf(*ofOne), codeOf(*ofOther));
}

TEST(QLTBundle, FindsHooksAsTheyAreDeclared) {
  const PluginBundle files(STATION_PLUGIN);
  const QLTBundle* bundle = files.open();
  const QLTClass::Operations& hooked = bundle->classNamed("HookedSuite")->operations();
  EXPECT_NE(hooked.customizeConfig, nullptr);
  EXPECT_NE(hooked.createInstrument, nullptr);
  const QLTClass::Operations& plain = bundle->classNamed("PlainSuite")->operations();
  EXPECT_EQ(plain.customizeConfig, nullptr);
  EXPECT_EQ(plain.createInstrument, nullptr);
  EXPECT_NE(plain.onLoad, nullptr);
  EXPECT_NE(plain.onUnload, nullptr);
  EXPECT_THAT(bundle->classNamed("HookedSuite")->hookNames(),
              ElementsAre("customizeConfig", "createInstrument"));
  EXPECT_THAT(bundle->classNamed("PlainSuite")->hookNames(), ElementsAre());
  EXPECT_THAT(bundle->classNamed("OwnLoadSuite")->hookNames(), ElementsAre("onLoad", "onUnload"));
  EXPECT_THAT(bundle->classNamed("PowerTest")->hookNames(), ElementsAre());
}

TEST(QLTBundle, TheMainBundleHoldsTheProgramsClasses) {
  const QLTClass* cls = QLTBundle::mainBundle().classNamed("MainProgramTest");
  ASSERT_NE(cls, nullptr);
  EXPECT_EQ(&cls->bundle(), &QLTBundle::mainBundle());
  EXPECT_EQ(QLTBundle::mainBundle().pathForResource("TestConfig", "plist"), std::nullopt);
  const QLTClass* namespaced = QLTBundle::mainBundle().classNamed("inner::NamespacedSuite");
  ASSERT_NE(namespaced, nullptr);
  EXPECT_NE(namespaced->operations().customizeConfig, nullptr);
  EXPECT_EQ(namespaced->operations().createInstrument, nullptr);
}

TEST(QLTBundle, AClassFindsItsBundle) {
  const QLTClass* cls = QLTClass::of<MainProgramTest>();
  ASSERT_NE(cls, nullptr);
  EXPECT_EQ(cls->name(), "MainProgramTest");
  EXPECT_EQ(&cls->bundle(), &QLTBundle::mainBundle());
  EXPECT_EQ(QLTClass::of<QLTestSuite>(), nullptr);
}

TEST(QLTBundle, EachPluginsClassFindsItsOwnBundle) {
  for (int i = 0; i < 2; ++i) {
    const PluginBundle files(STATION_PLUGIN);
    const QLTBundle* bundle = files.open();
    // The hook enters where its class thinks that it lives.
    QLTDictionary config;
    bundle->principalClass()->operations().customizeConfig(config, {});
    EXPECT_EQ(config.find("own bundle")->text(), bundle->path().string());
  }
}

TEST(QLTBundle, TheFrameworkHasABundleOfItsOwn) {
  const QLTBundle& framework = QLTBundle::frameworkBundle();
  EXPECT_THAT(framework.classNames(),
              ElementsAre("QLTestMethod", "QLTestMethodDelay", "QLTestSuite"));
  EXPECT_EQ(framework.identifier(), "org.quillon.framework");
  EXPECT_EQ(framework.version(), QUILLON_VERSION);
}

TEST(QLTBundle, NamesAFolderThatIsNotThere) {
  QLTError error;
  EXPECT_EQ(QLTBundle::open("/no/such/X.bundle", &error), nullptr);
  EXPECT_EQ(error.code(), -40005);
  EXPECT_EQ(error.description(), "/no/such/X.bundle: No such file or directory");
}

TEST(QLTBundle, NamesAMissingInfoFile) {
  const PluginBundle files(STATION_PLUGIN);
  const std::string info = (files.path() / "Contents/Info.plist").string();
  std::filesystem::remove(info);
  QLTError error;
  EXPECT_EQ(files.open(&error), nullptr);
  EXPECT_EQ(error.domain(), kQLTPosixErrorDomain);
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_EQ(error.description(), info + ": No such file or directory");
  EXPECT_EQ(error.userInfo().text("file"), info);
  EXPECT_EQ(error.userInfo().text("reason"), "No such file or directory");
}

constexpr const char* kNoBundle =
    ": this is not a bundle, which is a folder with Contents/Info.plist in it";

std::string failureOf(const std::filesystem::path& path) {
  QLTError error;
  EXPECT_EQ(QLTBundle::open(path, &error), nullptr);
  EXPECT_EQ(error.code(), -40005);
  return error.description().value_or("(none)");
}

TEST(QLTBundle, PointsFromAPlaceInABundleToTheBundle) {
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  const std::filesystem::path bundle = std::filesystem::canonical(files.path());
  for (const char* const place : {"Contents", "Contents/Resources", "Contents/Info.plist"}) {
    EXPECT_EQ(failureOf(bundle / place),
              (bundle / place).string() + kNoBundle + "; did you mean " + bundle.string() + "?");
  }
}

TEST(QLTBundle, PointsFromAFolderOfBundlesToThese) {
  const test::TemporaryFolder folder;
  const std::string path = std::filesystem::canonical(folder.path()).string();
  EXPECT_EQ(failureOf(folder.path()), path + kNoBundle);
  folder.write("B.bundle/Contents/Info.plist", "");
  folder.write("notes/x", "");
  EXPECT_EQ(failureOf(folder.path()), path + kNoBundle + "; did you mean " + path + "/B.bundle?");
  folder.write("A.bundle/Contents/Info.plist", "");
  EXPECT_EQ(failureOf(folder.path()),
            path + kNoBundle + "; did you mean " + path + "/A.bundle or " + path + "/B.bundle?");
}

TEST(QLTBundle, CarriesThePartsOfAFaultAsValues) {
  const PluginBundle files(STATION_PLUGIN);
  files.setInfo("<key>FrameworkVersion</key><true/>");
  QLTError error;
  EXPECT_EQ(files.open(&error), nullptr);
  EXPECT_EQ(error.userInfo().text("file"), (files.path() / "Contents/Info.plist").string());
  EXPECT_EQ(error.userInfo().integer("line"), 2);
  EXPECT_EQ(error.userInfo().integer("column"), 28);
  EXPECT_EQ(error.userInfo().text("keyPath"), "FrameworkVersion");
  EXPECT_EQ(error.userInfo().text("reason"), "expected a text");
}

TEST(QLTBundle, TellsTheOffsetInABinaryInfoFile) {
  using namespace std::string_view_literals;
  const PluginBundle files(STATION_PLUGIN);
  // A dictionary with the key "FrameworkVersion" and the value true.
  std::ofstream(files.path() / "Contents/Info.plist", std::ios::binary)
      << "bplist00\xd1\x01\x02\x5f\x10\x10"
         "FrameworkVersion\x09\x08\x0b\x1e"
         "\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x1f"sv;
  QLTError error;
  EXPECT_EQ(files.open(&error), nullptr);
  EXPECT_EQ(error.description(), (files.path() / "Contents/Info.plist").string() +
                                     ":offset 30: FrameworkVersion: expected a text");
  EXPECT_EQ(error.userInfo().integer("offset"), 30);
}

TEST(QLTBundle, TheSharedObjectIsWithinTheBundle) {
  const PluginBundle files("");
  const std::filesystem::path outside = files.path().parent_path() / "T.so";
  std::filesystem::copy_file(STATION_PLUGIN, outside);
  const auto openWith = [&](const std::string& executable) {
    files.setInfo("<key>FrameworkVersion</key><string>" QUILLON_VERSION
                  "</string>\n<key>Executable</key><string>" +
                  executable + "</string>");
    return failureOf(files);
  };
  for (const std::string& executable :
       {std::string("../../T.so"), outside.string(), std::string("lib/../../../T.so")}) {
    EXPECT_EQ(openWith(executable), (files.path() / "Contents/Info.plist").string() +
                                        ":3:22: Executable: \"" + executable +
                                        "\" leads out of the bundle");
  }
  EXPECT_THAT(openWith("lib/T..so"), HasSubstr("cannot be opened"));
}

TEST(QLTBundle, ResourcesAreFilesWithinTheBundle) {
  const PluginBundle files(STATION_PLUGIN);
  files.setConfig("");
  const std::filesystem::path resources = files.path() / "Contents/Resources";
  std::filesystem::create_directories(resources / "folder.plist");
  std::filesystem::create_directories(resources / "more");
  std::filesystem::copy_file(resources / "TestConfig.plist", resources / "more/a..b.plist");
  const QLTBundle* const bundle = files.open();
  ASSERT_NE(bundle, nullptr);
  EXPECT_EQ(bundle->pathForResource("", ""), std::nullopt);
  EXPECT_EQ(bundle->pathForResource("folder", "plist"), std::nullopt);
  EXPECT_EQ(bundle->pathForResource("../Info", "plist"), std::nullopt);
  EXPECT_EQ(bundle->pathForResource("more/../../Info", "plist"), std::nullopt);
  EXPECT_EQ(bundle->pathForResource(
                std::filesystem::canonical(files.path()).string() + "/Contents/Info", "plist"),
            std::nullopt);
  EXPECT_NE(bundle->pathForResource("more/a..b", "plist"), std::nullopt);
}

TEST(QLTBundle, TheConsoleLogNamesABundleBeforeItsCodeRuns) {
  const test::ConsoleLog log;
  const PluginBundle files("");
  failureOf(files);
  EXPECT_THAT(log.lines(),
              testing::Contains("opening the plug-in " + files.path().string() + ", version 7.1"));
}

TEST(QLTBundleDeathTest, AStaticObjectThatThrowsEndsTheProgramWithTheBundlesName) {
  const PluginBundle files(THROWING_PLUGIN);
  const test::ConsoleLog log;
  EXPECT_DEATH(files.open(), files.path().string() +
                                 " ends the program while it is opened: a static object of its "
                                 "code threw std::runtime_error: no fixture");
}

TEST(QLTBundle, NamesAMissingKey) {
  const PluginBundle files(STATION_PLUGIN);
  files.setInfo("<key>Executable</key><string>T.so</string>");
  EXPECT_EQ(failureOf(files), (files.path() / "Contents/Info.plist").string() +
                                  ": the key \"FrameworkVersion\" is missing");
}

TEST(QLTBundle, NamesAKeyOfTheWrongType) {
  const PluginBundle files(STATION_PLUGIN);
  files.setInfo("<key>FrameworkVersion</key><true/>");
  EXPECT_EQ(failureOf(files), (files.path() / "Contents/Info.plist").string() +
                                  ":2:28: FrameworkVersion: expected a text");
}

TEST(QLTBundle, RefusesAnotherFrameworkVersionBeforeItOpensTheObject) {
  // The object is no object at all: had it been opened, the complaint would be another one.
  const PluginBundle files("");
  files.setInfo(
      "<key>FrameworkVersion</key><string>99.5.1</string><key>Executable</key><string>T.so</"
      "string>");
  EXPECT_EQ(failureOf(files),
            files.path().string() +
                ": built for framework version 99.5.1, which framework version " QUILLON_VERSION
                " cannot run; rebuild the plug-in");
  files.setInfo(
      "<key>FrameworkVersion</key><string>new</string><key>Executable</key><string>T.so</string>");
  EXPECT_THAT(failureOf(files), HasSubstr("built for framework version new"));
}

TEST(QLTBundle, TellsWhyTheObjectCannotBeOpened) {
  const PluginBundle files("");
  const std::string object = (files.path() / "Contents/T.so").string();
  EXPECT_THAT(failureOf(files), StartsWith(object + ": cannot be opened: "));
  EXPECT_THAT(failureOf(files), HasSubstr("No such file or directory"));
}

TEST(QLTBundle, CanBeOpenedOnceItsFaultIsMended) {
  const PluginBundle files("");
  failureOf(files);
  std::filesystem::copy_file(STATION_PLUGIN, files.path() / "Contents/T.so");
  EXPECT_NE(files.open(), nullptr);
}

TEST(QLTBundle, RefusesAnObjectThatIsOpenUnderAnotherPath) {
  const PluginBundle first(STATION_PLUGIN);
  ASSERT_NE(first.open(), nullptr);
  const PluginBundle second("");
  std::filesystem::create_symlink(first.path() / "Contents/T.so", second.path() / "Contents/T.so");
  EXPECT_THAT(failureOf(second), HasSubstr("registers no class"));
}

TEST(QLTBundle, HasNoPrincipalClassWhenTheEntryIsMissingOrNamesNone) {
  const PluginBundle unknown(STATION_PLUGIN, "NoSuchSuite");
  EXPECT_EQ(unknown.open()->principalClass(), nullptr);
  const PluginBundle missing(STATION_PLUGIN);
  missing.setInfo(
      "<key>Executable</key><string>T.so</string><key>FrameworkVersion</"
      "key><string>" QUILLON_VERSION "</string>");
  const QLTBundle* bundle = missing.open();
  EXPECT_EQ(bundle->principalClass(), nullptr);
  EXPECT_EQ(bundle->version(), std::nullopt);
  EXPECT_EQ(bundle->identifier(), "");
}

TEST(QLTBundle, RefusesTwoClassesOfOneName) {
  const PluginBundle files(TWICE_PLUGIN);
  EXPECT_EQ(failureOf(files),
            (std::filesystem::canonical(files.path()) / "Contents/T.so").string() +
                ": the class TwiceTest is registered twice");
}

}  // namespace
