#pragma once

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "web/HttpClient.h"
#include "web/Server.h"

namespace test {

const std::vector<web::File>& embeddedFiles();

/// A site whose state the test sets.
class TestSite : public web::Site {
 public:
  web::Response get(const web::Request& request) override {
    if (request.path == "/slow") wait();
    if (request.path == "/throws") throw std::runtime_error("the disk is gone");
    if (request.path != "/slow" && request.path != "/api/1/runs/a b") {
      return web::Response::refusal(404, "There is nothing here.");
    }
    return web::Response::json(200, {{"path", request.path}, {"query", request.query}});
  }

  web::Response command(const nlohmann::json& command) override {
    if (command["command"] == "wait") wait();
    if (command["command"] == "throw") throw std::runtime_error("this cannot be done");
    const std::lock_guard lock(mutex_);
    commands_.push_back(command);
    state_["commands"] = commands_.size();
    ++generation_;
    return web::Response::json(200, {{"done", true}, {"number", commands_.size()}});
  }

  nlohmann::json state() override {
    const std::lock_guard lock(mutex_);
    ++asked_;
    if (broken_) throw std::runtime_error("there is no state");
    return state_;
  }

  std::uint64_t generation() override {
    const std::lock_guard lock(mutex_);
    return generation_;
  }

  std::vector<std::string> newLogLines() override {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

  void set(const std::string& name, nlohmann::json value) {
    const std::lock_guard lock(mutex_);
    state_[name] = std::move(value);
    ++generation_;
  }
  void breakState(bool broken) {
    const std::lock_guard lock(mutex_);
    broken_ = broken;
    ++generation_;
  }
  void log(const std::string& line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back(line);
  }
  /// Lets what waits in `get` and `command` go on, also what comes later.
  void open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    changed_.notify_all();
  }
  std::size_t commands() {
    const std::lock_guard lock(mutex_);
    return commands_.size();
  }
  std::size_t waiting() {
    const std::lock_guard lock(mutex_);
    return waiting_;
  }
  std::size_t asked() {
    const std::lock_guard lock(mutex_);
    return asked_;
  }

 private:
  void wait() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    changed_.wait(lock, [this] { return open_; });
    --waiting_;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  nlohmann::json state_ = nlohmann::json::object();
  std::uint64_t generation_ = 0;
  std::vector<nlohmann::json> commands_;
  std::vector<std::string> lines_;
  bool open_ = false;
  bool broken_ = false;
  std::size_t waiting_ = 0;
  std::size_t asked_ = 0;
};

/// Options of a server at a free port of the loopback, with quick deltas.
inline web::Options testOptions() {
  web::Options options{.address = "127.0.0.1:0", .files = embeddedFiles()};
  options.limits.delta = std::chrono::milliseconds(5);
  return options;
}

/// The fields that a page sends with a command.
inline std::string pageFields(const std::string& address) {
  const auto session = HttpClient(address).get("/api/1/session").json();
  return "Content-Type: application/json\nX-Quillon-Token: " + session["token"].get<std::string>();
}

}  // namespace test
