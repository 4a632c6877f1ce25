#pragma once

#include <vector>

#include <QLTInstrumentDescription.h>
#include <QLTestSuite.h>

/// The principal class of the plug-in: what the plug-in adds to loading a station, and what happens
/// around each board.
class BoardSuite : public QLTestSuite {
 public:
  using QLTestSuite::QLTestSuite;

  // Loading. The framework finds these hooks by their names.

  /// Gives the simulated instruments their replies, before any instrument is made.
  static void customizeConfig(QLTDictionary& config, const QLTDictionary& stationInfo);
  /// Makes the instruments that the framework does not know.
  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry, QLTError* error);

  /// What "quillon check" holds their lines of the tester-config file to.
  static std::vector<QLTInstrumentDescription> instrumentClasses();

  // Around each board. Whatever became of the board, it is without power when somebody takes it
  // out.

  /// Notes which board of the run this is, as the attribute "round", for tests to read.
  std::shared_ptr<QLTObject> onDUTStart(const QLTDictionary& dutInfo, QLTError* error) override;
  bool onDUTFinished(QLTError* error) override;
  bool onDUTFail(QLTError* error) override;
  bool onException(QLTError* error) override;
  /// After a crash, say, on instruments that were made anew: nobody knows what is switched on.
  bool onSafeState(QLTError* error) override;

 private:
  bool powerDown(QLTError* error);
};
