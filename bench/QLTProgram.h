#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <QLTError.h>
#include <QLTExport.h>

/// How a program ended.
struct QLTProgramEnd {
  /// Its exit status; absent when a signal ended it.
  std::optional<int> exitStatus;
  /// The signal that ended it; 0 when it ended by itself.
  int signal = 0;

  /// Whether it ended by itself with exit status 0.
  bool isSuccess() const { return exitStatus == 0; }
  /// For people: "exit status 3", "ended by signal 9 (Killed)".
  QLT_EXPORT std::string text() const;
};

/// What a program said until it ended.
struct QLTProgramOutput {
  QLTProgramEnd end;
  std::string output;  ///< its standard output
  std::string errors;  ///< its standard error; of more than 64 KiB the last ones
};

/// A program to be started: a flashing tool, a script that tests something. Plain values; copies
/// are independent.
struct QLT_EXPORT QLTProgram {
  /// The program and its arguments, as they are: no shell reads them. A name without a slash is
  /// searched for in the PATH that the program gets.
  std::vector<std::string> words;
  /// The working folder, which a program named by a relative path is looked up in as well; empty
  /// for that of the process.
  std::string folder;
  /// What is set in its environment beside that of the process.
  std::map<std::string, std::string> environment;

  /// The words of a line, quoted as a shell has it: blanks separate, '...' keeps all, "..." keeps
  /// all but a backslash before `"`, `\`, `$` and a back quote, and a backslash keeps the character
  /// behind it. Nothing is replaced, so that what a shell would act on (`|`, `&`, `;`, `<`, `>`,
  /// `$` and the back quote) must be quoted. Absent, with the reason, for an empty line, an open
  /// quote and an unquoted one of those.
  static std::optional<std::vector<std::string>> wordsOf(const std::string& line,
                                                         QLTError* error = nullptr);

  /// Starts the program, gives it `input` and then the end of its standard input, waits for its end
  /// for at most `timeOutInSeconds`, and gives what it said. A program that ended with another exit
  /// status than 0 is no failure.
  ///
  /// Absent, with the reason in `error`, when it cannot be started (-30000), when it said more than
  /// 64 MiB (-30002), and when it has not ended in time (-30003): its process group is ended then,
  /// and the user information of the error has what it had said under "output" and "errors".
  ///
  /// Blocks the calling thread; several threads may do so at once.
  std::optional<QLTProgramOutput> run(double timeOutInSeconds, const std::string& input = {},
                                      QLTError* error = nullptr) const;

  /// For messages: the program's name without its folder.
  std::string name() const;
};
