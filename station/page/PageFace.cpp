#include "PageFace.h"

#include <filesystem>

namespace station {
namespace {

constexpr const char* kDisabledFile = "disabled-sites.json";

/// The state has its sites before anything about them is told.
PageState& loadedState(PageState& state, const FaceContext& context) {
  state.loaded(context);
  return state;
}

}  // namespace

PageFace::PageFace(const FaceContext& context, const std::string& logFolder,
                   std::chrono::system_clock::time_point endAfter, RunPurpose& purpose,
                   PageState& state, PageSite& site)
    : purpose_(purpose),
      state_(loadedState(state, context)),
      site_(site),
      devices_(
          {context.loaded.sites, context.words.serialPattern, context.words.scan,
           context.words.startOnScan, std::filesystem::path(logFolder) / kDisabledFile, endAfter},
          state, context.events),
      desk_(state) {
  devices_.setPurpose(purpose);
  context.engine.onWait(
      [&state](const std::string& name, const std::string& what) { state.waitsFor(name, what); });
  site_.enter({&devices_, &desk_, &context.engine, &context.events,
               context.bundle / "Contents" / "Resources", context.store.file(),
               context.store.stationId(), context.files.diagnostics});
}

PageFace::~PageFace() {
  site_.leave();
  purpose_ = devices_.purpose();
  if (devices_.hasEnded()) site_.reload();
}

}  // namespace station
