#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "web/Site.h"

namespace web {

Response Response::json(int status, const nlohmann::json& json) {
  return {.status = status,
          .type = "application/json",
          .body = json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)};
}

Response Response::text(std::string text, std::string type) {
  return {.type = std::move(type), .body = std::move(text)};
}

Response Response::refusal(int status, const std::string& message) {
  return json(status, {{"message", message}});
}

}  // namespace web
