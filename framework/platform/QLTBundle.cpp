#include "QLTBundle.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <map>
#include <typeinfo>
#include <utility>
#include <vector>

#include <dlfcn.h>

#include <QLTConsoleLog.h>
#include <QLTErrorCodes.h>
#include <QLTPropertyList.h>

#include "common/Format.h"
#include "common/TypeName.h"
#include "platform/BundleLoading.h"
#include "platform/Failed.h"
#include "platform/FrameworkVersion.h"
#include "platform/Place.h"

namespace fs = std::filesystem;
using quillon::internal::bundleBeingOpened;
using quillon::internal::Failed;
using quillon::internal::failWith;
using quillon::internal::format;
using quillon::internal::Place;

namespace quillon::internal {

QLTBundle*& bundleBeingOpened() {
  thread_local QLTBundle* bundle = nullptr;
  return bundle;
}

}  // namespace quillon::internal

namespace {

constexpr std::string_view kInfoFile = "Contents/Info.plist";

Failed unusable(QLTError* error, const Place& place, std::string_view reason) {
  return failWith(error, quillon::internal::placedError(kQLTErrorBundleUnusable, place, reason));
}

bool isBundle(const fs::path& folder) {
  std::error_code ignored;
  return fs::is_regular_file(folder / kInfoFile, ignored);
}

/// The bundles that somebody who gave `path` may have meant: the one around it, else those within.
std::vector<std::string> bundlesNear(const fs::path& path) {
  for (fs::path around = path.parent_path(); around != around.parent_path();
       around = around.parent_path()) {
    if (isBundle(around)) return {around.string()};
  }
  std::vector<std::string> within;
  std::error_code status;
  for (fs::directory_iterator entry(path, status), end; !status && entry != end;
       entry.increment(status)) {
    if (isBundle(entry->path())) within.push_back(entry->path().string());
  }
  std::sort(within.begin(), within.end());
  return within;
}

/// Why `path` is no bundle; empty when it may be one.
std::string whyNoBundle(const fs::path& path) {
  std::error_code status;
  if (fs::is_directory(path / "Contents", status) || status == std::errc::permission_denied) {
    return {};
  }
  constexpr std::size_t mostNamed = 3;
  std::vector<std::string> near = bundlesNear(path);
  near.resize(std::min(near.size(), mostNamed));
  std::string text = "this is not a bundle, which is a folder with Contents/Info.plist in it";
  for (const std::string& path : near) {
    text += (&path == &near.front() ? "; did you mean " : " or ") + path;
  }
  return text + (near.empty() ? "" : "?");
}

/// Whether a path of the bundle's own leads to no place outside, as it is written. (Links in a
/// bundle may lead elsewhere: whoever installs them has a right to that.)
bool staysInside(const fs::path& relative) {
  return relative.is_relative() && std::none_of(relative.begin(), relative.end(),
                                                [](const fs::path& name) { return name == ".."; });
}

/// The content of `Info.plist`. A file that cannot be read gives the read's error, with the parts
/// of its text as values like those of other faults.
std::optional<QLTDictionary> readInfo(const fs::path& infoPath, QLTError* error) {
  QLTError problem;
  auto info = QLTPropertyList::readDictionary(infoPath, &problem);
  if (info) return info;
  if (problem.domain() != kQLTPosixErrorDomain) return failWith(error, problem);
  QLTDictionary userInfo = quillon::internal::placedError(
                               problem.code(), {infoPath.string()},
                               std::generic_category().message(static_cast<int>(problem.code())))
                               .userInfo();
  return failWith(error, {problem.domain(), problem.code(), std::move(userInfo)});
}

/// The text under `key`, which must be there; otherwise reports the key.
const std::string* requiredText(const QLTDictionary& info, const fs::path& infoPath,
                                std::string_view key, QLTError* error) {
  const QLTValue* const value = info.find(key);
  if (value == nullptr) {
    return unusable(error, {infoPath.string()}, format("the key \"%@\" is missing", key));
  }
  const std::string* const text = value->string();
  if (text == nullptr || text->empty()) {
    return unusable(error, {infoPath.string(), value->position(), std::string(key)},
                    "expected a text");
  }
  return text;
}

/// Says whose code it was, when an exception of that code ends the program: the system lets none
/// out of the opening of a shared object. For as long as it lives.
class LastWords {
 public:
  LastWords() : earlier_(std::set_terminate(speak)) {
    if (earlier_ != speak) next_ = earlier_;
  }
  ~LastWords() {
    // The plug-in may have set one of its own meanwhile.
    if (std::get_terminate() == speak) std::set_terminate(earlier_);
  }
  LastWords(const LastWords&) = delete;
  LastWords& operator=(const LastWords&) = delete;

 private:
  [[noreturn]] static void speak() {
    if (const QLTBundle* const bundle = bundleBeingOpened(); bundle != nullptr) {
      // A sink may keep its lines to itself, and is gone in a moment.
      QLTSetLogSink({});
      QLTLog(format("%@ ends the program while it is opened: a static object of its code threw %@",
                    bundle->path().string(), whatIsThrown()));
    }
    next_();
    std::abort();
  }
  static std::string whatIsThrown() {
    try {
      if (const std::exception_ptr thrown = std::current_exception()) {
        std::rethrow_exception(thrown);
      }
      return "nothing";
    } catch (const std::exception& exception) {
      return quillon::internal::typeName(typeid(exception).name()) + ": " + exception.what();
    } catch (...) {
      return "an exception of an unknown kind";
    }
  }

  static inline std::terminate_handler next_ = nullptr;
  const std::terminate_handler earlier_;
};

/// Opens a shared object; an exception of its static objects ends the program here, whichever
/// compiler this was built with.
void* openObject(const char* path) noexcept {
  // The system declares that opening throws nothing. What is thrown all the same, some compilers
  // let pass; by a pointer, which says no such thing, none does.
  void* (*volatile const open)(const char*, int) = &dlopen;
  // Local: two plug-ins may define the same names.
  return open(path, RTLD_NOW | RTLD_LOCAL);
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
    return unusable(error, {path.string()}, status.message());
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
  const std::string noBundle = whyNoBundle(path);
  if (!noBundle.empty()) return unusable(error, {path.string()}, noBundle);
  const fs::path infoPath = path / kInfoFile;
  std::optional<QLTDictionary> info = readInfo(infoPath, error);
  if (!info) return nullptr;
  const std::string* builtFor = requiredText(*info, infoPath, "FrameworkVersion", error);
  if (builtFor == nullptr) return nullptr;
  // Before any of its code runs: an object built for another interface may crash while it is
  // opened.
  if (!quillon::internal::frameworkVersionFits(*builtFor, quillon::internal::frameworkVersion())) {
    return unusable(error, {path.string()},
                    format("built for framework version %@, which framework version %@ cannot run; "
                           "rebuild the plug-in",
                           *builtFor, quillon::internal::frameworkVersion()));
  }
  const std::string* executable = requiredText(*info, infoPath, "Executable", error);
  if (executable == nullptr) return nullptr;
  if (!staysInside(*executable)) {
    return unusable(
        error, {infoPath.string(), info->find("Executable")->position(), "Executable"},
        format("\"%@\" leads out of the bundle", quillon::internal::shown(*executable)));
  }
  const fs::path executablePath = path / "Contents" / *executable;
  const Place object{executablePath.string()};

  std::unique_ptr<QLTBundle> bundle(new QLTBundle(path, *std::move(info)));
  // Its code may end the program, and this is the last chance to say which one did.
  QLTLog(format("opening the plug-in %@, version %@", path.string(),
                bundle->version().value_or("(none)")));
  QLTBundle* const outer = std::exchange(bundleBeingOpened(), bundle.get());
  void* const handle = [&] {
    const LastWords lastWords;
    return openObject(executablePath.c_str());
  }();
  bundleBeingOpened() = outer;
  if (handle == nullptr) {
    const char* const reason = dlerror();
    return unusable(error, object,
                    format("cannot be opened: %@", reason != nullptr ? reason : "unknown reason"));
  }
  if (bundle->classes_.empty()) {
    return unusable(error, object,
                    "registers no class with QLT_CLASS, or is open under another path already");
  }
  if (!bundle->registeredTwice_.empty()) {
    const std::string twice = bundle->registeredTwice_.front();
    registry().refused.push_back(std::move(bundle));
    return unusable(error, object, format("the class %@ is registered twice", twice));
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
  const fs::path relative = format("%@.%@", name, type);
  fs::path resource = path_ / "Contents" / "Resources" / relative;
  std::error_code ignored;
  if (!staysInside(relative) || !fs::is_regular_file(resource, ignored)) return std::nullopt;
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
