#pragma once

#include <string>

#include "support/PluginBundle.h"

namespace test {

/// The trouble plug-in (see plugin/TroublePlugin.cpp) with a configuration of the test's own: the
/// sites "left" and "right", a disabled site "spare", and the flows "main" (the default), "other"
/// (one passing test), and "empty" where it is wanted.
class TroubleBundle {
 public:
  /// `suite` is "TroubleSuite", or "PlainSuite" for one without hooks.
  explicit TroubleBundle(const std::string& sharedObject, const std::string& suite = "TroubleSuite")
      : bundle_(sharedObject, suite) {}

  /// `tests` are the entries of the flow "main"; `attributes` those of the station attributes.
  void configure(const std::string& tests, const std::string& attributes = "",
                 const std::string& resources = "") const {
    bundle_.setConfig("<key>stationAttributes</key><dict><key>station</key><string>S1</string>" +
                      attributes + "</dict><key>Sites</key><dict><key>left</key><dict>" +
                      resources +
                      "</dict><key>right</key><dict/><key>spare</key><dict><key>disable</key>"
                      "<true/></dict></dict><key>defaultFlow</key><string>main</string>"
                      "<key>Flows</key><dict><key>main</key><array>" +
                      tests + "</array><key>other</key><array>" + test("Other", "") + "</array>" +
                      emptyFlow_ + "</dict>");
  }
  /// Has the configurations that follow contain the flow "empty".
  void addEmptyFlow() { emptyFlow_ = "<key>empty</key><array/>"; }

  /// A test entry; its sub-test "volts" has the limits 1 and 2. `params` and `more` are entries of
  /// the parameters and of the test.
  static std::string test(const std::string& name, const std::string& params,
                          const std::string& more = "") {
    return "<dict><key>class</key><string>TroubleTest</string><key>displayName</key><string>" +
           name + "</string><key>params</key><dict>" + params +
           "</dict><key>subTestInfos</key><array><dict><key>name</key><string>volts</string>"
           "<key>lowLimit</key><integer>1</integer><key>highLimit</key><integer>2</integer>"
           "</dict></array>" +
           more + "</dict>";
  }

  static std::string text(const std::string& key, const std::string& value) {
    return "<key>" + key + "</key><string>" + value + "</string>";
  }
  static std::string flag(const std::string& key, bool value = true) {
    return "<key>" + key + "</key>" + (value ? "<true/>" : "<false/>");
  }

  std::string path() const { return bundle_.path().string(); }
  const PluginBundle& bundle() const { return bundle_; }

 private:
  PluginBundle bundle_;
  std::string emptyFlow_;
};

}  // namespace test
