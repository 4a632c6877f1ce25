#include "Keyboard.h"

#include <atomic>

#include <termios.h>
#include <unistd.h>

namespace station {
namespace {

termios earlier;
std::atomic<bool> isTaken = false;

static_assert(std::atomic<bool>::is_always_lock_free);

constexpr char kCtrlD = 0x04;
constexpr char kBackspace = 0x08;
constexpr char kCtrlU = 0x15;
constexpr char kEscape = 0x1b;
constexpr char kDelete = 0x7f;

bool continuesCharacter(char c) { return (static_cast<unsigned char>(c) & 0xc0U) == 0x80U; }

}  // namespace

Keyboard::Keyboard() {
  if (!isOurs() || tcgetattr(STDIN_FILENO, &earlier) != 0) return;
  termios changed = earlier;
  changed.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  changed.c_cc[VMIN] = 1;
  changed.c_cc[VTIME] = 0;
  isTaken = true;
  tcsetattr(STDIN_FILENO, TCSADRAIN, &changed);
}

Keyboard::~Keyboard() { giveBack(); }

bool Keyboard::isOurs() { return tcgetpgrp(STDIN_FILENO) == getpgrp(); }

void Keyboard::giveBack() {
  if (isTaken.exchange(false)) tcsetattr(STDIN_FILENO, TCSAFLUSH, &earlier);
}

TypedLine::State TypedLine::take(char key) {
  if (escape_ == Escape::Begun) {
    escape_ = key == '[' || key == 'O' ? Escape::Sequence : Escape::None;
    return State::Typing;
  }
  if (escape_ == Escape::Sequence) {
    if (key >= 0x40) escape_ = Escape::None;  // its last byte
    return State::Typing;
  }
  switch (key) {
    case '\n':
    case '\r':
      return State::Entered;
    case kCtrlD:
      return text_.empty() ? State::Ended : State::Typing;
    case kBackspace:
    case kDelete:
      while (!text_.empty() && continuesCharacter(text_.back())) text_.pop_back();
      if (!text_.empty()) text_.pop_back();
      return State::Typing;
    case kCtrlU:
      text_.clear();
      return State::Typing;
    case kEscape:
      escape_ = Escape::Begun;
      return State::Typing;
    default:
      text_ += key;  // what is no character is complained of
      return State::Typing;
  }
}

}  // namespace station
