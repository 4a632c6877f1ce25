#include <QLTPropertyList.h>
#include <QLTValue.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cmath>
#include <limits>

#include "support/CommaLocale.h"

namespace {

using Type = QLTValue::Type;

TEST(QLTValue, IsTheEmptyTextByDefault) {
  EXPECT_EQ(QLTValue().type(), Type::Text);
  EXPECT_EQ(QLTValue().text(), "");
}

TEST(QLTValue, KnowsItsType) {
  EXPECT_EQ(QLTValue(true).type(), Type::Boolean);
  EXPECT_EQ(QLTValue(1).type(), Type::Integer);
  EXPECT_EQ(QLTValue(std::uint32_t{4'000'000'000}).type(), Type::Integer);
  EXPECT_EQ(QLTValue(1.0).type(), Type::Real);
  EXPECT_EQ(QLTValue("1").type(), Type::Text);
  EXPECT_EQ(QLTValue(QLTDate()).type(), Type::Date);
  EXPECT_EQ(QLTValue(QLTData()).type(), Type::Data);
  EXPECT_EQ(QLTValue(QLTArray()).type(), Type::Array);
  EXPECT_EQ(QLTValue(QLTDictionary()).type(), Type::Dictionary);
}

TEST(QLTValue, GivesContentOnlyOfItsOwnType) {
  const QLTValue text("abc");
  ASSERT_NE(text.string(), nullptr);
  EXPECT_EQ(*text.string(), "abc");
  EXPECT_EQ(text.array(), nullptr);
  EXPECT_EQ(text.dictionary(), nullptr);
  EXPECT_EQ(text.data(), nullptr);
  EXPECT_EQ(text.date(), nullptr);
  EXPECT_EQ(QLTValue(1).string(), nullptr);
}

TEST(QLTValue, IsMadeOfEveryArithmeticType) {
  EXPECT_EQ(QLTValue(short{-1}), QLTValue(-1));
  EXPECT_EQ(QLTValue(static_cast<unsigned char>(200)), QLTValue(200));
  EXPECT_EQ(QLTValue(std::size_t{7}), QLTValue(7));
  EXPECT_EQ(QLTValue(7UL), QLTValue(7));
  EXPECT_EQ(QLTValue(-7L), QLTValue(-7));
  EXPECT_EQ(QLTValue(-7LL), QLTValue(-7));
  EXPECT_EQ(QLTValue(7ULL), QLTValue(7));
  EXPECT_EQ(QLTValue(0.5F), QLTValue(0.5));
  EXPECT_EQ(QLTValue(0.5L), QLTValue(0.5));
  enum { Seven = 7 };
  EXPECT_EQ(QLTValue(Seven), QLTValue(7));
  QLTDictionary extras;
  extras.set("count", std::vector<int>{1, 2}.size());
  EXPECT_EQ(extras, (QLTDictionary{{"count", 2}}));
}

TEST(QLTValue, IsARealBeyond64Bits) {
  EXPECT_EQ(QLTValue(std::uint64_t{0x7fff'ffff'ffff'ffff}),
            QLTValue(std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(QLTValue(std::uint64_t{1} << 63U), QLTValue(0x1p63));
  EXPECT_EQ(QLTValue(std::numeric_limits<unsigned long long>::max()), QLTValue(0x1p64));
}

TEST(QLTValue, TakesALiteralForAText) {
  EXPECT_EQ(QLTValue("ab").type(), Type::Text);
  EXPECT_EQ((QLTDictionary{{"t", "ab"}}).find("t")->type(), Type::Text);
  char written[] = "ab";
  EXPECT_EQ(QLTValue(written), QLTValue("ab"));
}

TEST(QLTValue, TakesANullPointerForAnAbsentText) {
  const char* const none = nullptr;
  EXPECT_EQ(QLTValue(none), QLTValue(""));
  const QLTDictionary dictionary{{"a", none}, {"b", "x"}, {"c", std::optional<std::string>()}};
  EXPECT_EQ(dictionary, (QLTDictionary{{"b", "x"}}));
}

TEST(QLTValue, ReadsABooleanFromAText) {
  for (const char* text :
       {"YES", "yes", "Yes", "true", "T", "1", "9", " \t\n1", "+1", "-1", "007", "-0y"}) {
    EXPECT_TRUE(QLTValue(text).boolValue()) << text;
  }
  for (const char* text : {"", "0", "NO", "no", "false", "off", "on", "x1", "000", "-", "+-1"}) {
    EXPECT_FALSE(QLTValue(text).boolValue()) << text;
  }
}

TEST(QLTValue, ReadsABooleanFromOtherTypes) {
  EXPECT_TRUE(QLTValue(true).boolValue());
  EXPECT_FALSE(QLTValue(false).boolValue());
  EXPECT_TRUE(QLTValue(-2).boolValue());
  EXPECT_FALSE(QLTValue(0).boolValue());
  EXPECT_TRUE(QLTValue(0.1).boolValue());
  EXPECT_FALSE(QLTValue(0.0).boolValue());
  EXPECT_FALSE(QLTValue(QLTArray{1}).boolValue());
  EXPECT_FALSE(QLTValue(QLTDictionary{{"a", 1}}).boolValue());
}

TEST(QLTValue, ReadsAnIntegerFromAText) {
  EXPECT_EQ(QLTValue(" 42abc").intValue(), 42);
  EXPECT_EQ(QLTValue("0x10").intValue(), 0);
  EXPECT_EQ(QLTValue("").intValue(), 0);
  EXPECT_EQ(QLTValue("abc").intValue(), 0);
  EXPECT_EQ(QLTValue("-7.9").intValue(), -7);
  EXPECT_EQ(QLTValue("+7").intValue(), 7);
  EXPECT_EQ(QLTValue("+-7").intValue(), 0);
  EXPECT_EQ(QLTValue("- 7").intValue(), 0);
}

TEST(QLTValue, LimitsIntegersTo32Bits) {
  constexpr auto lowest = std::numeric_limits<std::int32_t>::min();
  constexpr auto highest = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(QLTValue("2147483647").intValue(), highest);
  EXPECT_EQ(QLTValue("2147483648").intValue(), highest);
  EXPECT_EQ(QLTValue("-2147483648").intValue(), lowest);
  EXPECT_EQ(QLTValue("-2147483649").intValue(), lowest);
  EXPECT_EQ(QLTValue("99999999999999999999999999999999999").intValue(), highest);
  EXPECT_EQ(QLTValue(std::int64_t{1} << 40).intValue(), highest);
  EXPECT_EQ(QLTValue(-(std::int64_t{1} << 40)).intValue(), lowest);
  EXPECT_EQ(QLTValue(1e300).intValue(), highest);
  EXPECT_EQ(QLTValue(-1e300).intValue(), lowest);
  EXPECT_EQ(QLTValue(std::nan("")).intValue(), 0);
  EXPECT_EQ(QLTValue(-3.9).intValue(), -3);
}

TEST(QLTValue, ReadsAnIntegerOf64Bits) {
  constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
  constexpr auto highest = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(QLTValue(" 5000000000 V").int64Value(), 5'000'000'000);
  EXPECT_EQ(QLTValue("+5").int64Value(), 5);
  EXPECT_EQ(QLTValue("+-5").int64Value(), 0);
  EXPECT_EQ(QLTValue("").int64Value(), 0);
  EXPECT_EQ(QLTValue("99999999999999999999").int64Value(), highest);
  EXPECT_EQ(QLTValue("-99999999999999999999").int64Value(), lowest);
  EXPECT_EQ(QLTValue(lowest).int64Value(), lowest);
  EXPECT_EQ(QLTValue(true).int64Value(), 1);
  EXPECT_EQ(QLTValue(-7.9).int64Value(), -7);
  EXPECT_EQ(QLTValue(0x1p63).int64Value(), highest);
  EXPECT_EQ(QLTValue(-0x1p63).int64Value(), lowest);
  EXPECT_EQ(QLTValue(-HUGE_VAL).int64Value(), lowest);
  EXPECT_EQ(QLTValue(std::nan("")).int64Value(), 0);
}

TEST(QLTValue, ReadsARealFromAText) {
  EXPECT_EQ(QLTValue(" 1.5e3 V").doubleValue(), 1500.0);
  EXPECT_EQ(QLTValue("abc").doubleValue(), 0.0);
  EXPECT_EQ(QLTValue("").doubleValue(), 0.0);
  EXPECT_EQ(QLTValue(".5").doubleValue(), 0.5);
  EXPECT_EQ(QLTValue("5.").doubleValue(), 5.0);
  EXPECT_EQ(QLTValue("+0.25").doubleValue(), 0.25);
  EXPECT_EQ(QLTValue("-2.5V").doubleValue(), -2.5);
  EXPECT_EQ(QLTValue("3e").doubleValue(), 3.0);
  EXPECT_EQ(QLTValue("3e+").doubleValue(), 3.0);
  EXPECT_EQ(QLTValue("1,5").doubleValue(), 1.0);
  EXPECT_EQ(QLTValue("0x10").doubleValue(), 0.0);
  EXPECT_EQ(QLTValue("nan").doubleValue(), 0.0);
  EXPECT_EQ(QLTValue("inf").doubleValue(), 0.0);
  EXPECT_EQ(QLTValue(".").doubleValue(), 0.0);
  EXPECT_EQ(QLTValue("1e999").doubleValue(), HUGE_VAL);
  EXPECT_EQ(QLTValue("1e-999").doubleValue(), 0.0);
}

TEST(QLTValue, NumbersHaveAPointInACommaLocale) {
  const test::CommaLocale locale;
  if (!locale.isSet()) GTEST_SKIP() << "no locale with a decimal comma, and none can be made";
  EXPECT_EQ(QLTValue("1.5").doubleValue(), 1.5);
  EXPECT_EQ(QLTValue("1,5").doubleValue(), 1.0);
  EXPECT_EQ(QLTValue(" -2.5e-1 V").doubleValue(), -0.25);
  EXPECT_EQ(QLTValue(1234.5).text(), "1234.5");
  EXPECT_EQ(QLTValue(1234567).text(), "1234567");
  EXPECT_EQ(QLTPropertyList::parse("<plist><real>1.5</real></plist>", "T.plist"), QLTValue(1.5));
  EXPECT_EQ(QLTPropertyList::parse("<plist><real>1,5</real></plist>", "T.plist"), std::nullopt);
}

TEST(QLTValue, ShowsItselfAsText) {
  EXPECT_EQ(QLTValue("a b").text(), "a b");
  EXPECT_EQ(QLTValue(-5).text(), "-5");
  EXPECT_EQ(QLTValue(true).text(), "1");
  EXPECT_EQ(QLTValue(false).text(), "0");
  EXPECT_EQ(QLTValue(0.5).text(), "0.5");
  EXPECT_EQ(QLTValue(std::nan("")).text(), "nan");
  EXPECT_EQ(QLTValue(-std::nan("")).text(), "nan");
  EXPECT_EQ(QLTValue(-HUGE_VAL).text(), "-inf");
  EXPECT_EQ(QLTValue(QLTData{0x0a, 0xff}).text(), "<0aff>");
  EXPECT_EQ(QLTValue(QLTDate(std::chrono::seconds(1'794'694'590))).text(),
            "2026-11-14 22:16:30 +0000");
}

TEST(QLTValue, ShowsContainersAsStableListings) {
  const QLTDictionary dictionary{
      {"b", QLTArray{1, "two"}}, {"a", QLTDictionary{{"x", true}}}, {"c", QLTArray{}}};
  EXPECT_EQ(dictionary.text(),
            "{\n"
            "    a = {\n"
            "        x = 1;\n"
            "    };\n"
            "    b = (\n"
            "        1,\n"
            "        two\n"
            "    );\n"
            "    c = (\n"
            "    );\n"
            "}");
  EXPECT_EQ(QLTValue(dictionary).text(), dictionary.text());
}

TEST(QLTValue, CopiesDeeply) {
  QLTValue original(QLTDictionary{{"list", QLTArray{1}}});
  const QLTValue copy = original;
  original.dictionary()->find("list")->array()->push_back(2);
  EXPECT_EQ(copy.dictionary()->find("list")->array()->size(), 1U);
}

TEST(QLTValue, CanTakeThePlaceOfItsOwnContainer) {
  QLTValue value(QLTDictionary{{"inner", QLTDictionary{{"x", 1}}}});
  value = *value.dictionary()->find("inner");
  EXPECT_EQ(value, QLTValue(QLTDictionary{{"x", 1}}));
  QLTValue moved(QLTDictionary{{"inner", QLTDictionary{{"x", 1}}}});
  moved = std::move(*moved.dictionary()->find("inner"));
  EXPECT_EQ(moved, QLTValue(QLTDictionary{{"x", 1}}));
}

TEST(QLTValue, ComparesTypeAndContentButNotPosition) {
  QLTValue a(1);
  a.setPosition({3, 4});
  EXPECT_EQ(a, QLTValue(1));
  EXPECT_FALSE(QLTValue(1) == QLTValue(1.0));
  EXPECT_FALSE(QLTValue("1") == QLTValue(1));
  EXPECT_EQ(QLTValue(QLTDictionary{{"a", 1}}), QLTValue(QLTDictionary{{"a", 1}}));
  EXPECT_FALSE(QLTValue(QLTDictionary{{"a", 1}}) == QLTValue(QLTDictionary{{"a", 2}}));
}

TEST(QLTValue, KeepsWhereItStood) {
  QLTValue value(1);
  EXPECT_EQ(value.position().line, 0);
  EXPECT_EQ(value.position().column, 0);
  EXPECT_EQ(value.position().offset, -1);
  value.setPosition({3, 4});
  const QLTValue copy = value;
  EXPECT_EQ(copy.position().line, 3);
  EXPECT_EQ(copy.position().column, 4);
  EXPECT_EQ(copy.position().offset, -1);
  for (const std::int64_t offset : {std::int64_t{0}, std::int64_t{417}, std::int64_t{1} << 40}) {
    value.setPosition({0, 0, offset});
    const QLTValue moved = std::move(value);
    EXPECT_EQ(moved.position().offset, offset);
    EXPECT_EQ(moved.position().line, 0);
    EXPECT_EQ(moved.position().column, 0);
    value = moved;
  }
}

TEST(QLTValue, KeepsWhereItStoodBesideContentOfEveryType) {
  const std::array<QLTValue, 8> contents{true,           -1,
                                         -0.5,           std::string(100, 'x'),
                                         QLTDate::max(), QLTData{0xff},
                                         QLTArray{1, 2}, QLTDictionary{{"a", 1}}};
  QLTValue target;
  for (const QLTValue& content : contents) {
    QLTValue value = content;
    value.setPosition({0, 0, 0x7fffffffffffff});
    EXPECT_EQ(value, content);
    target = value;
    EXPECT_EQ(target, content);
    EXPECT_EQ(target.position().offset, 0x7fffffffffffff);
    target.setPosition({7, 9});
    value = std::move(target);
    EXPECT_EQ(value, content);
    EXPECT_EQ(value.position().line, 7);
    EXPECT_EQ(value.position().column, 9);
    EXPECT_EQ(target, QLTValue());
  }
}

TEST(QLTValue, KeepsTheLastPositionThereIsOfOnesBeyondIt) {
  QLTValue value;
  value.setPosition({INT_MAX, INT_MAX});
  EXPECT_EQ(value.position().line, (1 << 27) - 1);
  EXPECT_EQ(value.position().column, (1 << 27) - 1);
  EXPECT_EQ(value.position().offset, -1);
  value.setPosition({INT_MAX, 1});
  EXPECT_EQ(value.position().column, 1);
  value.setPosition({1, INT_MAX});
  EXPECT_EQ(value.position().line, 1);
  value.setPosition({-1, -1});
  EXPECT_EQ(value.position().line, 0);
  EXPECT_EQ(value.position().column, 0);
  value.setPosition({0, 0, INT64_MAX});
  EXPECT_EQ(value.position().offset, (std::int64_t{1} << 55) - 1);
}

TEST(QLTDictionary, FindsSetsRemovesAndMerges) {
  QLTDictionary dictionary{{"a", 1}};
  EXPECT_EQ(dictionary.find("b"), nullptr);
  dictionary.set("b", "two");
  dictionary["c"] = 3;
  EXPECT_EQ(dictionary.size(), 3U);
  EXPECT_TRUE(dictionary.remove("a"));
  EXPECT_FALSE(dictionary.remove("a"));
  dictionary.merge({{"b", "new"}, {"d", 4}});
  EXPECT_EQ(dictionary, (QLTDictionary{{"b", "new"}, {"c", 3}, {"d", 4}}));
  dictionary.merge(dictionary);
  EXPECT_EQ(dictionary.size(), 3U);
}

TEST(QLTDictionary, HasShortWaysToAnEntry) {
  const QLTDictionary dictionary{{"text", "12 V"}, {"real", 1.5},         {"large", 5'000'000'000},
                                 {"yes", true},    {"list", QLTArray{1}}, {"data", QLTData{0xff}}};
  EXPECT_EQ(dictionary.text("text", "none"), "12 V");
  EXPECT_EQ(dictionary.text("real"), "1.5");
  EXPECT_EQ(dictionary.text("data"), "<ff>");
  EXPECT_EQ(dictionary.text("absent", "none"), "none");
  EXPECT_EQ(dictionary.text("list", "none"), "none");
  EXPECT_EQ(dictionary.text("absent"), "");
  EXPECT_EQ(dictionary.number("text", 9), 12.0);
  EXPECT_EQ(dictionary.number("real"), 1.5);
  EXPECT_EQ(dictionary.number("absent", 0.5), 0.5);
  EXPECT_EQ(dictionary.number("data", 0.5), 0.5);
  EXPECT_EQ(dictionary.integer("large"), 5'000'000'000);
  EXPECT_EQ(dictionary.integer("text"), 12);
  EXPECT_EQ(dictionary.integer("list", -1), -1);
  EXPECT_TRUE(dictionary.boolean("yes"));
  EXPECT_TRUE(dictionary.boolean("absent", true));
  EXPECT_FALSE(dictionary.boolean("list"));
  EXPECT_TRUE(dictionary.boolean("list", true));
}

TEST(QLTDictionary, LeavesAbsentTextsOut) {
  QLTDictionary dictionary{{"a", 1}, {"b", 2}};
  const char* text = nullptr;
  dictionary.set("a", text);
  dictionary.set("b", std::optional<std::string>());
  EXPECT_TRUE(dictionary.empty());
  text = "x";
  dictionary.set("a", text);
  dictionary.set("b", std::optional<std::string>("y"));
  dictionary.set("zero", 0);
  EXPECT_EQ(dictionary, (QLTDictionary{{"a", "x"}, {"b", "y"}, {"zero", 0}}));
}

}  // namespace
