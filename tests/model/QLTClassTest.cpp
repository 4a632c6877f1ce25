#include <QLTClass.h>
#include <QLTestMethod.h>
#include <QLTestSiteManager.h>
#include <QLTestSuite.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/ConsoleLog.h"
#include "support/Plist.h"
#include "support/PluginBundle.h"

using namespace test::plist;
using test::PluginBundle;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;

namespace {

constexpr const char* kTesterConfig = "/vault/Quillon/TesterConfig_oc.csv";

/// What a test in another language would be: a text that says what it measures.
class Scripted : public QLTestMethod {
 public:
  Scripted(double reading, std::shared_ptr<QLTestSuite> suite,
           std::shared_ptr<QLTResources> resources, std::optional<std::string> displayName,
           SubTestInfos infos)
      : QLTestMethod(std::move(suite), std::move(resources), std::move(displayName),
                     std::move(infos)),
        reading_(reading) {}
  bool run(std::int32_t, QLTError*) override {
    return addResultAndCompare(1, reading_) == kQLTestResultPass;
  }

 private:
  double reading_;
};

QLTClass::Operations methodsThatRead(double reading) {
  QLTClass::Operations operations;
  operations.makeMethod =
      [reading](std::shared_ptr<QLTestSuite> suite, std::shared_ptr<QLTResources> resources,
                std::optional<std::string> displayName, QLTClass::SubTestInfos infos) {
        return std::make_shared<Scripted>(reading, std::move(suite), std::move(resources),
                                          std::move(displayName), std::move(infos));
      };
  return operations;
}

QLTClass::Operations plainSuites() {
  QLTClass::Operations operations;
  operations.makeSuite = [](std::string siteName) {
    return std::make_shared<QLTestSuite>(std::move(siteName));
  };
  return operations;
}

std::string refusal(const QLTBundle& bundle, const std::string& name,
                    const QLTClass::Operations& operations) {
  QLTError error;
  EXPECT_EQ(QLTClass::registerClass(bundle, name, operations, &error), nullptr);
  EXPECT_EQ(QLTClass::registerClass(bundle, name, operations), nullptr);
  EXPECT_EQ(error.domain(), QLTFrameworkErrorDomain);
  EXPECT_EQ(error.code(), -40006);
  return error.description().value_or("(none)");
}

TEST(QLTClass, ClassesThatAreMadeAtRunTimeMakeUpAStation) {
  std::ofstream(kTesterConfig) << "name,class,sim,attributes\nprobe,Counted,no,range=5\n";
  const test::ConsoleLog log;
  const PluginBundle files(STATION_PLUGIN, "Script");
  files.setConfig(
      flowOf(testOf("Low", subTests(dict(key("name", text("v")) + key("lowLimit", text("1")) +
                                         key("highLimit", text("2"))))) +
             testOf("High", subTests(dict(key("name", text("v")) + key("lowLimit", text("1")) +
                                          key("highLimit", text("2")))))));
  const QLTBundle* const bundle = files.open();
  ASSERT_NE(bundle, nullptr);
  ASSERT_EQ(bundle->principalClass(), nullptr);

  std::vector<std::string> calls;
  QLTClass::Operations suites = plainSuites();
  suites.makeSuite = [&calls](std::string siteName) {
    calls.push_back("makeSuite " + siteName);
    return std::make_shared<QLTestSuite>(std::move(siteName));
  };
  suites.customizeConfig = [&calls](QLTDictionary& config, const QLTDictionary& info) {
    calls.push_back("customizeConfig " + info.find("station")->text());
    config.set("defaultFlow", "main");
  };
  suites.createInstrument = [&calls](const QLTDictionary& entry, QLTError*) {
    calls.push_back("createInstrument " + entry.find("range")->text());
    return std::make_shared<QLTObject>();
  };
  QLTError untouched("earlier", 1, {});
  const QLTClass* const script = QLTClass::registerClass(*bundle, "Script", suites, &untouched);
  ASSERT_NE(script, nullptr);
  EXPECT_EQ(untouched.domain(), "earlier");
  for (const auto& [name, reading] : {std::pair("Low", 1.5), std::pair("High", 2.5)}) {
    ASSERT_NE(QLTClass::registerClass(*bundle, name, methodsThatRead(reading)), nullptr);
  }
  EXPECT_EQ(bundle->principalClass(), script);
  EXPECT_EQ(&script->bundle(), bundle);
  EXPECT_THAT(script->hookNames(), ElementsAre("customizeConfig", "createInstrument"));

  QLTError error;
  ASSERT_TRUE(script->operations().onLoad(*script, {{"station", "S4"}}, &error))
      << error.description().value_or("");
  EXPECT_THAT(calls, ElementsAre("customizeConfig S4", "createInstrument 5", "makeSuite left"));
  const auto suite = QLTestSiteManager::sharedInstance()->suiteForSite("left");
  ASSERT_NE(suite, nullptr);
  const auto flow = suite->flowForName("default");
  ASSERT_NE(flow, nullptr);
  std::vector<std::int32_t> results;
  for (const auto& method : *flow) {
    method->willRun(1);
    method->run(1);
    for (const auto& result : *method->didRun(1)) results.push_back(result->result());
  }
  EXPECT_THAT(results, ElementsAre(kQLTestResultPass, kQLTestResultFail));
  EXPECT_TRUE(script->operations().onUnload(&error));
  QLTestSiteManager::releaseSharedInstance();
  std::filesystem::remove(kTesterConfig);
}

class WithoutHooks : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;
  std::shared_ptr<QLTObject> onDUTStart(const QLTDictionary&, QLTError*) override {
    return nullptr;
  }
  bool onSafeState(QLTError*) override { return true; }
};
class WithFinished : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;
  bool onDUTFinished(QLTError*) override { return true; }
};
class WithFail : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;
  bool onDUTFail(QLTError*) override { return true; }
};
class WithInherited : public WithFail {
 public:
  using WithFail::WithFail;
};
class WithPrivate : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

 private:
  bool onException(QLTError*) override { return true; }
};
class WithOverload : public QLTestSuite {
 public:
  using QLTestSuite::onDUTFinished;
  using QLTestSuite::QLTestSuite;
  bool onDUTFinished(int) { return true; }
};

TEST(QLTClass, KnowsASuiteWithoutHooksAtADevicesEnd) {
  using quillon::internal::operationsOf;
  const std::type_info* const without = operationsOf<WithoutHooks>().withoutEndHooks;
  ASSERT_NE(without, nullptr);
  EXPECT_EQ(*without, typeid(WithoutHooks));
  EXPECT_EQ(operationsOf<WithFinished>().withoutEndHooks, nullptr);
  EXPECT_EQ(operationsOf<WithFail>().withoutEndHooks, nullptr);
  EXPECT_EQ(operationsOf<WithInherited>().withoutEndHooks, nullptr);
  EXPECT_EQ(operationsOf<WithPrivate>().withoutEndHooks, nullptr);
  EXPECT_EQ(operationsOf<WithOverload>().withoutEndHooks, nullptr);  // nobody knows which is meant
  EXPECT_EQ(plainSuites().withoutEndHooks, nullptr);
}

TEST(QLTClass, AClassOfTheProgramItselfGoesIntoTheMainBundle) {
  const QLTBundle& bundle = QLTBundle::mainBundle();
  const QLTClass* const cls = QLTClass::registerClass(bundle, "MadeLate", methodsThatRead(1));
  ASSERT_NE(cls, nullptr);
  EXPECT_EQ(cls->name(), "MadeLate");
  EXPECT_EQ(bundle.classNamed("MadeLate"), cls);
  EXPECT_THAT(bundle.classNames(), Contains("MadeLate"));
  EXPECT_EQ(refusal(bundle, "MadeLate", plainSuites()), "the class MadeLate is registered already");
  EXPECT_EQ(bundle.classNamed("MadeLate"), cls);
}

TEST(QLTClass, TwoBundlesMayHaveClassesOfOneNameAndEachHasItsOwn) {
  const PluginBundle one(STATION_PLUGIN);
  const PluginBundle other(STATION_PLUGIN);
  for (const PluginBundle* const files : {&one, &other}) {
    const QLTBundle* const bundle = files->open();
    ASSERT_NE(bundle, nullptr);
    EXPECT_NE(QLTClass::registerClass(*bundle, "Late", methodsThatRead(1)), nullptr);
    EXPECT_EQ(&bundle->classNamed("Late")->bundle(), bundle);
  }
}

TEST(QLTClass, RefusesWhatCannotBeAClass) {
  const PluginBundle files(STATION_PLUGIN);
  const QLTBundle* const bundle = files.open();
  ASSERT_NE(bundle, nullptr);
  const std::string place = bundle->path().string() + ": ";
  EXPECT_EQ(refusal(*bundle, "", plainSuites()), place + "a class must have a name");
  EXPECT_EQ(refusal(*bundle, "Nothing", {}),
            place + "Nothing makes neither suites nor test methods");
  QLTClass::Operations both = plainSuites();
  both.makeMethod = methodsThatRead(1).makeMethod;
  EXPECT_EQ(refusal(*bundle, "Both", both),
            place + "Both cannot be a suite and a test method at once");
  EXPECT_EQ(refusal(*bundle, "PowerTest", plainSuites()),
            place + "the class PowerTest is registered already");
}

}  // namespace
