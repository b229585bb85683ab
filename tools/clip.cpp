#include "clip.h"

#include <algorithm>
#include <cmath>

namespace framedsp {
namespace cli {

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Rgb {
  uint8_t r, g, b;
};

// 75% bars: white, yellow, cyan, green, magenta, red, blue.
const Rgb kBars[7] = {{191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0},
                      {191, 0, 191},   {191, 0, 0},   {0, 0, 191}};

uint8_t to_byte(double v) { return static_cast<uint8_t>(std::clamp(v, 0.0, 255.0) + 0.5); }

void put(std::vector<uint8_t> &rgb, uint32_t width, uint32_t x, uint32_t y, Rgb c) {
  uint8_t *p = rgb.data() + (size_t(y) * width + x) * 3;
  p[0] = c.r;
  p[1] = c.g;
  p[2] = c.b;
}

}  // namespace

void rgb_to_uyvy(const uint8_t *rgb, uint32_t width, uint32_t height, uint8_t *uyvy) {
  for (uint32_t y = 0; y < height; ++y) {
    const uint8_t *src = rgb + size_t(y) * width * 3;
    uint8_t *dst = uyvy + size_t(y) * width * 2;
    for (uint32_t x = 0; x + 1 < width; x += 2, src += 6, dst += 4) {
      double luma[2], cb = 0, cr = 0;
      for (int i = 0; i < 2; ++i) {
        const double r = src[3 * i] / 255.0, g = src[3 * i + 1] / 255.0, b = src[3 * i + 2] / 255.0;
        luma[i] = 16 + 65.481 * r + 128.553 * g + 24.966 * b;
        cb += -37.797 * r - 74.203 * g + 112.0 * b;
        cr += 112.0 * r - 93.786 * g - 18.214 * b;
      }
      dst[0] = to_byte(128 + cb / 2);
      dst[1] = to_byte(luma[0]);
      dst[2] = to_byte(128 + cr / 2);
      dst[3] = to_byte(luma[1]);
    }
  }
}

std::vector<uint8_t> render_clip_frame(uint32_t width, uint32_t height, uint32_t index,
                                       uint32_t count) {
  std::vector<uint8_t> rgb(size_t(width) * height * 3);
  const uint32_t bars_end = height / 3;
  for (uint32_t y = 0; y < bars_end; ++y) {
    for (uint32_t x = 0; x < width; ++x) put(rgb, width, x, y, kBars[size_t(x) * 7 / width]);
  }

  // Zone plate: the phase grows with r^2 so the frequency reaches Nyquist at the inscribed
  // circle; the corners alias on purpose.
  const uint32_t lower = height - bars_end;
  const uint32_t side = std::min(lower, width / 2);
  const double half = side / 2.0;
  const double cx = half, cy = bars_end + lower / 2.0;
  const double k = kPi / (2.0 * std::max(half, 1.0));
  const double shift = 0.8 * index;
  for (uint32_t y = bars_end; y < height; ++y) {
    for (uint32_t x = 0; x < side; ++x) {
      const double dx = x + 0.5 - cx, dy = y + 0.5 - cy;
      const bool inside = std::fabs(dy) <= half;
      const uint8_t v =
          inside ? to_byte(128 + 100 * std::cos(k * (dx * dx + dy * dy) + shift)) : 16;
      put(rgb, width, x, y, {v, v, v});
    }
  }

  // Ramp with moving shapes.
  const uint32_t left = side;
  const uint32_t area = width - left;
  const double step = area / (count + 1.0);
  const double disc_x = left + step * (index + 1), disc_y = bars_end + lower * 0.4;
  const double radius = std::max(2.0, lower / 6.0);
  const double box = std::max(2.0, lower / 5.0);
  const double box_x = left + area - step * (index + 1) - box / 2;
  const double box_y = bars_end + lower * 0.15 + (lower * 0.6) * index / std::max(1u, count);
  for (uint32_t y = bars_end; y < height; ++y) {
    for (uint32_t x = left; x < width; ++x) {
      const uint8_t g = to_byte(40 + 180.0 * (x - left) / std::max(1u, area - 1));
      Rgb c{g, g, g};
      const double dx = x + 0.5 - disc_x, dy = y + 0.5 - disc_y;
      if (dx * dx + dy * dy <= radius * radius) c = {230, 120, 30};
      if (x + 0.5 >= box_x && x + 0.5 < box_x + box && y + 0.5 >= box_y && y + 0.5 < box_y + box) {
        c = {40, 90, 220};
      }
      put(rgb, width, x, y, c);
    }
  }

  std::vector<uint8_t> uyvy(size_t(width) * height * 2);
  rgb_to_uyvy(rgb.data(), width, height, uyvy.data());
  return uyvy;
}

}  // namespace cli
}  // namespace framedsp
