#pragma once

#include <memory>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>
#include <QLTInstrumentDescription.h>
#include <QLTObject.h>
#include <QLTValue.h>

/// Makes the instruments of a bench from the lines of the tester-config file. A plug-in hands its
/// hooks on to it, and names the instruments' classes in the file:
///
///     static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry,
///                                                        QLTError* error) {
///       return QLTBench::createInstrument(entry, error);
///     }
///     static std::vector<QLTInstrumentDescription> instrumentClasses() {
///       return QLTBench::instrumentClasses();
///     }
///
/// Stateless; any thread.
class QLT_EXPORT QLTBench {
 public:
  /// Makes the instrument that one entry of the configuration describes; `instrumentClasses` tells
  /// the classes and their attributes. A "sim" whose integer reading is 1 gives one without
  /// hardware.
  ///
  /// An instrument whose line does not open is made with the line lost (`QLTReopenable`), and the
  /// error is set: the station opens it again before a device is tested.
  ///
  /// Null with an error when there is none: -70000 for a class that is none of the library's, with
  /// the names of those that are; -60000 for a missing attribute; -40003 for one whose text is not
  /// of its form; or the instrument's own.
  static std::shared_ptr<QLTObject> createInstrument(const QLTDictionary& entry,
                                                     QLTError* error = nullptr);

  /// What `createInstrument` makes, by the names of the classes.
  static std::vector<QLTInstrumentDescription> instrumentClasses();
};
