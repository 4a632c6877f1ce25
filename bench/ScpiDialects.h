#pragma once

// Internal: not installed.

namespace quillon::bench {

// The dialects that the library brings, in the form of `readDialects`.

/// The kinds of instruments with all of their operations, as SCPI-1999 has them. An operation
/// without a command is one that the standard lacks.
extern const char* const kScpiKinds;
/// What is common beside the standard.
extern const char* const kScpiDialects;

}  // namespace quillon::bench
