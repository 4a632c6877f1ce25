#include <QLTError.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace {

TEST(QLTError, IsEmptyByDefault) {
  const QLTError error;
  EXPECT_FALSE(error);
  EXPECT_EQ(error.domain(), "");
  EXPECT_EQ(error.code(), 0);
  EXPECT_TRUE(error.userInfo().empty());
  EXPECT_EQ(error.description(), std::nullopt);
  EXPECT_FALSE(error.underlyingError());
}

TEST(QLTError, HoldsDomainCodeAndUserInformation) {
  const QLTError error("some domain", -5'000'000'000, {{"msg", "text"}});
  EXPECT_TRUE(error);
  EXPECT_EQ(error.domain(), "some domain");
  EXPECT_EQ(error.code(), -5'000'000'000);
  EXPECT_EQ(error.userInfo(), (QLTDictionary{{"msg", "text"}}));
}

TEST(QLTError, HasNoDescriptionWithoutTheDescriptionKey) {
  EXPECT_EQ(QLTError("d", 1, {{"msg", "text"}}).description(), std::nullopt);
}

TEST(QLTError, AnEmptyDescriptionIsNotAnAbsentOne) {
  EXPECT_EQ(QLTError::withDescription("d", 1, "").description(), "");
}

TEST(QLTError, CodeZeroIsStillAnError) { EXPECT_TRUE(QLTError("d", 0, {})); }

TEST(QLTError, WithDescriptionHoldsOnlyTheDescription) {
  const QLTError error = QLTError::withDescription("d", 7, "what happened");
  EXPECT_EQ(error.description(), "what happened");
  EXPECT_EQ(error.userInfo(), (QLTDictionary{{kQLTErrorDescriptionKey, "what happened"}}));
}

TEST(QLTError, FromErrnoNamesTheSubjectAndTheSystemsText) {
  const QLTError error = QLTError::fromErrno(ENOENT, "/some/file");
  EXPECT_EQ(error.domain(), "POSIX");
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_EQ(error.description(), "/some/file: No such file or directory");
}

TEST(QLTError, KeepsTheUnderlyingError) {
  const QLTError outer("d", 1, {}, QLTError::withDescription("inner", 2, "cause"));
  EXPECT_EQ(outer.underlyingError().domain(), "inner");
  EXPECT_EQ(outer.underlyingError().description(), "cause");
}

}  // namespace
