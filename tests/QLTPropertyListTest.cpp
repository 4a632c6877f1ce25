#include <QLTPropertyList.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "support/TemporaryFolder.h"

namespace {

std::optional<QLTValue> parse(const std::string& body, QLTError* error = nullptr) {
  return QLTPropertyList::parse(
      "<?xml version=\"1.0\"?>\n<plist version=\"1.0\">\n" + body + "\n</plist>\n", "t.plist",
      error);
}

std::string complaint(const std::string& body) {
  QLTError error;
  EXPECT_EQ(parse(body, &error), std::nullopt) << body;
  EXPECT_EQ(error.code(), -40004);
  EXPECT_EQ(error.domain(), QLTFrameworkErrorDomain);
  return error.description().value_or("(none)");
}

TEST(QLTPropertyList, ReadsEveryType) {
  const auto value = parse(
      "<dict><key>text</key><string> a &lt;b&gt; &amp; \xc3\xa4 </string>"
      "<key>empty</key><string/>"
      "<key>int</key><integer> -12 </integer><key>hex</key><integer>0xFF</integer>"
      "<key>real</key><real>2.5e-1</real><key>yes</key><true/><key>no</key><false></false>"
      "<key>date</key><date>2026-11-14T22:16:30Z</date>"
      "<key>data</key><data> Cv8A\n AQ== </data>"
      "<key>list</key><array><integer>1</integer><array/></array><key>none</key><dict/></dict>");
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, QLTValue(QLTDictionary{{"text", " a <b> & \xc3\xa4 "},
                                           {"empty", ""},
                                           {"int", -12},
                                           {"hex", 255},
                                           {"real", 0.25},
                                           {"yes", true},
                                           {"no", false},
                                           {"date", QLTDate(std::chrono::seconds(1'794'694'590))},
                                           {"data", QLTData{0x0a, 0xff, 0x00, 0x01}},
                                           {"list", QLTArray{1, QLTArray{}}},
                                           {"none", QLTDictionary{}}}));
}

TEST(QLTPropertyList, RemembersWhereEachValueStood) {
  const auto value =
      parse("<dict>\n  <key>a</key>\n  <array>\n    <integer>1</integer>\n  </array></dict>");
  ASSERT_TRUE(value);
  const QLTValue& list = *value->dictionary()->find("a");
  EXPECT_EQ(list.position().line, 5);
  EXPECT_EQ(list.position().column, 3);
  EXPECT_EQ((*list.array())[0].position().line, 6);
  EXPECT_EQ((*list.array())[0].position().column, 5);
}

TEST(QLTPropertyList, AcceptsADocumentTypeWithoutEntities) {
  EXPECT_TRUE(QLTPropertyList::parse(
      "<!DOCTYPE plist SYSTEM \"http://example.invalid/p.dtd\"><plist><true/></plist>", "t"));
}

TEST(QLTPropertyList, ReadsOtherEncodings) {
  const auto value = QLTPropertyList::parse(
      "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><plist><string>\xe4</string></plist>", "t");
  ASSERT_TRUE(value);
  EXPECT_EQ(value->text(), "\xc3\xa4");
}

TEST(QLTPropertyList, LeavesTheErrorAloneOnSuccess) {
  QLTError error("earlier", 1, {});
  EXPECT_TRUE(parse("<true/>", &error));
  EXPECT_EQ(error.domain(), "earlier");
}

TEST(QLTPropertyList, NamesFileLineColumnAndKeyPath) {
  EXPECT_EQ(complaint("<dict><key>Flows</key><dict><key>main</key><array><dict/>\n"
                      "<dict><key>lowLimit</key><real>4,5</real></dict></array></dict></dict>"),
            "t.plist:4:26: Flows/main/1/lowLimit: not a number: '4,5'");
}

TEST(QLTPropertyList, RefusesWrongNumbers) {
  for (const char* text : {"", "1.5", "abc", "12x", "--1", "9223372036854775808",
                           "-9223372036854775809", "0x", "1 2"}) {
    EXPECT_EQ(complaint("<integer>" + std::string(text) + "</integer>"),
              "t.plist:3:1: not a whole number of 64 bits: '" + std::string(text) + "'");
  }
  for (const char* text : {"", "abc", "1.5V", "1,5", "1e999", "+-1"}) {
    EXPECT_EQ(complaint("<real>" + std::string(text) + "</real>"),
              "t.plist:3:1: not a number: '" + std::string(text) + "'");
  }
  EXPECT_EQ(*parse("<integer>-9223372036854775808</integer>"),
            QLTValue(std::numeric_limits<std::int64_t>::min()));
  EXPECT_EQ(parse("<real>+1</real>")->doubleValue(), 1.0);
}

TEST(QLTPropertyList, RefusesWrongDatesAndData) {
  for (const char* text : {"2026-11-14", "2026-13-01T00:00:00Z", "2026-02-30T00:00:00Z",
                           "2026-11-14 22:16:30Z", "2026-11-14T24:00:00Z"}) {
    EXPECT_NE(complaint("<date>" + std::string(text) + "</date>").find("not a date"),
              std::string::npos);
  }
  for (const char* text : {"A", "AA", "AA=", "AAA", "A===", "AA==AA==", "!!!!", "AAAA="}) {
    EXPECT_NE(complaint("<data>" + std::string(text) + "</data>").find("not base64 data"),
              std::string::npos)
        << text;
  }
}

TEST(QLTPropertyList, RefusesWrongStructure) {
  EXPECT_EQ(complaint("<dict><string>x</string></dict>"),
            "t.plist:3:7: expected <key>, found <string>");
  EXPECT_EQ(complaint("<dict><key>a</key><key>b</key></dict>"),
            "t.plist:3:19: a: expected a value, found another <key>");
  EXPECT_EQ(complaint("<dict><key>a</key></dict>"), "t.plist:3:7: a: the key has no value");
  EXPECT_EQ(complaint("<array><key>a</key></array>"), "t.plist:3:8: 0: <key> outside a dictionary");
  EXPECT_EQ(complaint("<true/><true/>"), "t.plist:3:8: more than one value in <plist>");
  EXPECT_EQ(complaint(""), "t.plist:2:1: no value in <plist>");
  EXPECT_EQ(complaint("<foo/>"), "t.plist:3:1: unknown element <foo>");
  EXPECT_EQ(complaint("<string><true/></string>"), "t.plist:3:9: unexpected <true> within a value");
  EXPECT_EQ(complaint("<dict>x</dict>"), "t.plist:3:7: unexpected text 'x'");
  EXPECT_EQ(complaint("<true>x</true>"), "t.plist:3:7: unexpected text 'x'");
  EXPECT_EQ(complaint("<plist/>"), "t.plist:3:1: unexpected <plist>");
}

TEST(QLTPropertyList, RefusesAKeyThatStandsTwice) {
  EXPECT_EQ(complaint("<dict><key>a</key><true/>\n<key>a</key><true/></dict>"),
            "t.plist:4:1: the key 'a' stands twice (first at line 3)");
}

TEST(QLTPropertyList, RefusesOtherDocuments) {
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::parse("<html/>", "t", &error));
  EXPECT_EQ(error.description(), "t:1:1: expected <plist>, found <html>");
  EXPECT_FALSE(QLTPropertyList::parse("", "t", &error));
  EXPECT_EQ(error.description(), "t:1:1: no element found");
  EXPECT_FALSE(QLTPropertyList::parse("<plist><dict></plist>", "t", &error));
  EXPECT_EQ(error.description(), "t:1:16: mismatched tag");
  EXPECT_FALSE(QLTPropertyList::parse("<plist><true/></plist>x", "t", &error));
  EXPECT_FALSE(QLTPropertyList::parse("<plist><string>\xff</string></plist>", "t", &error));
}

TEST(QLTPropertyList, RefusesEntityDeclarations) {
  QLTError error;
  EXPECT_FALSE(
      QLTPropertyList::parse("<!DOCTYPE plist [<!ENTITY a \"x\"><!ENTITY b "
                             "\"&a;&a;\">]><plist><string>&b;</string></plist>",
                             "t", &error));
  EXPECT_NE(error.description()->find("entity declarations are not allowed"), std::string::npos);
}

std::string nested(int depth) {
  std::string body;
  for (int i = 0; i < depth; ++i) body += "<array>";
  for (int i = 0; i < depth; ++i) body += "</array>";
  return body;
}

TEST(QLTPropertyList, LimitsTheDepth) {
  EXPECT_TRUE(parse(nested(129)));
  EXPECT_NE(complaint(nested(130)).find("nested deeper than 128 levels"), std::string::npos);
  EXPECT_NE(complaint(nested(100000)).find("nested deeper than 128 levels"), std::string::npos);
}

TEST(QLTPropertyList, ReadsFiles) {
  const test::TemporaryFolder folder;
  const auto path =
      folder.write("a.plist", "<plist><dict><key>k</key><integer>1</integer></dict></plist>");
  EXPECT_EQ(QLTPropertyList::readDictionary(path), (QLTDictionary{{"k", 1}}));
}

TEST(QLTPropertyList, TellsWhyAFileCannotBeRead) {
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::read("/no/such/file.plist", &error));
  EXPECT_EQ(error.domain(), "POSIX");
  EXPECT_EQ(error.code(), ENOENT);
  EXPECT_EQ(error.description(), "/no/such/file.plist: No such file or directory");
  EXPECT_FALSE(QLTPropertyList::read("/no/such/file.plist"));
  EXPECT_FALSE(QLTPropertyList::read("/tmp", &error));
  EXPECT_EQ(error.code(), EISDIR);
}

TEST(QLTPropertyList, WantsADictionaryWhereOneIsNeeded) {
  const test::TemporaryFolder folder;
  const auto path = folder.write("a.plist", "<plist>\n<array/></plist>");
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::readDictionary(path, &error));
  EXPECT_EQ(error.description(), path.string() + ":2:1: the root is not a dictionary");
  EXPECT_EQ(error.code(), -40004);
}

}  // namespace
