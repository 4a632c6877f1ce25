#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include <CLI/CLI.hpp>

#include "CannotRun.h"
#include "Commands.h"
#include "Screen.h"
#include "Templates.h"
#include "Text.h"

namespace fs = std::filesystem;

namespace station {
namespace {

struct NewArguments {
  std::string name;
  fs::path directory = ".";
};

// clang-format off
constexpr std::array<std::string_view, 107> kKeywords{
    "alignas", "alignof", "and", "and_eq", "asm", "auto", "bitand", "bitor", "bool", "break",
    "case", "catch", "char", "char16_t", "char32_t", "char8_t", "class", "co_await", "co_return",
    "co_yield", "compl", "concept", "const", "const_cast", "consteval", "constexpr", "constinit",
    "continue", "decltype", "default", "delete", "do", "double", "dynamic_cast", "else", "enum",
    "explicit", "export", "extern", "false", "float", "for", "friend", "goto", "if", "inline",
    "int", "long", "mutable", "namespace", "new", "noexcept", "not", "not_eq", "nullptr",
    "operator", "or", "or_eq", "private", "protected", "public", "register", "reinterpret_cast",
    "requires", "return", "short", "signed", "sizeof", "static", "static_assert", "static_cast",
    "struct", "switch", "template", "this", "thread_local", "throw", "true", "try", "typedef",
    "typeid", "typename", "union", "unsigned", "using", "virtual", "void", "volatile", "wchar_t",
    "while", "xor", "xor_eq",
    // Names that CMake keeps for targets of its own.
    "ALL_BUILD", "INSTALL", "PACKAGE", "RUN_TESTS", "ZERO_CHECK", "all", "clean", "edit_cache",
    "help", "install", "package", "package_source", "preinstall", "rebuild_cache", "test"};
// clang-format on

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// Why the plug-in cannot have that name; empty when it can.
std::string complaintAbout(const std::string& name) {
  constexpr std::size_t longest = 100;  // file names are made from it
  const bool isIdentifier =
      !name.empty() && isLetter(name.front()) &&
      std::all_of(name.begin(), name.end(), [](char c) { return isLetter(c) || isDigit(c); });
  if (!isIdentifier) return "it is not a C++ identifier";
  if (name.front() == '_' || name.find("__") != std::string::npos) {
    return "C++ keeps names that begin with _ or hold __ for itself";
  }
  if (std::find(kKeywords.begin(), kKeywords.end(), name) != kKeywords.end()) {
    return "it is a word of C++ or CMake";
  }
  if (name.starts_with("QLT")) return "QLT begins the names of the framework's own classes";
  if (name.size() > longest) return "it is too long";
  return {};
}

std::string replaced(std::string text, const std::string& name) {
  const std::string_view placeholder = kTemplateName;
  for (std::size_t at = text.find(placeholder); at != std::string::npos;
       at = text.find(placeholder, at + name.size())) {
    text.replace(at, placeholder.size(), name);
  }
  return text;
}

CannotRun cannotWrite(const fs::path& path, const std::error_code& reason) {
  return CannotRun("cannot write " + printable(path.string()) + ": " + reason.message(),
                   "Give a folder that you may write to with --directory.");
}

void write(const fs::path& path, const std::string& content) {
  errno = 0;
  std::ofstream file(path, std::ios::binary);
  file << content;
  file.close();
  if (!file) throw cannotWrite(path, {errno != 0 ? errno : EIO, std::generic_category()});
}

int makeProject(const NewArguments& arguments) {
  const std::string complaint = complaintAbout(arguments.name);
  if (!complaint.empty()) {
    throw CannotRun(
        "a plug-in cannot have the name \"" + printable(arguments.name) + "\": " + complaint,
        "Classes and files are named after it: letters and digits, as in "
        "BoardTest.");
  }
  const fs::path folder = arguments.directory / arguments.name;
  std::error_code status;
  if (fs::exists(fs::symlink_status(folder, status))) {
    throw CannotRun(printable(folder.string()) + " exists already",
                    "Nothing is ever overwritten. Choose another name, or another place with "
                    "--directory.");
  }
  fs::create_directories(arguments.directory, status);
  if (status) throw cannotWrite(arguments.directory, status);
  // Made here or not at all: somebody else may have been quicker.
  if (!fs::create_directory(folder, status)) {
    throw cannotWrite(folder, status ? status : std::make_error_code(std::errc::file_exists));
  }
  for (const TemplateFile& file : pluginTemplate()) {
    write(folder / replaced(file.name, arguments.name), replaced(file.content, arguments.name));
  }
  const std::string shown = printable(folder.lexically_normal().string());
  Screen().line("Made the plug-in project " + shown +
                ". Its README.md tells what is in it.\n"
                "Build and test it:\n"
                "    cd " +
                shown +
                "\n"
                "    cmake -S . -B build\n"
                "    cmake --build build\n"
                "    ctest --test-dir build");
  return 0;
}

}  // namespace

void addNewCommand(CLI::App& app, Command& chosen) {
  const auto arguments = std::make_shared<NewArguments>();
  CLI::App* const command =
      app.add_subcommand("new", "Make a plug-in project that builds, and runs on simulators");
  command->add_option("NAME", arguments->name, "The plug-in's name, a C++ identifier")->required();
  command->add_option("--directory", arguments->directory, "The folder to make the project in")
      ->type_name("DIR")
      ->capture_default_str();
  command->footer("Exit status: 0; 2 when the project cannot be made. Nothing is overwritten.");
  command->callback(
      [arguments, &chosen] { chosen = [arguments] { return makeProject(*arguments); }; });
}

}  // namespace station
