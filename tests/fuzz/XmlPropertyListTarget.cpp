#include "EntryPoints.h"
#include "PropertyListProperties.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (!bytes.starts_with("bplist")) fuzz::checkPropertyList(bytes);
  return 0;
}
