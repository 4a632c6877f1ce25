#pragma once

#include <chrono>
#include <string>

#include "Face.h"
#include "PageDesk.h"
#include "PageDevices.h"
#include "PageSite.h"
#include "PageState.h"

namespace station {

/// The face of `quillon serve`: one session of the station at the page.
class PageFace : public Face {
 public:
  /// What is given outlives it. `purpose` is what devices are tested for, as people left it.
  /// After `endAfter` the session ends as soon as no site has a device, and `site` is told to
  /// begin another one.
  PageFace(const FaceContext& context, const std::string& logFolder,
           std::chrono::system_clock::time_point endAfter, RunPurpose& purpose, PageState& state,
           PageSite& site);
  ~PageFace() override;

  DeviceSource& devices() override { return devices_; }
  QuestionDesk& questions() override { return desk_; }
  RunView& view() override { return state_; }

 private:
  RunPurpose& purpose_;
  PageState& state_;
  PageSite& site_;
  PageDevices devices_;
  PageDesk desk_;
};

}  // namespace station
