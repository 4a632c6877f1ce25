#pragma once

#include <functional>
#include <string_view>

#include <QLTExport.h>

/// @file
/// The console log: the diagnostic lines of the framework and of plug-ins, meant for engineers.
///
/// Without a sink of its own, the log goes to standard error: one line a message, with the time
/// (UTC), process and thread, in one `write` so that lines of several threads never mix. Control
/// characters of the message, as device texts carry them, and bytes that are no UTF-8 are shown as
/// escapes (`\n`, `\x1b`, `\xe9`), so that the log is UTF-8; a line end that closes the message is
/// not shown.
///
/// All functions may be called from any thread.

/// Writes one message. `message` is taken as it stands; it is never a format string.
QLT_EXPORT void QLTLog(std::string_view message);
/// The same; a null text is the empty one.
inline void QLTLog(const char* message) {
  QLTLog(message != nullptr ? std::string_view(message) : std::string_view());
}

/// Receives every message as it was given to `QLTLog`, without time stamp, on the thread that logs.
/// It may be called from several threads at once and must not throw.
using QLTLogSink = std::function<void(std::string_view message)>;

/// Sends the console log to `sink` from now on; an empty sink restores standard error. A call of
/// the earlier sink that is under way on another thread ends undisturbed.
QLT_EXPORT void QLTSetLogSink(QLTLogSink sink);
