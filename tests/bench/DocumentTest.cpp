// What the page of the instruments says of the library's classes is what they are.

#include <QLTBench.h>

#include <algorithm>
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

/// The attributes of a class as the page is to show them.
std::string tableOf(const QLTInstrumentDescription& described) {
  std::string table = "| attribute | default | |\n|---|---|---|\n";
  for (const QLTInstrumentAttribute& attribute : described.attributes) {
    const std::string standard = attribute.standard()   ? "`" + *attribute.standard() + "`"
                                 : attribute.isNeeded() ? "needed"
                                                        : "";
    table += "| `" + attribute.name() + "` | " + standard + (standard.empty() ? "| " : " | ") +
             attribute.meaning() + "; " + attribute.formText() + " |\n";
  }
  return table;
}

TEST(InstrumentsPage, hasTheAttributesThatAreDescribed) {
  const std::string text = page();
  int count = 0;
  for (const QLTInstrumentDescription& described : QLTBench::instrumentClasses()) {
    const std::string mark = "<!-- attributes of " + described.className + " -->\n\n";
    const std::size_t at = text.find(mark);
    if (at == std::string::npos) continue;
    ++count;
    const std::string table = tableOf(described);
    const std::size_t start = at + mark.size();
    EXPECT_EQ(text.substr(start, std::max(text.find("\n\n", start), start) + 1 - start), table)
        << "write the table above below " << mark;
  }
  EXPECT_GE(count, 2);
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
