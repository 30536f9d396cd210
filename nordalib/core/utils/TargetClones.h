#pragma once
// NORDA_TARGET_CLONES_AVX2: compiles a hot loop twice, for AVX2 and for the baseline, and lets the
// loader pick one. The pick runs in an ifunc resolver while the library is being relocated, before
// any sanitizer runtime has started; the thread checker instruments that resolver and crashes the
// program at load time, so thread-checked builds keep the baseline version only. Clang (used for
// the fuzzing build) cannot clone function templates yet and also gets the baseline only.

#if defined(__SANITIZE_THREAD__) || defined(__clang__)
#define NORDA_TARGET_CLONES_AVX2
#else
#define NORDA_TARGET_CLONES_AVX2 __attribute__((target_clones("avx2", "default")))
#endif
