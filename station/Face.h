#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "DeviceSource.h"
#include "LogFiles.h"
#include "QuestionDesk.h"
#include "Screen.h"
#include "StationWords.h"
#include "host/Engine.h"
#include "host/EventLog.h"
#include "results/Store.h"
#include "view/RunView.h"

namespace station {

/// How a station meets people: who gives it devices, who answers its tests, who sees how it goes.
class Face {
 public:
  Face() = default;
  virtual ~Face() = default;
  Face(const Face&) = delete;
  Face& operator=(const Face&) = delete;

  virtual DeviceSource& devices() = 0;
  virtual QuestionDesk& questions() = 0;
  virtual RunView& view() = 0;
  /// The last device is done and the plug-in is unloaded.
  virtual void ended() {}
};

/// What a face shows and acts on. All of it outlives the face.
struct FaceContext {
  const std::filesystem::path& bundle;
  const Loaded& loaded;
  const StationWords& words;
  const LogFiles& files;
  Engine& engine;
  const results::Store& store;
  const EventLog& events;
  Screen& screen;
};

/// Makes the face of a station that is loaded. May throw `CannotRun`.
using FaceMaker = std::function<std::unique_ptr<Face>(const FaceContext&)>;

}  // namespace station
