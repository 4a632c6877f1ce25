// What a description of an instrument's attributes finds in the lines of a tester-config file.

#include <QLTInstrumentDescription.h>

#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Attribute = QLTInstrumentAttribute;
using Kind = QLTInstrumentDescription::Complaint::Kind;

QLTInstrumentDescription meter() {
  return {"LanMeter",
          "multimeter",
          {Attribute::hostAndPort("address", "where it listens").oneOf("line"),
           Attribute::path("bsdPath", "its serial port").oneOf("line"),
           Attribute::text("model", "how it is asked").needed(),
           Attribute::seconds("timeOut", 0.1, 60, "the longest wait").standard("2"),
           Attribute::whole("digits", 4, 8, "of a reading").standard("6")}};
}

std::vector<std::string> complaints(const QLTDictionary& entry) {
  std::vector<std::string> texts;
  for (const auto& complaint : meter().complaintsAbout(entry)) {
    texts.push_back(complaint.message + " (" + complaint.advice + ")");
  }
  return texts;
}

TEST(QLTInstrumentDescription, anEntryInOrderHasNoComplaint) {
  EXPECT_THAT(complaints({{"class", "LanMeter"},
                          {"sim", "0"},
                          {"address", "10.0.0.5:5025"},
                          {"model", "plain"},
                          {"timeOut", "0.5"}}),
              IsEmpty());
}

TEST(QLTInstrumentDescription, eachMistakeIsToldWithWhatToDo) {
  EXPECT_THAT(
      complaints({{"adress", "10.0.0.5:5025"}, {"timeOut", "2s"}, {"digits", "9"}}),
      ElementsAre("no address or bsdPath attribute config for LanMeter instrument (add exactly one "
                  "of them)",
                  "no model attribute config for LanMeter instrument (add model=a text: how it is "
                  "asked)",
                  "timeOut \"2s\" of LanMeter is not a number of seconds, 0.1 to 60 (the longest "
                  "wait)",
                  "digits \"9\" of LanMeter is not a whole number, 4 to 8 (of a reading)",
                  "LanMeter has no attribute adress (did you mean \"address\"?)"));
  const auto kinds = meter().complaintsAbout({{"digits", "9"}, {"colour", "red"}});
  ASSERT_EQ(kinds.size(), 4U);
  EXPECT_EQ(kinds[0].kind, Kind::Missing);
  EXPECT_EQ(kinds[2].kind, Kind::Wrong);
  EXPECT_EQ(kinds[2].attribute, "digits");
  EXPECT_EQ(kinds[3].kind, Kind::Unknown);
  EXPECT_EQ(kinds[3].advice, "the attributes are: address, bsdPath, model, timeOut, digits");
}

TEST(QLTInstrumentDescription, ofAGroupOnlyOneMayBeGiven) {
  EXPECT_THAT(complaints({{"model", "plain"}, {"address", "a:1"}, {"bsdPath", "/dev/ttyS0"}}),
              ElementsAre("LanMeter has address and bsdPath at once (keep exactly one of them)"));
}

TEST(QLTInstrumentDescription, whatAnEntryLacksGetsItsStandardValue) {
  EXPECT_EQ(meter().completed({{"model", "plain"}, {"timeOut", "5"}}),
            (QLTDictionary{{"model", "plain"}, {"timeOut", "5"}, {"digits", "6"}}));
}

struct FormCase {
  Attribute attribute;
  std::vector<std::string> right;
  std::vector<std::string> wrong;
  std::string words;
};

TEST(QLTInstrumentDescription, aFormAcceptsWhatItSays) {
  const std::vector<FormCase> cases{
      {Attribute::text("x", "y"), {"", "anything"}, {}, "a text"},
      {Attribute::whole("x", -1, 4000000, "y"),
       {"-1", "0", "4000000"},
       {"", "1.5", "4000001", "-2", "1 ", "+1", "0x1", "99999999999999999999"},
       "a whole number, -1 to 4000000"},
      {Attribute::number("x", 0.001, 10, "y"),
       {"0.001", "1e1", "2.5"},
       {"", "0", "11", "1V", "nan", "inf", " 1"},
       "a number, 0.001 to 10"},
      {Attribute::seconds("x", 0, 600, "y"),
       {"0", "1.5"},
       {"601", "2s"},
       "a number of seconds, 0 to 600"},
      {Attribute::word("x", {"none", "odd"}, "y"),
       {"none", "odd"},
       {"", "even", "Odd"},
       "one of: none, odd"},
      {Attribute::yesOrNo("x", "y"), {"yes", "no"}, {"1", "true", ""}, "yes or no"},
      {Attribute::hostAndPort("x", "y"),
       {"10.0.0.5:5025", "meter.lab:1", "[::1]:65535", "[fe80::1%eth0]:5025"},
       {"", "10.0.0.5", "10.0.0.5:", ":5025", "a:0", "a:65536", "::1:5025", "[]:1", "a b:1", "a:-1",
        "a:1x"},
       "host:port, such as 10.0.0.5:5025 or [::1]:5025"},
      {Attribute::host("x", "y"),
       {"10.0.0.5", "meter.lab", "::1"},
       {"", "a b", "a/b"},
       "a host's name or address"},
      {Attribute::path("x", "y"), {"/dev/ttyS0"}, {"", "ttyS0"}, "an absolute path"},
  };
  for (const FormCase& form : cases) {
    SCOPED_TRACE(form.words);
    EXPECT_EQ(form.attribute.formText(), form.words);
    for (const std::string& text : form.right) EXPECT_TRUE(form.attribute.accepts(text)) << text;
    for (const std::string& text : form.wrong) EXPECT_FALSE(form.attribute.accepts(text)) << text;
  }
}

TEST(QLTHostAndPort, isWrittenAsItIsRead) {
  for (const char* const text : {"10.0.0.5:5025", "meter.lab:1", "[::1]:65535"}) {
    const auto address = QLTHostAndPort::of(text);
    ASSERT_TRUE(address) << text;
    EXPECT_EQ(address->text(), text);
  }
  EXPECT_EQ(QLTHostAndPort::of("[::1]:5025")->host, "::1");
  EXPECT_EQ(QLTHostAndPort::of("[::1]:5025")->port, 5025);
}

}  // namespace
