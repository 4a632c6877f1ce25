#pragma once

namespace station {

// How a worker's process ends where the plug-in does not end it.

inline constexpr int kDone = 0;     ///< unloaded as it was told
inline constexpr int kRefused = 2;  ///< nothing can be tested, and the host knows why
/// The plug-in has closed the connection to the host.
inline constexpr int kConnectionLost = 120;
/// It could not become the worker.
inline constexpr int kNotStarted = 121;

}  // namespace station
