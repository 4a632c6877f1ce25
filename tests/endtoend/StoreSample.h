#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "StationProcess.h"

namespace test {

/// What a command has said.
struct Said {
  int status = 0;
  std::string output;
  std::string errors;
};

Said say(const std::vector<std::string>& arguments);
/// What a program of another kind has said, its standard error among the output.
Said sayProgram(const std::vector<std::string>& arguments);

/// Makes a store of the rows of an SQL file.
void makeStore(const std::filesystem::path& store, const std::filesystem::path& sql);
/// Changes a store behind its back.
void changeStore(const std::filesystem::path& store, const std::string& sql);

}  // namespace test
