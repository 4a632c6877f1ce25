// What the page of the instruments says of the library's classes is what they are.

#include <QLTBench.h>

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::string page() {
  std::ifstream file(INSTRUMENTS_PAGE);
  return {std::istreambuf_iterator<char>(file), {}};
}

using Attributes = std::vector<QLTInstrumentAttribute>;

const std::vector<std::string>& lines() {
  static const std::vector<std::string> all{"QLTBenchTcp", "QLTBenchSerial", "QLTBenchProgram",
                                            "QLTBenchVxi11", "QLTBenchUsbTmc"};
  return all;
}

Attributes attributesOf(const std::string& name) {
  for (const QLTInstrumentDescription& described : QLTBench::instrumentClasses()) {
    if (described.className == name) return described.attributes;
  }
  ADD_FAILURE() << "no class " << name;
  return {};
}

bool areAlike(const QLTInstrumentAttribute& a, const QLTInstrumentAttribute& b) {
  return a.name() == b.name() && a.meaning() == b.meaning() && a.formText() == b.formText() &&
         a.standard() == b.standard();
}

/// What a class has that another has not; all that the other has, it must have.
void leaveOut(const std::string& other, const Attributes& all, Attributes& left) {
  for (const QLTInstrumentAttribute& theirs : attributesOf(other)) {
    const auto isTheirs = [&](const auto& own) { return areAlike(own, theirs); };
    EXPECT_TRUE(std::any_of(all.begin(), all.end(), isTheirs))
        << other << " has another " << theirs.name();
    std::erase_if(left, isTheirs);
  }
}

std::string defaultOf(const QLTInstrumentAttribute& attribute, const Attributes& shown) {
  if (attribute.standard()) return "`" + *attribute.standard() + "`";
  if (attribute.isNeeded()) return "needed";
  std::string others;
  for (const QLTInstrumentAttribute& other : shown) {
    if (attribute.group().empty() || other.group() != attribute.group()) continue;
    if (other.name() != attribute.name()) others += ", or `" + other.name() + "`";
  }
  return others.empty() ? "" : "needed" + others;
}

/// Attributes as the page is to show them.
std::string tableOf(const Attributes& attributes) {
  std::string table = "| attribute | default | |\n|---|---|---|\n";
  for (const QLTInstrumentAttribute& attribute : attributes) {
    const std::string standard = defaultOf(attribute, attributes);
    table += "| `" + attribute.name() + "` | " + standard + (standard.empty() ? "| " : " | ") +
             attribute.meaning() + "; " + attribute.formText() + " |\n";
  }
  return table;
}

/// "<!-- attributes of CLASS -->", a blank line and its table; or "... of CLASS beside those of
/// OTHER, OTHER -->" for a table of what it has that those have not, "a line" being all lines.
TEST(InstrumentsPage, hasTheAttributesThatAreDescribed) {
  const std::string text = page();
  for (const QLTInstrumentDescription& described : QLTBench::instrumentClasses()) {
    const std::regex mark("<!-- attributes of " + described.className +
                          "( beside those of ([^>]*))? -->\n\n");
    std::smatch found;
    if (!std::regex_search(text, found, mark)) {
      ADD_FAILURE() << "the page has no table <!-- attributes of " << described.className << " -->";
      continue;
    }
    Attributes attributes = described.attributes;
    std::istringstream others(found[2].str());
    for (std::string other; std::getline(others >> std::ws, other, ',');) {
      const bool isAnyLine = other == "a line";
      for (const std::string& cls : isAnyLine ? lines() : std::vector{other}) {
        leaveOut(cls, described.attributes, attributes);
      }
    }
    const auto start = static_cast<std::size_t>(found.position() + found.length());
    EXPECT_EQ(text.substr(start, std::max(text.find("\n\n", start), start) + 1 - start),
              tableOf(attributes))
        << "write the table above below " << found[0];
  }
}

TEST(InstrumentsPage, showsLinesThatAreInOrder) {
  const std::regex line("\\w+,(QLT\\w+),([01]),(\\S.*)");
  std::istringstream text(page());
  int count = 0;
  for (std::string one; std::getline(text, one);) {
    std::smatch parts;
    if (!std::regex_match(one, parts, line)) continue;
    const auto classes = QLTBench::instrumentClasses();
    const auto described = std::find_if(classes.begin(), classes.end(), [&](const auto& cls) {
      return cls.className == parts[1].str();
    });
    if (described == classes.end()) continue;  // the framework's own
    ++count;
    QLTDictionary entry{{"class", parts[1].str()}, {"sim", parts[2].str()}};
    std::istringstream attributes(parts[3].str());
    for (std::string piece; std::getline(attributes, piece, ';');) {
      entry.set(piece.substr(0, piece.find('=')), piece.substr(piece.find('=') + 1));
    }
    for (const auto& complaint : described->complaintsAbout(entry)) {
      ADD_FAILURE() << one << "\n" << complaint.message << "\n" << complaint.advice;
    }
  }
  EXPECT_GE(count, 4);
}

}  // namespace
