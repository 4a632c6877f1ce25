#pragma once

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <QLTBundle.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTValue.h>

class QLTSubTestInfo;
class QLTestMethod;
class QLTestSuite;

/// Registers a suite class or a test-method class under its name, so that a configuration can name
/// it. One line in the source that defines the class, outside any function:
///
///     class PowerTest : public QLTestMethod { ... };
///     QLT_CLASS(PowerTest);
#define QLT_CLASS(NAME)                                                                      \
  [[maybe_unused]] static const ::quillon::internal::ClassRegistration<NAME> QLT_CLASS_JOIN( \
      qltClassRegistration, __COUNTER__)(#NAME)
#define QLT_CLASS_JOIN(A, B) QLT_CLASS_JOIN_NOW(A, B)
#define QLT_CLASS_JOIN_NOW(A, B) A##B

/// A class that is found by name: what makes its objects, and its class operations.
///
/// A suite class may have these static hooks; they are found when the class is registered, and one
/// with the right name and a wrong signature does not compile:
///
///     static void customizeConfig(QLTDictionary& config, const QLTDictionary& stationInfo);
///     static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry,
///                                                        QLTError* error);
///     static bool onLoad(const QLTClass& cls, const QLTDictionary& stationInfo, QLTError* error);
///     static bool onUnload(QLTError* error);
///
/// `onLoad` and `onUnload` are inherited from `QLTestSuite` unless the class has its own.
///
/// Immutable once registered; any thread.
class QLT_EXPORT QLTClass {
 public:
  using SubTestInfos = std::vector<std::shared_ptr<QLTSubTestInfo>>;
  using MakeSuite = std::shared_ptr<QLTestSuite> (*)(std::string siteName);
  using MakeMethod = std::shared_ptr<QLTestMethod> (*)(std::shared_ptr<QLTestSuite> suite,
                                                       std::shared_ptr<QLTResources> resources,
                                                       std::optional<std::string> displayName,
                                                       SubTestInfos subTestInfos);
  using CustomizeConfig = void (*)(QLTDictionary& config, const QLTDictionary& stationInfo);
  using CreateInstrument = std::shared_ptr<QLTObject> (*)(const QLTDictionary& entry,
                                                          QLTError* error);
  using OnLoad = bool (*)(const QLTClass& cls, const QLTDictionary& stationInfo, QLTError* error);
  using OnUnload = bool (*)(QLTError* error);

  /// What a class offers; a null entry is one that it does not have.
  struct Operations {
    MakeSuite makeSuite = nullptr;                ///< set for suite classes
    MakeMethod makeMethod = nullptr;              ///< set for test-method classes
    CustomizeConfig customizeConfig = nullptr;    ///< set when a suite class has the hook
    CreateInstrument createInstrument = nullptr;  ///< set when a suite class has the hook
    OnLoad onLoad = nullptr;                      ///< set for suite classes
    OnUnload onUnload = nullptr;                  ///< set for suite classes
  };

  /// Enters a class into the bundle that is being opened on this thread, else into the main bundle.
  /// Called through `QLT_CLASS`. Gives the class that has the name there from now on.
  static const QLTClass* registerClass(std::string name, const Operations& operations);

  /// The class that `T` was registered as, so `QLTClass::of<BoardSuite>()->bundle()` is the bundle
  /// that a plug-in finds its resources in. Null when `T` is not registered, or not yet.
  template <typename T>
  static const QLTClass* of();

  const std::string& name() const { return name_; }             ///< as `QLT_CLASS` was given it
  const QLTBundle& bundle() const { return *bundle_; }          ///< where it was registered
  const Operations& operations() const { return operations_; }  ///< what it offers

 private:
  QLTClass(std::string name, const Operations& operations, const QLTBundle* bundle)
      : name_(std::move(name)), operations_(operations), bundle_(bundle) {}

  std::string name_;
  Operations operations_;
  const QLTBundle* bundle_;
};

namespace quillon::internal {

struct HookNames {
  int customizeConfig;
  int createInstrument;
};
// A class that has a member of one of these names, whatever its form, makes the name ambiguous
// here. (A plain look-up would take an overloaded or private hook for none, and the hook would
// silently never run.)
template <typename T>
struct HookProbe : T, HookNames {};

template <typename T>
constexpr bool hasCustomizeConfig() {
  if constexpr (std::is_final_v<T>) {
    return requires { &T::customizeConfig; };
  } else {
    return !requires { &HookProbe<T>::customizeConfig; };
  }
}

template <typename T>
constexpr bool hasCreateInstrument() {
  if constexpr (std::is_final_v<T>) {
    return requires { &T::createInstrument; };
  } else {
    return !requires { &HookProbe<T>::createInstrument; };
  }
}

template <typename T>
QLTClass::Operations operationsOf() {
  QLTClass::Operations operations;
  if constexpr (std::is_base_of_v<QLTestSuite, T>) {
    static_assert(std::is_constructible_v<T, std::string>,
                  "a suite class is made with its site's name: 'using QLTestSuite::QLTestSuite;'");
    operations.makeSuite = [](std::string siteName) -> std::shared_ptr<QLTestSuite> {
      return std::make_shared<T>(std::move(siteName));
    };
    // A compile error in one of these lines means: the hook's signature differs from the one told
    // at QLTClass.
    if constexpr (hasCustomizeConfig<T>()) {
      operations.customizeConfig = static_cast<QLTClass::CustomizeConfig>(&T::customizeConfig);
    }
    if constexpr (hasCreateInstrument<T>()) {
      operations.createInstrument = static_cast<QLTClass::CreateInstrument>(&T::createInstrument);
    }
    operations.onLoad = static_cast<QLTClass::OnLoad>(&T::onLoad);
    operations.onUnload = static_cast<QLTClass::OnUnload>(&T::onUnload);
  } else {
    static_assert(std::is_base_of_v<QLTestMethod, T>,
                  "QLT_CLASS registers classes derived from QLTestSuite or QLTestMethod");
    static_assert(
        std::is_constructible_v<T, std::shared_ptr<QLTestSuite>, std::shared_ptr<QLTResources>,
                                std::optional<std::string>, QLTClass::SubTestInfos>,
        "a test method is made with suite, resources, name and sub-tests: "
        "'using QLTestMethod::QLTestMethod;'");
    operations.makeMethod =
        [](std::shared_ptr<QLTestSuite> suite, std::shared_ptr<QLTResources> resources,
           std::optional<std::string> displayName,
           QLTClass::SubTestInfos subTestInfos) -> std::shared_ptr<QLTestMethod> {
      return std::make_shared<T>(std::move(suite), std::move(resources), std::move(displayName),
                                 std::move(subTestInfos));
    };
  }
  return operations;
}

template <typename T>
struct ClassRegistration {
  explicit ClassRegistration(const char* name) {
    registered = QLTClass::registerClass(name, operationsOf<T>());
  }
  // Hidden, whatever the plug-in is compiled with: another plug-in's class of the same name has its
  // own.
  [[gnu::visibility("hidden")]] static inline const QLTClass* registered = nullptr;
};

}  // namespace quillon::internal

template <typename T>
const QLTClass* QLTClass::of() {
  return quillon::internal::ClassRegistration<T>::registered;
}
