// The demo's contact sheet: one RGB image with a labelled thumbnail per operation, labels drawn
// with a built-in 5x7 bitmap font (digits, capital letters and common punctuation; small
// letters are drawn as capitals).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "png_writer.h"

namespace framedsp {
namespace cli {

struct SheetTile {
  Picture picture;                 // gray or RGB, any size
  std::vector<std::string> lines;  // up to kSheetLabelLines label lines, cut to fit
};

constexpr uint32_t kSheetThumbWidth = 320;   // thumbnail box of a tile
constexpr uint32_t kSheetThumbHeight = 180;
constexpr uint32_t kSheetLabelLines = 3;
constexpr uint32_t kSheetColumns = 4;

// Tiles in rows of kSheetColumns under a title line.  Each picture is shrunk (or enlarged) to
// fit the thumbnail box keeping its shape, nearest sample, centred on a dark background.
Picture contact_sheet(const std::string &title, const std::vector<SheetTile> &tiles);

// Draws text at (x, y) (top-left of the first glyph) in the given colour; `scale` repeats every
// font pixel scale x scale times.  Glyphs advance 6 * scale pixels.  Returns the x after the text.
uint32_t draw_text(Picture *rgb, uint32_t x, uint32_t y, const std::string &text,
                   const uint8_t colour[3], uint32_t scale);

// The 7 rows of a glyph, bit 4 the leftmost of 5 columns; '?' for characters without a glyph.
const uint8_t *glyph_rows(char c);

}  // namespace cli
}  // namespace framedsp
