#pragma once

#include <optional>
#include <string>

namespace station {

/// Takes the keyboard of the terminal at standard input as long as it lives: keys are read one by
/// one, and the terminal does not show them by itself, so that a scan at the wrong moment spoils
/// nothing. What nobody has read when it ends is dropped. One object at a time.
class Keyboard {
 public:
  Keyboard();
  ~Keyboard();
  Keyboard(const Keyboard&) = delete;
  Keyboard& operator=(const Keyboard&) = delete;

  /// False when the terminal belongs to another program at the moment.
  static bool isOurs();
  /// Gives the terminal back; may be called by a signal handler.
  static void giveBack();
};

/// A line that is typed key by key.
class TypedLine {
 public:
  enum class State { Typing, Entered, Ended };

  /// Takes one byte from the keyboard. Ended: Ctrl-D in an empty line.
  State take(char key);
  const std::string& text() const { return text_; }

 private:
  enum class Escape { None, Begun, Sequence };

  std::string text_;
  Escape escape_ = Escape::None;  // amid the bytes of an arrow key, for example
};

}  // namespace station
