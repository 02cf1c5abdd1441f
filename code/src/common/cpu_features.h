// What the processor running the library can do, for the few loops compiled twice: once for
// the baseline instruction set and once for a wider one, the processor picking at run time.
// Only this pair names an instruction set. Where the build cannot compile for AVX2 (another
// architecture, another compiler, or CFB_NO_CPU_DISPATCH defined), the second copy is an
// ordinary one and has_avx2() is false, so the portable copy always runs.
#pragma once

#if !defined(CFB_NO_CPU_DISPATCH) && (defined(__x86_64__) || defined(__i386__)) && \
    (defined(__GNUC__) || defined(__clang__))
#define CFB_CPU_X86_DISPATCH 1
// Compiles the function it marks for AVX2; call it only when has_avx2() says so.
#define CFB_TARGET_AVX2 [[gnu::target("avx2")]]
#else
#define CFB_CPU_X86_DISPATCH 0
#define CFB_TARGET_AVX2
#endif

namespace vrk::cpu {

// True when the processor runs AVX2 and this build holds AVX2 copies.
[[nodiscard]] bool has_avx2();

}  // namespace vrk::cpu
