#include "QLTPropertyList.h"

#include <QLTErrorCodes.h>

#include "platform/BinaryPropertyList.h"
#include "platform/Failed.h"
#include "platform/Place.h"
#include "platform/TextFile.h"
#include "platform/XmlPropertyList.h"

using quillon::internal::failWith;
using quillon::internal::PropertyListComplaint;

namespace {

constexpr std::size_t kMostBytes = std::size_t{256} << 20U;  // of a file

QLTError malformed(const std::string& name, const PropertyListComplaint& complaint) {
  return quillon::internal::placedError(kQLTErrorPropertyListMalformed,
                                        {name, complaint.position, complaint.keyPath},
                                        complaint.reason);
}

}  // namespace

std::optional<QLTValue> QLTPropertyList::read(const std::filesystem::path& path, QLTError* error) {
  const std::optional<std::string> bytes =
      quillon::internal::readRegularFile(path, kMostBytes, error);
  if (!bytes) return std::nullopt;
  return parse(*bytes, path.string(), error);
}

std::optional<QLTDictionary> QLTPropertyList::readDictionary(const std::filesystem::path& path,
                                                             QLTError* error) {
  std::optional<QLTValue> root = read(path, error);
  if (!root) return std::nullopt;
  if (QLTDictionary* dictionary = root->dictionary()) return std::move(*dictionary);
  return failWith(error,
                  malformed(path.string(), {root->position(), "", "the root is not a dictionary"}));
}

std::optional<QLTValue> QLTPropertyList::parse(std::string_view bytes, const std::string& name,
                                               QLTError* error) {
  PropertyListComplaint complaint;
  std::optional<QLTValue> value = quillon::internal::isBinaryPropertyList(bytes)
                                      ? quillon::internal::parseBinaryPropertyList(bytes, complaint)
                                      : quillon::internal::parseXmlPropertyList(bytes, complaint);
  if (!value) return failWith(error, malformed(name, complaint));
  return value;
}
