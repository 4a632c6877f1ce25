#include <QLTPropertyList.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <filesystem>

#include <sys/stat.h>

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
  EXPECT_EQ(list.position().offset, -1);
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

TEST(QLTPropertyList, RefusesEntitiesOfAnAbsentDocumentType) {
  const std::string doctype = "<!DOCTYPE plist SYSTEM \"p.dtd\">\n";
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::parse(
      doctype + "<plist><dict><key>a</key><string>1&nbsp;V</string></dict></plist>", "t", &error));
  EXPECT_EQ(error.description(), "t:2:35: a: unknown entity &nbsp;");
  EXPECT_FALSE(QLTPropertyList::parse(
      "<!DOCTYPE plist [%p;<!ENTITY a \"x\">]><plist><string>&a;</string></plist>", "t", &error));
  EXPECT_EQ(QLTPropertyList::parse(doctype + "<plist><string>&lt;&#65;</string></plist>", "t"),
            QLTValue("<A"));
}

TEST(QLTPropertyList, RefusesAttributeDeclarations) {
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::parse(
      "<!DOCTYPE plist [<!ATTLIST true a CDATA \"x\">]><plist><true/></plist>", "t", &error));
  EXPECT_THAT(*error.description(), testing::EndsWith("attribute declarations are not allowed"));
}

std::string nested(int depth) {
  std::string body;
  for (int i = 0; i < depth; ++i) body += "<array>";
  for (int i = 0; i < depth; ++i) body += "</array>";
  return body;
}

TEST(QLTPropertyList, LimitsTheDepth) {
  EXPECT_TRUE(parse(nested(128)));
  EXPECT_NE(complaint(nested(129)).find("nested deeper than 128 levels"), std::string::npos);
  std::string withLeaf = nested(128);
  EXPECT_TRUE(parse(withLeaf.insert(withLeaf.find('/') - 1, "<true/>")));
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

TEST(QLTPropertyList, ReadsNothingThatCouldGoOnForEver) {
  const test::TemporaryFolder folder;
  const auto pipe = folder.path() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::read(pipe, &error));
  EXPECT_EQ(error.domain(), "POSIX");
  EXPECT_EQ(error.code(), EINVAL);
  EXPECT_EQ(error.description(), pipe.string() + ": not a regular file");
  EXPECT_FALSE(QLTPropertyList::read("/dev/zero", &error));
  EXPECT_EQ(error.description(), "/dev/zero: not a regular file");
}

TEST(QLTPropertyList, LimitsTheSizeOfAFile) {
  const test::TemporaryFolder folder;
  const auto path = folder.write("a.plist", "<plist><true/></plist>");
  std::filesystem::resize_file(path, (256U << 20U) + 1);
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::read(path, &error));
  EXPECT_EQ(error.code(), EFBIG);
  EXPECT_EQ(error.description(), path.string() + ": File too large");
}

TEST(QLTPropertyList, ReadsAFileWhoseSizeTheSystemDoesNotTell) {
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::read("/proc/self/status", &error));
  EXPECT_EQ(error.description(),
            "/proc/self/status:1:1: neither an XML nor a binary property list");
}

std::string complaintOf(const std::string& bytes) {
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::parse(bytes, "t", &error)) << bytes;
  return error.description().value_or("(none)");
}

TEST(QLTPropertyList, TellsWhatToDoAboutFirstMistakes) {
  EXPECT_EQ(complaintOf("<plist><string>gr\xfcn</string></plist>"),
            "t:1:18: not UTF-8: byte 0xfc; save the file as UTF-8");
  EXPECT_EQ(complaintOf("<plist><string>\xe4</string></plist>"),
            "t:1:16: not UTF-8: byte 0xe4; save the file as UTF-8");
  for (const char* text : {"R&D", "R & D", "R&D 2", "R&"}) {
    EXPECT_THAT(complaintOf("<plist><string>" + std::string(text) + "</string></plist>"),
                testing::EndsWith(": an & that begins no reference: write &amp;"))
        << text;
  }
  EXPECT_THAT(complaintOf("<plist><string>1 < 2</string></plist>"),
              testing::EndsWith(": a < that begins no element: write &lt;"));
  EXPECT_EQ(complaintOf("{\"Sites\": {}}"), "t:1:1: neither an XML nor a binary property list");
  EXPECT_EQ(complaintOf("\n { Sites = {}; }"), "t:2:2: neither an XML nor a binary property list");
  // An image, whose advice must not be to save it as text.
  EXPECT_EQ(complaintOf("\x89PNG\r\n"), "t:1:1: neither an XML nor a binary property list");
  EXPECT_EQ(complaintOf("<plist><string>\x01</string></plist>"),
            "t:1:16: not well-formed (invalid token)");
}

TEST(QLTPropertyList, CutsLongTextsInWhatItTells) {
  const std::string key(1U << 20U, 'k');
  const std::string name = "<" + key + "/>";
  for (const std::string& body :
       {"<dict><key>" + key + "</key><integer>x</integer></dict>",
        "<dict><key>" + key + "</key><true/><key>" + key + "</key><true/></dict>", name,
        "<integer>" + key + "</integer>", "<dict>" + key + "</dict>"}) {
    QLTError error;
    EXPECT_FALSE(parse(body, &error));
    EXPECT_LT(error.description()->size(), 300U);
    EXPECT_LT(error.userInfo().text("keyPath").size(), 100U);
    EXPECT_THAT(*error.description(), testing::HasSubstr("kkk..."));
  }
  // Not within a character.
  std::string umlauts;
  for (int i = 0; i < 100; ++i) umlauts += "\xc3\xa4";
  EXPECT_THAT(complaint("<integer>x" + umlauts + "</integer>"), testing::EndsWith("\xa4...'"));
}

TEST(QLTPropertyList, WantsADictionaryWhereOneIsNeeded) {
  const test::TemporaryFolder folder;
  const auto path = folder.write("a.plist", "<plist>\n<array/></plist>");
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::readDictionary(path, &error));
  EXPECT_EQ(error.description(), path.string() + ":2:1: the root is not a dictionary");
  EXPECT_EQ(error.code(), -40004);
}

// Binary property lists. The files are put together here by hand, byte by byte.

/// A binary list of the given objects, of which the first is the root.
std::string binary(const std::vector<std::string>& objects) {
  const auto bytesOf = [](std::size_t offset) {
    return std::string{static_cast<char>(offset >> 8U), static_cast<char>(offset)};
  };
  std::string bytes = "bplist00";
  std::string table;
  for (const std::string& object : objects) {
    table += bytesOf(bytes.size());
    bytes += object;
  }
  const std::string tableOffset = bytesOf(bytes.size());
  bytes += table;
  bytes += std::string(6, '\0') + '\2' + '\1';
  bytes += std::string(7, '\0') + static_cast<char>(objects.size());
  bytes += std::string(8, '\0');
  bytes += std::string(6, '\0') + tableOffset;
  return bytes;
}

std::optional<QLTValue> parseBinary(const std::vector<std::string>& objects) {
  QLTError error;
  auto value = QLTPropertyList::parse(binary(objects), "b", &error);
  EXPECT_EQ(value.has_value(), !error) << error.description().value_or("");
  return value;
}

std::string binaryComplaint(const std::string& bytes) {
  QLTError error;
  EXPECT_EQ(QLTPropertyList::parse(bytes, "b", &error), std::nullopt);
  EXPECT_EQ(error.code(), -40004);
  return error.description().value_or("(none)");
}

using namespace std::string_literals;

TEST(QLTBinaryPropertyList, ReadsEveryType) {
  EXPECT_EQ(parseBinary({"\x08"}), QLTValue(false));
  EXPECT_EQ(parseBinary({"\x09"}), QLTValue(true));
  EXPECT_EQ(parseBinary({"\x10\xff"}), QLTValue(255));
  EXPECT_EQ(parseBinary({"\x11\x01\x02"}), QLTValue(258));
  EXPECT_EQ(parseBinary({"\x12\xff\xff\xff\xff"}), QLTValue(std::uint32_t{0xffffffff}));
  EXPECT_EQ(parseBinary({"\x13" + std::string(8, '\xff')}), QLTValue(-1));
  EXPECT_EQ(parseBinary({"\x14" + std::string(15, '\0') + "\x05"}), QLTValue(5));
  EXPECT_EQ(parseBinary({"\x14" + std::string(16, '\xff')}), QLTValue(-1));
  EXPECT_EQ(parseBinary({"\x22\x3f\xc0\x00\x00"s}), QLTValue(1.5));
  EXPECT_EQ(parseBinary({"\x23\x3f\xf8\x00\x00\x00\x00\x00\x00"s}), QLTValue(1.5));
  EXPECT_EQ(parseBinary({"\x33" + std::string(8, '\0')}),
            QLTValue(QLTDate(std::chrono::seconds(978'307'200))));
  EXPECT_EQ(parseBinary({"\x42\x0a\xff"}), QLTValue(QLTData{0x0a, 0xff}));
  EXPECT_EQ(parseBinary({"\x53"
                         "abc"}),
            QLTValue("abc"));
  EXPECT_EQ(parseBinary({"\x50"}), QLTValue(""));
  EXPECT_EQ(parseBinary({"\x5f\x10\x10"
                         "0123456789abcdef"}),
            QLTValue("0123456789abcdef"));
  EXPECT_EQ(parseBinary({"\x64\x00\x61\x00\xe4\x20\xac\x08\x00"s}),
            QLTValue("a\xc3\xa4\xe2\x82\xac\xe0\xa0\x80"));
  EXPECT_EQ(parseBinary({"\x62\xd8\x3d\xde\x00"s}), QLTValue("\xf0\x9f\x98\x80"));
  EXPECT_EQ(parseBinary({"\xa2\x01\x01", "\x10\x07"}), QLTValue(QLTArray{7, 7}));
  EXPECT_EQ(parseBinary({"\xd1\x01\x02",
                         "\x51"
                         "k",
                         "\xd0"}),
            QLTValue(QLTDictionary{{"k", QLTDictionary{}}}));
}

TEST(QLTBinaryPropertyList, RefusesWhatIsCutShort) {
  const std::string whole = binary({"\xd1\x01\x02",
                                    "\x51"
                                    "k",
                                    "\x53"
                                    "abc"});
  ASSERT_TRUE(QLTPropertyList::parse(whole, "b"));
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(QLTPropertyList::parse(whole.substr(0, length), "b")) << length;
  }
  EXPECT_EQ(binaryComplaint("bplist00"),
            "b:offset 0: not a complete binary property list of version 00");
  EXPECT_EQ(binaryComplaint("bplist15" + std::string(40, '\0')),
            "b:offset 0: not a complete binary property list of version 00");
}

TEST(QLTBinaryPropertyList, RemembersWhereEachValueStood) {
  const auto value = parseBinary({"\xd1\x01\x02",
                                  "\x51"
                                  "k",
                                  "\xa1\x03", "\x09"});
  ASSERT_TRUE(value);
  EXPECT_EQ(value->position().offset, 8);
  EXPECT_EQ(value->position().line, 0);
  const QLTValue& list = *value->dictionary()->find("k");
  EXPECT_EQ(list.position().offset, 13);
  EXPECT_EQ((*list.array())[0].position().offset, 15);
}

TEST(QLTBinaryPropertyList, TellsThePlaceAsValues) {
  QLTError error;
  const std::string bytes = binary({"\xd1\x01\x02",
                                    "\x51"
                                    "k",
                                    "\x70"});
  EXPECT_FALSE(QLTPropertyList::parse(bytes, "b", &error));
  EXPECT_EQ(error.userInfo().integer("offset", -1), 13);
  EXPECT_EQ(error.userInfo().integer("line", -1), 0);
  EXPECT_EQ(error.userInfo().text("keyPath"), "k");
  EXPECT_FALSE(QLTPropertyList::parse("<plist/>", "x", &error));
  EXPECT_FALSE(error.userInfo().contains("offset"));
}

TEST(QLTBinaryPropertyList, NamesOffsetAndKeyPath) {
  EXPECT_EQ(binaryComplaint(binary({"\xd1\x01\x02",
                                    "\x51"
                                    "k",
                                    "\xa2\x03\x04", "\x09", "\x70"})),
            "b:offset 17: k/1: unknown kind of object 0x70");
}

TEST(QLTBinaryPropertyList, RefusesWrongObjects) {
  EXPECT_EQ(binaryComplaint(binary({"\x00"s})), "b:offset 8: unknown kind of object 0x00");
  EXPECT_EQ(binaryComplaint(binary({"\x80\x01"})), "b:offset 8: unknown kind of object 0x80");
  EXPECT_EQ(binaryComplaint(binary({"\x15"})), "b:offset 8: impossible size of a whole number");
  EXPECT_EQ(binaryComplaint(binary({"\x14\x01" + std::string(15, '\0')})),
            "b:offset 8: not a whole number of 64 bits");
  EXPECT_EQ(binaryComplaint(binary({"\x24"})), "b:offset 8: impossible size of a number");
  EXPECT_EQ(binaryComplaint(binary({"\x33\x7f\xf0" + std::string(6, '\0')})),
            "b:offset 8: not a date");
  EXPECT_EQ(binaryComplaint(binary({"\x52"
                                    "a\xe4"})),
            "b:offset 10: a byte over 127 in an ASCII text");
  EXPECT_EQ(binaryComplaint(binary({"\x61\xd8\x00"s})), "b:offset 9: half a surrogate pair");
  EXPECT_EQ(binaryComplaint(binary({"\x61\xdc\x00"s})), "b:offset 9: half a surrogate pair");
  EXPECT_EQ(binaryComplaint(binary({"\x5f\x50"})), "b:offset 9: expected a count");
  EXPECT_EQ(binaryComplaint(binary({"\x5f\x13" + std::string(8, '\xff')})),
            "b:offset 8: reaches past the end of the file");
  EXPECT_EQ(binaryComplaint(binary({"\xa1\x05"})),
            "b:offset 9: 0: refers to an object that does not exist");
  EXPECT_EQ(binaryComplaint(binary({"\xd1\x01\x01", "\x09"})), "b:offset 11: a key is not a text");
  EXPECT_EQ(binaryComplaint(binary({"\xd2\x01\x01\x02\x02",
                                    "\x51"
                                    "k",
                                    "\x09"})),
            "b:offset 10: the key 'k' stands twice");
}

TEST(QLTBinaryPropertyList, ReadsTheLastDateThatATextCanHave) {
  const auto seconds = [](std::uint64_t bits) {
    std::string bytes = "\x33";
    for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(bits >> shift);
    return bytes;
  };
  // 9999-12-31 23:59:59, and a second later.
  const auto last = std::bit_cast<std::uint64_t>(252'423'993'599.0);
  EXPECT_EQ(parseBinary({seconds(last)}), parse("<date>9999-12-31T23:59:59Z</date>"));
  EXPECT_EQ(binaryComplaint(binary({seconds(std::bit_cast<std::uint64_t>(252'423'993'600.0))})),
            "b:offset 8: not a date");
}

TEST(QLTBinaryPropertyList, LimitsTheDepthAsForXml) {
  const auto nestedArrays = [](char depth) {
    std::vector<std::string> objects;
    for (char i = 1; i != depth; ++i) objects.push_back(std::string("\xa1") + i);
    objects.emplace_back("\xa0");
    return binary(objects);
  };
  EXPECT_TRUE(QLTPropertyList::parse(nestedArrays(static_cast<char>(128)), "b"));
  EXPECT_THAT(binaryComplaint(nestedArrays(static_cast<char>(129))),
              testing::EndsWith("nested deeper than 128 levels"));
}

TEST(QLTBinaryPropertyList, RefusesAnObjectThatReachesIntoTheOffsetTable) {
  EXPECT_EQ(binaryComplaint(binary({"\x52"
                                    "a"})),
            "b:offset 8: reaches into the offset table");
  EXPECT_EQ(binaryComplaint(binary({"\x11"})), "b:offset 9: reaches into the offset table");
  EXPECT_EQ(binaryComplaint(binary({"\xa1"})), "b:offset 8: reaches into the offset table");
}

TEST(QLTBinaryPropertyList, CutsLongKeysInWhatItTells) {
  const std::string key = "\x5f\x11\x03\xe8" + std::string(1000, 'k');
  const std::string shown = std::string(80, 'k') + "...";
  EXPECT_THAT(binaryComplaint(binary({"\xd1\x01\x02", key, "\x70"})),
              testing::HasSubstr(": " + shown + ": unknown kind"));
  EXPECT_THAT(binaryComplaint(binary({"\xd2\x01\x01\x02\x02", key, "\x09"})),
              testing::EndsWith("the key '" + shown + "' stands twice"));
}

/// Arrays of two, each of which holds the next array twice, `depth` deep; at the end `leaf`.
std::vector<std::string> doubling(char depth, const std::string& leaf) {
  std::vector<std::string> objects;
  for (char i = 1; i <= depth; ++i) objects.push_back(std::string("\xa2") + i + i);
  objects.push_back(leaf);
  return objects;
}

/// Data (0x40), a text (0x50) or a text of UTF-16 (0x60) with `count` times the unit of content.
std::string content(char marker, std::size_t count, const std::string& unit) {
  std::string bytes{static_cast<char>(marker | 0xf), '\x11', static_cast<char>(count >> 8U),
                    static_cast<char>(count)};
  for (std::size_t i = 0; i < count; ++i) bytes += unit;
  return bytes;
}

TEST(QLTBinaryPropertyList, RefusesCyclesAndWhatUnfoldsWithoutLimit) {
  EXPECT_THAT(binaryComplaint(binary({"\xa1\x00"s})),
              testing::HasSubstr("nested deeper than 128 levels"));
  EXPECT_THAT(binaryComplaint(binary(doubling(40, "\x09"))),
              testing::HasSubstr(": unfolds to more than "));
}

TEST(QLTBinaryPropertyList, RefusesContentThatUnfoldsWithoutLimit) {
  // A few kilobytes of file, tens of megabytes of content, though not so many values.
  for (const std::string& leaf : {content('\x40', 2000, "x"), content('\x50', 2000, "x"),
                                  content('\x60', 2000, "\x20\xac")}) {
    EXPECT_THAT(binaryComplaint(binary(doubling(14, leaf))),
                testing::HasSubstr(": unfolds to more than "));
  }
  std::vector<std::string> keys;
  for (char i = 1; i <= 14; ++i) keys.push_back(std::string("\xd2\x0f\x10") + i + i);
  keys.insert(keys.end(), {"\x09", content('\x50', 2000, "a"), content('\x50', 2000, "b")});
  EXPECT_THAT(binaryComplaint(binary(keys)), testing::HasSubstr(": unfolds to more than "));
}

TEST(QLTBinaryPropertyList, ReadsWhatIsSharedWithinReason) {
  const auto value = parseBinary(doubling(10, content('\x50', 1000, "a")));
  ASSERT_TRUE(value);
  EXPECT_GT(value->text().size(), 1024U * 1000);
  // Nearly 16 MiB of a file of four kilobytes.
  EXPECT_TRUE(parseBinary(doubling(12, content('\x50', 3800, "a"))));
  EXPECT_THAT(binaryComplaint(binary(doubling(12, content('\x50', 4200, "a")))),
              testing::HasSubstr(": unfolds to more than 16777216 bytes"));
}

TEST(QLTBinaryPropertyList, ReadsAnyLargeFileInWhichNothingIsShared) {
  // As many values to the byte as there can be: empty arrays within one, 300,000 of them.
  constexpr std::size_t count = 300'000;
  const auto big = [](std::size_t number, std::size_t size) {
    std::string bytes;
    for (std::size_t i = size; i > 0; --i) bytes += static_cast<char>(number >> (8 * (i - 1)));
    return bytes;
  };
  std::string file = "bplist00\xaf\x12" + big(count, 4);
  for (std::size_t i = 1; i <= count; ++i) file += big(i, 3);
  const std::size_t first = file.size();
  file += std::string(count, '\xa0');
  const std::size_t table = file.size();
  file += big(8, 3);
  for (std::size_t i = 0; i < count; ++i) file += big(first + i, 3);
  file += std::string(6, '\0') + "\3\3" + big(count + 1, 8) + big(0, 8) + big(table, 8);
  const auto value = QLTPropertyList::parse(file, "b");
  ASSERT_TRUE(value && value->array() != nullptr);
  EXPECT_EQ(value->array()->size(), count);
}

TEST(QLTBinaryPropertyList, TellsWhereARootIsNoDictionary) {
  const test::TemporaryFolder folder;
  const auto path = folder.write("b.plist", binary({"\xa0"}));
  QLTError error;
  EXPECT_FALSE(QLTPropertyList::readDictionary(path, &error));
  EXPECT_EQ(error.description(), path.string() + ":offset 8: the root is not a dictionary");
}

#ifdef PYTHON
TEST(QLTBinaryPropertyList, AgreesWithTheXmlFormOfAnIndependentWriter) {
  const test::TemporaryFolder folder;
  const std::string command =
      std::string(PYTHON " " WRITE_PLISTS " ") + folder.path().string() + " 50";
  ASSERT_EQ(std::system(command.c_str()), 0);
  for (int i = 0; i < 50; ++i) {
    const auto name = [&](const char* form) { return folder.path() / (std::to_string(i) + form); };
    QLTError error;
    const auto fromXml = QLTPropertyList::read(name(".xml"), &error);
    const auto fromBinary = QLTPropertyList::read(name(".binary"), &error);
    ASSERT_TRUE(fromXml && fromBinary) << *error.description();
    EXPECT_EQ(*fromXml, *fromBinary) << fromXml->text() << fromBinary->text();
  }
}
#endif

}  // namespace
