#include "TerminalFace.h"

#include <utility>

#include "view/RunViews.h"

namespace station {
namespace {

/// The serial numbers that the command line gives, but for sites that are not available.
SerialNumbers numbersFor(const Loaded& loaded, SerialNumbers given) {
  std::erase_if(given, [&](const auto& each) { return loaded.unavailable.contains(each.first); });
  return given;
}

std::unique_ptr<AnswerFile> answersOf(const RunOptions& options) {
  if (options.answers.empty()) return {};
  return std::make_unique<AnswerFile>(options.answers);
}

}  // namespace

TerminalFace::TerminalFace(const RunOptions& options, const FaceContext& context)
    : serialNumbers_(numbersFor(context.loaded, options.serialNumbers), context.loaded.sites,
                     context.screen, context.words.serialPattern, options.purpose),
      desk_(answersOf(options), serialNumbers_, context.screen),
      view_(makeRunView(options, context.loaded, context.screen, context.store)) {}

}  // namespace station
