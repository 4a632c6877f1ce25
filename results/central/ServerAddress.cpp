#include "ServerAddress.h"

#include <memory>
#include <string_view>

#include <libpq-fe.h>

namespace results {
namespace {

using Options = std::unique_ptr<PQconninfoOption, void (*)(PQconninfoOption*)>;

std::map<std::string, std::string> settingsOf(const Options& options) {
  std::map<std::string, std::string> settings;
  for (const PQconninfoOption* option = options.get(); option->keyword != nullptr; ++option) {
    if (option->val != nullptr) settings[option->keyword] = option->val;
  }
  return settings;
}

std::string valueOr(const std::map<std::string, std::string>& settings, const std::string& name,
                    const std::string& otherwise) {
  const auto found = settings.find(name);
  return found == settings.end() || found->second.empty() ? otherwise : found->second;
}

}  // namespace

bool ServerAddress::isMeant(const std::string& text) {
  return text.starts_with("postgresql://") || text.starts_with("postgres://");
}

ServerAddress::ServerAddress(const std::string& url) : url_(url) {
  constexpr const char* kForm = "It has the form postgresql://USER@HOST/DATABASE.";
  if (!isMeant(url)) throw NoAddress("the server's address is no postgresql:// URL", kForm);
  // What the library says of an address that it cannot read may hold a password.
  const Options options(PQconninfoParse(url.c_str(), nullptr), PQconninfoFree);
  if (!options) throw NoAddress("the server's address is no URL that PostgreSQL knows", kForm);
  settings_ = settingsOf(options);
  for (const char* const secret : {"password", "sslpassword"}) {
    if (settings_.contains(secret)) {
      throw NoAddress(
          "the server's address has a password, which everybody on this computer could read",
          "Put it into ~/.pgpass, a file that PGPASSFILE names, or a service file, and leave it "
          "out here.");
    }
  }
  // What is not given comes from the environment, or is the library's own choice.
  const Options defaults(PQconndefaults(), PQconninfoFree);
  auto all = defaults ? settingsOf(defaults) : std::map<std::string, std::string>();
  for (const auto& [name, value] : settings_) all[name] = value;
  if (settings_.contains("service")) {
    name_ = "the service " + settings_.at("service");
    return;
  }
  const std::string port = valueOr(all, "port", "5432");
  name_ = valueOr(all, "host", "localhost") + (port == "5432" ? "" : ":" + port) + "/" +
          valueOr(all, "dbname", valueOr(all, "user", ""));
}

}  // namespace results
