#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"

// What docs/plugin-guide.md shows is what stands in files that are compiled and run.

namespace {

namespace fs = std::filesystem;

/// The lines without their indentation, each with a line end.
std::string withoutIndentation(const std::string& text) {
  std::istringstream lines(text);
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t start = line.find_first_not_of(" \t");
    result += (start == std::string::npos ? "" : line.substr(start)) + "\n";
  }
  return result;
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
  for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
  return text;
}

std::vector<std::string> sources() {
  std::vector<std::string> texts;
  for (const char* folder : {TEMPLATE, EXAMPLES}) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      if (!entry.is_regular_file()) continue;
      texts.push_back(
          withoutIndentation(replaced(test::contentOf(entry.path()), "NewPlugin", "Board")));
    }
  }
  return texts;
}

struct Block {
  std::string language;
  std::string text;
};

std::vector<Block> blocksOf(const std::string& markdown) {
  std::vector<Block> blocks;
  bool inside = false;
  std::istringstream lines(markdown);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("```")) {
      inside = !inside;
      if (inside) blocks.push_back({line.substr(3), ""});
    } else if (inside) {
      blocks.back().text += line + "\n";
    }
  }
  return blocks;
}

}  // namespace

TEST(PluginGuide, showsOnlyCodeThatStandsInTheTemplateOrTheExamples) {
  const std::set<std::string> shown{"cmake", "cpp", "csv", "xml"};
  const std::vector<std::string> known = sources();
  std::set<std::string> found;
  for (const Block& block : blocksOf(test::contentOf(GUIDE))) {
    if (!shown.contains(block.language)) continue;
    found.insert(block.language);
    const std::string text = withoutIndentation(block.text);
    const auto holdsIt = [&](const std::string& source) { return source.find(text) != text.npos; };
    EXPECT_TRUE(std::any_of(known.begin(), known.end(), holdsIt)) << block.text;
  }
  EXPECT_EQ(found, shown);
}
