#pragma once

#include <memory>
#include <string>
#include <variant>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTValue.h>

/// The factory of the instruments that the framework itself knows. Stateless; any thread.
class QLT_EXPORT QLTInstruments {
 public:
  /// An instrument (null when it could not be made), or the marker of an instrument class that the
  /// framework does not know: the text "unknown instrument".
  using InstrumentOrMarker = std::variant<std::shared_ptr<QLTObject>, std::string>;

  /// Makes the instrument that one entry of the configuration describes. The spelling of the name
  /// is the interface's own.
  ///
  /// The entry's "class" (blanks and tabs around it do not count) says what is made:
  /// - "QLTDiags": a console on the serial port "bsdPath", opened with the port's defaults;
  /// - "QLTDavDPEther": a unit at the address "ip", TCP port 9760;
  /// - "QLTDavDPSerial": a unit on the serial port "bsdPath", opened with the unit's line settings;
  /// - anything else, or none: the marker, and `error` is left alone.
  /// A "sim" whose integer reading is 1 puts the simulated port or socket in the real one's place.
  ///
  /// Errors: -60000 for a missing "bsdPath" or "ip" (a value that is not a text counts as missing),
  /// -21001 for an object that could not be made, with the socket's error as the underlying one
  /// where there was no connection; a port that does not open keeps its own code and domain.
  static InstrumentOrMarker creaeteInstrument(const QLTDictionary& entry,
                                              QLTError* error = nullptr);
};
