#include "ServerAddress.h"

#include <array>
#include <memory>
#include <string_view>
#include <utility>

#include "results/central/PostgresClient.h"

namespace results {
namespace {

/// What connections to a server have in common, unless the address says otherwise.
constexpr std::array<std::pair<const char*, const char*>, 5> kChosen{{
    {"client_encoding", "UTF8"},
    // A cable that is out is noticed by these, where packets have no answer.
    {"keepalives_idle", "20"},
    {"keepalives_interval", "10"},
    {"keepalives_count", "3"},
    {"tcp_user_timeout", "60000"},
}};

using Options = std::unique_ptr<PQconninfoOption, void (*)(PQconninfoOption*)>;

const PostgresClient& client() {
  try {
    return PostgresClient::get();
  } catch (const NoLibrary& missing) {
    throw NoAddress(missing.what(), missing.advice());
  }
}

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

/// Whether there is an '@' behind the server's name: then a '/' in a user's name or password, which
/// has to be written %2F, has made the rest of it the name of the database.
bool hasUserInDatabase(const std::string& url) {
  const std::size_t server = url.find("://") + 3;
  const std::size_t database = url.find('/', server);
  return database != std::string::npos &&
         url.substr(database, url.find('?', database) - database).find('@') != std::string::npos;
}

}  // namespace

bool ServerAddress::isMeant(const std::string& text) {
  return text.starts_with("postgresql://") || text.starts_with("postgres://");
}

ServerAddress::ServerAddress(const std::string& url) : url_(url) {
  constexpr const char* kForm = "It has the form postgresql://USER@HOST/DATABASE.";
  if (!isMeant(url)) throw NoAddress("the server's address is no postgresql:// URL", kForm);
  // What the library says of an address that it cannot read may hold a password, and what stands
  // for a port may be the beginning of one.
  const Options options(client().PQconninfoParse(url.c_str(), nullptr), client().PQconninfoFree);
  if (options) settings_ = settingsOf(options);
  if (!options ||
      valueOr(settings_, "port", "").find_first_not_of("0123456789,") != std::string::npos) {
    throw NoAddress("the server's address is no URL that PostgreSQL knows", kForm);
  }
  if (settings_.contains("password") || settings_.contains("sslpassword") ||
      hasUserInDatabase(url)) {
    throw NoAddress(
        "the server's address has a password, which everybody on this computer could read",
        "Put it into ~/.pgpass, a file that PGPASSFILE names, or a service file, and leave it "
        "out here.");
  }
  // What is not given comes from the environment, or is the library's own choice.
  const Options defaults(client().PQconndefaults(), client().PQconninfoFree);
  auto all = defaults ? settingsOf(defaults) : std::map<std::string, std::string>();
  for (const auto& [name, value] : settings_) all[name] = value;
  const std::string port = valueOr(all, "port", "5432");
  name_ = settings_.contains("service")
              ? "the service " + settings_.at("service")
              : valueOr(all, "host", valueOr(all, "hostaddr", "localhost")) +
                    (port == "5432" ? "" : ":" + port) + "/" +
                    valueOr(all, "dbname", valueOr(all, "user", ""));
  for (const auto& [name, value] : kChosen) settings_.try_emplace(name, value);
}

}  // namespace results
