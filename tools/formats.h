// The tool's pixel-format table: what the command-line tool needs to know about every format code
// the library takes (the table in framedsp.h: bytes a pixel, even widths, the two-plane split,
// which operations accept it) and the names the tool gives the formats.  Names follow the byte
// order in memory, as ffmpeg names its packed formats; the two-plane formats append "+key" for
// the 8-bit key plane that follows the picture.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace framedsp {
namespace cli {

struct FormatInfo {
  uint32_t code;
  const char *name;         // nullptr: given by number only
  uint8_t bytes;            // bytes a pixel of the main picture; 0 = not addressable per pixel
  bool even;                // widths must be even (horizontally subsampled chroma)
  uint32_t main, plane;     // two-plane formats: the picture's format and the plane's; else 0, 0
  bool copy_filter;         // accepted by DspBufferSmartCopy and DspFilter
  bool compare;             // accepted by DspCompare
  const char *layout;       // one line of `framedsp formats`; nullptr for unknown codes
  const char *channels[4];  // names of DspCompare's result slots 0..3; nullptr where none
  bool known() const { return layout != nullptr; }
  bool two_plane() const { return plane != 0; }
};

// The entry of a code; codes the library does not know get an entry that nothing accepts.
const FormatInfo &format_info(uint32_t code);

// "uyvy422 (21)" or "format 22".
std::string format_label(uint32_t code);

// Accepts a name (case-insensitive, aliases included) or a decimal code of the table.  On failure
// returns false and puts a message with suggestions into *error.
bool parse_format(const std::string &text, uint32_t *code, std::string *error);

// The whole table, as printed by `framedsp formats`.
void print_formats(FILE *out);

// Comma-separated "name (code)" list of the formats DspCompare accepts.
std::string compare_format_list();

// Levenshtein distance (insertions, deletions, substitutions).
size_t edit_distance(const std::string &a, const std::string &b);

}  // namespace cli
}  // namespace framedsp
