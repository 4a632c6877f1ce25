// Compiles as it is; with one of the WRONG_... macros a hook has the right name and would never be
// called, and must not compile.

#include <QLTestSuite.h>

#ifdef WRONG_final
class HookSuite final : public QLTestSuite {
#else
class HookSuite : public QLTestSuite {
#endif
 public:
  using QLTestSuite::QLTestSuite;

#ifdef WRONG_overload
  static void createInstrument(int slot);
  static std::shared_ptr<QLTObject> createInstrument(QLTDictionary& entry, QLTError* error);
#define WRONG_createInstrument
#endif
#ifdef WRONG_access
 private:
#endif
#ifdef WRONG_customizeConfig
  static void customizeConfig(QLTDictionary& config);
#else
  static void customizeConfig(QLTDictionary& config, const QLTDictionary& stationInfo);
#endif
#ifdef WRONG_createInstrument
  static QLTObject* createInstrument(const QLTDictionary& entry, QLTError* error);
#else
  static void createInstrument(int slot);  // an overload beside the hook does no harm
  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry, QLTError* error);
#endif
#ifdef WRONG_instrumentClasses
  static std::vector<std::string> instrumentClasses();
#else
  static std::vector<QLTInstrumentDescription> instrumentClasses();
#endif
#ifdef WRONG_onLoad
  static void onLoad(const QLTClass& cls, const QLTDictionary& stationInfo, QLTError* error);
#else
  static bool onLoad(const QLTClass& cls, const QLTDictionary& stationInfo, QLTError* error);
#endif
#ifdef WRONG_onUnload
  bool onUnload(QLTError* error);
#else
  static bool onUnload(QLTError* error);
#endif
#ifdef WRONG_onSafeState
  bool onSafeState();
#elif defined(WRONG_constSafeState)
  bool onSafeState(QLTError* error) const;
#elif defined(WRONG_onSafeStateOverload)
void onSafeState(int slot);
bool onSafeState(QLTError& error);
#else
#ifdef WRONG_onSafeStateAccess
private:
#endif
void onSafeState(int slot);  // an overload beside the hook does no harm
bool onSafeState(QLTError* error) override;
#endif
};
QLT_CLASS(HookSuite);

// Nor does a suite that inherits the hook, from another one or from QLTestSuite, and may close it.
#if !defined(WRONG_final)
class HeirSuite : public HookSuite {
 public:
  using HookSuite::HookSuite;
};
QLT_CLASS(HeirSuite);
#endif
class PlainSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;
  bool onSafeState(QLTError* error) final;
};
QLT_CLASS(PlainSuite);
