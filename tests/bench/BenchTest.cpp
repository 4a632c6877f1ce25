// The making of instruments from the lines of a tester-config file.

#include <QLTBench.h>
#include <QLTErrorCodes.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {

using testing::HasSubstr;

std::vector<std::string> classNames() {
  std::vector<std::string> names;
  for (const auto& cls : QLTBench::instrumentClasses()) names.push_back(cls.className);
  return names;
}

TEST(QLTBench, aClassThatIsNoneOfTheLibraryIsToldWithThoseThatAre) {
  QLTError error;
  EXPECT_EQ(QLTBench::createInstrument({{"class", "Toaster"}, {"sim", "0"}}, &error), nullptr);
  EXPECT_EQ(error.code(), kQLTErrorInstrumentTypeUnknown);
  EXPECT_THAT(error.description().value_or(""), HasSubstr("unknown instrument type Toaster"));
  for (const std::string& name : classNames()) {
    EXPECT_THAT(error.description().value_or(""), HasSubstr(name));
  }
}

TEST(QLTBench, theErrorMayBeLeftOut) {
  EXPECT_EQ(QLTBench::createInstrument({{"class", "Toaster"}}), nullptr);
}

TEST(QLTBench, everyClassIsDescribedForPeople) {
  std::vector<std::string> names = classNames();
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
  for (const auto& cls : QLTBench::instrumentClasses()) {
    SCOPED_TRACE(cls.className);
    EXPECT_FALSE(cls.kind.empty());
    for (const auto& attribute : cls.attributes) {
      SCOPED_TRACE(attribute.name());
      EXPECT_FALSE(attribute.meaning().empty());
      EXPECT_EQ(
          cls.attribute(attribute.name()),
          &*std::find_if(cls.attributes.begin(), cls.attributes.end(),
                         [&](const auto& other) { return other.name() == attribute.name(); }));
      if (attribute.standard()) {
        EXPECT_TRUE(attribute.accepts(*attribute.standard())) << *attribute.standard();
        EXPECT_FALSE(attribute.isNeeded());
      }
    }
  }
}

}  // namespace
