#include "Screen.h"

#include <cstdlib>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "common/Files.h"

namespace station {
namespace {

/// A terminal that understands more than text.
bool isAbleTerminal(int descriptor) {
  const char* const terminal = std::getenv("TERM");
  return isatty(descriptor) == 1 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

bool coloursFit(int descriptor) {
  const char* const unwanted = std::getenv("NO_COLOR");
  if (unwanted != nullptr && *unwanted != '\0') return false;
  return isAbleTerminal(descriptor);
}

bool areOneTerminal(int a, int b) {
  struct stat first {};
  struct stat second {};
  return isatty(a) == 1 && isatty(b) == 1 && fstat(a, &first) == 0 && fstat(b, &second) == 0 &&
         first.st_rdev == second.st_rdev;
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
      colourErrors_(coloursFit(errors)),
      canBeLive_(isAbleTerminal(output)),
      isOneTerminal_(areOneTerminal(output, errors)) {}

void Screen::line(std::string_view text) { write(output_, std::string(text) + "\n"); }

void Screen::warning(const std::string& text) {
  write(errors_,
        inColour("Warning:", colourErrors_ ? Colour::Yellow : Colour::Plain) + " " + text + "\n");
  if (observer_) observer_({false, text, ""});
}

void Screen::problem(const std::string& problem, const std::string& advice) {
  std::string text =
      inColour("quillon:", colourErrors_ ? Colour::Red : Colour::Plain) + " " + problem + "\n";
  if (!advice.empty()) text += advice + "\n";
  write(errors_, text);
  if (observer_) observer_({true, problem, advice});
}

void Screen::prompt(std::string_view text) { write(errors_, text); }

bool Screen::isTerminal() const { return isatty(output_) == 1; }

std::string Screen::coloured(const std::string& text, Colour colour) const {
  return colourOutput_ ? inColour(text, colour) : text;
}

std::string Screen::highlighted(const std::string& text, Colour colour) const {
  if (!colourOutput_) return text;
  switch (colour) {
    case Colour::Plain:
      return text;
    case Colour::Green:
      return "\x1b[30;42m" + text + "\x1b[0m";
    case Colour::Red:
      return "\x1b[97;41m" + text + "\x1b[0m";
    case Colour::Yellow:
      return "\x1b[30;43m" + text + "\x1b[0m";
  }
  return text;
}

void Screen::startLive(LiveArea::Lines lines) {
  const std::lock_guard lock(mutex_);
  live_ = std::make_unique<LiveArea>(output_, std::move(lines));
}

void Screen::stopLive() {
  const std::lock_guard lock(mutex_);
  live_.reset();
}

bool Screen::isLive() const {
  const std::lock_guard lock(mutex_);
  return live_ != nullptr;
}

void Screen::ask(std::optional<std::string> question) {
  const std::lock_guard lock(mutex_);
  if (live_) live_->ask(std::move(question));
}

std::size_t Screen::width() const {
  return isatty(output_) == 1 ? TerminalSize::of(output_).columns - 1 : 0;
}

void Screen::write(int descriptor, std::string_view text) {
  const std::lock_guard lock(mutex_);
  if (live_ && (descriptor == output_ || isOneTerminal_)) {
    live_->add(text);
    return;
  }
  // A failure means that nobody reads any more; the tests and their log matter more.
  quillon::internal::writeWhole(descriptor, text);
}

}  // namespace station
