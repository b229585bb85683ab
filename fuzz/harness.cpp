#include "harness.h"

#include "lines/buffer_record.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

namespace fuzz {

namespace {
const DSP_BUFFER *g_context = nullptr;
}  // namespace

void set_failure_context(const DSP_BUFFER *buffer) { g_context = buffer; }

void require(bool ok, const char *what, const char *detail) {
  if (ok) return;
  std::fprintf(stderr, "fuzz check failed: %s%s%s\n", what, detail ? ": " : "", detail ? detail : "");
  if (g_context) {
    static char text[8192];
    framedsp::format_buffer_dump(g_context, "record", text, sizeof text);
    std::fprintf(stderr, "%s\nulSliceCount %u ulSliceNumber %u ulFlags 0x%x\n", text,
                 g_context->ulSliceCount, g_context->ulSliceNumber, g_context->ulFlags);
  }
  std::abort();
}

uint8_t Reader::u8() { return pos_ < size_ ? data_[pos_++] : 0; }
uint16_t Reader::u16() { return static_cast<uint16_t>(u8() | (u8() << 8)); }
uint32_t Reader::u32() { return u16() | (static_cast<uint32_t>(u16()) << 16); }

uint32_t Reader::range(uint32_t lo, uint32_t hi) {
  if (hi <= lo) return lo;
  const uint64_t span = uint64_t{hi} - lo + 1;
  const uint32_t raw = span <= 256 ? u8() : (span <= 65536 ? u16() : u32());
  return lo + static_cast<uint32_t>(raw % span);
}

namespace {
uint8_t xorshift(uint32_t &x) {
  x ^= x << 13;
  x ^= x >> 17;
  x ^= x << 5;
  return static_cast<uint8_t>(x);
}

size_t page_size() {
  static const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return page;
}

// Mappings of finished buffers, kept with their guard pages in place so that the next buffer of
// the same size needs no mmap, no mprotect and no fresh page faults (which otherwise cost more
// than the call under test).  Every user rewrites the whole inner area, so nothing carries over.
// At most 16 mappings of at most 4 MiB each.
std::mutex g_cache_mutex;
std::multimap<size_t, uint8_t *> g_cache;  // mapped bytes -> mapping

uint8_t *take_cached_mapping(size_t mapped) {
  std::lock_guard<std::mutex> lock(g_cache_mutex);
  const auto it = g_cache.find(mapped);
  if (it == g_cache.end()) return nullptr;
  uint8_t *base = it->second;
  g_cache.erase(it);
  return base;
}

void release_mapping(uint8_t *base, size_t mapped) {
  std::lock_guard<std::mutex> lock(g_cache_mutex);
  if (g_cache.size() == 16) {
    munmap(g_cache.begin()->second, g_cache.begin()->first);
    g_cache.erase(g_cache.begin());
  }
  if (mapped <= (size_t{4} << 20)) g_cache.emplace(mapped, base);
  else munmap(base, mapped);
}
}  // namespace

PageBuffer::PageBuffer(size_t size, bool at_end, size_t margin) : size_(size), margin_(margin) {
  const size_t page = page_size();
  const size_t inner = (size + 2 * margin + page - 1) / page * page + (size + 2 * margin == 0 ? page : 0);
  mapped_ = inner + 2 * page;
  base_ = take_cached_mapping(mapped_);
  if (!base_) {
    void *p = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    require(p != MAP_FAILED, "mmap");
    base_ = static_cast<uint8_t *>(p);
    require(mprotect(base_, page, PROT_NONE) == 0, "mprotect before");
    require(mprotect(base_ + page + inner, page, PROT_NONE) == 0, "mprotect after");
  }
  uint8_t *first = base_ + page;
  uint8_t *last = base_ + page + inner;
  data_ = at_end ? last - margin - size : first + margin;
  std::memset(data_ - margin, kCanary, margin);
  std::memset(data_ + size, kCanary, margin);
  std::memset(data_, 0, size);
}

PageBuffer::~PageBuffer() { release_mapping(base_, mapped_); }

bool PageBuffer::margins_intact() const {
  for (size_t i = 0; i < margin_; ++i) {
    if (data_[-1 - static_cast<ptrdiff_t>(i)] != kCanary || data_[size_ + i] != kCanary) return false;
  }
  return true;
}

OutputImage::OutputImage(size_t size, bool at_end, uint32_t fill_seed)
    : buffer_(size, at_end, 64), before_(size), allowed_(size, 0) {
  uint32_t x = fill_seed | 1u;
  for (size_t i = 0; i < size; ++i) before_[i] = xorshift(x);
  if (size) std::memcpy(buffer_.data(), before_.data(), size);
}

void OutputImage::allow(int64_t offset, int64_t n) {
  const int64_t size = static_cast<int64_t>(allowed_.size());
  int64_t lo = std::max<int64_t>(offset, 0);
  int64_t hi = std::min<int64_t>(offset + n, size);
  for (int64_t i = lo; i < hi; ++i) allowed_[static_cast<size_t>(i)] = 1;
}

void OutputImage::check(const char *target, bool nothing_allowed) {
  if (!buffer_.margins_intact()) require(false, target, "write into the canary margin of the output");
  const uint8_t *now = buffer_.data();
  for (size_t i = 0; i < before_.size(); ++i) {
    if (now[i] == before_[i]) continue;
    if (!nothing_allowed && allowed_[i]) continue;
    char detail[160];
    std::snprintf(detail, sizeof detail, "%s: byte %zu of %zu changed (%02x -> %02x)",
                  nothing_allowed ? "refused record wrote" : "write outside the output region", i,
                  before_.size(), before_[i], now[i]);
    require(false, target, detail);
  }
}

FormatFacts format_facts(uint32_t format) {
  switch (format) {
    case 0: return {4, false, 0, true, true};
    case 1: return {3, false, 0, true, true};
    case 5: return {3, true, 1, true, true};
    case 21: case 24: case 25: return {2, false, 0, false, true};
    case 22: return {4, false, 0, false, true};
    case 23: return {6, false, 0, false, true};
    case 28: case 30: return {2, true, 1, false, true};
    case 31: return {0, false, 0, false, true};
    case 129: return {8, false, 0, false, true};
    case 261: return {1, false, 0, false, true};
    case 262: return {0, false, 0, false, true};
    default: return {0, false, 0, false, false};
  }
}

uint32_t draw_format(Reader &r, bool compare) {
  static const uint32_t kCopy[] = {0, 1, 5, 21, 22, 23, 24, 25, 28, 30, 31, 129, 261, 262};
  static const uint32_t kCompare[] = {0, 1, 5, 21, 25, 28, 30, 261};
  static const uint32_t kOther[] = {2, 3, 4, 16, 17, 18, 27, 29, 64, 128, 132, 258, 263, 512, 513};
  const uint8_t choice = r.u8();
  if (choice < 232) return compare ? r.pick(kCompare) : r.pick(kCopy);
  if (choice < 250) return r.pick(kOther);
  return r.u32();
}

size_t image_bytes(const DSP_IMAGE &image) {
  const FormatFacts f = format_facts(image.ePixelFormat);
  size_t bytes = size_t{image.ulHeight} * image.ulPrimaryStrideBytes;
  if (f.two_plane) bytes += size_t{image.ulHeight} * image.ulSecondaryStrideBytes;
  return bytes;
}

namespace {

// A value near `base` most of the time, sometimes anywhere in a small window around it.
int32_t jitter(Reader &r, int32_t base, int32_t spread) {
  const uint8_t mode = r.u8() % 8;
  if (mode < 5) return base;
  return base + static_cast<int32_t>(r.range(0, 2 * spread)) - spread;
}

}  // namespace

void draw_image(Reader &r, uint32_t format, uint32_t max_dim, ImageSide *side) {
  static const uint32_t kTypes[] = {0, 1, 2, 2, 2, 2, 3};
  static const uint32_t kInterlace[] = {0, 1, 2, 2, 3, 4};
  static const uint32_t kOrientation[] = {0, 1, 0, 1, 2};
  DSP_IMAGE &im = side->image;
  im = DSP_IMAGE{};
  const FormatFacts f = format_facts(format);
  im.ePixelFormat = format;
  im.ulWidth = r.range(0, max_dim);
  im.ulHeight = r.range(0, max_dim);
  if (!f.full_chroma && r.u8() < 230) im.ulWidth &= ~1u;
  const uint32_t bytes = f.bytes ? f.bytes : 2;
  const uint32_t slack = r.u8() < 128 ? 0 : r.range(0, 64);
  im.ulPrimaryStrideBytes = im.ulWidth * bytes + slack;
  if (r.u8() < 8) im.ulPrimaryStrideBytes = r.range(0, im.ulWidth * bytes + 64);  // short strides
  im.ulSecondaryStrideBytes = f.two_plane ? im.ulWidth * f.plane_bytes + r.range(0, 32) : r.range(0, 16);
  im.Buffer.eBufferType = r.pick(kTypes);
  im.eInterlace = r.pick(kInterlace);
  im.eImageOrientation = r.pick(kOrientation);
  im.eColorSpace = r.range(0, 3);
  im.ulFlags = r.u32();

  DSP_REGION &reg = im.Buffer.Region;
  const uint8_t shape = r.u8() % 4;
  if (shape == 0) {  // the whole image
    reg = DSP_REGION{{0, 0}, im.ulWidth, im.ulHeight};
  } else {
    const int32_t x = static_cast<int32_t>(r.range(0, im.ulWidth));
    const int32_t y = static_cast<int32_t>(r.range(0, im.ulHeight));
    reg.ptOffset.x = jitter(r, x, 8);
    reg.ptOffset.y = jitter(r, y, 8);
    reg.ulWidth = static_cast<uint32_t>(std::max(0, jitter(r, static_cast<int32_t>(r.range(0, im.ulWidth - std::min<uint32_t>(x, im.ulWidth))), 8)));
    reg.ulHeight = static_cast<uint32_t>(std::max(0, jitter(r, static_cast<int32_t>(r.range(0, im.ulHeight - std::min<uint32_t>(y, im.ulHeight))), 8)));
  }
  if (!f.full_chroma && r.u8() < 230) {
    reg.ulWidth &= ~1u;
    reg.ptOffset.x &= ~1;
  }
  side->bytes = image_bytes(im);
  im.Buffer.ulBytes = static_cast<uint32_t>(side->bytes);
}

void allow_line_operation(const DSP_BUFFER &b, OutputImage *out) {
  const DSP_IMAGE &in = b.In;
  const DSP_IMAGE &o = b.Out;
  const uint32_t it = in.Buffer.eBufferType;
  const uint32_t ot = o.Buffer.eBufferType;
  if (it > 2 || ot > 2) return;
  const bool in_frame = it == DSP_BUFFER_TYPE_FRAME;
  const bool out_frame = ot == DSP_BUFFER_TYPE_FRAME;
  const uint32_t in_il = in.eInterlace;
  const uint32_t out_il = o.eInterlace;
  const bool shift = ((b.ulFlags ^ (b.ulFlags >> 1)) & 1u) != 0;
  const bool only_a = (b.ulFlags & DSP_BUFFER_PROCESS_FIELDA) && !(b.ulFlags & DSP_BUFFER_PROCESS_FIELDB);
  const bool only_b = (b.ulFlags & DSP_BUFFER_PROCESS_FIELDB) && !(b.ulFlags & DSP_BUFFER_PROCESS_FIELDA);

  // Which region lines j (picture order) the line map writes: -1 all, 0 / 1 that parity.
  int parity = -1;
  if (!in_frame && out_frame) {
    if (out_il > 3) return;
    if (out_il < 3) parity = static_cast<int>((it + (shift ? 1 : 0)) & 1);
  } else if (in_frame && out_frame) {
    if (in_il > 3 || out_il > 3) return;
    if (in_il < 2 && out_il < 3 && (only_a || only_b)) parity = only_b ? 1 : 0;
  }

  // Bands: lines [(n - 1) h, n h) of the output region, the last band taking the odd line(s).
  const bool apart = (in_frame && out_frame && in_il < 2) || (in_frame && ot == 0 && out_il < 2) ||
                     (in_frame && ot == 1 && in_il < 2);
  const int64_t count = b.ulSliceCount ? b.ulSliceCount : 1;
  const int64_t number = b.ulSliceNumber ? b.ulSliceNumber : 1;
  const bool bands_known = !(out_frame && out_il == 3);
  const int64_t H = o.ulHeight;
  const int64_t y0 = o.Buffer.Region.ptOffset.y;
  const int64_t region_h = o.Buffer.Region.ulHeight;
  int64_t clipped_h = std::min<int64_t>(y0 + region_h, H) - std::max<int64_t>(y0, 0);
  if (clipped_h < 0) clipped_h = 0;
  // A region reaching past the image is first cut to the image: lines, parities and bands count
  // from the first line that exists, over the lines that exist.
  const int64_t clip_shift = std::max<int64_t>(y0, 0) - y0;
  auto band_has = [&](int64_t k) {
    if (!bands_known || count == 1) return true;
    int64_t h = clipped_h / count;
    if (apart) h &= ~int64_t{1};
    const int64_t lo = (number - 1) * h;
    int64_t hi = number * h;
    if (number == count && (clipped_h & 1)) hi += apart ? 2 : 1;
    return k >= lo && k < hi;
  };

  const FormatFacts f = format_facts(o.ePixelFormat);
  int64_t x = o.Buffer.Region.ptOffset.x;
  const int64_t x_end = x + int64_t{o.Buffer.Region.ulWidth};
  if (!f.full_chroma) x &= ~int64_t{1};
  x = std::max<int64_t>(x, 0);
  const bool bottom_up = o.eImageOrientation == DSP_ORIENTATION_BOTTOM_UP;
  const int64_t s1 = o.ulPrimaryStrideBytes;
  const int64_t s2 = o.ulSecondaryStrideBytes;
  for (int64_t j = 0; j < region_h; ++j) {
    const int64_t k = j - clip_shift;
    if (parity >= 0 && (k & 1) != parity) continue;
    if (!band_has(k)) continue;
    const int64_t p = y0 + j;
    if (p < 0 || p >= H) continue;
    const int64_t m = bottom_up ? H - 1 - p : p;
    const int64_t lo = x * f.bytes;
    const int64_t hi = std::min<int64_t>(x_end * f.bytes, s1);
    if (hi > lo) out->allow(m * s1 + lo, hi - lo);
    if (f.two_plane) {
      const int64_t plo = x * f.plane_bytes;
      const int64_t phi = std::min<int64_t>(x_end * f.plane_bytes, s2);
      if (phi > plo) out->allow(H * s1 + m * s2 + plo, phi - plo);
    }
  }
}

DSP_HANDLE live_converter(uint32_t mode, uint32_t levels) {
  static DSP_HANDLE handles[4][6] = {};
  DSP_HANDLE &h = handles[mode][levels];
  if (!h) {
    DSP_FRAME_RATE_CONVERTER_PARAMS p{};
    p.ulBaseCount = 1;
    p.lWidth = p.lHeight = 64;  // room for the default motion search range
    p.eConvertMode = mode;
    p.ulLevels = levels;
    require(DspCreateFrameRateConverter(&p, &h) == DSP_S_OK, "DspCreateFrameRateConverter");
  }
  return h;
}

uint32_t low32_of_trunc(double v) {
  if (!(v == v) || v >= 9223372036854775808.0 || v < -9223372036854775808.0) return 0;
  return static_cast<uint32_t>(static_cast<uint64_t>(static_cast<int64_t>(v)));
}

void fill_from(Reader &r, uint8_t *p, size_t n) {
  uint32_t x = r.u32() | 1u;
  const uint8_t mode = r.u8() % 4;
  for (size_t i = 0; i < n; ++i) {
    const uint8_t v = xorshift(x);
    p[i] = mode == 0 ? 0 : mode == 1 ? 255 : v;
  }
}

}  // namespace fuzz
