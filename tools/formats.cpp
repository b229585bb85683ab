#include "formats.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace framedsp {
namespace cli {

namespace {

constexpr bool kEven = true, kAny = false, kYes = true, kNo = false;

constexpr FormatInfo one(uint32_t code, const char *name, uint8_t bytes, bool even, bool copy,
                         bool compare, const char *layout, const char *c0 = nullptr,
                         const char *c1 = nullptr, const char *c2 = nullptr,
                         const char *c3 = nullptr) {
  return FormatInfo{code, name, bytes, even, 0, 0, copy, compare, layout, {c0, c1, c2, c3}};
}

// Two planes: not addressable per pixel as a whole; DspCompare reports the key plane in slot 3.
constexpr FormatInfo two(uint32_t code, const char *name, bool even, uint32_t main, uint32_t plane,
                         bool copy, bool compare, const char *layout, const char *c0 = nullptr,
                         const char *c1 = nullptr, const char *c2 = nullptr) {
  return FormatInfo{code,   name, 0, even, main, plane, copy, compare,
                    layout, {c0, c1, c2, compare ? "key" : nullptr}};
}

const char kRefused[] = "refused by every operation of this release";

// Ascending by code: every number the library knows.
constexpr FormatInfo kFormats[] = {
    one(0, "bgra", 4, kAny, kYes, kYes, "B G R A, 4 bytes a pixel (bytes c0 c1 c2 c3)", "B", "G",
        "R", "A"),
    one(1, "bgr24", 3, kAny, kYes, kYes, "B G R, 3 bytes a pixel (bytes c0 c1 c2)", "B", "G", "R"),
    one(2, nullptr, 2, kEven, kNo, kNo, kRefused),
    one(3, nullptr, 2, kEven, kNo, kNo, kRefused),
    one(4, nullptr, 2, kEven, kNo, kNo, kRefused),
    two(5, "bgr24+key", kAny, 1, 261, kYes, kYes, "bgr24 picture, then a gray key plane", "B", "G", "R"),
    one(16, nullptr, 2, kEven, kNo, kNo, kRefused),
    one(17, nullptr, 4, kEven, kNo, kNo, kRefused),
    one(18, nullptr, 1, kEven, kNo, kNo, kRefused),
    one(21, "uyvy422", 2, kEven, kYes, kYes, "U Y V Y: two pixels in 4 bytes, 8-bit 4:2:2", "Y",
        "U", "V"),
    one(22, nullptr, 4, kEven, kYes, kNo, "4:2:2, 16-bit samples"),
    one(23, nullptr, 6, kEven, kYes, kNo, "16-bit samples, 6 bytes a pixel"),
    one(24, nullptr, 2, kEven, kYes, kNo, "4:2:2 variant"),
    one(25, "yuyv422", 2, kEven, kYes, kYes, "Y U Y V: two pixels in 4 bytes, 8-bit 4:2:2", "Y",
        "U", "V"),
    two(27, nullptr, kAny, 23, 262, kNo, kNo, kRefused),
    two(28, "uyvy422+key", kEven, 21, 261, kYes, kYes, "uyvy422 picture, then a gray key plane", "Y",
        "U", "V"),
    two(29, nullptr, kEven, 22, 262, kNo, kNo, kRefused),
    two(30, "yuyv422+key", kEven, 25, 261, kYes, kYes, "yuyv422 picture, then a gray key plane", "Y",
        "U", "V"),
    one(31, nullptr, 0, kEven, kYes, kNo, "packed, not addressable per pixel"),
    one(64, nullptr, 2, kEven, kNo, kNo, kRefused),
    one(128, nullptr, 8, kEven, kNo, kNo, kRefused),
    one(129, nullptr, 8, kEven, kYes, kNo, "16-bit samples, 8 bytes a pixel"),
    one(132, nullptr, 4, kEven, kNo, kNo, kRefused),
    one(258, nullptr, 4, kEven, kNo, kNo, kRefused),
    one(259, nullptr, 2, kEven, kNo, kNo, kRefused),
    one(260, nullptr, 2, kEven, kNo, kNo, kRefused),
    one(261, "gray", 1, kEven, kYes, kYes, "one 8-bit key (alpha) sample a pixel", nullptr,
        nullptr, nullptr, "key"),
    one(262, nullptr, 0, kEven, kYes, kNo, "16-bit key samples"),
    one(263, nullptr, 1, kEven, kNo, kNo, "8-bit plane of the scaler and the mip maps"),
    one(512, nullptr, 1, kEven, kNo, kNo, kRefused),
    one(513, nullptr, 2, kEven, kNo, kNo, kRefused),
};

constexpr FormatInfo kUnknown = {0, nullptr, 0, kEven, 0, 0, kNo, kNo, nullptr, {}};

struct Alias {
  const char *name;
  uint32_t code;
};

const Alias kAliases[] = {
    {"uyvy", 21}, {"yuyv", 25}, {"yuy2", 25}, {"key", 261}, {"gray8", 261},
};

std::string lower(std::string s) {
  for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string name_or_code(uint32_t code) {
  const char *name = format_info(code).name;
  return name ? std::string(name) : std::to_string(code);
}

// The nearest names; a distance up to a third of the word (at least 2) counts as near.
std::string suggestion(const std::string &key) {
  std::vector<std::string> candidates;
  for (const FormatInfo &f : kFormats) {
    if (f.name) candidates.push_back(f.name);
  }
  for (const Alias &a : kAliases) candidates.push_back(a.name);
  size_t best = SIZE_MAX;
  for (const std::string &c : candidates) best = std::min(best, edit_distance(key, c));
  std::vector<std::string> near;
  if (best <= std::max<size_t>(2, key.size() / 3)) {
    for (const std::string &c : candidates) {
      if (edit_distance(key, c) == best) near.push_back(c);
    }
  }
  if (near.empty()) {
    std::string list = "; known names:";
    for (const FormatInfo &f : kFormats) {
      if (f.name) list += std::string(" ") + f.name;
    }
    return list;
  }
  std::string text = "; did you mean ";
  for (size_t i = 0; i < near.size(); ++i) {
    if (i) text += i + 1 == near.size() ? " or " : ", ";
    text += "'" + near[i] + "'";
  }
  return text + "?";
}

}  // namespace

const FormatInfo &format_info(uint32_t code) {
  for (const FormatInfo &f : kFormats) {
    if (f.code == code) return f;
  }
  return kUnknown;
}

std::string format_label(uint32_t code) {
  const char *name = format_info(code).name;
  if (!name) return "format " + std::to_string(code);
  return std::string(name) + " (" + std::to_string(code) + ")";
}

size_t edit_distance(const std::string &a, const std::string &b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

bool parse_format(const std::string &text, uint32_t *code, std::string *error) {
  const std::string key = lower(text);
  const char *table = " (run 'framedsp formats' for the table)";
  if (key.empty()) {
    *error = "empty pixel format";
    return false;
  }
  if (std::all_of(key.begin(), key.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    if (key.size() <= 9 && format_info(static_cast<uint32_t>(std::stoul(key))).known()) {
      *code = static_cast<uint32_t>(std::stoul(key));
      return true;
    }
    *error = "unknown pixel format code " + text + table;
    return false;
  }
  for (const FormatInfo &f : kFormats) {
    if (f.name && key == f.name) return *code = f.code, true;
  }
  for (const Alias &a : kAliases) {
    if (key == a.name) return *code = a.code, true;
  }
  *error = "unknown pixel format '" + text + "'" + suggestion(key) + table;
  return false;
}

std::string compare_format_list() {
  std::string list;
  for (const FormatInfo &f : kFormats) {
    if (!f.compare) continue;
    if (!list.empty()) list += ", ";
    list += format_label(f.code);
  }
  return list;
}

void print_formats(FILE *out) {
  std::fprintf(out, "%4s  %-12s %5s %5s  %-20s %4s %7s  %s\n", "code", "name", "bytes", "even",
               "planes", "copy", "compare", "layout");
  for (const FormatInfo &f : kFormats) {
    const std::string bytes = f.bytes ? std::to_string(f.bytes) : "-";
    const std::string planes =
        f.two_plane() ? "2: " + name_or_code(f.main) + " + " + name_or_code(f.plane) : "1";
    std::fprintf(out, "%4u  %-12s %5s %5s  %-20s %4s %7s  %s\n", f.code, f.name ? f.name : "-",
                 bytes.c_str(), f.even ? "yes" : "no", planes.c_str(),
                 f.copy_filter ? "yes" : "no", f.compare ? "yes" : "no", f.layout);
  }
  std::fprintf(out,
               "\n"
               "bytes: bytes per pixel of the main picture (- = not addressable per pixel).\n"
               "even:  width must be even (horizontally subsampled chroma).\n"
               "copy:  accepted by copy and filter; compare: accepted by compare.  scale hands\n"
               "       any format with a byte count to the library, which refuses what it cannot.\n"
               "Names spell the bytes in memory order, as ffmpeg does.  A \"+key\" name is a\n"
               "two-plane format: the picture (stride --stride) followed in the same frame by\n"
               "a gray key plane of one byte a pixel (stride --key-stride, default the width).\n"
               "Formats without a name are given by code; every command takes either.\n"
               "Aliases: uyvy = uyvy422, yuyv and yuy2 = yuyv422, key and gray8 = gray.\n"
               "Comparison channels: Y U V for 4:2:2, B G R (A) for bgr24 and bgra (the library\n"
               "calls them c0 c1 c2 c3), key for gray and the key plane.\n");
}

}  // namespace cli
}  // namespace framedsp
