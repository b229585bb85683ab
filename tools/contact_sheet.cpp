#include "contact_sheet.h"

#include <algorithm>
#include <cctype>

namespace framedsp {
namespace cli {

namespace {

struct Glyph {
  char c;
  uint8_t rows[7];
};

const Glyph kFont[] = {
    {' ', {0, 0, 0, 0, 0, 0, 0}},
    {'0', {0x0E, 0x11, 0x13, 0x15, 0x19, 0x11, 0x0E}},
    {'1', {0x04, 0x0C, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'2', {0x0E, 0x11, 0x01, 0x02, 0x04, 0x08, 0x1F}},
    {'3', {0x1F, 0x02, 0x04, 0x02, 0x01, 0x11, 0x0E}},
    {'4', {0x02, 0x06, 0x0A, 0x12, 0x1F, 0x02, 0x02}},
    {'5', {0x1F, 0x10, 0x1E, 0x01, 0x01, 0x11, 0x0E}},
    {'6', {0x06, 0x08, 0x10, 0x1E, 0x11, 0x11, 0x0E}},
    {'7', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x08, 0x08}},
    {'8', {0x0E, 0x11, 0x11, 0x0E, 0x11, 0x11, 0x0E}},
    {'9', {0x0E, 0x11, 0x11, 0x0F, 0x01, 0x02, 0x0C}},
    {'A', {0x0E, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'B', {0x1E, 0x11, 0x11, 0x1E, 0x11, 0x11, 0x1E}},
    {'C', {0x0E, 0x11, 0x10, 0x10, 0x10, 0x11, 0x0E}},
    {'D', {0x1C, 0x12, 0x11, 0x11, 0x11, 0x12, 0x1C}},
    {'E', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x1F}},
    {'F', {0x1F, 0x10, 0x10, 0x1E, 0x10, 0x10, 0x10}},
    {'G', {0x0E, 0x11, 0x10, 0x17, 0x11, 0x11, 0x0F}},
    {'H', {0x11, 0x11, 0x11, 0x1F, 0x11, 0x11, 0x11}},
    {'I', {0x0E, 0x04, 0x04, 0x04, 0x04, 0x04, 0x0E}},
    {'J', {0x07, 0x02, 0x02, 0x02, 0x02, 0x12, 0x0C}},
    {'K', {0x11, 0x12, 0x14, 0x18, 0x14, 0x12, 0x11}},
    {'L', {0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x1F}},
    {'M', {0x11, 0x1B, 0x15, 0x15, 0x11, 0x11, 0x11}},
    {'N', {0x11, 0x11, 0x19, 0x15, 0x13, 0x11, 0x11}},
    {'O', {0x0E, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}},
    {'P', {0x1E, 0x11, 0x11, 0x1E, 0x10, 0x10, 0x10}},
    {'Q', {0x0E, 0x11, 0x11, 0x11, 0x15, 0x12, 0x0D}},
    {'R', {0x1E, 0x11, 0x11, 0x1E, 0x14, 0x12, 0x11}},
    {'S', {0x0F, 0x10, 0x10, 0x0E, 0x01, 0x01, 0x1E}},
    {'T', {0x1F, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04}},
    {'U', {0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x0E}},
    {'V', {0x11, 0x11, 0x11, 0x11, 0x11, 0x0A, 0x04}},
    {'W', {0x11, 0x11, 0x11, 0x15, 0x15, 0x15, 0x0A}},
    {'X', {0x11, 0x11, 0x0A, 0x04, 0x0A, 0x11, 0x11}},
    {'Y', {0x11, 0x11, 0x11, 0x0A, 0x04, 0x04, 0x04}},
    {'Z', {0x1F, 0x01, 0x02, 0x04, 0x08, 0x10, 0x1F}},
    {'.', {0, 0, 0, 0, 0, 0x0C, 0x0C}},
    {',', {0, 0, 0, 0, 0x0C, 0x04, 0x08}},
    {':', {0, 0x0C, 0x0C, 0, 0x0C, 0x0C, 0}},
    {';', {0, 0x0C, 0x0C, 0, 0x0C, 0x04, 0x08}},
    {'-', {0, 0, 0, 0x1F, 0, 0, 0}},
    {'+', {0, 0x04, 0x04, 0x1F, 0x04, 0x04, 0}},
    {'/', {0, 0x01, 0x02, 0x04, 0x08, 0x10, 0}},
    {'%', {0x18, 0x19, 0x02, 0x04, 0x08, 0x13, 0x03}},
    {'(', {0x02, 0x04, 0x08, 0x08, 0x08, 0x04, 0x02}},
    {')', {0x08, 0x04, 0x02, 0x02, 0x02, 0x04, 0x08}},
    {'=', {0, 0, 0x1F, 0, 0x1F, 0, 0}},
    {'>', {0x08, 0x04, 0x02, 0x01, 0x02, 0x04, 0x08}},
    {'<', {0x02, 0x04, 0x08, 0x10, 0x08, 0x04, 0x02}},
    {'_', {0, 0, 0, 0, 0, 0, 0x1F}},
    {'*', {0, 0x04, 0x15, 0x0E, 0x15, 0x04, 0}},
    {'\'', {0x04, 0x04, 0x08, 0, 0, 0, 0}},
    {'?', {0x0E, 0x11, 0x01, 0x02, 0x04, 0, 0x04}},
};

const uint8_t kBackground[3] = {24, 24, 28};
const uint8_t kTileBackground[3] = {40, 40, 46};
const uint8_t kLabel[3] = {230, 230, 230};
const uint8_t kTitle[3] = {255, 214, 90};

constexpr uint32_t kGap = 8;               // between tiles and around the sheet
constexpr uint32_t kLineHeight = 10;       // one label line (7 font rows and 3 of spacing)
constexpr uint32_t kTitleScale = 2;

void fill(Picture *p, uint32_t x0, uint32_t y0, uint32_t w, uint32_t h, const uint8_t colour[3]) {
  for (uint32_t y = y0; y < y0 + h && y < p->height; ++y) {
    for (uint32_t x = x0; x < x0 + w && x < p->width; ++x) {
      std::copy(colour, colour + 3, &p->pixels[(static_cast<size_t>(y) * p->width + x) * 3]);
    }
  }
}

// Nearest-sample fit of `src` into the w x h box at (x0, y0), keeping its shape.
void place_thumbnail(Picture *sheet, const Picture &src, uint32_t x0, uint32_t y0, uint32_t w,
                     uint32_t h) {
  if (src.width == 0 || src.height == 0) return;
  // Largest tw x th inside the box with tw / th as close to the source's shape as integers allow.
  uint32_t tw = w, th = static_cast<uint32_t>(uint64_t(w) * src.height / src.width);
  if (th > h) {
    th = h;
    tw = static_cast<uint32_t>(uint64_t(h) * src.width / src.height);
  }
  tw = std::max(tw, 1u);
  th = std::max(th, 1u);
  const uint32_t left = x0 + (w - tw) / 2, top = y0 + (h - th) / 2;
  for (uint32_t y = 0; y < th; ++y) {
    const uint32_t sy = static_cast<uint32_t>((uint64_t(y) * 2 + 1) * src.height / (uint64_t(th) * 2));
    for (uint32_t x = 0; x < tw; ++x) {
      const uint32_t sx = static_cast<uint32_t>((uint64_t(x) * 2 + 1) * src.width / (uint64_t(tw) * 2));
      const uint8_t *s = &src.pixels[(static_cast<size_t>(sy) * src.width + sx) * src.channels];
      uint8_t *d = &sheet->pixels[(static_cast<size_t>(top + y) * sheet->width + left + x) * 3];
      for (int c = 0; c < 3; ++c) d[c] = src.channels >= 3 ? s[c] : s[0];
    }
  }
}

}  // namespace

const uint8_t *glyph_rows(char c) {
  const char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  for (const Glyph &g : kFont) {
    if (g.c == upper) return g.rows;
  }
  return glyph_rows('?');
}

uint32_t draw_text(Picture *rgb, uint32_t x, uint32_t y, const std::string &text,
                   const uint8_t colour[3], uint32_t scale) {
  for (char c : text) {
    const uint8_t *rows = glyph_rows(c);
    for (uint32_t r = 0; r < 7; ++r) {
      for (uint32_t col = 0; col < 5; ++col) {
        if (rows[r] & (0x10 >> col)) fill(rgb, x + col * scale, y + r * scale, scale, scale, colour);
      }
    }
    x += 6 * scale;
  }
  return x;
}

Picture contact_sheet(const std::string &title, const std::vector<SheetTile> &tiles) {
  const uint32_t columns = std::max<uint32_t>(1, std::min<uint32_t>(kSheetColumns, static_cast<uint32_t>(tiles.size())));
  const uint32_t rows = static_cast<uint32_t>((tiles.size() + columns - 1) / columns);
  const uint32_t tile_w = kSheetThumbWidth;
  const uint32_t tile_h = kSheetThumbHeight + 4 + kSheetLabelLines * kLineHeight;
  const uint32_t title_h = 7 * kTitleScale + kGap;
  Picture sheet;
  sheet.channels = 3;
  sheet.width = kGap + columns * (tile_w + kGap);
  sheet.height = kGap + title_h + rows * (tile_h + kGap);
  sheet.pixels.resize(static_cast<size_t>(sheet.width) * sheet.height * 3);
  fill(&sheet, 0, 0, sheet.width, sheet.height, kBackground);
  const uint32_t max_title = (sheet.width - 2 * kGap) / (6 * kTitleScale);
  draw_text(&sheet, kGap, kGap, title.substr(0, max_title), kTitle, kTitleScale);
  const uint32_t max_chars = tile_w / 6;
  for (size_t i = 0; i < tiles.size(); ++i) {
    const uint32_t x0 = kGap + static_cast<uint32_t>(i % columns) * (tile_w + kGap);
    const uint32_t y0 = kGap + title_h + static_cast<uint32_t>(i / columns) * (tile_h + kGap);
    fill(&sheet, x0, y0, tile_w, tile_h, kTileBackground);
    place_thumbnail(&sheet, tiles[i].picture, x0, y0, kSheetThumbWidth, kSheetThumbHeight);
    for (size_t l = 0; l < tiles[i].lines.size() && l < kSheetLabelLines; ++l) {
      draw_text(&sheet, x0 + 1, y0 + kSheetThumbHeight + 4 + static_cast<uint32_t>(l) * kLineHeight,
                tiles[i].lines[l].substr(0, max_chars), kLabel, 1);
    }
  }
  return sheet;
}

}  // namespace cli
}  // namespace framedsp
