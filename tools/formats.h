// Pixel-format names of the command-line tool.  Names follow the byte order in memory, as ffmpeg
// names its packed formats; the two-plane formats append "+key" for the 8-bit key plane that
// follows the picture.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace framedsp {
namespace cli {

// Primary name of a format, or nullptr when the tool has no name for it (it can still be given
// by number).
const char *format_name(uint32_t code);

// "uyvy422 (21)" or "format 22".
std::string format_label(uint32_t code);

// Accepts a name (case-insensitive, aliases included) or a decimal code known to the library's
// table.  On failure returns false and puts a message with suggestions into *error.
bool parse_format(const std::string &text, uint32_t *code, std::string *error);

// Name of the channel in result slot 0..3 of a comparison, or nullptr when the format has none.
const char *channel_name(uint32_t code, int slot);

// The whole table, as printed by `framedsp formats`.
void print_formats(FILE *out);

// Levenshtein distance (insertions, deletions, substitutions).
size_t edit_distance(const std::string &a, const std::string &b);

// Comma-separated "name (code)" list of the formats DspCompare accepts.
std::string compare_format_list();

}  // namespace cli
}  // namespace framedsp
