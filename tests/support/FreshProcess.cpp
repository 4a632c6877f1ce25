#include "FreshProcess.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFolderVariable = "QUILLON_TEST_FRESH_PROCESS";

void copyProgram(const fs::path& destination) {
  fs::create_directories(destination.parent_path());
  const fs::path program = fs::read_symlink("/proc/self/exe");
  std::error_code linked;
  fs::create_hard_link(program, destination, linked);
  if (linked) fs::copy_file(program, destination);
}

std::string nameOfThisTest() {
  const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
  return std::string(test.test_suite_name()) + "." + test.name();
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// This process's environment with the given variables in it.
std::vector<std::string> environmentWith(const std::map<std::string, std::string>& set) {
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (!set.contains(text.substr(0, text.find('=')))) environment.push_back(text);
  }
  for (const auto& [name, value] : set) environment.push_back(name + "=" + value);
  return environment;
}

}  // namespace

FreshProcess::FreshProcess() {
  if (const char* folder = std::getenv(kFolderVariable)) {
    root_ = fresh_ = folder;
  } else {
    folder_ = std::make_unique<TemporaryFolder>();
    root_ = fs::canonical(folder_->path());
  }
}

void FreshProcess::place(const fs::path& source, const fs::path& destination) const {
  if (isFresh()) return;
  fs::create_directories(destination.parent_path());
  fs::copy_file(source, destination);
}

void FreshProcess::write(const fs::path& destination, std::string_view content) const {
  if (isFresh()) return;
  fs::create_directories(destination.parent_path());
  std::ofstream(destination, std::ios::binary) << content;
}

FreshProcess::Outcome FreshProcess::run(const std::function<void()>& body) {
  if (isFresh()) {
    fs::current_path(workingFolder());
    alarm(60);  // a body that hangs ends
    body();
    // Not a return: what follows in the test judges this process from outside.
    std::exit(testing::Test::HasFailure() ? EXIT_FAILURE : EXIT_SUCCESS);
  }
  copyProgram(root_ / executable_);
  fs::create_directories(workingFolder());
  const Outcome outcome = spawn();
  EXPECT_EQ(outcome.exitStatus, EXIT_SUCCESS) << "in the new process:\n"
                                              << outcome.standardOutput << outcome.standardError;
  return outcome;
}

FreshProcess::Outcome FreshProcess::spawn() const {
  const fs::path output = root_ / "standard-output";
  const fs::path errors = root_ / "standard-error";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC;
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), flags, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(), flags, 0600);

  std::vector<std::string> arguments{root_ / executable_, "--gtest_filter=" + nameOfThisTest()};
  auto set = set_;
  set[kFolderVariable] = root_;
  std::vector<std::string> environment = environmentWith(set);
  pid_t process = 0;
  const int spawned = posix_spawn(&process, arguments[0].c_str(), &actions, nullptr,
                                  pointersTo(arguments).data(), pointersTo(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) throw std::system_error(spawned, std::generic_category(), arguments[0]);

  int status = 0;
  while (waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), contentOf(output),
          contentOf(errors)};
}

}  // namespace test
