#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <QLTText.h>

namespace {

/// An operation as the framework's: what its argument came to.
std::optional<std::string> taken(QLTText text) { return std::move(text).text(); }

const std::optional<std::string> kAbsent;

TEST(QLTTextTest, TakesWhateverHoldsAText) {
  const std::string string = "abc";
  const std::string_view view = string;
  const std::optional<std::string> optional = string;
  char array[] = "abc";
  char* const pointer = array;
  EXPECT_EQ(taken("abc"), "abc");
  EXPECT_EQ(taken(string), "abc");
  EXPECT_EQ(taken(std::string("abc")), "abc");
  EXPECT_EQ(taken(view), "abc");
  EXPECT_EQ(taken(optional), "abc");
  EXPECT_EQ(taken(array), "abc");
  EXPECT_EQ(taken(pointer), "abc");
  EXPECT_EQ(taken(std::filesystem::path("/dev/x")), "/dev/x");
  EXPECT_EQ(taken(QLTText(string)), "abc");
}

TEST(QLTTextTest, TakesANullTextAsAbsent) {
  const char* const missing = std::strstr("reply", "OK");
  ASSERT_EQ(missing, nullptr);
  char* const variable = nullptr;
  EXPECT_EQ(taken(missing), kAbsent);
  EXPECT_EQ(taken(variable), kAbsent);
  EXPECT_EQ(taken(nullptr), kAbsent);
  EXPECT_EQ(taken(std::nullopt), kAbsent);
  EXPECT_EQ(taken(kAbsent), kAbsent);
  EXPECT_EQ(taken({}), kAbsent);
}

TEST(QLTTextTest, TellsAbsentAndEmptyApart) {
  EXPECT_EQ(taken(""), "");
  EXPECT_EQ(taken(std::string_view()), "");
  EXPECT_EQ(QLTText(nullptr).orEmpty(), "");
  EXPECT_EQ(QLTText("").orEmpty(), "");
  EXPECT_EQ(QLTText("abc").orEmpty(), "abc");
}

TEST(QLTTextTest, KeepsEveryByteOfAString) {
  const std::string bytes("a\0b", 3);
  EXPECT_EQ(taken(bytes), bytes);
  EXPECT_EQ(taken(std::string_view(bytes)), bytes);
}

TEST(QLTTextTest, TakesNoNumber) {
  EXPECT_FALSE((std::is_convertible_v<int, QLTText>));
  EXPECT_FALSE((std::is_convertible_v<double, QLTText>));
  EXPECT_FALSE((std::is_convertible_v<bool, QLTText>));
  EXPECT_FALSE((std::is_convertible_v<const void*, QLTText>));
}

}  // namespace
