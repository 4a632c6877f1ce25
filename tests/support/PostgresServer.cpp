#include "PostgresServer.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <grp.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kLongWhile{60};
const fs::path kPrograms = "/usr/lib/postgresql/15/bin";
const fs::path kTemplate = POSTGRES_TEMPLATE;

/// Whom the server runs as: it refuses to run as root.
struct User {
  uid_t user = geteuid();
  gid_t group = getegid();
  bool mustChange = false;

  static const User& ofServer() {
    static const User user = [] {
      User result;
      if (result.user != 0) return result;
      const passwd* entry = getpwnam("postgres");
      if (entry == nullptr) entry = getpwnam("nobody");
      if (entry == nullptr) throw std::runtime_error("there is no user to run the server as");
      return User{entry->pw_uid, entry->pw_gid, true};
    }();
    return user;
  }
};

void give(const fs::path& path) {
  const User& user = User::ofServer();
  if (user.mustChange && lchown(path.c_str(), user.user, user.group) != 0) {
    throw std::system_error(errno, std::generic_category(), "chown " + path.string());
  }
}

void giveAll(const fs::path& folder) {
  give(folder);
  for (const auto& entry : fs::recursive_directory_iterator(folder)) give(entry.path());
}

/// Starts a program as the server's user; it ends with this thread's process. What it says is
/// appended to a file.
pid_t spawn(std::vector<std::string> arguments, const fs::path& folder, const fs::path& output) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const User& user = User::ofServer();
  const pid_t parent = getpid();
  const pid_t process = fork();
  if (process < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (process > 0) return process;
  const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  const int null = open("/dev/null", O_RDONLY);
  if (file < 0 || null < 0 || dup2(null, 0) < 0 || dup2(file, 1) < 0 || dup2(file, 2) < 0) {
    _exit(127);
  }
  close_range(3, ~0U, 0);
  if (user.mustChange &&
      (setgroups(0, nullptr) != 0 || setgid(user.group) != 0 || setuid(user.user) != 0)) {
    _exit(127);
  }
  // Behind the change of the user, which takes it back.
  prctl(PR_SET_PDEATHSIG, SIGQUIT);
  if (getppid() != parent || chdir(folder.c_str()) != 0) _exit(127);
  execv(argv[0], argv.data());
  _exit(127);
}

/// Makes the files of a new server, once for all tests of a build tree.
void makeTemplate() {
  fs::create_directories(kTemplate.parent_path());
  const std::string lockName = kTemplate.string() + ".lock";
  const int lock = open(lockName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (lock < 0) throw std::system_error(errno, std::generic_category(), lockName);
  const std::unique_ptr<const int, void (*)(const int*)> unlock(&lock,
                                                                [](const int* l) { close(*l); });
  if (flock(lock, LOCK_EX) != 0) throw std::system_error(errno, std::generic_category(), lockName);
  if (fs::exists(kTemplate)) return;

  const TemporaryFolder folder;
  give(folder.path());
  const fs::path made = folder.path() / "data";
  const fs::path output = folder.path() / "output";
  const pid_t process = spawn({(kPrograms / "initdb").string(), "--pgdata=" + made.string(),
                               "--username=postgres", "--auth=trust", "--encoding=UTF8",
                               "--locale=C", "--no-sync", "--no-instructions", "--wal-segsize=1"},
                              folder.path(), output);
  int status = -1;
  waitpid(process, &status, 0);
  if (status != 0) {
    throw std::runtime_error("initdb of the package postgresql-15 fails:\n" + contentOf(output));
  }
  const fs::path half = kTemplate.string() + ".new";
  fs::remove_all(half);
  fs::copy(made, half, fs::copy_options::recursive);
  fs::rename(half, kTemplate);
}

std::vector<pid_t> childrenOf(pid_t process) {
  const std::string name = std::to_string(process);
  std::istringstream list(contentOf("/proc/" + name + "/task/" + name + "/children"));
  std::vector<pid_t> children;
  for (pid_t child = 0; list >> child;) children.push_back(child);
  return children;
}

bool isGone(pid_t process) {
  const std::string stat = contentOf("/proc/" + std::to_string(process) + "/stat");
  return stat.empty() || stat.find(") Z ") != std::string::npos;
}

}  // namespace

PostgresServer::PostgresServer(const Options& options)
    : data_(options.dataFolder.empty() ? folder_.path() / "data" : options.dataFolder / "data") {
  makeFiles(options);
  start();
}

PostgresServer::~PostgresServer() {
  if (process_ > 0) kill();
}

void PostgresServer::makeFiles(const Options& options) {
  makeTemplate();
  fs::copy(kTemplate, data_, fs::copy_options::recursive);
  fs::permissions(data_, fs::perms::owner_all);
  std::ofstream settings(data_ / "postgresql.auto.conf", std::ios::app);
  settings << "listen_addresses = ''\n"
           << "unix_socket_directories = '" << folder_.path().string() << "'\n"
           << "shared_buffers = 32MB\nmax_connections = 250\njit = off\n"
           << "fsync = " << (options.fsync ? "on" : "off") << '\n';
  for (const std::string& line : options.settings) settings << line << '\n';
  settings.close();
  fs::permissions(folder_.path(),
                  fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec);
  give(folder_.path());
  giveAll(data_);
}

void PostgresServer::start() {
  process_ = spawn({(kPrograms / "postgres").string(), "-D", data_.string()}, data_,
                   folder_.path() / "log");
  waitUntilItAnswers();
}

void PostgresServer::waitUntilItAnswers() {
  const auto end = std::chrono::steady_clock::now() + kLongWhile;
  while (PQping(url().c_str()) != PQPING_OK) {
    int status = 0;
    if (waitpid(process_, &status, WNOHANG) == process_) {
      process_ = -1;
      throw std::runtime_error("the server ended:\n" + log());
    }
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("the server does not answer:\n" + log());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void PostgresServer::kill() {
  ::kill(process_, SIGSTOP);  // so that it starts no further ones
  const std::vector<pid_t> children = childrenOf(process_);
  ::kill(process_, SIGKILL);
  for (const pid_t child : children) ::kill(child, SIGKILL);
  waitpid(process_, nullptr, 0);
  process_ = -1;
  // Until the last is gone the next server would find the memory that they share in use.
  for (const pid_t child : children) {
    while (!isGone(child)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void PostgresServer::stop() {
  ::kill(process_, SIGINT);  // its "fast shutdown"
  waitpid(process_, nullptr, 0);
  process_ = -1;
}

std::string PostgresServer::url(const std::string& user, const std::string& database) const {
  return "postgresql://" + user + "@/" + database + "?host=" + folder_.path().string();
}

std::string PostgresServer::log() const { return contentOf(folder_.path() / "log"); }

std::string PostgresServer::ask(const std::string& statements, const std::string& user,
                                const std::string& database) const {
  const std::unique_ptr<PGconn, void (*)(PGconn*)> connection(
      PQconnectdb(url(user, database).c_str()), PQfinish);
  if (PQstatus(connection.get()) != CONNECTION_OK) {
    throw std::runtime_error(PQerrorMessage(connection.get()));
  }
  const std::unique_ptr<PGresult, void (*)(PGresult*)> result(
      PQexec(connection.get(), statements.c_str()), PQclear);
  const ExecStatusType status = PQresultStatus(result.get());
  if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK && status != PGRES_EMPTY_QUERY) {
    throw std::runtime_error(PQresultErrorMessage(result.get()));
  }
  std::string text;
  for (int row = 0; row < PQntuples(result.get()); ++row) {
    for (int column = 0; column < PQnfields(result.get()); ++column) {
      text += (column == 0 ? "" : "|") + std::string(PQgetvalue(result.get(), row, column));
    }
    text += '\n';
  }
  return text;
}

}  // namespace test
