#include "TypeName.h"

#include <cstdlib>
#include <memory>

#include <cxxabi.h>

namespace quillon::internal {

std::string typeName(const char* mangled) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
  return status == 0 && name ? name.get() : mangled;
}

}  // namespace quillon::internal
