#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <QLTBenchLine.h>
#include <QLTError.h>
#include <QLTExport.h>
#include <QLTObject.h>
#include <QLTReopenable.h>
#include <QLTText.h>

/// The console of any device that answers command lines and then shows its prompt: a boot loader, a
/// shell behind a log-in, a calibration monitor. Over any line of this library; it is called as
/// `QLTDiags` where the same is meant.
///
/// Regular expressions are RE2's, whose time grows with the text alone. An expression that cannot
/// be read makes `open` fail.
///
/// The line's own time-out is for its writing; how long an answer may take is the console's. One
/// caller at a time per object; every operation blocks its caller.
class QLT_EXPORT QLTBenchConsole : public QLTObject, public QLTReopenable {
 public:
  /// What is known of the device.
  struct Settings {
    /// The whole last line, once the device waits for a command. It need not tell of blanks at the
    /// line's end.
    std::string prompt;
    /// What ends a command.
    std::string lineEnd = "\n";

    enum class Echo {
      Maybe,    ///< an echo is taken away where there is one
      Never,    ///< the first line is the answer's, whatever it says
      Checked,  ///< an answer that does not begin with its command is an error: the line garbles
    };
    Echo echo = Echo::Maybe;

    /// The log-in; without a user's name there is none.
    std::string user;
    std::string password;
    /// The whole last line, once the device asks for them.
    std::string userPrompt = R"(.*[Ll]ogin:)";
    std::string passwordPrompt = R"(.*[Pp]assword:)";

    /// How long the device may take to start: `open` then listens for so long, and sends nothing
    /// unless all is quiet for 2 s, lest it stop a boot loader. 0: it is running, and `open` sends
    /// a line end at once.
    double bootWaitInSeconds = 0;
    /// After an answer that did not come in time: what makes the device give a command up, sent
    /// before the next one; "\x03" is what Control-C sends. Empty for nothing.
    std::string interrupt;
    /// Takes away what is for a terminal: escape sequences that colour or move, bells.
    bool stripsEscapes = true;
    /// What the device may say in between at any time, each a line to its end, as a kernel does; it
    /// is taken away wherever it stands. Empty for nothing.
    std::string noise = R"(\[ *\d+\.\d{6}\] )";
    /// How long nothing may come behind a prompt for it to be one; then the answer is given.
    double quietInSeconds = 0.02;
  };

  /// A console on `line`, which is opened by `open` if it is not. Null only for a null line.
  static std::shared_ptr<QLTBenchConsole> initWithLine(std::shared_ptr<QLTBenchLine> line,
                                                       Settings settings);
  ~QLTBenchConsole() override;

  /// Makes sure that the device waits for a command: opens the line if it is not, waits for the
  /// device to start, logs in. False with -31000 when no prompt comes within `timeOutInSeconds`
  /// (and `bootWaitInSeconds` before), -31001 when the log-in is refused, -40003 for an expression
  /// that cannot be read, or the line's error.
  virtual bool open(QLTError* error = nullptr);

  /// Sends `command` and the line end, and waits for the prompt. One that holds a line end itself
  /// would be several, each with a prompt: it is refused, with -30004. The answer's lines without
  /// their line ends: the echo first, if the device echoes, the prompt last.
  ///
  /// Absent when no prompt comes within `timeOutInSeconds` (-31000), when an echo that is checked
  /// is not right (-31002), or with the line's error. What is still to come of an answer that came
  /// too late is never taken for the next one's: the next command first waits for the device to be
  /// ready again, and fails with -31000, not sent, when it is not.
  virtual std::optional<std::vector<std::string>> sendCommand(const std::string& command,
                                                              QLTError* error = nullptr);
  /// The same; a null text is the empty one.
  std::optional<std::vector<std::string>> sendCommand(const char* command,
                                                      QLTError* error = nullptr) {
    return sendCommand(QLTText(command).orEmpty(), error);
  }
  /// What `command` puts out: as `sendCommand`, without echo and prompt, as one text whose lines
  /// are separated by line feeds.
  std::optional<std::string> output(const std::string& command, QLTError* error = nullptr);

  /// Closes the line and opens it again, without asking for a prompt.
  virtual bool resetCommunication(QLTError* error = nullptr);

  bool isLost() const override;        ///< that of the line
  std::string where() const override;  ///< that of the line
  /// As `resetCommunication`: asks for no prompt either, since perhaps no device is connected yet.
  bool reopen(QLTError* error = nullptr) override;

  /// How long a command may take until the prompt comes; 12 at first.
  double timeOutInSeconds() const { return timeOutInSeconds_; }
  void setTimeOutInSeconds(double seconds) { timeOutInSeconds_ = seconds; }
  /// The line.
  const std::shared_ptr<QLTBenchLine>& com() const { return com_; }
  const Settings& settings() const { return settings_; }

 protected:
  /// For subclasses. `line` is not null.
  QLTBenchConsole(std::shared_ptr<QLTBenchLine> line, Settings settings);

 private:
  struct Expressions;
  enum class Found;

  bool isUsable(QLTError* error) const;
  std::string cleaned(std::string_view text) const;
  Found foundInLastLine() const;
  Found listen(double seconds, double quiet, QLTError* error);
  Found awaitStart(QLTError* error);
  bool logIn(Found found, QLTError* error);
  bool resynchronise(QLTError* error);
  bool failNoPrompt(const std::string& what, double seconds, QLTError* error) const;
  bool failLoggedOut(QLTError* error) const;
  bool isEchoOf(std::string_view command, std::string_view line) const;

  std::shared_ptr<QLTBenchLine> com_;
  Settings settings_;
  double timeOutInSeconds_ = 12.0;
  std::unique_ptr<Expressions> expressions_;
  std::string heard_;         // since the latest command, as it came
  bool isOutOfStep_ = false;  // an answer may still come that nobody waits for
};
