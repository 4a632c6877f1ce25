#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "support/TemporaryFolder.h"

namespace test {

/// Runs the body of a test in a process of its own, for behaviour that a process shows once only:
/// the program is started again, as a copy in a temporary folder, and the same test goes on there
/// up to `run`.
///
///     TEST(Loader, FindsTheFileInTheWorkingDirectory) {
///       test::FreshProcess process;
///       process.place(file, process.workingFolder() / "file");
///       const auto outcome = process.run([&] { EXPECT_TRUE(...); });  // in the new process
///       EXPECT_EQ(outcome.standardError, "");                          // here again
///     }
///
/// A test uses one. What it does to files before `run` must go through this object, which does it
/// once.
class FreshProcess {
 public:
  FreshProcess();

  /// The folder that holds the program's copy.
  std::filesystem::path executableFolder() const { return root_ / executable_.parent_path(); }
  /// The working directory of the new process.
  std::filesystem::path workingFolder() const { return root_ / "work"; }
  /// Another folder.
  std::filesystem::path otherFolder() const { return root_ / "other"; }
  /// The temporary folder above all of these.
  const std::filesystem::path& root() const { return root_; }

  /// Where the program's copy is, within the temporary folder.
  void setExecutable(std::filesystem::path relative) { executable_ = std::move(relative); }
  void setEnvironment(const std::string& name, const std::string& value) { set_[name] = value; }
  /// Copies a file to `destination`, making the folders above it.
  void place(const std::filesystem::path& source, const std::filesystem::path& destination) const;
  /// Writes a file, making the folders above it.
  void write(const std::filesystem::path& destination, std::string_view content) const;

  struct Outcome {
    int exitStatus = -1;
    std::string standardOutput;
    std::string standardError;
  };
  /// Does not return in the new process. Here, it fails the test when `body` failed there.
  Outcome run(const std::function<void()>& body);

 private:
  bool isFresh() const { return !fresh_.empty(); }
  Outcome spawn() const;

  std::string fresh_;  // in the new process: the temporary folder
  std::unique_ptr<TemporaryFolder> folder_;
  std::filesystem::path root_;
  std::filesystem::path executable_ = "bin/program";
  std::map<std::string, std::string> set_;
};

}  // namespace test
