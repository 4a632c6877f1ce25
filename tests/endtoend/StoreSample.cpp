#include "StoreSample.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

#include <sqlite3.h>

#include "results/Import.h"

namespace test {

Said say(const std::vector<std::string>& arguments) {
  StationProcess station(arguments);
  const int status = station.wait();
  return {status, station.output(), station.errors()};
}

Said sayProgram(const std::vector<std::string>& arguments) {
  StationProcess program(StationProcess::Program{arguments});
  const int status = program.wait();
  return {status, program.output(), program.errors()};
}

void changeStore(const std::filesystem::path& store, const std::string& sql) {
  sqlite3* database = nullptr;
  int result = sqlite3_open(store.c_str(), &database);
  if (result == SQLITE_OK) {
    result = sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr);
  }
  const std::string message = sqlite3_errmsg(database);
  sqlite3_close(database);
  if (result != SQLITE_OK) throw std::runtime_error(message);
}

void makeStore(const std::filesystem::path& store, const std::filesystem::path& sql) {
  std::ifstream file(sql);
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  changeStore(store, text);
  const results::Import present(store);  // brings it to the present version
}

}  // namespace test
