// Vector instructions above what the compiler may use everywhere: functions marked for them are compiled for
// them alone, and called only where the processor has them.
#pragma once

#if defined(__GNUC__) && defined(__x86_64__)
#define TESSEL_HAS_VECTORS 1
#define TESSEL_AVX2 __attribute__((target("avx2")))
#define TESSEL_SSSE3 __attribute__((target("ssse3")))
// For the pieces of such functions: they become part of each caller, in its instructions.
#define TESSEL_PIECE(mark) mark __attribute__((always_inline)) inline
#endif
