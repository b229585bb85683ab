#include "platform/cpu.h"

#include <atomic>

#if defined(__x86_64__) || defined(__i386__) || defined(_M_X64) || defined(_M_IX86)
#define FRAMEDSP_CPU_X86 1
#if defined(_MSC_VER) && !defined(__clang__)
#include <intrin.h>
#include <immintrin.h>
#else
#include <cpuid.h>
#include <immintrin.h>
#endif
#endif

namespace framedsp {

namespace {

// Set in the stored value once detection has run, so that "no features" is not re-detected.
constexpr uint32_t kCpuDetected = 1u << 31;

// Relaxed is enough: every thread that races on first use computes and stores the same value.
std::atomic<uint32_t> g_detected{0};
std::atomic<uint32_t> g_mask{~0u};

#if defined(FRAMEDSP_CPU_X86)

struct CpuidRegs {
  uint32_t eax, ebx, ecx, edx;
};

CpuidRegs cpuid(uint32_t leaf, uint32_t subleaf) {
  CpuidRegs r{0, 0, 0, 0};
#if defined(_MSC_VER) && !defined(__clang__)
  int v[4];
  __cpuidex(v, static_cast<int>(leaf), static_cast<int>(subleaf));
  r = {static_cast<uint32_t>(v[0]), static_cast<uint32_t>(v[1]), static_cast<uint32_t>(v[2]),
       static_cast<uint32_t>(v[3])};
#else
  __cpuid_count(leaf, subleaf, r.eax, r.ebx, r.ecx, r.edx);
#endif
  return r;
}

// XCR0: which register states the OS saves on a context switch.  Only called when CPUID reports
// OSXSAVE, so the instruction exists.
#if defined(_MSC_VER) && !defined(__clang__)
uint64_t read_xcr0() { return _xgetbv(0); }
#else
__attribute__((target("xsave"))) uint64_t read_xcr0() { return _xgetbv(0); }
#endif

uint32_t detect() {
  uint32_t flags = 0;
  const uint32_t max_leaf = cpuid(0, 0).eax;
  if (max_leaf < 1) return flags;
  const CpuidRegs l1 = cpuid(1, 0);
  if (l1.edx & (1u << 26)) flags |= kCpuSSE2;
  if (l1.ecx & (1u << 9)) flags |= kCpuSSSE3;
  const bool osxsave = (l1.ecx & (1u << 27)) != 0;
  const bool avx = (l1.ecx & (1u << 28)) != 0;
  // AVX2 needs the OS to preserve the XMM and YMM halves (XCR0 bits 1 and 2).
  if (osxsave && avx && max_leaf >= 7 && (read_xcr0() & 0x6) == 0x6) {
    if (cpuid(7, 0).ebx & (1u << 5)) flags |= kCpuAVX2;
  }
  return flags;
}

#else

uint32_t detect() { return 0; }

#endif

}  // namespace

uint32_t cpu_flags() {
  uint32_t detected = g_detected.load(std::memory_order_relaxed);
  if (!detected) {
    detected = detect() | kCpuDetected;
    g_detected.store(detected, std::memory_order_relaxed);
  }
  return detected & ~kCpuDetected & g_mask.load(std::memory_order_relaxed);
}

uint32_t simd_twins_built() {
#if defined(FRAMEDSP_HAVE_X86)
  return kCpuSSE2 | kCpuAVX2;
#else
  return 0;
#endif
}

void set_cpu_mask(uint32_t mask) { g_mask.store(mask, std::memory_order_relaxed); }

}  // namespace framedsp
