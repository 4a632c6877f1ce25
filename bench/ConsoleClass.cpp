#include <utility>

#include <QLTBenchConsole.h>
#include <QLTErrorCodes.h>

#include "bench/Fail.h"
#include "bench/InstrumentTable.h"
#include "bench/Lines.h"
#include "common/Files.h"
#include "common/Format.h"
#include "common/Text.h"

namespace quillon::bench {
namespace {

using Attribute = QLTInstrumentAttribute;
using Settings = QLTBenchConsole::Settings;

std::vector<Attribute> consoleAttributes() {
  const Settings standard;
  return {
      Attribute::text("prompt",
                      "regular expression of the prompt: the whole last line, but for "
                      "blanks at its end")
          .needed(),
      Attribute::seconds("answerTimeOut", 0.001, 86400, "how long a command may take")
          .standard("12"),
      Attribute::word(
          "echo", {"maybe", "never", "checked"},
          "whether the device echoes; checked: an echo that is not what was sent is an error")
          .standard("maybe"),
      Attribute::text("user", "the name to log in with"),
      Attribute::path("passwordFile",
                      "a file whose first line is the password, which stands in no log, error or "
                      "recording"),
      Attribute::text("userPrompt", "regular expression of the question for the user")
          .standard(standard.userPrompt),
      Attribute::text("passwordPrompt", "regular expression of the question for the password")
          .standard(standard.passwordPrompt),
      Attribute::seconds("bootWait", 0, 3600, "how long the device may take to start")
          .standard("0"),
      Attribute::yesOrNo("interrupts", "whether Control-C is sent after a command that timed out")
          .standard("no"),
      Attribute::yesOrNo("stripsEscapes",
                         "whether colours, cursor movements and bells are taken away")
          .standard("yes"),
      Attribute::text(
          "noise",
          "regular expression of the beginning of what may come in between at any time, "
          "such as a kernel's message; it is taken away, to its line end")
          .standard(standard.noise),
      Attribute::seconds("quiet", 0, 10,
                         "how long nothing may come behind a prompt for it to be one")
          .standard("0.02")};
}

Settings::Echo echoIn(const QLTDictionary& entry) {
  const std::string word = entry.text("echo");
  if (word == "never") return Settings::Echo::Never;
  return word == "checked" ? Settings::Echo::Checked : Settings::Echo::Maybe;
}

std::shared_ptr<QLTObject> make(const QLTDictionary& entry, QLTError* error) {
  Settings settings;
  settings.prompt = entry.text("prompt");
  settings.echo = echoIn(entry);
  settings.user = entry.text("user");
  settings.userPrompt = entry.text("userPrompt");
  settings.passwordPrompt = entry.text("passwordPrompt");
  settings.bootWaitInSeconds = entry.number("bootWait");
  if (isYes(entry, "interrupts")) settings.interrupt = "\x03";
  settings.stripsEscapes = isYes(entry, "stripsEscapes");
  settings.noise = entry.text("noise");
  settings.quietInSeconds = entry.number("quiet");
  if (const std::string file = entry.text("passwordFile"); !file.empty()) {
    const auto content = internal::readWhole(file);
    if (!content) {
      const QLTError cause = QLTError::fromErrno(errno, file);
      return fail(error, kQLTErrorConfigWrong, "no password: " + cause.description().value_or(""),
                  cause);
    }
    settings.password = content->substr(0, content->find_first_of("\r\n"));
  }
  auto line = openLine(entry, error);
  settings.lineEnd = line->lineEnd();
  auto console = QLTBenchConsole::initWithLine(std::move(line), std::move(settings));
  console->setTimeOutInSeconds(entry.number("answerTimeOut"));
  return console;
}

}  // namespace

InstrumentClass consoleClass() {
  std::vector<Attribute> attributes = lineAttributes();
  for (Attribute& attribute : consoleAttributes()) attributes.push_back(std::move(attribute));
  return {{"QLTBenchConsole", "console of a device, with any prompt", std::move(attributes)}, make};
}

}  // namespace quillon::bench
