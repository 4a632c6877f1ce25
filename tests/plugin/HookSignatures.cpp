// Compiles as it is; with one of the WRONG_... macros a hook has the right name and a wrong
// signature, and must not compile.

#include <QLTestSuite.h>

class HookSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

#ifdef WRONG_customizeConfig
  static void customizeConfig(QLTDictionary& config);
#else
  static void customizeConfig(QLTDictionary& config, const QLTDictionary& stationInfo);
#endif
#ifdef WRONG_createInstrument
  static QLTObject* createInstrument(const QLTDictionary& entry, QLTError* error);
#else
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
