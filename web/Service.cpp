#include "Service.h"

#include <exception>
#include <utility>

#include <nlohmann/json.hpp>

#include "common/Text.h"
#include "web/Secrets.h"
#include "web/Target.h"

namespace web {

using quillon::internal::trimmed;
using quillon::internal::upperCase;
using Json = nlohmann::json;

namespace {

constexpr std::size_t kWaitingCalls = 256;
constexpr std::size_t kIdBytes = 64;
constexpr int kDepth = 16;  // of a command; what is nested without end would exhaust the stack

Response methodRefusal(const std::string& allowed) {
  Response response = Response::refusal(405, "Only " + allowed + " is possible here.");
  response.headers.emplace_back("Allow", allowed);
  return response;
}

/// The form that asks a browser for the token; `complaint` is plain text. Where the referrer is
/// kept back altogether, as elsewhere here, browsers send a form with "Origin: null".
Response loginForm(int status, const std::string& complaint) {
  Response form = Response::text(
      "<!doctype html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width\">\n"
      "<meta name=\"referrer\" content=\"same-origin\">\n<title>Quillon</title>\n"
      "<h1>Quillon</h1>\n<p role=\"alert\">" +
          complaint +
          "</p>\n<form method=\"post\" action=\"/login\">\n<label>Token of this station "
          "<input name=\"token\" type=\"password\" autocomplete=\"current-password\" autofocus "
          "required></label>\n<button>Log in</button>\n</form>\n</html>\n",
      "text/html; charset=utf-8");
  form.status = status;
  if (status == 401) form.headers.emplace_back("WWW-Authenticate", "Bearer");
  return form;
}

bool hasType(const Incoming& request, std::string_view type) {
  const std::string given = request.field("Content-Type").value_or("");
  return upperCase(trimmed(given.substr(0, given.find(';')))) == upperCase(type);
}

/// What a call of the site gives; what it throws as an answer.
Response guarded(const std::function<Response()>& call) {
  try {
    return call();
  } catch (const std::exception& e) {
    return Response::refusal(500, e.what());
  }
}

/// The command that a body holds, or why it holds none.
std::optional<Json> commandIn(const std::string& body, std::string& problem) {
  const auto shallow = [](int depth, Json::parse_event_t, Json&) {
    if (depth > kDepth) throw std::length_error("too deep");
    return true;
  };
  Json command;
  try {
    command = Json::parse(body, shallow);
  } catch (const std::exception&) {
    problem = "The body is no JSON.";
    return std::nullopt;
  }
  const auto textOf = [&command](const char* name) {
    const auto found = command.find(name);
    return found != command.end() && found->is_string() ? found->get<std::string>() : "";
  };
  if (!command.is_object()) {
    problem = "The body is no JSON object.";
  } else if (textOf("id").empty() || textOf("id").size() > kIdBytes) {
    problem = "\"id\" must be a text of 1 to 64 bytes.";
  } else if (textOf("command").empty()) {
    problem = "\"command\" must be a text.";
  } else {
    return command;
  }
  return std::nullopt;
}

}  // namespace

Service::Service(const Options& options, std::uint16_t port, Site& site, Hooks hooks)
    : site_(site),
      limits_(options.limits),
      hooks_(std::move(hooks)),
      guard_(port, options.allowedHosts, options.token),
      sessionToken_(randomToken()),
      files_(options.files, sessionToken_),
      feed_(site, limits_.keptDeltas, limits_.keptDeltaBytes),
      answers_(limits_.keptAnswers),
      readings_(kWaitingCalls),
      commands_(kWaitingCalls) {}

void Service::stop() {
  readings_.stop();
  commands_.stop();
}

void Service::update() {
  const auto now = std::chrono::steady_clock::now();
  if (const Bytes delta = feed_.update()) {
    ++deltas_;
    hooks_.publish(delta);
  }
  updated_ = now;
}

void Service::refresh() {
  if (std::chrono::steady_clock::now() - updated_ >= limits_.delta) update();
}

void Service::handle(const Incoming& request, const std::shared_ptr<Client>& client) {
  if (auto refusal = guard_.foreign(request)) return client->answer(std::move(*refusal));
  const auto target = parseTarget(request.target);
  if (!target) return client->answer(Response::refusal(400, "The request's target is malformed."));
  if (!admit(request, *target, *client)) return;
  if (request.method == "GET" || request.method == "HEAD") {
    read(request, *target, client);
  } else if (request.method == "POST" && target->path == "/api/1/commands") {
    doCommand(request, client);
  } else if (request.method == "POST") {
    client->answer(methodRefusal("GET, HEAD"));
  } else {
    client->answer(methodRefusal("GET, HEAD, POST"));
  }
}

bool Service::admit(const Incoming& request, const Request& target, Client& client) {
  if (!guard_.hasToken()) return true;
  if (target.path == "/login") {
    logIn(request, client);
    return false;
  }
  switch (guard_.entry(request)) {
    case Guard::Entry::Allowed:
      return true;
    case Guard::Entry::NoToken:
      break;
    case Guard::Entry::WrongToken:
      Response refusal = Response::refusal(401, "That is not the token of this station.");
      if (target.path == "/") refusal = loginForm(401, "That is not the token of this station.");
      client.answer(std::move(refusal), limits_.wrongToken);
      return false;
  }
  if (target.path == "/" && request.method == "GET") {
    client.answer(loginForm(401, ""));
  } else {
    Response refusal = Response::refusal(401, "This station wants its token.");
    refusal.headers.emplace_back("WWW-Authenticate", "Bearer");
    client.answer(std::move(refusal));
  }
  return false;
}

void Service::logIn(const Incoming& request, Client& client) const {
  if (request.method == "GET" || request.method == "HEAD") return client.answer(loginForm(200, ""));
  if (request.method != "POST") return client.answer(methodRefusal("GET, HEAD, POST"));
  if (!hasType(request, "application/x-www-form-urlencoded")) {
    return client.answer(Response::refusal(415, "The body must be a form."));
  }
  const auto form = parseForm(request.body);
  const auto token = form ? form->find("token") : decltype(form->find("token")){};
  if (!form || token == form->end() || !guard_.isToken(token->second)) {
    return client.answer(loginForm(401, "That is not the token of this station."),
                         limits_.wrongToken);
  }
  client.answer({.status = 303,
                 .type = "text/plain",
                 .body = "",
                 .headers = {{"Location", "/"}, {"Set-Cookie", guard_.cookie()}}});
}

void Service::read(const Incoming& request, const Request& target,
                   const std::shared_ptr<Client>& client) {
  if (target.path == "/api/1/commands") return client->answer(methodRefusal("POST"));
  if (target.path == "/api/1/session") {
    return client->answer(Response::json(200, {{"token", sessionToken_}}));
  }
  if (target.path == "/api/1/state") {
    return client->answer(guarded([this] {
      refresh();
      return Response::text(feed_.state(), "application/json");
    }));
  }
  if (target.path == "/api/1/events") {
    if (request.method == "GET") return client->stream(request.field("Last-Event-ID"));
    return client->answer(Response::text("", "text/event-stream"));
  }
  if (auto file = files_.get(target.path, request)) return client->answer(std::move(*file));

  const auto call = [this, target, waiting = std::weak_ptr(client)] {
    Response response = guarded([&] { return site_.get(target); });
    hooks_.post([waiting, response = std::move(response)]() mutable {
      if (const auto client = waiting.lock()) client->answer(std::move(response));
    });
  };
  if (!readings_.add(call)) client->answer(Response::refusal(503, "Too many are asking."));
}

void Service::doCommand(const Incoming& request, const std::shared_ptr<Client>& client) {
  if (!hasType(request, "application/json")) {
    return client->answer(Response::refusal(415, "The body must be application/json."));
  }
  if (!sameSecret(request.field("X-Quillon-Token").value_or(""), sessionToken_)) {
    return client->answer(
        Response::refusal(403, "The session's token is missing or old; load the page anew."));
  }
  if (!request.has("Content-Length") && !request.has("Transfer-Encoding")) {
    return client->answer(Response::refusal(411, "The body has no length."));
  }
  std::string problem;
  const auto command = commandIn(request.body, problem);
  if (!command) return client->answer(Response::refusal(400, problem));

  const std::string id = (*command)["id"];
  const bool isNew = answers_.ask(id, [waiting = std::weak_ptr(client)](const Response& response) {
    if (const auto client = waiting.lock()) client->answer(response);
  });
  if (!isNew) return;
  const auto call = [this, id, command = *command] {
    Response response = guarded([&] { return site_.command(command); });
    hooks_.post([this, id, response = std::move(response)]() mutable {
      // Who has the answer finds the state that it made. Why there is none, a reader is told.
      guarded([this] { return update(), Response{}; });
      answers_.answered(id, std::move(response));
    });
  };
  if (!commands_.add(call)) answers_.refused(id, Response::refusal(503, "Too many are asking."));
}

}  // namespace web
