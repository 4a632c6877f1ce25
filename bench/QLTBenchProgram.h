#pragma once

#include <memory>
#include <optional>
#include <string>

#include <QLTBenchLine.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTProgram.h>

namespace quillon::bench {
class ProgramTalk;
}

/// A line to a program, over its standard input and output: a flashing tool that takes commands, an
/// interpreter.
///
/// `open` starts the program. It has a process group of its own, and no descriptor but its standard
/// streams. The group is ended by SIGTERM, and by SIGKILL where that does not do within
/// `graceInSeconds`: at `close`, when the line is destroyed, and when the process that holds the
/// line ends, however that ends. What is left of the group when the program itself has ended is
/// killed.
///
/// What the program says on its standard error is kept apart. It is taken in while an operation
/// here waits; of more than 64 KiB the last ones are kept. When the program has ended, the error of
/// a read tells how, and the end of that.
///
/// No signal is raised in the process, and none of its child processes is left behind.
class QLT_EXPORT QLTBenchProgram : public QLTBenchLine {
 public:
  explicit QLTBenchProgram(QLTProgram program);  ///< closed
  ~QLTBenchProgram() override;

  std::string where() const override;  ///< the program's name, without its folder

  /// Tells the program that nothing more comes.
  void closeInput();
  /// How the program ended; absent while it runs, and for a closed line. Does not wait.
  std::optional<QLTProgramEnd> ended() const;
  /// Waits for the program's end for at most `seconds`; what it says meanwhile can be read
  /// afterwards. Absent, with the reason, when it still runs then, and for a closed line.
  std::optional<QLTProgramEnd> awaitEnd(double seconds, QLTError* error = nullptr);
  /// What the program has said on its standard error since `open`.
  std::string errors();

  const QLTProgram& program() const { return program_; }
  /// How long the program may take to end after SIGTERM; 2 at first, 60 at most. Counts from the
  /// next `open`.
  double graceInSeconds() const { return graceInSeconds_; }
  void setGraceInSeconds(double seconds) { graceInSeconds_ = seconds; }

 protected:
  bool openLine(std::string& reason) override;
  void closeLine() override;
  std::ptrdiff_t receive(char* bytes, std::size_t size, Deadline deadline) override;
  std::ptrdiff_t send(const char* bytes, std::size_t size, Deadline deadline) override;
  bool hasEnded() const override;
  std::string endText() const override;

 private:
  QLTProgram program_;
  double graceInSeconds_ = 2;
  std::unique_ptr<quillon::bench::ProgramTalk> talk_;
};
