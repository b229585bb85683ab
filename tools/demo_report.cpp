#include <algorithm>
#include <cstdio>
#include <fstream>

#include "demo.h"

namespace framedsp {
namespace cli {

namespace {

std::string figures_text(const Entry &e) {
  std::string s;
  char part[96];
  for (const Figure &f : e.figures) {
    std::snprintf(part, sizeof part, "%s%s MSE %.4f PSNR %.3f dB", s.empty() ? "" : "; ",
                  f.channel.c_str(), f.mse, f.psnr);
    s += part;
  }
  return s;
}

std::string html_escape(const std::string &text) {
  std::string s;
  for (char c : text) {
    switch (c) {
      case '&':
        s += "&amp;";
        break;
      case '<':
        s += "&lt;";
        break;
      case '>':
        s += "&gt;";
        break;
      case '"':
        s += "&quot;";
        break;
      default:
        s += c;
    }
  }
  return s;
}

const char *kNotes =
    "MSE per channel and PSNR = 20*log10(255/sqrt(MSE+0.00001)) dB as DspCompare reports them;\n"
    "4:2:2 chroma errors are divided by the full pixel count.  Difference images show every\n"
    "byte of the difference buffer as gray (128 = equal), a 4:2:2 line as 2*width samples.\n"
    "Times: the library call alone per image; step totals include rendering and PNG writing.\n";

}  // namespace

std::string header_text(const Demo &demo) {
  return std::string(kReportStart) + ": " + describe_layout(demo.layout) + ", " +
         std::to_string(demo.frames.size()) + " frames";
}

std::string frame_png(uint32_t index) { return "clip_" + std::to_string(index) + ".png"; }

bool write_text_report(const Demo &demo, const std::vector<StepReport> &steps, std::string *error) {
  const std::string path = (demo.dir / "report.txt").string();
  std::ofstream out(path);
  out << header_text(demo) << "\n" << kNotes << "\n";
  char line[160];
  for (size_t i = 0; i < steps.size(); ++i) {
    const StepReport &s = steps[i];
    std::snprintf(line, sizeof line, "[%zu] %s (%s, %.1f ms)\n", i + 1, s.title.c_str(),
                  s.status.c_str(), s.ms);
    out << line;
    for (const Entry &e : s.entries) {
      std::snprintf(line, sizeof line, "    %-22s %s", e.image.c_str(), e.caption.c_str());
      out << line;
      if (e.call_ms >= 0) {
        std::snprintf(line, sizeof line, " (%.2f ms)", e.call_ms);
        out << line;
      }
      out << "\n";
      if (!e.figures.empty()) out << "        " << figures_text(e) << "\n";
    }
  }
  out.close();
  if (!out) {
    *error = path + ": write failed";
    return false;
  }
  return true;
}

bool write_html_report(const Demo &demo, const std::vector<StepReport> &steps, std::string *error) {
  const std::string path = (demo.dir / "index.html").string();
  std::ofstream out(path);
  out << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>framedsp demo</title>\n"
      << "<style>body{font-family:sans-serif;margin:2em}figure{display:inline-block;"
         "margin:0 1em 1em 0;vertical-align:top}img{max-width:640px;border:1px solid #888}"
         "td,th{padding:0 .6em;text-align:right}.failed{color:#b00}</style></head><body>\n"
      << "<h1>" << html_escape(header_text(demo)) << "</h1>\n<pre>" << html_escape(kNotes)
      << "</pre>\n<h2>Contact sheet</h2>\n<p>One tile per operation: PSNR of the result "
         "against its source where it has one, time of the library call.</p>\n"
      << "<p><a href=\"contact_sheet.png\"><img src=\"contact_sheet.png\" "
         "alt=\"contact sheet\" style=\"max-width:100%\"></a></p>\n";
  char number[64];
  for (size_t i = 0; i < steps.size(); ++i) {
    const StepReport &s = steps[i];
    std::snprintf(number, sizeof number, "%.1f ms", s.ms);
    out << "<h2>" << i + 1 << ". " << html_escape(s.title) << "</h2>\n<p"
        << (s.failed ? " class=\"failed\"" : "") << ">" << html_escape(s.status) << ", " << number
        << "</p>\n";
    for (const Entry &e : s.entries) {
      out << "<figure><img src=\"" << html_escape(e.image) << "\" alt=\"" << html_escape(e.image)
          << "\"><figcaption>" << html_escape(e.image) << ": " << html_escape(e.caption);
      if (e.call_ms >= 0) {
        std::snprintf(number, sizeof number, " (%.2f ms)", e.call_ms);
        out << number;
      }
      if (!e.figures.empty()) {
        out << "<table><tr><th>channel</th><th>MSE</th><th>PSNR dB</th></tr>";
        for (const Figure &f : e.figures) {
          std::snprintf(number, sizeof number, "<td>%.4f</td><td>%.3f</td>", f.mse, f.psnr);
          out << "<tr><td>" << html_escape(f.channel) << "</td>" << number << "</tr>";
        }
        out << "</table>";
      }
      out << "</figcaption></figure>\n";
    }
  }
  out << "</body></html>\n";
  out.close();
  if (!out) {
    *error = path + ": write failed";
    return false;
  }
  return true;
}

std::vector<SheetTile> sheet_tiles(const Demo &demo, const std::vector<StepReport> &steps) {
  std::vector<SheetTile> tiles;
  std::vector<std::string> used;
  char text[160];
  for (const StepReport &s : steps) {
    for (size_t i = 0; i < s.entries.size(); ++i) {
      const Entry &e = s.entries[i];
      const bool source = e.image == frame_png(0);
      const bool compare_shown = e.image == "diff_0_altered.png" || e.image == "diff_key.png";
      if (!source && !compare_shown && (e.call_ms < 0 || e.image.compare(0, 5, "diff_") == 0)) {
        continue;
      }
      if (std::find(used.begin(), used.end(), e.image) != used.end()) continue;
      const auto picture = demo.pictures.find(e.image);
      if (picture == demo.pictures.end()) continue;
      used.push_back(e.image);
      SheetTile tile;
      tile.picture = picture->second;
      tile.lines.push_back(source ? "SOURCE: " + e.image : e.image);
      tile.lines.push_back(source ? describe_layout(demo.layout) : s.title);
      const Entry *figures = &e;
      if (e.figures.empty() && i + 1 < s.entries.size() &&
          s.entries[i + 1].image.compare(0, 5, "diff_") == 0) {
        figures = &s.entries[i + 1];
      }
      std::string line;
      if (!figures->figures.empty()) {
        const Figure &f = figures->figures[0];
        std::snprintf(text, sizeof text, "PSNR %s %.2f DB  ", f.channel.c_str(), f.psnr);
        line += text;
      }
      if (e.call_ms >= 0) {
        std::snprintf(text, sizeof text, "%.2f MS", e.call_ms);
        line += text;
      }
      tile.lines.push_back(line);
      tiles.push_back(tile);
    }
  }
  return tiles;
}

}  // namespace cli
}  // namespace framedsp
