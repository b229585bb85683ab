// `framedsp demo` runs the library's operations on the built-in clip and writes PNG previews, a
// contact sheet, a text report and an HTML index.  The records the steps fill and the report
// writers they share.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "contact_sheet.h"
#include "png_writer.h"
#include "raw_io.h"

namespace framedsp {
namespace cli {

struct Figure {
  std::string channel;
  double mse;
  double psnr;
};

struct Entry {
  std::string image;  // file name inside the output directory
  std::string caption;
  std::vector<Figure> figures;
  double call_ms = -1;  // time of the library call, -1 when the entry is no call's result
};

struct StepReport {
  std::string title;
  std::string status = "ok";
  bool failed = false;
  double ms = 0;
  std::vector<Entry> entries;
};

struct Demo {
  std::filesystem::path dir;
  RawLayout layout;  // the clip's, uyvy422
  std::vector<std::vector<uint8_t>> frames;
  std::map<std::string, Picture> pictures;  // every image written, by file name (contact sheet)
};

// The first line of report.txt, which also marks a folder as the demo's own.
std::string header_text(const Demo &demo);
constexpr char kReportStart[] = "framedsp demo on the built-in clip";

// "clip_3.png": the preview of a clip frame.
std::string frame_png(uint32_t index);

bool write_text_report(const Demo &demo, const std::vector<StepReport> &steps, std::string *error);
bool write_html_report(const Demo &demo, const std::vector<StepReport> &steps, std::string *error);

// Compares a against b, writes the difference image `image` and records the figures.
bool compare_entry(Demo &demo, const RawLayout &layout, const uint8_t *a, const uint8_t *b,
                   const std::string &image, const std::string &caption, StepReport *report,
                   std::string *error);

// The Ken Burns step (demo_kenburns.cpp): a zoom and pan over frame 0, five frames in a strip.
bool step_kenburns(Demo &demo, StepReport *report, std::string *error);
// The panorama step (demo_panorama.cpp): a 4:3 picture stretched to 16:9 uniformly and as a
// panorama, side by side, and the panorama undone.
bool step_panorama(Demo &demo, StepReport *report, std::string *error);

// The operations' results, one tile each: the source frame, every image a library call made,
// and two compare difference images.  A tile whose next entry compares it with its source
// shows that entry's PSNR.
std::vector<SheetTile> sheet_tiles(const Demo &demo, const std::vector<StepReport> &steps);

}  // namespace cli
}  // namespace framedsp
