#pragma once

#include <functional>
#include <set>
#include <string>

#include "ScpiDevice.h"

namespace sim {

/// A switch matrix with the relays 101 to 132 and 201 to 232.
class ScpiMatrix : public ScpiDevice {
 public:
  ScpiMatrix(ReplyTable replies, std::string lineEnd, std::string identity);

  /// The relay stays as it is, whatever it is told. Throws `Problem` when there is none.
  void setStuck(int relay);
  /// Closes a relay, before anybody has asked for it.
  void setClosed(int relay);

 private:
  void addCommands();
  void addForEach(const std::string& pattern, const std::function<void(int)>& act);
  void addQuestion(const std::string& pattern, bool whenClosed);
  void close(int relay);
  void open(int relay);
  void openAll();
  void reset() override { openAll(); }

  std::set<int> closed_;
  std::set<int> stuck_;
};

}  // namespace sim
