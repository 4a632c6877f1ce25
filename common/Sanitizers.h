#pragma once

// Internal: not installed.

// QUILLON_ADDRESS_SANITIZER and QUILLON_THREAD_SANITIZER are defined where that sanitizer is in the
// build: compilers tell it in different ways.
#ifdef __has_feature
#if __has_feature(address_sanitizer)
#define QUILLON_ADDRESS_SANITIZER
#endif
#if __has_feature(thread_sanitizer)
#define QUILLON_THREAD_SANITIZER
#endif
#else
#ifdef __SANITIZE_ADDRESS__
#define QUILLON_ADDRESS_SANITIZER
#endif
#ifdef __SANITIZE_THREAD__
#define QUILLON_THREAD_SANITIZER
#endif
#endif

namespace quillon::internal {

/// Whether a sanitizer that sees crashes itself, by handlers of its own, is in the build.
#if defined(QUILLON_ADDRESS_SANITIZER) || defined(QUILLON_THREAD_SANITIZER)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif

}  // namespace quillon::internal
