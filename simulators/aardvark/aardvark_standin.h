#pragma once

/// What the stand-in for the adapter's library exports beside the adapter's functions: a record of
/// the calls it got, for tests. The stand-in is loaded, not linked; take the addresses with
/// `dlsym`.
///
/// A `function` is named as the library exports it: "c_aa_open", "c_version". Any thread.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// How often the function was called.
int aardvark_standin_calls(const char* function);

/// The arguments of the function's last call, in order: numbers with all 32 bits that the caller
/// passed, whatever width they are declared with; pointers as addresses. Fills up to `capacity`
/// entries and returns how many there are; -1 when the function was never called.
int aardvark_standin_arguments(const char* function, uint64_t* arguments, int capacity);

/// The place of the function's last call among all calls, counted from 1; 0 when it was never
/// called.
int aardvark_standin_position(const char* function);

/// From now on the function (one with a number as result) does nothing but give `result`.
void aardvark_standin_set_result(const char* function, int result);

#ifdef __cplusplus
}
#endif
