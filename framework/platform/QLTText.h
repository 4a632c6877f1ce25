#pragma once

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

/// A text as an argument: whatever holds one, or none. A null `const char*`, as `strstr` and
/// `getenv` give, is an absent text, and so are `std::nullopt` and `{}`; absent and empty differ.
///
/// Operations take it where callers pass a text; nobody needs to name it:
///
///     record->setActual("5.01");
///     record->setActual(std::getenv("OPERATOR"));  // absent where there is no such variable
///
/// A value type that owns its text.
class QLTText {
 public:
  QLTText() = default;  ///< absent

  /// From a literal, an array or a pointer; a null one is absent.
  template <typename Text>
  // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): takes no QLTText
  requires std::convertible_to<Text, const char*> QLTText(Text&& text) {
    if (const char* const characters = std::forward<Text>(text)) text_ = characters;
  }
  /// From what becomes an optional text by itself: a string, a path, an optional one.
  template <typename Text>
  requires(!std::same_as<std::remove_cvref_t<Text>, QLTText> &&
           !std::convertible_to<Text, const char*> &&
           // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): takes no QLTText
           std::convertible_to<Text, std::optional<std::string>>) QLTText(Text&& text)
      : text_(std::forward<Text>(text)) {}
  QLTText(std::string_view text) : text_(std::in_place, text) {}

  /// The text, or absent.
  const std::optional<std::string>& text() const& { return text_; }
  std::optional<std::string> text() && { return std::move(text_); }
  /// The text; the empty one where it is absent.
  std::string orEmpty() const& { return text_.value_or(""); }
  std::string orEmpty() && { return std::move(text_).value_or(""); }

 private:
  std::optional<std::string> text_;
};
