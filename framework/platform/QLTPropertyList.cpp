#include "QLTPropertyList.h"

#include <QLTErrorCodes.h>

#include "common/Format.h"
#include "platform/BinaryPropertyList.h"
#include "platform/TextFile.h"
#include "platform/XmlPropertyList.h"

using quillon::internal::format;
using quillon::internal::PropertyListComplaint;

namespace {

void setMalformed(QLTError* error, const std::string& name,
                  const PropertyListComplaint& complaint) {
  if (error == nullptr) return;
  const QLTPosition at = complaint.position;
  std::string description = name;
  if (at.line > 0) {
    description += format(":%d:%d", at.line, at.column);
  } else if (complaint.offset) {
    description += format(":offset %d", *complaint.offset);
  }
  description += ": " + complaint.keyPath + (complaint.keyPath.empty() ? "" : ": ");
  *error = {QLTFrameworkErrorDomain,
            kQLTErrorPropertyListMalformed,
            {{kQLTErrorDescriptionKey, description + complaint.reason},
             {"file", name},
             {"line", at.line},
             {"column", at.column},
             {"keyPath", complaint.keyPath},
             {"reason", complaint.reason}}};
}

}  // namespace

std::optional<QLTValue> QLTPropertyList::read(const std::filesystem::path& path, QLTError* error) {
  const std::optional<std::string> bytes = quillon::internal::readFile(path, error);
  if (!bytes) return std::nullopt;
  return parse(*bytes, path.string(), error);
}

std::optional<QLTDictionary> QLTPropertyList::readDictionary(const std::filesystem::path& path,
                                                             QLTError* error) {
  std::optional<QLTValue> root = read(path, error);
  if (!root) return std::nullopt;
  if (QLTDictionary* dictionary = root->dictionary()) return std::move(*dictionary);
  setMalformed(error, path.string(),
               {root->position(), std::nullopt, "", "the root is not a dictionary"});
  return std::nullopt;
}

std::optional<QLTValue> QLTPropertyList::parse(std::string_view bytes, const std::string& name,
                                               QLTError* error) {
  PropertyListComplaint complaint;
  std::optional<QLTValue> value = quillon::internal::isBinaryPropertyList(bytes)
                                      ? quillon::internal::parseBinaryPropertyList(bytes, complaint)
                                      : quillon::internal::parseXmlPropertyList(bytes, complaint);
  if (!value) setMalformed(error, name, complaint);
  return value;
}
