// Frame-comparison kernels: for every byte of every line, out = clamp(a - b + 128, 0, 255) and
// (a - b)^2 is added to the sum of the byte's channel; after the last line the sums become MSE
// and PSNR in the record's result slots of the channels the format has.
//
// One kernel per format layout, in a table indexed by kernel number.  The table is filled with
// the scalar kernels and then overridden by the SIMD ones the CPU flags allow.  Scalar and SIMD
// kernels share one line driver (compare_plane): whole steps from the start of the line, the
// scalar span for the trail.  A line never reads or writes past `bytes_per_line`.
#pragma once

#include <cstddef>
#include <cstdint>

namespace framedsp {

// a, b, out: first byte of line 0; lines `stride` bytes apart in all three.  results: the
// record's dResults (0..3 MSE, 4..7 PSNR); slots of channels the format lacks are not touched.
using CompareKernel = void (*)(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                               size_t bytes_per_line, size_t stride, double *results);

enum CompareKernelId : uint32_t {
  kCompareUyvy = 0,    // format 21: U Y V Y
  kCompareYuyv = 1,    // format 25: Y U Y V
  kCompareBgr24 = 2,   // format 1: c0 c1 c2
  kCompareBgra32 = 3,  // format 0: c0 c1 c2 c3
  kCompareKey8 = 4,    // format 261: one channel, reported as channel 3
  kCompareKernelCount = 5,
};

struct CompareKernelTable {
  CompareKernel kernel[kCompareKernelCount];
};

// Kernel number of a format; any format without its own kernel selects 0.
uint32_t compare_kernel_id(uint32_t format);
const char *compare_kernel_name(uint32_t id);  // "uyvy", "yuyv", "bgr24", "bgra32", "key8"

// Scalar kernels, then whatever `cpu_flags` (CpuFlags bits) allows on this build.  Cheap enough
// to run once per call, which lets set_cpu_mask take effect at once.
void compare_table_init(CompareKernelTable *table, uint32_t cpu_flags);

// The sums of one call as results: MSE = sum / pixels, PSNR = 20 log10(255 / sqrt(MSE + 1e-5)),
// for each channel whose bit is set in channel_mask.
void compare_finish(const uint64_t sums[4], uint32_t channel_mask, uint64_t pixels,
                    double *results);

void compare_uyvy_c(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                    size_t bytes_per_line, size_t stride, double *results);
void compare_yuyv_c(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                    size_t bytes_per_line, size_t stride, double *results);
void compare_bgr24_c(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                     size_t bytes_per_line, size_t stride, double *results);
void compare_bgra32_c(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                      size_t bytes_per_line, size_t stride, double *results);
void compare_key8_c(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                    size_t bytes_per_line, size_t stride, double *results);

#if defined(FRAMEDSP_HAVE_X86)
// Built only inside the library (the x86 object files, each with its own ISA flags).  Each fills
// every table entry with its kernels; only the table init calls them, each after checking its
// flag.  Tests reach the kernels through compare_table_init with the matching flags.
void compare_init_sse2(CompareKernelTable *table);
void compare_init_avx2(CompareKernelTable *table);
#endif

namespace compare_detail {

// Everything below is compiled into each kernel file with that file's ISA flags.  The unnamed
// namespace keeps every instantiation local to its file: were the scalar span merged across
// files by the linker, the scalar kernels could end up running a copy built with -mavx2.
namespace {

// Channel of each byte of a line: kChannel[offset % kPeriod].  kPixelBytes divides the line
// length into the pixel count; kChannelMask says which result slots the layout owns.
struct UyvyLayout {
  static constexpr unsigned kPeriod = 4;
  static constexpr uint8_t kChannel[4] = {1, 0, 2, 0};
  static constexpr unsigned kPixelBytes = 2;
  static constexpr uint32_t kChannelMask = 0x7;
};
struct YuyvLayout {
  static constexpr unsigned kPeriod = 4;
  static constexpr uint8_t kChannel[4] = {0, 1, 0, 2};
  static constexpr unsigned kPixelBytes = 2;
  static constexpr uint32_t kChannelMask = 0x7;
};
struct Bgr24Layout {
  static constexpr unsigned kPeriod = 3;
  static constexpr uint8_t kChannel[3] = {0, 1, 2};
  static constexpr unsigned kPixelBytes = 3;
  static constexpr uint32_t kChannelMask = 0x7;
};
struct Bgra32Layout {
  static constexpr unsigned kPeriod = 4;
  static constexpr uint8_t kChannel[4] = {0, 1, 2, 3};
  static constexpr unsigned kPixelBytes = 4;
  static constexpr uint32_t kChannelMask = 0xF;
};
struct Key8Layout {
  static constexpr unsigned kPeriod = 1;
  static constexpr uint8_t kChannel[1] = {3};
  static constexpr unsigned kPixelBytes = 1;
  static constexpr uint32_t kChannelMask = 0x8;
};

template <class L>
constexpr unsigned channel_at(size_t offset) {
  return L::kChannel[offset % L::kPeriod];
}

// Steps between two flushes of a SIMD step's 32-bit lanes.  A lane gains at most four squares
// (4 * 255^2 = 260100) per step, and 8192 * 260100 < 2^31.
constexpr size_t kFlushSteps = 8192;

// Writes the difference byte at x and returns its square (<= 65025).
inline uint32_t compare_byte(const uint8_t *a, const uint8_t *b, uint8_t *out, size_t x) {
  const int d = int{a[x]} - int{b[x]};
  const int v = d + 128;
  out[x] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
  return static_cast<uint32_t>(d * d);
}

// Bytes [begin, end) of one line, one at a time.  Each format's walk (odd bytes, then groups of
// four; groups of three; ...) visits every byte of the line once, so it comes down to each byte
// feeding the channel of its offset.  A trailing partial group visits only the bytes that exist:
// nothing past the end of the line is read, written or counted.
template <class L>
inline void compare_span(const uint8_t *a, const uint8_t *b, uint8_t *out, size_t begin,
                         size_t end, uint64_t sums[4]) {
  unsigned phase = static_cast<unsigned>(begin % L::kPeriod);
  for (size_t x = begin; x < end; ++x) {
    sums[L::kChannel[phase]] += compare_byte(a, b, out, x);
    if (++phase == L::kPeriod) phase = 0;
  }
}

// Scalar twin of the SIMD steps: the same step length, so the scalar kernels run the same split.
template <class L, size_t N>
struct CompareStepC {
  static_assert(N % L::kPeriod == 0, "a step must keep the channel phase");
  static constexpr size_t kBytes = N;
  struct Acc {
    uint64_t sum[4] = {0, 0, 0, 0};
  };
  static void run(const uint8_t *a, const uint8_t *b, uint8_t *out, Acc &acc) {
    for (size_t g = 0; g < N; g += L::kPeriod) {
      for (unsigned k = 0; k < L::kPeriod; ++k) {
        acc.sum[L::kChannel[k]] += compare_byte(a, b, out, g + k);
      }
    }
  }
  static void flush(const Acc &acc, uint64_t sums[4]) {
    for (int c = 0; c < 4; ++c) sums[c] += acc.sum[c];
  }
};

// The line driver shared by every kernel: whole steps from byte 0 of the line (steps are a
// multiple of the channel period, so each starts on phase 0), lanes flushed into the 64-bit
// channel sums at least every kFlushSteps steps and at the end of each line, then the scalar
// trail.  Lines are addressed as y * stride so that no pointer is formed past the last line.
template <class Step, class L>
inline void compare_plane(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                          size_t bytes, size_t stride, uint64_t sums[4]) {
  static_assert(Step::kBytes % L::kPeriod == 0, "a step must keep the channel phase");
  constexpr size_t kChunk = kFlushSteps * Step::kBytes;
  if (bytes == 0) return;  // touches nothing; spares forming line addresses from null bases
  const size_t body = bytes - bytes % Step::kBytes;
  for (uint32_t y = 0; y < lines; ++y) {
    const size_t line = static_cast<size_t>(y) * stride;
    const uint8_t *la = a + line;
    const uint8_t *lb = b + line;
    uint8_t *lo = out + line;
    size_t x = 0;
    while (x < body) {
      const size_t end = body - x > kChunk ? x + kChunk : body;
      typename Step::Acc acc;
      for (; x < end; x += Step::kBytes) Step::run(la + x, lb + x, lo + x, acc);
      Step::flush(acc, sums);
    }
    compare_span<L>(la, lb, lo, body, bytes, sums);
  }
}

// A whole kernel: sums, then results.  Pixel count in 64 bits: width * height cannot overflow.
template <class Step, class L>
inline void compare_run(const uint8_t *a, const uint8_t *b, uint8_t *out, uint32_t lines,
                        size_t bytes, size_t stride, double *results) {
  uint64_t sums[4] = {0, 0, 0, 0};
  compare_plane<Step, L>(a, b, out, lines, bytes, stride, sums);
  const uint64_t pixels = static_cast<uint64_t>(bytes / L::kPixelBytes) * lines;
  compare_finish(sums, L::kChannelMask, pixels, results);
}

// For the SIMD steps: whether the two bytes of a 16-bit-lane pair (offsets p and p + 2 for every
// p = 0 mod 4 in a step of n bytes, plus `odd`) can belong to different channels, in which case
// the step must square one of them separately.
template <class L>
constexpr bool pair_splits(size_t n, unsigned odd) {
  for (size_t m = 0; m < n / 4; ++m) {
    if (channel_at<L>(4 * m + odd) != channel_at<L>(4 * m + odd + 2)) return true;
  }
  return false;
}

template <class L>
constexpr bool single_channel() {
  for (unsigned i = 1; i < L::kPeriod; ++i) {
    if (L::kChannel[i] != L::kChannel[0]) return false;
  }
  return true;
}

// Adds the lanes of one step's accumulators to the channel sums.  Per 32-bit lane m of vector k
// (bytes p = k * width + 4m .. p + 3): q02 = sq(p) + sq(p + 2), q0 = sq(p), q13 = sq(p + 1) +
// sq(p + 3), q1 = sq(p + 1); q0 and q1 exist only when the pair can split.  Every lane value is
// below 2^31 (kFlushSteps), so totals minus parts are exact.
template <class L, bool kSplitLo, bool kSplitHi>
inline void add_lanes(const uint32_t *q02, const uint32_t *q0, const uint32_t *q13,
                      const uint32_t *q1, size_t lanes, uint64_t sums[4]) {
  for (size_t m = 0; m < lanes; ++m) {
    const size_t p = 4 * m;
    if (kSplitLo) {
      sums[channel_at<L>(p)] += q0[m];
      sums[channel_at<L>(p + 2)] += q02[m] - q0[m];
    } else {
      sums[channel_at<L>(p)] += q02[m];
    }
    if (kSplitHi) {
      sums[channel_at<L>(p + 1)] += q1[m];
      sums[channel_at<L>(p + 3)] += q13[m] - q1[m];
    } else {
      sums[channel_at<L>(p + 1)] += q13[m];
    }
  }
}

}  // namespace
}  // namespace compare_detail
}  // namespace framedsp
