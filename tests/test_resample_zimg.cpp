// The resampling engine against zimg on photographs: the same kernel and the same fractional
// active region give grey planes within 2 of each other.  Skipped (with a message) without zimg
// or without the photographs (FRAMEDSP_PHOTO_DIR, else scikit-image's data folder).
//
// "The same kernel" is taken literally.  The engine evaluates its kernels at phases rounded to
// 1/64 pixel and keeps 8-bit work lines between its horizontal and vertical pass; zimg takes
// every phase as it comes and keeps more than 8 bits between its passes.  So the regions here are
// fractional (offsets and scale factors with fractions) with every sample position on the
// 1/64 grid, and zimg runs the same two passes, horizontal then vertical, with an 8-bit plane
// between them.  Off the grid, with zimg's one-graph resize, the difference reaches 3 on a few
// pixels (3 of 7.1 million on these photographs): phase rounding (at most 1/128 pixel, up to
// about 1.3 levels on the steepest edges) and Lanczos overshoot past 255 clipped in a work line.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#if defined(FRAMEDSP_TEST_ZIMG)
#include <png.h>

#include <cmath>

#include "platform/cpu.h"
#include "resample_util.h"
#include "zimg_resize.h"
#endif

namespace {

#if defined(FRAMEDSP_TEST_ZIMG)

bool load_grey(const std::string &path, unsigned *w, unsigned *h, std::vector<uint8_t> *pixels) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
  image.format = PNG_FORMAT_GRAY;
  pixels->resize(PNG_IMAGE_SIZE(image));
  if (!png_image_finish_read(&image, nullptr, pixels->data(), 0, nullptr)) return false;
  *w = image.width;
  *h = image.height;
  return true;
}

// Q32 positions of the centre convention over a fractional source region [x, x + w).
std::vector<int64_t> region_positions(unsigned dst, double x, double w) {
  std::vector<int64_t> p(dst);
  for (unsigned j = 0; j < dst; ++j) p[j] = std::llround(std::ldexp(x + (j + 0.5) * w / dst - 0.5, 32));
  return p;
}

// The region nearest [x, x + w) whose dst positions x + (j + 1/2) w / dst - 1/2 all lie on the
// 1/64 grid: step q / 64, first position on the grid.
void on_grid(unsigned dst, double *x, double *w) {
  const double q = std::round(64.0 * *w / dst);
  const double first = std::round((*x + 0.5 * *w / dst - 0.5) * 64.0) / 64.0;
  *x = first - q / 128.0 + 0.5;
  *w = dst * q / 64.0;
}

TEST(ResampleOracle, MatchesZimgOnPhotographs) {
  const char *dir = std::getenv("FRAMEDSP_PHOTO_DIR");
  const std::string folder = dir ? dir : "/usr/lib/python3/dist-packages/skimage/data";
  int photos = 0;
  for (const char *name : {"camera.png", "astronaut.png", "coffee.png"}) {
    unsigned w = 0, h = 0;
    std::vector<uint8_t> grey;
    if (!load_grey(folder + "/" + name, &w, &h, &grey)) continue;
    ++photos;
    // Studio-range luma, as video holds it: the kernels' overshoot stays inside 0..255.
    for (auto &v : grey) v = uint8_t(16 + (v * 219 + 127) / 255);
    zimg_peer::AlignedPlane src(w, h);
    for (unsigned y = 0; y < h; ++y) std::memcpy(src.data + y * size_t(src.stride), grey.data() + y * size_t(w), w);
    struct Case {
      unsigned dw, dh;
      double x, y, rw, rh;
    } cases[] = {{733, 611, 10.25, 7.5, w - 40.5, h - 30.25}, {301, 277, 3.75, 21.125, w - 9.0, h - 60.5},
                 {w, h, 0.375, 0.8125, double(w), double(h)}};
    for (Case c : cases) {
      on_grid(c.dw, &c.x, &c.rw);
      on_grid(c.dh, &c.y, &c.rh);
      for (int filter = 0; filter < 3; ++filter) {
        zimg_peer::Resize across(w, h, c.dw, h, filter, 0, 0.5, c.x, 0, c.rw, h);
        zimg_peer::Resize down(c.dw, h, c.dw, c.dh, filter, 0, 0.5, 0, c.y, c.dw, c.rh);
        ASSERT_TRUE(across.ok() && down.ok());
        zimg_peer::AlignedPlane lines(c.dw, h), want(c.dw, c.dh);
        ASSERT_TRUE(across.run(src, lines) && down.run(lines, want));
        resample_test::Job job(6, uint32_t(filter + 1), int32_t(w), int32_t(h), int32_t(c.dw), int32_t(c.dh));
        job.cols = region_positions(c.dw, c.x, c.rw);
        job.rows = region_positions(c.dh, c.y, c.rh);
        job.s.cols.widen_q16 = c.rw > c.dw ? uint32_t(std::llround(65536.0 * c.rw / c.dw)) : 65536u;
        job.s.rows.widen_q16 = c.rh > c.dh ? uint32_t(std::llround(65536.0 * c.rh / c.dh)) : 65536u;
        resample_test::Picture in(6, int32_t(w), int32_t(h)), out(6, int32_t(c.dw), int32_t(c.dh));
        in.bytes = grey;
        job.s.edge = framedsp::kResampleMirror;  // zimg's rule at the picture's edges
        ASSERT_EQ(job.run(in, out, framedsp::cpu_flags()), 0);
        int worst = 0;
        for (unsigned y = 0; y < c.dh; ++y) {
          for (unsigned x = 0; x < c.dw; ++x) {
            const int d = std::abs(int(out.row(int32_t(y))[x]) - int(want.data[y * size_t(want.stride) + x]));
            worst = std::max(worst, d);
          }
        }
        EXPECT_LE(worst, 2) << name << " filter " << filter << " -> " << c.dw << "x" << c.dh;
      }
    }
  }
  if (photos == 0) GTEST_SKIP() << "no photographs in " << folder << " (set FRAMEDSP_PHOTO_DIR)";
}

#else

TEST(ResampleOracle, MatchesZimgOnPhotographs) { GTEST_SKIP() << "built without zimg (apt-get install libzimg-dev)"; }

#endif

}  // namespace
