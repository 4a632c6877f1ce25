#include "Files.h"

#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "common/Text.h"

namespace web {

namespace {

constexpr std::string_view kTokenPlace = R"(<meta name="quillon-token" content="">)";

/// A short name of the content: FNV-1a.
std::string tagOf(std::string_view content) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char byte : content) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3U;
  std::string tag = "\"";
  for (int shift = 56; shift >= 0; shift -= 8) {
    quillon::internal::appendHex(tag, static_cast<unsigned char>(hash >> shift));
  }
  return tag + "\"";
}

}  // namespace

Files::Files(const std::vector<File>& files, const std::string& sessionToken) {
  for (const File& file : files) {
    Served served{std::string(file.type), std::string(file.content), ""};
    if (file.path == "/index.html") {
      const std::size_t place = served.content.find(kTokenPlace);
      if (place == std::string::npos) {
        throw std::invalid_argument("index.html has no " + std::string(kTokenPlace));
      }
      served.content.insert(place + kTokenPlace.size() - 2, sessionToken);
      files_.emplace("/", served);
    } else {
      served.tag = tagOf(file.content);
    }
    files_.emplace(file.path, std::move(served));
  }
}

std::optional<Response> Files::get(const std::string& path, const Incoming& request) const {
  const auto found = files_.find(path);
  if (found == files_.end()) return std::nullopt;
  const Served& file = found->second;
  Response response{.type = file.type, .body = file.content};
  if (!file.tag.empty()) {
    response.headers = {{"ETag", file.tag}, {"Cache-Control", "no-cache"}};
    const std::string known = request.field("If-None-Match").value_or("");
    if (known.find(file.tag) != std::string::npos || known == "*") {
      response.status = 304;
      response.body.clear();
    }
  }
  return response;
}

}  // namespace web
