#pragma once

#include <memory>

#include "Face.h"
#include "RunOptions.h"
#include "SerialNumberSource.h"
#include "TerminalDesk.h"

namespace station {

/// The face of `quillon run`: command line, terminal and files.
class TerminalFace : public Face {
 public:
  /// `CannotRun` when what the command line gives does not fit the station.
  TerminalFace(const RunOptions& options, const FaceContext& context);

  DeviceSource& devices() override { return serialNumbers_; }
  QuestionDesk& questions() override { return desk_; }
  RunView& view() override { return *view_; }
  void ended() override { desk_.warnOfUnused(); }

 private:
  SerialNumberSource serialNumbers_;
  TerminalDesk desk_;
  const std::unique_ptr<RunView> view_;
};

}  // namespace station
