#include "formats.h"

#include <algorithm>
#include <cctype>

#include "lines/pixel_format.h"

namespace framedsp {
namespace cli {

namespace {

struct NamedFormat {
  uint32_t code;
  const char *name;
  const char *layout;
  const char *channels[4];  // result slots 0..3 of a comparison
};

const NamedFormat kNamed[] = {
    {0, "bgra", "B G R A, 4 bytes a pixel (bytes c0 c1 c2 c3)", {"B", "G", "R", "A"}},
    {1, "bgr24", "B G R, 3 bytes a pixel (bytes c0 c1 c2)", {"B", "G", "R", nullptr}},
    {5, "bgr24+key", "bgr24 picture, then a gray key plane", {"B", "G", "R", "key"}},
    {21, "uyvy422", "U Y V Y: two pixels in 4 bytes, 8-bit 4:2:2", {"Y", "U", "V", nullptr}},
    {25, "yuyv422", "Y U Y V: two pixels in 4 bytes, 8-bit 4:2:2", {"Y", "U", "V", nullptr}},
    {28, "uyvy422+key", "uyvy422 picture, then a gray key plane", {"Y", "U", "V", "key"}},
    {30, "yuyv422+key", "yuyv422 picture, then a gray key plane", {"Y", "U", "V", "key"}},
    {261, "gray", "one 8-bit key (alpha) sample a pixel", {nullptr, nullptr, nullptr, "key"}},
};

struct Alias {
  const char *name;
  uint32_t code;
};

const Alias kAliases[] = {
    {"uyvy", 21}, {"yuyv", 25}, {"yuy2", 25}, {"key", 261}, {"gray8", 261},
};

const NamedFormat *find_named(uint32_t code) {
  for (const NamedFormat &f : kNamed) {
    if (f.code == code) return &f;
  }
  return nullptr;
}

bool known_code(uint32_t code) {
  uint32_t count = 0;
  const uint32_t *codes = known_formats(&count);
  return std::find(codes, codes + count, code) != codes + count;
}

std::string lower(std::string s) {
  for (char &c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string plane_text(const PixelFormatInfo &info) {
  if (!info.two_plane) return "1";
  auto part = [](uint32_t code) {
    const char *name = format_name(code);
    return name ? std::string(name) : std::to_string(code);
  };
  return "2: " + part(info.main_format) + " + " + part(info.plane_format);
}

}  // namespace

const char *format_name(uint32_t code) {
  const NamedFormat *f = find_named(code);
  return f ? f->name : nullptr;
}

std::string format_label(uint32_t code) {
  const char *name = format_name(code);
  if (!name) return "format " + std::to_string(code);
  return std::string(name) + " (" + std::to_string(code) + ")";
}

const char *channel_name(uint32_t code, int slot) {
  const NamedFormat *f = find_named(code);
  if (!f || slot < 0 || slot > 3) return nullptr;
  return f->channels[slot];
}

size_t edit_distance(const std::string &a, const std::string &b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      size_t above = row[j];
      size_t substitute = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({above + 1, row[j - 1] + 1, substitute});
      diagonal = above;
    }
  }
  return row[b.size()];
}

bool parse_format(const std::string &text, uint32_t *code, std::string *error) {
  const std::string key = lower(text);
  if (key.empty()) {
    *error = "empty pixel format";
    return false;
  }
  if (std::all_of(key.begin(), key.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    if (key.size() <= 9) {
      uint32_t value = static_cast<uint32_t>(std::stoul(key));
      if (known_code(value)) {
        *code = value;
        return true;
      }
    }
    *error = "unknown pixel format code " + text + " (run 'framedsp formats' for the table)";
    return false;
  }
  for (const NamedFormat &f : kNamed) {
    if (key == f.name) {
      *code = f.code;
      return true;
    }
  }
  for (const Alias &a : kAliases) {
    if (key == a.name) {
      *code = a.code;
      return true;
    }
  }

  // Suggest the nearest names; a distance up to a third of the word (at least 2) counts as near.
  std::vector<std::string> candidates;
  for (const NamedFormat &f : kNamed) candidates.push_back(f.name);
  for (const Alias &a : kAliases) candidates.push_back(a.name);
  size_t best = SIZE_MAX;
  for (const std::string &c : candidates) best = std::min(best, edit_distance(key, c));
  std::vector<std::string> near;
  if (best <= std::max<size_t>(2, key.size() / 3)) {
    for (const std::string &c : candidates) {
      if (edit_distance(key, c) == best) near.push_back(c);
    }
  }
  std::string message = "unknown pixel format '" + text + "'";
  if (!near.empty()) {
    message += "; did you mean ";
    for (size_t i = 0; i < near.size(); ++i) {
      if (i) message += i + 1 == near.size() ? " or " : ", ";
      message += "'" + near[i] + "'";
    }
    message += "?";
  } else {
    message += "; known names:";
    for (const NamedFormat &f : kNamed) message += std::string(" ") + f.name;
  }
  message += " (run 'framedsp formats' for the table)";
  *error = message;
  return false;
}

std::string compare_format_list() {
  std::string list;
  for (const NamedFormat &f : kNamed) {
    if (!pixel_format_info(f.code).compare) continue;
    if (!list.empty()) list += ", ";
    list += format_label(f.code);
  }
  return list;
}

void print_formats(FILE *out) {
  uint32_t count = 0;
  const uint32_t *codes = known_formats(&count);
  std::fprintf(out, "%4s  %-12s %5s %5s  %-24s %5s %7s  %s\n", "code", "name", "bytes", "even",
               "planes", "class", "compare", "layout");
  for (uint32_t i = 0; i < count; ++i) {
    const PixelFormatInfo info = pixel_format_info(codes[i]);
    const NamedFormat *f = find_named(codes[i]);
    std::string bytes = info.bytes_per_pixel ? std::to_string(info.bytes_per_pixel) : "-";
    std::fprintf(out, "%4u  %-12s %5s %5s  %-24s %5u %7s  %s\n", codes[i], f ? f->name : "-",
                 bytes.c_str(), info.full_chroma ? "no" : "yes", plane_text(info).c_str(),
                 static_cast<unsigned>(info.format_class), info.compare ? "yes" : "no",
                 f ? f->layout : "");
  }
  std::fprintf(out,
               "\n"
               "bytes: bytes per pixel of the main picture (- = not addressable per pixel).\n"
               "even:  width must be even (horizontally subsampled chroma).\n"
               "Names spell the bytes in memory order, as ffmpeg does.  A \"+key\" name is a\n"
               "two-plane format: the picture (stride --stride) followed in the same frame by\n"
               "a gray key plane of one byte a pixel (stride --key-stride, default the width).\n"
               "Formats without a name are given by code; every operation of the tool takes\n"
               "either.  Aliases: uyvy = uyvy422, yuyv and yuy2 = yuyv422, key and gray8 = gray.\n"
               "Comparison channels: Y U V for 4:2:2, B G R (A) for bgr24 and bgra (the library\n"
               "calls them c0 c1 c2 c3), key for gray and the key plane.\n");
}

}  // namespace cli
}  // namespace framedsp
