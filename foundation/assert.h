// Caller preconditions, checked in debug builds and compiled out in release.
// The library reports nothing and throws nothing: a failed DL_ASSERT is a bug in
// the calling code, never a reaction to data.
#pragma once

#include <cassert>

#ifdef NDEBUG
#define DL_ASSERT(cond) ((void)0)
#else
#define DL_ASSERT(cond) assert(cond)
#endif
