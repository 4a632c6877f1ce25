#include <QLTUtil.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "support/ConsoleLog.h"

namespace {

using test::ConsoleLog;
using Strings = std::vector<std::string>;

TEST(QLTUtilTest, DomainsAreFixed) {
  EXPECT_EQ(QLTFrameworkErrorDomain, "Quillon Framework Error Domain");
  EXPECT_EQ(QLTSerialErrorDomain, "QLTSerial Error Domain");
  EXPECT_EQ(kQLTScipErrorDomain, "kQLTScpiErrorDomain");
}

TEST(QLTUtilTest, BuildsAndLogsAnErrorOfTheFramework) {
  const ConsoleLog log;
  const QLTError error = QLTUtil::handleError(-20001, "timeout reading socket");
  EXPECT_EQ(error.domain(), "Quillon Framework Error Domain");
  EXPECT_EQ(error.code(), -20001);
  EXPECT_EQ(error.userInfo(), (QLTDictionary{{kQLTErrorDescriptionKey, "timeout reading socket"}}));
  EXPECT_FALSE(error.underlyingError());
  EXPECT_EQ(log.lines(), Strings{"error number is: timeout reading socket (-20001)\n"});
}

TEST(QLTUtilTest, BuildsAndLogsAnErrorOfAnotherDomain) {
  const ConsoleLog log;
  const QLTError error = QLTUtil::handleError(5, "a domain", "100% %@");
  EXPECT_EQ(error.domain(), "a domain");
  EXPECT_EQ(error.code(), 5);
  EXPECT_EQ(error.description(), "100% %@");
  EXPECT_EQ(log.lines(), Strings{"error number is: 100% %@ (5)\n"});
}

TEST(QLTUtilTest, CodeIsWidenedWithItsSign) {
  const ConsoleLog log;
  EXPECT_EQ(QLTUtil::handleError(std::numeric_limits<std::int32_t>::min(), "lowest").code(),
            std::int64_t{-2147483648});
}

TEST(QLTUtilTest, EmptyAndAbsentMessagesDiffer) {
  const ConsoleLog log;
  EXPECT_EQ(QLTUtil::handleError(-1, "").description(), "");
  const QLTError error = QLTUtil::handleError(-1, std::nullopt);
  EXPECT_TRUE(error);
  EXPECT_EQ(error.description(), std::nullopt);
  EXPECT_EQ(log.lines(), (Strings{"error number is:  (-1)\n", "error number is: (null) (-1)\n"}));
}

TEST(QLTUtilTest, WrapsAnErrorWithoutLogging) {
  const QLTError inner = QLTError::withDescription("a domain", -20001, "timeout reading socket");
  const ConsoleLog log;
  const QLTError outer = QLTUtil::handleError(inner, "ping failed");
  EXPECT_EQ(outer.domain(), "a domain");
  EXPECT_EQ(outer.code(), -20001);
  EXPECT_EQ(outer.description(), "ping failed. Details: timeout reading socket");
  EXPECT_EQ(outer.underlyingError().description(), "timeout reading socket");
  EXPECT_EQ(outer.underlyingError().code(), -20001);
  EXPECT_EQ(log.lines(), Strings{});
}

TEST(QLTUtilTest, WrapsTwice) {
  const QLTError inner = QLTError::withDescription("a domain", 2, "inner");
  const QLTError outer = QLTUtil::handleError(QLTUtil::handleError(inner, "middle"), "outer");
  EXPECT_EQ(outer.description(), "outer. Details: middle. Details: inner");
  EXPECT_EQ(outer.underlyingError().underlyingError().description(), "inner");
}

TEST(QLTUtilTest, WrapsAnErrorWithoutDescription) {
  const QLTError inner("a domain", -10001, {{"msg", "elsewhere"}});
  EXPECT_EQ(QLTUtil::handleError(inner, "read failed").description(),
            "read failed. Details: (null)");
}

TEST(QLTUtilTest, JoinsStringsWithASeparatorBetween) {
  EXPECT_EQ(QLTUtil::arrayToString({"a", "b", "c"}, ", "), "a, b, c");
  EXPECT_EQ(QLTUtil::arrayToString({"a"}, ", "), "a");
  EXPECT_EQ(QLTUtil::arrayToString({}, ", "), "");
  EXPECT_EQ(QLTUtil::arrayToString({"", "b", ""}, "-"), "-b-");
  EXPECT_EQ(QLTUtil::arrayToString({"a", "b"}, ""), "ab");
}

TEST(QLTMathUtilTest, Hex2intReadsLeadingDecimalDigits) {
  EXPECT_EQ(QLTUtil::hex2int("0x10"), 0);
  EXPECT_EQ(QLTUtil::hex2int("  42abc"), 42);
  EXPECT_EQ(QLTUtil::hex2int("1F"), 1);
  EXPECT_EQ(QLTUtil::hex2int("ff"), 0);
  EXPECT_EQ(QLTUtil::hex2int(""), 0);
  EXPECT_EQ(QLTUtil::hex2int("-7"), -7);
  EXPECT_EQ(QLTUtil::hex2int("\t+7.9"), 7);
  EXPECT_EQ(QLTUtil::hex2int("99999999999"), 2147483647);
  EXPECT_EQ(QLTUtil::hex2int("-99999999999"), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(QLTUtil::hex2int("-2147483648"), std::numeric_limits<std::int32_t>::min());
}

TEST(QLTMathUtilTest, Int2hexPadsWithBlanks) {
  EXPECT_EQ(QLTUtil::int2hex(255, 4), "  ff");
  EXPECT_EQ(QLTUtil::int2hex(0, 0), "0");
  EXPECT_EQ(QLTUtil::int2hex(3735928559U, 8), "deadbeef");
  EXPECT_EQ(QLTUtil::int2hex(3735928559U, 2), "deadbeef");
  EXPECT_EQ(QLTUtil::int2hex(4294967295U, 10), "  ffffffff");
  EXPECT_EQ(QLTUtil::int2hex(255, -4), "ff  ");
  EXPECT_EQ(QLTUtil::int2hex(255, -1), "ff");
}

TEST(QLTMathUtilTest, Base2ConversionsAreUnfinished) {
  EXPECT_EQ(QLTUtil::bin2int("101"), 3);
  EXPECT_EQ(QLTUtil::bin2int(""), 3);
  EXPECT_EQ(QLTUtil::int2bin(5, 8), "");
  EXPECT_EQ(QLTUtil::int2bin(0, 0), "");
}

TEST(QLTMathUtilTest, Int2HexBoundsItsWidth) {
  constexpr std::size_t kGreatest = 65536;
  for (const int width : {65536, 65537, std::numeric_limits<int>::max()}) {
    const std::string text = QLTUtil::int2hex(255, width);
    EXPECT_EQ(text.size(), kGreatest) << width;
    EXPECT_EQ(text.find_first_not_of(' '), kGreatest - 2) << width;
    EXPECT_TRUE(text.ends_with("ff")) << width;
  }
  const std::string left = QLTUtil::int2hex(255, std::numeric_limits<int>::min());
  EXPECT_EQ(left.size(), kGreatest);
  EXPECT_TRUE(left.starts_with("ff "));
}

}  // namespace
