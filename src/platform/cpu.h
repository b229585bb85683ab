// CPU features, detected once and read with relaxed atomics.  Kernel tables are filled with the
// scalar kernels and then overridden by what the detected ISAs implement; set_cpu_mask lets tests
// force the scalar path.
#pragma once

#include <cstdint>

namespace framedsp {

enum CpuFlags : uint32_t {
  kCpuSSE2 = 1u << 0,
  kCpuSSSE3 = 1u << 1,
  kCpuAVX2 = 1u << 3,
};

// Detected flags AND the mask (all ones by default).
uint32_t cpu_flags();
// CpuFlags bits the SIMD twins of every kernel family are built for: SSE2 and AVX2 on x86 (the
// scaler's line kernels add SSSE3), 0 elsewhere.
uint32_t simd_twins_built();
// Test hook (not exported): restrict the flags; ~0u restores everything, 0 forces scalar code.
void set_cpu_mask(uint32_t mask);

}  // namespace framedsp
