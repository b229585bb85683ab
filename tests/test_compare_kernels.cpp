// The comparison kernel table: every SIMD entry against the scalar kernel of the same number,
// byte- and bit-identical (the scalar kernels meet the per-byte reference through DspCompare in
// test_compare.cpp).
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "analysis/compare_kernels.h"
#include "frame/cpu.h"
#include "test_util.h"

namespace {

using framedsp::CompareKernel;
using framedsp::CompareKernelTable;
using framedsp_test::GuardedBuffer;

constexpr uint64_t kSentinelBits = 0x7FF8DEADBEEF0002ull;
constexpr uint8_t kOutFill = 0xC3;

void fill_sentinel(double results[8]) {
  for (int i = 0; i < 8; ++i) std::memcpy(&results[i], &kSentinelBits, sizeof(double));
}

CompareKernelTable table_for(uint32_t flags) {
  CompareKernelTable t;
  framedsp::compare_table_init(&t, flags);
  return t;
}

// ---- one run -----------------------------------------------------------------------------------

struct Line {
  const uint8_t *a;
  const uint8_t *b;
  uint8_t *out;      // the kernel's destination (inside `region`)
  uint8_t *region;   // the whole checked output area, lines and everything around them
  size_t region_size;
};

struct Geometry {
  uint32_t lines;
  size_t bytes;
  size_t stride;
  size_t src_offset;
  size_t dst_offset;
};

std::string describe(const char *kernel, const char *isa, const Geometry &g, const char *data) {
  std::ostringstream s;
  s << "kernel " << kernel << " isa " << isa << " len " << g.bytes << " lines " << g.lines
    << " stride " << g.stride << " src offset " << g.src_offset << " dst offset "
    << g.dst_offset << " data " << data << " seed " << framedsp_test::test_seed()
    << " (FRAMEDSP_SEED)";
  return s.str();
}

// Runs `test` and `reference` on the same inputs (each into its own copy of the output area) and
// compares the whole area byte for byte and the results bit for bit.
::testing::AssertionResult same_as(CompareKernel test, CompareKernel reference, const Line &line,
                                   const Geometry &g, const std::string &what,
                                   const GuardedBuffer *guarded_out) {
  std::vector<uint8_t> expected(line.region, line.region + line.region_size);
  const size_t at = static_cast<size_t>(line.out - line.region);
  double want[8], got[8];
  fill_sentinel(want);
  fill_sentinel(got);
  reference(line.a, line.b, expected.data() + at, g.lines, g.bytes, g.stride, want);
  test(line.a, line.b, line.out, g.lines, g.bytes, g.stride, got);
  if (guarded_out && !guarded_out->intact()) {
    return ::testing::AssertionFailure() << what << ": wrote into the guard, "
                                         << guarded_out->damage();
  }
  if (std::memcmp(expected.data(), line.region, line.region_size) != 0) {
    return ::testing::AssertionFailure()
           << what << ": difference image differs (offsets from the output area)\n"
           << framedsp_test::hex_diff(expected.data(), line.region, line.region_size);
  }
  if (std::memcmp(want, got, sizeof want) != 0) {
    std::ostringstream s;
    for (int i = 0; i < 8; ++i) {
      uint64_t w, o;
      std::memcpy(&w, &want[i], 8);
      std::memcpy(&o, &got[i], 8);
      if (w != o) s << " [" << i << "] want " << want[i] << " got " << got[i];
    }
    return ::testing::AssertionFailure() << what << ": results differ:" << s.str();
  }
  return ::testing::AssertionSuccess();
}

enum class Data { kRandom, kZeros, kOnes, kMaxMinusMin, kMinMinusMax, kExtremesMixed };
const char *data_name(Data d) {
  switch (d) {
    case Data::kRandom: return "random";
    case Data::kZeros: return "all-0";
    case Data::kOnes: return "all-255";
    case Data::kMaxMinusMin: return "255-0";
    case Data::kMinMinusMax: return "0-255";
    case Data::kExtremesMixed: return "0/255 mixed";
  }
  return "?";
}

void fill(Data d, uint8_t *a, uint8_t *b, size_t n, std::mt19937 &rng) {
  switch (d) {
    case Data::kRandom:
      framedsp_test::fill_random(a, n, rng);
      framedsp_test::fill_random(b, n, rng);
      return;
    case Data::kZeros: std::memset(a, 0, n), std::memset(b, 0, n); return;
    case Data::kOnes: std::memset(a, 255, n), std::memset(b, 255, n); return;
    case Data::kMaxMinusMin: std::memset(a, 255, n), std::memset(b, 0, n); return;
    case Data::kMinMinusMax: std::memset(a, 0, n), std::memset(b, 255, n); return;
    case Data::kExtremesMixed:
      for (size_t i = 0; i < n; ++i) {
        a[i] = (rng() & 1) ? 255 : 0;
        b[i] = (rng() & 1) ? 255 : 0;
      }
      return;
  }
}

// ---- SIMD against scalar -----------------------------------------------------------------------

struct SimdCase {
  uint32_t id;
  const char *isa;
  uint32_t flags;  // what compare_table_init gets
};

void PrintTo(const SimdCase &c, std::ostream *os) {
  *os << framedsp::compare_kernel_name(c.id) << "_" << c.isa;
}

std::vector<SimdCase> simd_cases() {
  std::vector<SimdCase> cases;
  for (uint32_t id = 0; id < framedsp::kCompareKernelCount; ++id) {
    cases.push_back({id, "sse2", framedsp::kCpuSSE2});
    cases.push_back({id, "avx2", framedsp::kCpuSSE2 | framedsp::kCpuAVX2});
  }
  return cases;
}

class CompareKernelSimd : public ::testing::TestWithParam<SimdCase> {
 protected:
  void SetUp() override {
    const SimdCase &c = GetParam();
    if ((framedsp::cpu_flags() & c.flags) != c.flags) GTEST_SKIP() << c.isa << " not on this CPU";
    const CompareKernelTable isa = table_for(c.flags);
    const CompareKernelTable narrower =
        table_for(c.flags == framedsp::kCpuSSE2 ? 0u : framedsp::kCpuSSE2);
    test_ = isa.kernel[c.id];
    reference_ = table_for(0).kernel[c.id];
    if (test_ == narrower.kernel[c.id]) GTEST_SKIP() << "no " << c.isa << " entry for this kernel";
    name_ = framedsp::compare_kernel_name(c.id);
  }

  // One line of `len` bytes.  A and B sit in buffers whose data ends against a protected page;
  // offset 15 puts the line's last byte right before it, so any over-read faults.  The output
  // area has 64 canary bytes each side and `dst_offset` bytes before the line.
  void check_line(size_t len, size_t src_offset, size_t dst_offset, Data data, std::mt19937 &rng,
                  GuardedBuffer &ga, GuardedBuffer &gb, GuardedBuffer &go) {
    const size_t b_offset = (src_offset * 5 + 3) % 16;  // B at another alignment
    uint8_t *a = ga.data() + src_offset;
    uint8_t *b = gb.data() + b_offset;
    fill(data, ga.data(), gb.data(), len + 15, rng);
    std::memset(go.data(), kOutFill, go.size());
    const Geometry g{1, len, len + 7, src_offset, dst_offset};
    const Line line{a, b, go.data() + dst_offset, go.data(), go.size()};
    EXPECT_TRUE(same_as(test_, reference_, line, g,
                        describe(name_, GetParam().isa, g, data_name(data)), &go));
  }

  CompareKernel test_ = nullptr;
  CompareKernel reference_ = nullptr;
  const char *name_ = "";
};

// Every length to 200 at every source and destination offset, random lengths to 4096, and flat and
// adversarial lines (all 0, all 255, 255 against 0 and back, 0/255 mixed) of every length.
TEST_P(CompareKernelSimd, EveryLengthAtEveryOffsetAndFlatLines) {
  std::mt19937 rng(framedsp_test::test_seed() + GetParam().id);
  const Data kinds[] = {Data::kZeros, Data::kOnes, Data::kMaxMinusMin, Data::kMinMinusMax, Data::kExtremesMixed};
  std::vector<size_t> lengths;
  for (size_t len = 0; len <= 200; ++len) lengths.push_back(len);
  for (int i = 0; i < 200; ++i) lengths.push_back(201 + rng() % (4096 - 200));
  lengths.insert(lengths.end(), {1023, 4095, 4096});
  for (size_t len : lengths) {
    GuardedBuffer ga(len + 15, 0), gb(len + 15, 0), go(len + 15, 64);
    for (size_t src = 0; src < 16; src += (len <= 200 ? 1 : 15)) {
      for (size_t dst = 0; dst < (len <= 200 ? 16u : 1u); ++dst) {
        check_line(len, src, len <= 200 ? dst : rng() % 16, Data::kRandom, rng, ga, gb, go);
      }
    }
    for (Data d : kinds) check_line(len, len % 16, (len * 3) % 16, d, rng, ga, gb, go);
    if (HasFailure()) break;
  }
}

TEST_P(CompareKernelSimd, SeveralLinesWithStrideSlack) {
  // Output bytes in the stride slack between lines must stay as they were.
  std::mt19937 rng(framedsp_test::test_seed() + 11);
  for (int i = 0; i < 300 && !HasFailure(); ++i) {
    const uint32_t lines = 1 + rng() % 5;
    const size_t len = rng() % 400;
    const size_t stride = len + rng() % 40;
    const size_t span = stride * (lines - 1) + len;
    GuardedBuffer ga(span, 0), gb(span, 0), go(span + 15, 64);
    const Data d = (i % 5 == 4) ? Data::kExtremesMixed : Data::kRandom;
    fill(d, ga.data(), gb.data(), span, rng);
    std::memset(go.data(), kOutFill, go.size());
    const Geometry g{lines, len, stride, 0, static_cast<size_t>(rng() % 16)};
    const Line line{ga.data(), gb.data(), go.data() + g.dst_offset, go.data(), go.size()};
    EXPECT_TRUE(same_as(test_, reference_, line, g,
                        describe(name_, GetParam().isa, g, data_name(d)), &go));
  }
}

TEST_P(CompareKernelSimd, LongLinesCrossTheLaneFlush) {
  // Lines of several flush periods of the widest step at the largest squares: a lane kept past
  // its bound would wrap and the sums would leave the scalar ones.
  std::mt19937 rng(framedsp_test::test_seed() + 13);
  // 3.5 MiB lines: more than 2^32 / (2 * 255^2) steps of 96 bytes, the longest step.
  const size_t line_bytes = 3 * 1024 * 1024 + 512 * 1024 + 37;
  const size_t stride = line_bytes + 3;
  const size_t len = stride + line_bytes;
  GuardedBuffer ga(len, 0), gb(len, 0), go(len, 64);
  for (Data d : {Data::kMaxMinusMin, Data::kExtremesMixed, Data::kRandom}) {
    fill(d, ga.data(), gb.data(), len, rng);
    std::memset(go.data(), kOutFill, go.size());
    const Geometry g{2, line_bytes, stride, 0, 0};
    const Line line{ga.data(), gb.data(), go.data(), go.data(), go.size()};
    EXPECT_TRUE(same_as(test_, reference_, line, g,
                        describe(name_, GetParam().isa, g, data_name(d)), &go));
  }
}

INSTANTIATE_TEST_SUITE_P(Table, CompareKernelSimd, ::testing::ValuesIn(simd_cases()),
                         [](const ::testing::TestParamInfo<SimdCase> &info) {
                           return std::string(framedsp::compare_kernel_name(info.param.id)) +
                                  "_" + info.param.isa;
                         });

TEST(CompareKernelRegistry, SimdEntriesExistOnSse2Machines) {
  const uint32_t flags = framedsp::cpu_flags();
  if (!(flags & framedsp::kCpuSSE2)) GTEST_SKIP() << "no SSE2";
  if (!framedsp::compare_isas_built()) GTEST_SKIP() << "library built without SIMD kernels";
  const CompareKernelTable c = table_for(0);
  const CompareKernelTable sse2 = table_for(framedsp::kCpuSSE2);
  int differing = 0;
  for (uint32_t id = 0; id < framedsp::kCompareKernelCount; ++id) {
    differing += sse2.kernel[id] != c.kernel[id];
  }
  EXPECT_GT(differing, 0) << "no SSE2 comparison kernel registered: the SIMD checks test nothing";
  if (flags & framedsp::kCpuAVX2) {
    const CompareKernelTable avx2 = table_for(framedsp::kCpuSSE2 | framedsp::kCpuAVX2);
    int wider = 0;
    for (uint32_t id = 0; id < framedsp::kCompareKernelCount; ++id) {
      wider += avx2.kernel[id] != sse2.kernel[id];
    }
    EXPECT_GT(wider, 0) << "no AVX2 comparison kernel registered";
  }
}

TEST(CompareKernelRegistry, CpuMaskForcesScalarAndRestores) {
  framedsp::set_cpu_mask(0);
  EXPECT_EQ(framedsp::cpu_flags(), 0u);
  framedsp::set_cpu_mask(~0u);
#if defined(__x86_64__) || defined(_M_X64)
  EXPECT_TRUE(framedsp::cpu_flags() & framedsp::kCpuSSE2) << "SSE2 is the x86-64 baseline";
#endif
#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
  // Detection agrees with the compiler's own (which also checks the OS saves the YMM state).
  EXPECT_EQ((framedsp::cpu_flags() & framedsp::kCpuAVX2) != 0,
            __builtin_cpu_supports("avx2") != 0);
  EXPECT_EQ((framedsp::cpu_flags() & framedsp::kCpuSSE41) != 0,
            __builtin_cpu_supports("sse4.1") != 0);
  EXPECT_EQ((framedsp::cpu_flags() & framedsp::kCpuSSSE3) != 0,
            __builtin_cpu_supports("ssse3") != 0);
#endif
}

TEST(CompareKernelRegistry, FormatsSelectTheirKernel) {
  EXPECT_EQ(framedsp::compare_kernel_id(21), framedsp::kCompareUyvy);
  EXPECT_EQ(framedsp::compare_kernel_id(25), framedsp::kCompareYuyv);
  EXPECT_EQ(framedsp::compare_kernel_id(1), framedsp::kCompareBgr24);
  EXPECT_EQ(framedsp::compare_kernel_id(0), framedsp::kCompareBgra32);
  EXPECT_EQ(framedsp::compare_kernel_id(261), framedsp::kCompareKey8);
  for (uint32_t other : {5u, 22u, 28u, 30u, 262u, 1000u}) {
    EXPECT_EQ(framedsp::compare_kernel_id(other), 0u) << other;
  }
}

}  // namespace
