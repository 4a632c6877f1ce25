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
};
QLT_CLASS(HookSuite);
