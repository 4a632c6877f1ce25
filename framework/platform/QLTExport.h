#pragma once

/// Marks what the shared library exports. Everything else is hidden.
#define QLT_EXPORT __attribute__((visibility("default")))
