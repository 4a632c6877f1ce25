#pragma once

#include <string>
#include <vector>

namespace station {

/// A file that `quillon new` writes.
struct TemplateFile {
  std::string name;
  std::string content;
};

/// The files of templates/plugin: a plug-in project named kTemplateName.
const std::vector<TemplateFile>& pluginTemplate();

/// Stands in names and contents of the files for the name of the plug-in.
inline constexpr const char* kTemplateName = "NewPlugin";

}  // namespace station
