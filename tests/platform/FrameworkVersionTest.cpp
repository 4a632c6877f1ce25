#include "platform/FrameworkVersion.h"

#include <gtest/gtest.h>

// The rule itself; that a bundle is refused by it is tested with QLTBundle.

using quillon::internal::frameworkVersionFits;

TEST(FrameworkVersion, UntilOneTheMinorVersionIsTheSame) {
  EXPECT_TRUE(frameworkVersionFits("0.1.0", "0.1.0"));
  EXPECT_FALSE(frameworkVersionFits("0.1.0", "0.2.0"));
  EXPECT_FALSE(frameworkVersionFits("0.2.0", "0.1.0"));
  EXPECT_FALSE(frameworkVersionFits("0.1.0", "1.1.0"));
}

TEST(FrameworkVersion, FromOneOnTheMinorVersionIsNotNewer) {
  EXPECT_TRUE(frameworkVersionFits("1.0.0", "1.0.0"));
  EXPECT_TRUE(frameworkVersionFits("1.0.0", "1.1.0"));
  EXPECT_TRUE(frameworkVersionFits("1.9.0", "1.10.0"));
  EXPECT_FALSE(frameworkVersionFits("1.1.0", "1.0.9"));
  EXPECT_FALSE(frameworkVersionFits("1.10.0", "1.9.0"));
}

TEST(FrameworkVersion, TheMajorVersionIsTheSame) {
  EXPECT_FALSE(frameworkVersionFits("1.0.0", "2.0.0"));
  EXPECT_FALSE(frameworkVersionFits("2.0.0", "1.9.0"));
  EXPECT_FALSE(frameworkVersionFits("0.9.0", "1.0.0"));
}

TEST(FrameworkVersion, ThePatchDoesNotMatter) {
  EXPECT_TRUE(frameworkVersionFits("0.1.9", "0.1.0"));
  EXPECT_TRUE(frameworkVersionFits("1.2.3-rc1", "1.2.0"));
  EXPECT_TRUE(frameworkVersionFits("1.2", "1.2.0"));
}

TEST(FrameworkVersion, WhatIsNoVersionNeverFits) {
  for (const char* text : {"", "1", "1.", ".1", "x.y", "1.x", "-1.0", "1.-1", "1.2x", " 1.2",
                           "99999999999.0", "0x1.2", "+1.2", "1.+2"}) {
    EXPECT_FALSE(frameworkVersionFits(text, "1.2.0")) << text;
    EXPECT_FALSE(frameworkVersionFits("1.2.0", text)) << text;
  }
  for (const char* text : {"-0.1.0", "0.-1.0", "-0.-1"}) {
    EXPECT_FALSE(frameworkVersionFits(text, "0.1.0")) << text;
  }
}
