#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>

#include <sys/wait.h>

#include "StationProcess.h"

// `quillon new`, and the way of a plug-in's author from there.

namespace {

namespace fs = std::filesystem;
using test::StationProcess;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Files = std::map<std::string, std::string>;

Files filesIn(const fs::path& folder) {
  Files files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    files[entry.path().filename()] = test::contentOf(entry.path());
  }
  return files;
}

std::string replaced(std::string text, const std::string& what, const std::string& with) {
  for (std::size_t at = text.find(what); at != text.npos; at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
  return text;
}

struct Said {
  int status;
  std::string output;
  std::string errors;
};

Said call(const std::vector<std::string>& arguments) {
  StationProcess station(arguments);
  const int status = station.wait();
  return {status, station.output(), station.errors()};
}

class StationNew : public testing::Test {
 protected:
  Said make(const std::string& name) const { return call({"new", name, "--directory", folder()}); }
  std::string folder() const { return folder_.path().string(); }

  test::TemporaryFolder folder_;
};

/// What a page shows in a block of code that holds `text`.
std::string blockWith(const std::string& page, const std::string& text) {
  const std::size_t at = page.find(text);
  if (at == page.npos) return "the page has no " + text;
  const std::size_t start = page.find('\n', page.rfind("```", at)) + 1;
  return page.substr(start, page.find("```", at) - start);
}

/// A project that was made and built, with the edits of a test's own.
class StationNewProject : public StationNew {
 protected:
  void SetUp() override {
    ASSERT_EQ(make("Board").status, 0);
    const std::string configure =
        std::string(CMAKE " -S . -B build -G '" GENERATOR "'") +
        " -DCMAKE_PREFIX_PATH='" BUILD_FOLDER "' -DCMAKE_CXX_COMPILER='" COMPILER
        "' -DCMAKE_CXX_FLAGS='-Wall -Wextra -Wpedantic -Werror" SANITIZE "'";
    ASSERT_EQ(shell(configure), 0) << log();
    ASSERT_EQ(shell(CMAKE " --build build --parallel 2"), 0) << log();
  }

  /// Runs a command in the project; what it says is in `log`.
  int shell(const std::string& command) const {
    const int status =
        std::system(("cd '" + project() + "' && " + command + " > log 2>&1").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string log() const { return test::contentOf(project() + "/log"); }
  std::string project() const { return folder() + "/Board"; }
  std::string bundle() const { return project() + "/build/Board.bundle"; }
  /// The configuration, as it is named in what is found.
  std::string config() const {
    return fs::canonical(bundle()).string() + "/Contents/Resources/TestConfig.plist";
  }
  std::string testerConfig() const { return project() + "/TesterConfig_oc.csv"; }

  void edit(const std::string& file, const std::string& from, const std::string& to) const {
    const std::string content = test::contentOf(project() + "/" + file);
    ASSERT_THAT(content, HasSubstr(from));
    folder_.write("Board/" + file, replaced(content, from, to));
  }

  /// Checks the project with `from` replaced by `to` in one of its files, and puts that right
  /// again.
  Said checkWith(const std::string& file, const std::string& from, const std::string& to) const {
    const std::string content = test::contentOf(project() + "/" + file);
    EXPECT_THAT(content, HasSubstr(from));
    folder_.write("Board/" + file, replaced(content, from, to));
    EXPECT_EQ(shell(CMAKE " --build build"), 0) << log();
    const Said said = call({"check", bundle(), "--tester-config", testerConfig()});
    folder_.write("Board/" + file, content);
    return said;
  }
};

}  // namespace

TEST_F(StationNew, writesTheTemplateUnderTheNewName) {
  const Said said = make("Board");
  EXPECT_EQ(said.status, 0);
  EXPECT_EQ(said.errors, "");
  EXPECT_EQ(said.output, "Made the plug-in project " + folder() +
                             "/Board. Its README.md tells what is in it.\n"
                             "Build and test it:\n"
                             "    cd " +
                             folder() +
                             "/Board\n"
                             "    cmake -S . -B build\n"
                             "    cmake --build build\n"
                             "    ctest --test-dir build\n");
  Files expected;
  for (const auto& [name, content] : filesIn(TEMPLATE)) {
    expected[replaced(name, "NewPlugin", "Board")] = replaced(content, "NewPlugin", "Board");
  }
  EXPECT_TRUE(expected.contains("BoardSuite.cpp"));
  EXPECT_EQ(filesIn(folder() + "/Board"), expected);
}

TEST_F(StationNew, makesItInTheWorkingFolderUnlessTold) {
  StationProcess station({"new", "Board"});
  EXPECT_EQ(station.wait(), 0);
  EXPECT_THAT(station.output(), StartsWith("Made the plug-in project Board. "));
  EXPECT_TRUE(fs::exists(station.folder() / "Board" / "CMakeLists.txt"));
}

TEST_F(StationNew, makesTheFoldersAboveIt) {
  const std::string deep = folder() + "/a/b";
  EXPECT_EQ(call({"new", "Board", "--directory", deep}).status, 0);
  EXPECT_TRUE(fs::exists(deep + "/Board/CMakeLists.txt"));
}

TEST_F(StationNew, neverTouchesWhatExists) {
  fs::create_directory(folder() + "/Empty");
  folder_.write("File", "mine");
  fs::create_symlink("nowhere", folder() + "/Link");
  for (const std::string name : {"Empty", "File", "Link"}) {
    const Said said = make(name);
    EXPECT_EQ(said.status, 2);
    EXPECT_EQ(said.output, "");
    EXPECT_EQ(said.errors, "quillon: " + folder() + "/" + name +
                               " exists already\nNothing is ever overwritten. Choose another "
                               "name, or another place with --directory.\n");
  }
  EXPECT_TRUE(fs::is_empty(folder() + "/Empty"));
  EXPECT_EQ(test::contentOf(folder() + "/File"), "mine");
  EXPECT_FALSE(fs::exists(folder() + "/nowhere"));
}

TEST_F(StationNew, refusesNamesThatCannotServe) {
  const std::map<std::string, std::string> reasons{
      {"", "it is not a C++ identifier"},
      {"9Lives", "it is not a C++ identifier"},
      {"board-test", "it is not a C++ identifier"},
      {"a/b", "it is not a C++ identifier"},
      {"..", "it is not a C++ identifier"},
      {"Bo\xc3\xa4rd", "it is not a C++ identifier"},
      {"_Board", "C++ keeps names that begin with _ or hold __ for itself"},
      {"Board__1", "C++ keeps names that begin with _ or hold __ for itself"},
      {"class", "it is a word of C++ or CMake"},
      {"xor_eq", "it is a word of C++ or CMake"},
      {"test", "it is a word of C++ or CMake"},
      {"edit_cache", "it is a word of C++ or CMake"},
      {"install", "it is a word of C++ or CMake"},
      {"package", "it is a word of C++ or CMake"},
      {"rebuild_cache", "it is a word of C++ or CMake"},
      {"QLTest", "QLT begins the names of the framework's own classes"},
      {std::string(101, 'a'), "it is too long"}};
  for (const auto& [name, reason] : reasons) {
    const Said said = make(name);
    EXPECT_EQ(said.status, 2) << name;
    EXPECT_EQ(said.output, "");
    EXPECT_THAT(said.errors, StartsWith("quillon: a plug-in cannot have the name \"" + name +
                                        "\": " + reason + "\n"));
  }
  EXPECT_TRUE(fs::is_empty(folder()));
  EXPECT_EQ(make(std::string(100, 'a')).status, 0);
}

TEST_F(StationNew, saysWhatKeepsItFromWriting) {
  folder_.write("file", "");
  const Said said = call({"new", "Board", "--directory", folder() + "/file/below"});
  EXPECT_EQ(said.status, 2);
  EXPECT_EQ(said.errors, "quillon: cannot write " + folder() +
                             "/file/below: Not a directory\nGive a folder that you may write to "
                             "with --directory.\n");
  StationProcess full({"new", "Board", "--directory", folder()}, StationProcess::FileLimit{500});
  EXPECT_EQ(full.wait(), 2);
  EXPECT_THAT(full.errors(), HasSubstr(": File too large\n"));
}

TEST_F(StationNewProject, buildsTestsRunsAndIsToldWhatIsBroken) {
  EXPECT_EQ(shell(CTEST " --test-dir build --output-on-failure"), 0) << log();
  EXPECT_THAT(log(), HasSubstr("100% tests passed, 0 tests failed out of 3"));

  const Said good = call({"check", bundle(), "--tester-config", testerConfig()});
  EXPECT_EQ(good.status, 0) << good.output;
  const Said list = call({"list", bundle(), "--tester-config", testerConfig()});
  EXPECT_THAT(list.output, HasSubstr("     2.1  VBUS  4.75 to 5.25 V    priority 0\n"));
  EXPECT_EQ(
      shell("'" BUILD_FOLDER "/bin/quillon-with-vault' --file TesterConfig_oc.csv '" BUILD_FOLDER
            "/bin/quillon' run build/Board.bundle --sn left=SN1"),
      0)
      << log();
  EXPECT_THAT(log(), HasSubstr("left  PASS  Voltages"));

  const auto expectBroken = [](const Said& said, int status, const std::string& text) {
    EXPECT_EQ(said.status, status);
    EXPECT_THAT(said.output, HasSubstr(text));
  };
  expectBroken(
      checkWith("TestConfig.plist", "<real>4.75</real>", "<string>4,75</string>"), 2,
      config() + ":77:7: Flows/main/1/subTestInfos/0/lowLimit: expected a number, found '4,75'");
  expectBroken(checkWith("TestConfig.plist", "VoltageTest", "VoltagesTest"), 2,
               "Flows/main/1/class: unrecognized test method class VoltagesTest\n    did you mean "
               "\"VoltageTest\"?\n");
  expectBroken(checkWith("TestConfig.plist", "<string>main</string>", "<string>mian</string>"), 2,
               "defaultFlow: there is no flow \"mian\"; the flows are: looks, main");
  expectBroken(checkWith("TesterConfig_oc.csv", "bsdPath=", "bsdPath "), 2,
               testerConfig() + ":2: attribute \"bsdPath /dev/ttyUSB0\" has no \"=\"");
  expectBroken(checkWith("TesterConfig_oc.csv", "console-left", "console-right"), 1,
               "Sites/left/Resources/console: the tester has no instrument \"console-left\"; "
               "loading leaves the site left out\n    did you mean \"console-right\"?\n");
  expectBroken(checkWith("TestConfig.plist", "stopOnFail", "stopOnFial"), 1,
               "Flows/main/1/stopOnFial: unknown key; loading ignores it\n    did you mean "
               "\"stopOnFail\"?\n");
  expectBroken(checkWith("TestConfig.plist", "</plist>", ""), 2, "Errors\n" + config() + ":");

#ifdef HAS_BENCH
  // As its README says that the library of bench instruments is taken into use.
  const std::string readme = test::contentOf(project() + "/README.md");
  edit("CMakeLists.txt", "find_package(Quillon REQUIRED)\n", blockWith(readme, "find_package"));
  edit("CMakeLists.txt", "# `ctest`", blockWith(readme, "target_link_libraries") + "# `ctest`");
  edit("BoardSuite.h", "#include <QLTestSuite.h>\n",
       blockWith(readme, "#include") + "#include <QLTestSuite.h>\n");
  edit("BoardSuite.h", "};\n", blockWith(readme, "createInstrument") + "};\n");
  edit("TesterConfig_oc.csv", "name,class,sim,attributes\n",
       "name,class,sim,attributes\n" + blockWith(readme, "meter,"));
  EXPECT_EQ(shell(CMAKE " --build build --parallel 2"), 0) << log();
  const Said withMeter = call({"check", bundle(), "--tester-config", testerConfig()});
  EXPECT_EQ(withMeter.status, 0) << withMeter.output;
  edit("TesterConfig_oc.csv", "address=", "adress=");
  expectBroken(call({"check", bundle(), "--tester-config", testerConfig()}), 2,
               "did you mean \"address\"?");
#endif
}
