#include "QLTBundle.h"

#include <map>
#include <utility>
#include <vector>

#include <dlfcn.h>

#include <QLTErrorCodes.h>
#include <QLTPropertyList.h>

#include "common/Format.h"
#include "platform/BundleLoading.h"
#include "platform/FrameworkVersion.h"

namespace fs = std::filesystem;
using quillon::internal::bundleBeingOpened;
using quillon::internal::format;

namespace quillon::internal {

QLTBundle*& bundleBeingOpened() {
  thread_local QLTBundle* bundle = nullptr;
  return bundle;
}

}  // namespace quillon::internal

namespace {

void fail(QLTError* error, std::string description) {
  if (error != nullptr) {
    *error = QLTError::withDescription(QLTFrameworkErrorDomain, kQLTErrorBundleUnusable,
                                       std::move(description));
  }
}

/// The text under `key`, which must be there; otherwise reports the key.
const std::string* requiredText(const QLTDictionary& info, const fs::path& infoPath,
                                std::string_view key, QLTError* error) {
  const QLTValue* value = info.find(key);
  if (value == nullptr) {
    fail(error, format("%@: the key \"%@\" is missing", infoPath.string(), key));
    return nullptr;
  }
  const std::string* text = value->string();
  if (text == nullptr || text->empty()) {
    fail(error, format("%@:%d:%d: %@: expected a text", infoPath.string(), value->position().line,
                       value->position().column, key));
    return nullptr;
  }
  return text;
}

std::string textOr(const QLTDictionary& info, std::string_view key, std::string otherwise) {
  const QLTValue* value = info.find(key);
  return value == nullptr ? std::move(otherwise) : value->text();
}

/// All bundles that were opened, by canonical path. Never destroyed: their code is never unloaded.
struct Registry {
  std::recursive_mutex mutex;  // a plug-in's static initialiser may open another bundle
  std::map<fs::path, std::unique_ptr<QLTBundle>> bundles;
  std::vector<std::unique_ptr<QLTBundle>> refused;  // their objects stay open, so they must stay
};

Registry& registry() {
  static Registry* const instance = new Registry;
  return *instance;
}

}  // namespace

QLTBundle::QLTBundle(fs::path path, QLTDictionary info)
    : path_(std::move(path)),
      info_(std::move(info)),
      identifier_(textOr(info_, "BundleIdentifier", "")) {
  if (const QLTValue* version = info_.find("BundleVersion")) version_ = version->text();
}

QLTBundle::~QLTBundle() = default;

const QLTBundle* QLTBundle::open(const fs::path& path, QLTError* error) {
  std::error_code status;
  const fs::path canonical = fs::canonical(path, status);
  if (status) {
    fail(error, path.string() + ": " + status.message());
    return nullptr;
  }
  Registry& opened = registry();
  const std::lock_guard lock(opened.mutex);
  const auto known = opened.bundles.find(canonical);
  if (known != opened.bundles.end()) return known->second.get();
  std::unique_ptr<QLTBundle> bundle = load(canonical, error);
  if (!bundle) return nullptr;
  return opened.bundles.emplace(canonical, std::move(bundle)).first->second.get();
}

std::unique_ptr<QLTBundle> QLTBundle::load(const fs::path& path, QLTError* error) {
  const fs::path infoPath = path / "Contents" / "Info.plist";
  std::optional<QLTDictionary> info = QLTPropertyList::readDictionary(infoPath, error);
  if (!info) return nullptr;
  const std::string* builtFor = requiredText(*info, infoPath, "FrameworkVersion", error);
  if (builtFor == nullptr) return nullptr;
  // Before any of its code runs: an object built for another interface may crash while it is
  // opened.
  if (!quillon::internal::frameworkVersionFits(*builtFor, quillon::internal::frameworkVersion())) {
    fail(error, format("%@: built for framework version %@, which framework version %@ cannot run; "
                       "rebuild the plug-in",
                       path.string(), *builtFor, quillon::internal::frameworkVersion()));
    return nullptr;
  }
  const std::string* executable = requiredText(*info, infoPath, "Executable", error);
  if (executable == nullptr) return nullptr;
  const fs::path executablePath = path / "Contents" / *executable;

  std::unique_ptr<QLTBundle> bundle(new QLTBundle(path, *std::move(info)));
  QLTBundle* const outer = std::exchange(bundleBeingOpened(), bundle.get());
  // Local: two plug-ins may define the same names.
  void* const handle = dlopen(executablePath.c_str(), RTLD_NOW | RTLD_LOCAL);
  bundleBeingOpened() = outer;
  if (handle == nullptr) {
    const char* const reason = dlerror();
    fail(error, format("%@: cannot be opened: %@", executablePath.string(),
                       reason != nullptr ? reason : "unknown reason"));
    return nullptr;
  }
  if (bundle->classes_.empty()) {
    fail(error,
         format("%@: registers no class with QLT_CLASS, or is open under another path already",
                executablePath.string()));
    return nullptr;
  }
  if (!bundle->registeredTwice_.empty()) {
    fail(error, format("%@: the class %@ is registered twice", executablePath.string(),
                       bundle->registeredTwice_.front()));
    registry().refused.push_back(std::move(bundle));
    return nullptr;
  }
  return bundle;
}

const QLTBundle& QLTBundle::frameworkBundle() {
  static const QLTBundle* const instance = new QLTBundle(
      fs::path(), QLTDictionary{{"BundleIdentifier", "org.quillon.framework"},
                                {"BundleVersion", quillon::internal::frameworkVersion()}});
  return *instance;
}

const QLTBundle& QLTBundle::mainBundle() {
  static const QLTBundle* const instance = new QLTBundle(fs::path(), QLTDictionary{});
  return *instance;
}

std::optional<fs::path> QLTBundle::pathForResource(std::string_view name,
                                                   std::string_view type) const {
  if (path_.empty()) return std::nullopt;
  fs::path resource = path_ / "Contents" / "Resources" / format("%@.%@", name, type);
  std::error_code status;
  if (!fs::exists(resource, status)) return std::nullopt;
  return resource;
}

const QLTClass* QLTBundle::classNamed(std::string_view name) const {
  const std::lock_guard lock(mutex_);
  const auto found = classes_.find(name);
  return found == classes_.end() ? nullptr : found->second.get();
}

const QLTClass* QLTBundle::principalClass() const {
  const QLTValue* name = info_.find("PrincipalClass");
  return name == nullptr ? nullptr : classNamed(name->text());
}

std::vector<std::string> QLTBundle::classNames() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> names;
  names.reserve(classes_.size());
  for (const auto& entry : classes_) names.push_back(entry.first);
  return names;
}

bool QLTBundle::add(const std::string& name, std::shared_ptr<const QLTClass> cls) const {
  const std::lock_guard lock(mutex_);
  return classes_.emplace(name, std::move(cls)).second;
}
