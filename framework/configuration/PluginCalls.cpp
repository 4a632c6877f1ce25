#include "PluginCalls.h"

#include <QLTErrorCodes.h>
#include <QLTUtil.h>

#include "common/Format.h"

namespace quillon::internal {

std::string bundleOf(const QLTClass& cls) {
  const std::filesystem::path& path = cls.bundle().path();
  return path.empty() ? "the program" : path.string();
}

QLTError pluginFault(const QLTClass& cls, const std::string& what) {
  return QLTUtil::handleError(kQLTErrorPluginClassUnusable,
                              format("%@: class %@: %@", bundleOf(cls), cls.name(), what));
}

QLTError customizeConfig(const QLTClass* principalClass, QLTDictionary& config,
                         const QLTDictionary& stationInfo) {
  if (principalClass == nullptr || principalClass->operations().customizeConfig == nullptr) {
    return {};
  }
  QLTError problem;
  callPlugin(
      *principalClass, "customizeConfig",
      [&] {
        principalClass->operations().customizeConfig(config, stationInfo);
        return true;
      },
      problem);
  return problem;
}

}  // namespace quillon::internal
