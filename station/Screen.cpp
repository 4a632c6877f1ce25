#include "Screen.h"

#include <cstdlib>

#include <unistd.h>

#include "common/Files.h"

namespace station {
namespace {

bool coloursFit(int descriptor) {
  const char* const unwanted = std::getenv("NO_COLOR");
  if (unwanted != nullptr && *unwanted != '\0') return false;
  const char* const terminal = std::getenv("TERM");
  return isatty(descriptor) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

std::string inColour(const std::string& text, Colour colour) {
  switch (colour) {
    case Colour::Plain:
      return text;
    case Colour::Green:
      return "\x1b[32m" + text + "\x1b[0m";
    case Colour::Red:
      return "\x1b[31m" + text + "\x1b[0m";
    case Colour::Yellow:
      return "\x1b[33m" + text + "\x1b[0m";
  }
  return text;
}

}  // namespace

Screen::Screen() : Screen(STDOUT_FILENO, STDERR_FILENO) {}

Screen::Screen(int output, int errors)
    : output_(output),
      errors_(errors),
      colourOutput_(coloursFit(output)),
      colourErrors_(coloursFit(errors)) {}

void Screen::line(std::string_view text) { write(output_, std::string(text) + "\n"); }

void Screen::warning(const std::string& text) {
  write(errors_,
        inColour("Warning:", colourErrors_ ? Colour::Yellow : Colour::Plain) + " " + text + "\n");
}

void Screen::problem(const std::string& problem, const std::string& advice) {
  std::string text =
      inColour("quillon:", colourErrors_ ? Colour::Red : Colour::Plain) + " " + problem + "\n";
  if (!advice.empty()) text += advice + "\n";
  write(errors_, text);
}

void Screen::prompt(std::string_view text) { write(errors_, text); }

std::string Screen::coloured(const std::string& text, Colour colour) const {
  return colourOutput_ ? inColour(text, colour) : text;
}

void Screen::write(int descriptor, std::string_view text) {
  const std::lock_guard lock(mutex_);
  // A failure means that nobody reads any more; the tests and their log matter more.
  quillon::internal::writeWhole(descriptor, text);
}

}  // namespace station
