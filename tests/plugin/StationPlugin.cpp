// The plug-in that the loading tests load, copied into bundles of their making. Info.plist chooses
// which of the suites is the principal class.

#include <QLTUtil.h>
#include <QLTestMethod.h>
#include <QLTestSuite.h>

#include <stdexcept>

/// An instrument of the plug-in's own kind; it shows what entry it was made from.
class PlugInMeter : public QLTObject {
 public:
  explicit PlugInMeter(QLTDictionary entry) : entry_(std::move(entry)) {}
  const QLTDictionary& entry() const { return entry_; }

 private:
  QLTDictionary entry_;
};

/// A suite with both hooks.
class HookedSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

  static void customizeConfig(QLTDictionary& config, const QLTDictionary& stationInfo) {
    if (const QLTValue* text = stationInfo.find("throw in customizeConfig")) {
      throw std::runtime_error(text->text());
    }
    config.set("customized with", QLTValue(stationInfo));
    config.set("own bundle", QLTClass::of<HookedSuite>()->bundle().path().string());
    config.set("Instruments", QLTDictionary{{"from the hook", QLTDictionary{{"class", "X"}}}});
    if (const QLTValue* sites = stationInfo.find("sites")) config.set("Sites", *sites);
  }

  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry, QLTError* error) {
    const std::string cls = entry.find("class")->text();
    if (cls == "PlugInMeter") return std::make_shared<PlugInMeter>(entry);
    if (cls == "Throwing") throw std::runtime_error("no such meter");
    if (cls == "FailingWithError")
      *error = QLTError::withDescription("plug-in", 7, "meter is broken");
    return nullptr;
  }
};
QLT_CLASS(HookedSuite);

/// One that describes what it makes.
class DescribedSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry, QLTError* error) {
    const std::vector<QLTInstrumentDescription> classes = instrumentClasses();
    const QLTInstrumentDescription& meter = classes.front();
    if (entry.text("class") != meter.className) return nullptr;
    for (const auto& complaint : meter.complaintsAbout(entry)) {
      if (complaint.kind == QLTInstrumentDescription::Complaint::Kind::Unknown) continue;
      *error = QLTError::withDescription("plug-in", 8, complaint.message);
      return nullptr;
    }
    return std::make_shared<PlugInMeter>(meter.completed(entry));
  }
  static std::vector<QLTInstrumentDescription> instrumentClasses() {
    return {{"LanMeter",
             "multimeter on the network",
             {QLTInstrumentAttribute::hostAndPort("address", "where it listens").needed(),
              QLTInstrumentAttribute::seconds("timeOut", 0.1, 60, "longest wait").standard("2")}}};
  }
};
QLT_CLASS(DescribedSuite);

class ThrowingDescriptionSuite : public DescribedSuite {
 public:
  using DescribedSuite::DescribedSuite;

  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry, QLTError*) {
    return std::make_shared<PlugInMeter>(entry);
  }
  static std::vector<QLTInstrumentDescription> instrumentClasses() {
    throw std::runtime_error("no idea");
  }
};
QLT_CLASS(ThrowingDescriptionSuite);

/// A suite with an own entry into loading.
class OwnLoadSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;
  static bool onLoad(const QLTClass& cls, const QLTDictionary&, QLTError* error) {
    *error = QLTError::withDescription("plug-in", 8, "own onLoad of " + cls.name());
    return false;
  }
  static bool onUnload(QLTError* error) {
    *error = QLTError::withDescription("plug-in", 9, "own onUnload");
    return false;
  }
};
QLT_CLASS(OwnLoadSuite);

/// A suite without hooks.
class PlainSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;
};
QLT_CLASS(PlainSuite);

class ThrowingSuite : public QLTestSuite {
 public:
  explicit ThrowingSuite(std::string siteName) : QLTestSuite(std::move(siteName)) {
    throw std::runtime_error("no site today");
  }
};
QLT_CLASS(ThrowingSuite);

class PowerTest : public QLTestMethod {
 public:
  using QLTestMethod::QLTestMethod;
  bool run(std::int32_t, QLTError*) override {
    return addResultAndCompare(1, 5.0) == kQLTestResultPass;
  }
};
QLT_CLASS(PowerTest);

class ThrowingTest : public QLTestMethod {
 public:
  ThrowingTest(std::shared_ptr<QLTestSuite> suite, std::shared_ptr<QLTResources> resources,
               std::optional<std::string> displayName, SubTestInfos infos)
      : QLTestMethod(std::move(suite), std::move(resources), std::move(displayName),
                     std::move(infos)) {
    throw std::runtime_error("cannot be made");
  }
};
QLT_CLASS(ThrowingTest);

/// Shows what its initialiser was given.
class ResourcesTest : public QLTestMethod {
 public:
  ResourcesTest(const std::shared_ptr<QLTestSuite>& suite,
                const std::shared_ptr<QLTResources>& resources,
                std::optional<std::string> displayName, SubTestInfos infos)
      : QLTestMethod(suite, resources, std::move(displayName), std::move(infos)),
        sameResources_(suite && suite->resources() == resources) {
    setAllowRetest(true);
    setShouldStopOnFail(false);
  }
  std::shared_ptr<QLTObject> view() override {
    return sameResources_ ? std::make_shared<QLTObject>() : nullptr;
  }

 private:
  bool sameResources_;
};
QLT_CLASS(ResourcesTest);
