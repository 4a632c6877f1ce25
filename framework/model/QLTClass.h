#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include <QLTBundle.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTInstrumentDescription.h>
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
/// A suite class may have these public static hooks; they are found when the class is registered,
/// and one with the right name that cannot be called as it stands here does not compile:
///
///     static void customizeConfig(QLTDictionary& config, const QLTDictionary& stationInfo);
///     static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry,
///                                                        QLTError* error);
///     static std::vector<QLTInstrumentDescription> instrumentClasses();
///     static bool onLoad(const QLTClass& cls, const QLTDictionary& stationInfo, QLTError* error);
///     static bool onUnload(QLTError* error);
///
/// `instrumentClasses` describes all that `createInstrument` makes, for the check of a
/// configuration, to which another class is unknown then; loading does not ask it. `onLoad` and
/// `onUnload` are inherited from `QLTestSuite` unless the class has its own. Of the hooks that are
/// virtual, `onSafeState` is held to the same: an operation of that name that does not override
/// `QLTestSuite`'s, or that is not public, does not compile.
///
/// A class need not be a type of C++: `registerClass` with a bundle enters anything that can make
/// suites or methods, with what it needs for that captured in its functions.
///
/// Immutable once registered; any thread. The functions are called by whoever loads or runs the
/// station, on the thread that does so.
class QLT_EXPORT QLTClass {
 public:
  using SubTestInfos = std::vector<std::shared_ptr<QLTSubTestInfo>>;
  using MakeSuite = std::function<std::shared_ptr<QLTestSuite>(std::string siteName)>;
  using MakeMethod = std::function<std::shared_ptr<QLTestMethod>(
      std::shared_ptr<QLTestSuite> suite, std::shared_ptr<QLTResources> resources,
      std::optional<std::string> displayName, SubTestInfos subTestInfos)>;
  using CustomizeConfig =
      std::function<void(QLTDictionary& config, const QLTDictionary& stationInfo)>;
  using CreateInstrument =
      std::function<std::shared_ptr<QLTObject>(const QLTDictionary& entry, QLTError* error)>;
  using InstrumentClasses = std::function<std::vector<QLTInstrumentDescription>()>;
  using OnLoad =
      std::function<bool(const QLTClass& cls, const QLTDictionary& stationInfo, QLTError* error)>;
  using OnUnload = std::function<bool(QLTError* error)>;

  /// What a class offers; an empty entry is one that it does not have. What the functions capture
  /// lasts as long as the process.
  struct Operations {
    MakeSuite makeSuite;                       ///< set for suite classes
    MakeMethod makeMethod;                     ///< set for test-method classes
    CustomizeConfig customizeConfig;           ///< set when a suite class has the hook
    CreateInstrument createInstrument;         ///< set when a suite class has the hook
    OnLoad onLoad;                             ///< set for suite classes
    OnUnload onUnload;                         ///< set for suite classes
    InstrumentClasses instrumentClasses = {};  ///< set when a suite class has the hook
    /// The type of a suite class that has none of `onDUTFinished`, `onDUTFail` and `onException` of
    /// its own; null for any other. The station application need not call them for a suite of that
    /// very type, so its verdict comes the sooner.
    const std::type_info* withoutEndHooks = nullptr;
  };

  /// Enters a class into the bundle whose shared object is being opened on this thread, which is
  /// that of the plug-in whose static objects are made, else into the main bundle. Called through
  /// `QLT_CLASS`. Gives the class that has the name there from now on.
  static const QLTClass* registerClass(const std::string& name, Operations operations);

  /// Enters a class into `bundle` at any time, so that its configuration and its `Info.plist` can
  /// name it. A suite class without `onLoad` or `onUnload` gets those of `QLTestSuite`. Null, with
  /// code -40006, when the bundle has a class of that name, the name is empty, or `operations` are
  /// not those of either a suite or a test method.
  static const QLTClass* registerClass(const QLTBundle& bundle, const std::string& name,
                                       Operations operations, QLTError* error = nullptr);

  /// The class that `T` was registered as, so `QLTClass::of<BoardSuite>()->bundle()` is the bundle
  /// that a plug-in finds its resources in. Null when `T` is not registered, or not yet.
  template <typename T>
  static const QLTClass* of();

  const std::string& name() const { return name_; }             ///< as it was registered
  const QLTBundle& bundle() const { return *bundle_; }          ///< where it was registered
  const Operations& operations() const { return operations_; }  ///< what it offers
  /// The names of the hooks that a suite class has of its own, so without what it inherits from
  /// `QLTestSuite`, in the order of their calls.
  const std::vector<std::string>& hookNames() const { return hookNames_; }

 private:
  QLTClass(std::string name, Operations operations, const QLTBundle* bundle);

  std::string name_;
  Operations operations_;
  const QLTBundle* bundle_;
  std::vector<std::string> hookNames_;
};

namespace quillon::internal {

struct HookNames {
  int customizeConfig;
  int createInstrument;
  int instrumentClasses;
};
// A class that has a member of one of these names, whatever its form, makes the name ambiguous
// here. (A plain look-up would take an overloaded or private hook for none, and the hook would
// silently never run.)
template <typename T>
struct HookProbe : T, HookNames {};

template <typename T>
constexpr bool hasCustomizeConfig() {
  return !requires { &HookProbe<T>::customizeConfig; };
}

template <typename T>
constexpr bool hasCreateInstrument() {
  return !requires { &HookProbe<T>::createInstrument; };
}

template <typename T>
constexpr bool hasInstrumentClasses() {
  return !requires { &HookProbe<T>::instrumentClasses; };
}

// Whether a device's end calls anything but the base's operations. In doubt it does: an overloaded
// or private operation has no such pointer.
template <typename T, typename Base>
constexpr bool hasEndHooks() {
  using OfBase = bool (Base::*)(QLTError*);
  return !requires {
    requires std::is_same_v<decltype(&T::onDUTFinished), OfBase>;
    requires std::is_same_v<decltype(&T::onDUTFail), OfBase>;
    requires std::is_same_v<decltype(&T::onException), OfBase>;
  };
}

// The hooks as they must be. A function object takes more than that: other results, for example.
using CustomizeConfigHook = void(QLTDictionary&, const QLTDictionary&);
using CreateInstrumentHook = std::shared_ptr<QLTObject>(const QLTDictionary&, QLTError*);
using InstrumentClassesHook = std::vector<QLTInstrumentDescription>();
using OnLoadHook = bool(const QLTClass&, const QLTDictionary&, QLTError*);
using OnUnloadHook = bool(QLTError*);
template <typename T>
using OnSafeStateHook = bool (T::*)(QLTError*);

/// What a suite class offers, without what it inherits. (`Base` is QLTestSuite, which is defined by
/// the time that this is used.)
template <typename T, typename Base = QLTestSuite>
QLTClass::Operations suiteOperationsOf() {
  static_assert(std::is_constructible_v<T, std::string>,
                "a suite class is made with its site's name: 'using QLTestSuite::QLTestSuite;'");
  QLTClass::Operations operations;
  operations.makeSuite = [](std::string siteName) -> std::shared_ptr<QLTestSuite> {
    return std::make_shared<T>(std::move(siteName));
  };
  if constexpr (std::is_final_v<T>) {
    static_assert(!std::is_final_v<T>,
                  "a suite class must not be final: its hooks could not be found for certain");
  } else {
    if constexpr (hasCustomizeConfig<T>()) {
      static_assert(
          requires { static_cast<CustomizeConfigHook*>(&T::customizeConfig); },
          "the hook must be public, and: static void customizeConfig(QLTDictionary& "
          "config, const QLTDictionary& stationInfo);");
      operations.customizeConfig = static_cast<CustomizeConfigHook*>(&T::customizeConfig);
    }
    if constexpr (hasCreateInstrument<T>()) {
      static_assert(
          requires { static_cast<CreateInstrumentHook*>(&T::createInstrument); },
          "the hook must be public, and: static std::shared_ptr<QLTObject> "
          "createInstrument(const QLTDictionary& entry, QLTError* error);");
      operations.createInstrument = static_cast<CreateInstrumentHook*>(&T::createInstrument);
    }
    if constexpr (hasInstrumentClasses<T>()) {
      static_assert(
          requires { static_cast<InstrumentClassesHook*>(&T::instrumentClasses); },
          "the hook must be public, and: static std::vector<QLTInstrumentDescription> "
          "instrumentClasses();");
      operations.instrumentClasses = static_cast<InstrumentClassesHook*>(&T::instrumentClasses);
    }
    static_assert(
        requires { static_cast<OnLoadHook*>(&T::onLoad); },
        "the hook must be public, and: static bool onLoad(const QLTClass& cls, const "
        "QLTDictionary& stationInfo, QLTError* error);");
    if (static_cast<OnLoadHook*>(&T::onLoad) != &Base::onLoad) {
      // Not the pointer: its type would become a part of a library's binary interface.
      operations.onLoad = [](const QLTClass& cls, const QLTDictionary& stationInfo,
                             QLTError* error) { return T::onLoad(cls, stationInfo, error); };
    }
    static_assert(
        requires { static_cast<OnUnloadHook*>(&T::onUnload); },
        "the hook must be public, and: static bool onUnload(QLTError* error);");
    if (static_cast<OnUnloadHook*>(&T::onUnload) != &Base::onUnload) {
      operations.onUnload = [](QLTError* error) { return T::onUnload(error); };
    }
    // The call is for the compiler that looks at access only then, where there are overloads.
    static_assert(
        requires(T & suite, QLTError * error) {
          static_cast<OnSafeStateHook<T>>(&T::onSafeState);
          suite.onSafeState(error);
        },
        "the hook must be public, and: bool onSafeState(QLTError* error) override;");
    if constexpr (!hasEndHooks<T, Base>()) operations.withoutEndHooks = &typeid(T);
  }
  return operations;
}

/// What a test-method class offers.
template <typename T>
QLTClass::Operations methodOperationsOf() {
  static_assert(std::is_base_of_v<QLTestMethod, T>,
                "QLT_CLASS registers classes derived from QLTestSuite or QLTestMethod");
  static_assert(
      std::is_constructible_v<T, std::shared_ptr<QLTestSuite>, std::shared_ptr<QLTResources>,
                              std::optional<std::string>, QLTClass::SubTestInfos>,
      "a test method is made with suite, resources, name and sub-tests: "
      "'using QLTestMethod::QLTestMethod;'");
  QLTClass::Operations operations;
  operations.makeMethod = [](std::shared_ptr<QLTestSuite> suite,
                             std::shared_ptr<QLTResources> resources,
                             std::optional<std::string> displayName,
                             QLTClass::SubTestInfos subTestInfos) -> std::shared_ptr<QLTestMethod> {
    return std::make_shared<T>(std::move(suite), std::move(resources), std::move(displayName),
                               std::move(subTestInfos));
  };
  return operations;
}

template <typename T>
QLTClass::Operations operationsOf() {
  if constexpr (std::is_base_of_v<QLTestSuite, T>) {
    return suiteOperationsOf<T>();
  } else {
    return methodOperationsOf<T>();
  }
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
