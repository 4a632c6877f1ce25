#pragma once

#include <QLTestSuite.h>

/// The principal class of the plug-in. Each site of the station gets an object of it, which holds
/// the site's instruments and flows.
class NewPluginSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

  /// Gives the simulated console its replies, before any instrument is made. The framework finds
  /// this hook by its name.
  static void customizeConfig(QLTDictionary& config, const QLTDictionary& stationInfo);

  /// Takes the device's power away when nobody knows what became of it: after a crash of the
  /// plug-in, or when a test had to be ended. The instruments are freshly made.
  bool onSafeState(QLTError* error) override;
};
