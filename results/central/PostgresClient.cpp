#include "PostgresClient.h"

#include <dlfcn.h>

namespace results {
namespace {

/// A library that stays loaded: threads of its own, or what it leaves to be done at the end of the
/// program, would not outlive it.
class Library {
 public:
  /// `name` as the system's loader knows it; `package` brings it.
  Library(const char* name, const char* package)
      : advice_(std::string("Install the package ") + package + "."),
        // At once: a function that is missing would end the program later.
        library_(dlopen(name, RTLD_NOW | RTLD_LOCAL)) {
    if (library_ == nullptr) fail();
  }

  template <typename Function>
  void take(Function& function, const char* name) const {
    function = reinterpret_cast<Function>(dlsym(library_, name));
    if (function == nullptr) fail();
  }

 private:
  [[noreturn]] void fail() const {
    const char* const reason = dlerror();
    throw NoLibrary(std::string("a library for PostgreSQL cannot be loaded: ") +
                        (reason != nullptr ? reason : "the loader gives no reason"),
                    advice_);
  }

  const std::string advice_;
  void* const library_;
};

}  // namespace

const PostgresClient& PostgresClient::get() {
  static const PostgresClient client = [] {
    const Library library(LIBPQ, LIBPQ_PACKAGE);
    PostgresClient loaded;
#define RESULTS_POSTGRES_TAKE(name) library.take(loaded.name, #name);
    RESULTS_POSTGRES_FUNCTIONS(RESULTS_POSTGRES_TAKE)
#undef RESULTS_POSTGRES_TAKE
    return loaded;
  }();
  return client;
}

const PostgresBackend& PostgresBackend::get() {
  static const PostgresBackend backend = [] {
    const Library library(LIBSOCI_POSTGRESQL, LIBSOCI_POSTGRESQL_PACKAGE);
    const soci::backend_factory* (*factory)() = nullptr;
    library.take(factory, "factory_postgresql");
    PostgresBackend loaded;
    loaded.factory = factory();
    // postgresql_soci_error::sqlstate() const
    library.take(loaded.stateOf, "_ZNK4soci21postgresql_soci_error8sqlstateB5cxx11Ev");
    return loaded;
  }();
  return backend;
}

}  // namespace results
