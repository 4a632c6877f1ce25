#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "web/Incoming.h"
#include "web/Server.h"

namespace web {

/// The files that are compiled in, as answers.
class Files {
 public:
  /// `sessionToken` is entered in the page.
  /// @throws std::invalid_argument when there is a page that has no place for it
  Files(const std::vector<File>& files, const std::string& sessionToken);

  /// The file at the path, or that the client has it already; absent when there is none.
  std::optional<Response> get(const std::string& path, const Incoming& request) const;

 private:
  struct Served {
    std::string type;
    std::string content;
    std::string tag;  ///< none for the page: its token changes
  };
  std::map<std::string, Served> files_;
};

}  // namespace web
