#pragma once

#include <string>

/// Pieces of XML property lists.
namespace test::plist {

/// A dictionary's entry, on a line of its own.
inline std::string key(const std::string& name, const std::string& value) {
  return "<key>" + name + "</key>" + value + "\n";
}
inline std::string text(const std::string& value) { return "<string>" + value + "</string>"; }
inline std::string dict(const std::string& body) { return "<dict>" + body + "</dict>"; }
inline std::string array(const std::string& body) { return "<array>" + body + "</array>"; }

// A station's configuration with a site "left" and a flow "main".

inline const std::string kEmptyFlows =
    key("Flows", dict(key("main", array("")))) + key("defaultFlow", text("main"));
inline const std::string kLeftSite = key("Sites", dict(key("left", dict(""))));

/// One site, and one flow whose tests are `tests`.
inline std::string flowOf(const std::string& tests) {
  return kLeftSite + key("Flows", dict(key("main", array(tests)))) +
         key("defaultFlow", text("main"));
}
inline std::string testOf(const std::string& cls, const std::string& more = "") {
  return dict(key("class", text(cls)) + more);
}
inline std::string subTests(const std::string& entries) {
  return key("subTestInfos", array(entries));
}

}  // namespace test::plist
