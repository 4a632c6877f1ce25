#include "QLTPropertyList.h"

#include "BinaryPropertyList.h"
#include "Format.h"
#include "TextFile.h"
#include "XmlPropertyList.h"

namespace {

constexpr std::int64_t kMalformed = -40004;

void setMalformed(QLTError* error, std::string description) {
  if (error != nullptr) {
    *error = QLTError::withDescription(QLTFrameworkErrorDomain, kMalformed, std::move(description));
  }
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
  const QLTPosition at = root->position();
  setMalformed(error, path.string() +
                          (at.line > 0 ? quillon::internal::format(":%d:%d", at.line, at.column)
                                       : std::string()) +
                          ": the root is not a dictionary");
  return std::nullopt;
}

std::optional<QLTValue> QLTPropertyList::parse(std::string_view bytes, const std::string& name,
                                               QLTError* error) {
  std::string complaint;
  std::optional<QLTValue> value = quillon::internal::isBinaryPropertyList(bytes)
                                      ? quillon::internal::parseBinaryPropertyList(bytes, complaint)
                                      : quillon::internal::parseXmlPropertyList(bytes, complaint);
  if (!value) setMalformed(error, name + ":" + complaint);
  return value;
}
