// The call frame of every export: null checks, quiet refusal, the worker, the exception guard and
// the converter reference held for the length of a handle call.  Then the validation steps of
// copy, filter, sub-pixel filter, compare and the scaler helper as tables, seen through the
// exports, each refusal with the line it traces.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "frame/guard.h"
#include "platform/handle.h"
#include "platform/trace.h"
#include "framedsp/framedsp.h"
#include "framerate/converter.h"
#include "test_util.h"

namespace {

using framedsp::HRESULT;
using framedsp_test::GuardedBuffer;
using framedsp_test::converter_references;
using framedsp_test::destroy_converter;
using framedsp_test::traced;

// ---- worker hook: records every worker entered; throws for one chosen name ---------------------

std::vector<std::string> g_entered;
std::string g_throw_for;

void recording_hook(const char *worker) {
  g_entered.emplace_back(worker);
  if (!g_throw_for.empty() && g_throw_for == worker) throw std::runtime_error("worker hook");
}

// Installs the recording hook for each test and always removes it again.
class HookedTest {
 protected:
  HookedTest() {
    g_entered.clear();
    g_throw_for.clear();
    framedsp::set_worker_hook(&recording_hook);
  }
  ~HookedTest() {
    framedsp::set_worker_hook(nullptr);
    g_throw_for.clear();
  }
};

// ---- the rig: valid records for every export over guarded image memory --------------------------

constexpr uint32_t kWidth = 64;
constexpr uint32_t kHeight = 8;
constexpr uint32_t kStride = 2048;  // room for 721 pixels of 4:2:2 and odd widths at 8 bytes
constexpr uint32_t kLines = 482;    // the tallest region of the tables below
constexpr size_t kImageBytes = size_t{kStride} * kLines;

// DSP_IMAGE and DSP_SUBPIXEL_IMAGE share their field names.
template <class Image>
void set_image(Image *image, void *memory, uint32_t format) {
  image->Buffer.pBuffer = memory;
  image->Buffer.ulBytes = static_cast<uint32_t>(kImageBytes);
  image->Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  image->Buffer.Region.ptOffset.x = 0;
  image->Buffer.Region.ptOffset.y = 0;
  image->Buffer.Region.ulWidth = image->ulWidth = kWidth;
  image->Buffer.Region.ulHeight = image->ulHeight = kHeight;
  image->ePixelFormat = format;
  image->eInterlace = DSP_INTERLACE_PROGRESSIVE;
  image->ulPrimaryStrideBytes = kStride;
}

template <class... T>
std::string bytes_of(const T &...values) {
  std::string out;
  (out.append(reinterpret_cast<const char *>(&values), sizeof values), ...);
  return out;
}

struct Rig {
  static inline const DSP_HANDLE kNotCreated = reinterpret_cast<DSP_HANDLE>(uintptr_t{0x5A5A5A5A});

  GuardedBuffer in_mem{kImageBytes};
  GuardedBuffer out_mem{kImageBytes, 64, 0x3C};
  DSP_BUFFER buffer{};
  DSP_FIR_SETTINGS fir{7, 50, 0, 5, 50};
  DSP_FILTER_PARAMS filter{};
  DSP_SUBPIXEL_FILTER_PARAMS subpixel_filter{};
  DSP_SCALER_PARAMS scaler{};
  DSP_SUBPIXEL_SCALER_PARAMS subpixel_scaler{};
  DSP_SCALER_HELPER_IN helper_in{4, 3, 720, 486, 0, 0, 0, 16, 9, 1920, 1080, 0, 0, 0, 0};
  DSP_SCALER_HELPER_OUT helper_out{0xAAAA, 0xBBBB, -1.5f, 2.5f};
  DSP_SUBPIXEL_SCALER_HELPER_IN subpixel_helper_in{
      4, 3, 16, 9, 720, 486, 1920, 1080, 0, {16384, 0, 0}, {32768, 0, 0}, 8192, 0, {0, 0, 0}};
  DSP_SUBPIXEL_SCALER_HELPER_OUT subpixel_helper_out{-1, -2, -3, -4, -5, -6, -7, -8, -9.f, -10.f};
  DSP_COMPARE_PARAMS compare{};
  DSP_FRAME_RATE_CONVERTER_PARAMS converter_params{};
  DSP_HANDLE created = kNotCreated;
  DSP_FRAME_RATE_CONVERT_PARAMS convert{};
  DSP_MOTION_VECTORS_PARAMS motion{};
  DSP_MIPMAP_LEVELS levels{};
  DSP_MIPMAP_PARAMS mipmap{};
  DSP_HANDLE converter = nullptr;

  Rig() {
    std::mt19937 rng(framedsp_test::test_seed());
    framedsp_test::fill_random(in_mem.data(), in_mem.size(), rng);

    set_image(&buffer.In, in_mem.data(), DSP_PIXEL_FORMAT_UYVY);
    set_image(&buffer.Out, out_mem.data(), DSP_PIXEL_FORMAT_UYVY);
    filter.eFilterType = scaler.eFilterType = subpixel_filter.eFilterType = DSP_FILTER_TYPE_FIR;
    filter.pSettings = scaler.pSettings = subpixel_filter.pSettings = &fir;
    filter.Buffer = scaler.Buffer = buffer;
    set_image(&subpixel_filter.Buffer.In, in_mem.data(), DSP_PIXEL_FORMAT_UYVY);
    set_image(&subpixel_filter.Buffer.Out, out_mem.data(), DSP_PIXEL_FORMAT_UYVY);
    scaler.eFilter = DSP_SCALER_FILTER_LINEAR;
    subpixel_scaler.eFilterType = DSP_FILTER_TYPE_FIR;
    subpixel_scaler.pSettings = &fir;
    subpixel_scaler.Buffer = subpixel_filter.Buffer;

    compare.BufferA = DSP_COMPARE_BUFFER{in_mem.data(), static_cast<uint32_t>(kImageBytes), 0};
    compare.BufferB = compare.BufferA;
    compare.BufferOut = DSP_COMPARE_BUFFER{out_mem.data(), static_cast<uint32_t>(kImageBytes), 0};
    compare.ulWidth = kWidth;
    compare.ulHeight = kHeight;
    compare.ulPrimaryStrideBytes = kStride;
    compare.ePixelFormat = DSP_PIXEL_FORMAT_UYVY;
    for (double &r : compare.dResults) r = 1234.5;

    // Level ranges default to 1 and must stay within a quarter of the size.
    converter_params.ulBaseCount = 1;
    converter_params.lWidth = 720;
    converter_params.lHeight = 480;
    EXPECT_EQ(DspCreateFrameRateConverter(&converter_params, &converter), DSP_S_OK);

    set_image(&mipmap.Base, in_mem.data(), DSP_PIXEL_FORMAT_MIPMAP);
    levels.ulCount = 2;
    set_image(&levels.Levels[0], in_mem.data(), DSP_PIXEL_FORMAT_MIPMAP);
    set_image(&levels.Levels[1], out_mem.data(), DSP_PIXEL_FORMAT_MIPMAP);
    mipmap.pLevels = &levels;
    mipmap.eFilter = DSP_SCALER_FILTER_LINEAR;
    g_entered.clear();  // creating the converter entered its constructor's hook
  }

  ~Rig() {
    destroy_converter(converter);
    if (created != kNotCreated) destroy_converter(created);
  }

  // Everything the caller hands in, the input image included.
  std::string inputs() const {
    return bytes_of(buffer, fir, filter, subpixel_filter, scaler, subpixel_scaler, helper_in,
                    subpixel_helper_in, compare, converter_params, convert, motion, levels,
                    mipmap) +
           std::string(reinterpret_cast<const char *>(in_mem.data()), in_mem.size());
  }

  // Everything an operation may write: output image, result records, the created handle.
  std::string outputs() const {
    return std::string(reinterpret_cast<const char *>(out_mem.data()), out_mem.size()) +
           bytes_of(helper_out, subpixel_helper_out, created);
  }
};

// ---- the table of exports -------------------------------------------------------------------

using Call = HRESULT (*)(Rig &);

struct Refusal {
  const char *what;
  Call call;
  HRESULT expected;
};

struct ExportCase {
  const char *label;
  const char *worker;  // the name its worker gives worker_entry
  std::vector<Refusal> refusals;
  void (*reject)(Rig &);  // makes validation fail; null when the export has no validation step
  Call call;
  HRESULT accepted;
  bool run_worker;          // false for DspCompare, whose worker is tested on its own
  uint32_t call_flags = 0;  // ulOptions of the scaler records: bit 1 picks the filtered worker
};

void PrintTo(const ExportCase &c, std::ostream *os) { *os << c.label; }

const HRESULT kPtr = DSP_E_POINTER;
const HRESULT kHdl = DSP_E_HANDLE;
const DSP_HANDLE kAllOnes = reinterpret_cast<DSP_HANDLE>(~uintptr_t{0});

// The one refusal of a single-record export.
#define FRAMEDSP_NULL_RECORD(call) {{"null", [](Rig &) { return call(nullptr); }, kPtr}}

const std::vector<ExportCase> &export_cases() {
  static const std::vector<ExportCase> cases = {
      {"DspBufferSmartCopy", "DspBufferSmartCopy", FRAMEDSP_NULL_RECORD(DspBufferSmartCopy),
       [](Rig &r) { r.buffer.Out.ePixelFormat = DSP_PIXEL_FORMAT_YUYV; },
       [](Rig &r) { return DspBufferSmartCopy(&r.buffer); }, DSP_S_OK, true},
      {"DspCompare", "DspCompare", FRAMEDSP_NULL_RECORD(DspCompare),
       [](Rig &r) { r.compare.ePixelFormat = 22; }, [](Rig &r) { return DspCompare(&r.compare); },
       DSP_S_OK, false},
      {"DspFilter", "DspFilter", FRAMEDSP_NULL_RECORD(DspFilter),
       [](Rig &r) { r.filter.Buffer.Out.Buffer.Region.ulWidth = kWidth - 2; },
       [](Rig &r) { return DspFilter(&r.filter); }, DSP_S_OK, true},
      {"DspSubPixelFilter", "DspSubPixelFilter", FRAMEDSP_NULL_RECORD(DspSubPixelFilter),
       [](Rig &r) { r.subpixel_filter.Buffer.Out.Buffer.Region.ulWidth = kWidth + 0.5; },
       [](Rig &r) { return DspSubPixelFilter(&r.subpixel_filter); }, DSP_S_OK, true},
      {"DspScaler_plain", "DspScaler", FRAMEDSP_NULL_RECORD(DspScaler), nullptr,
       [](Rig &r) { return DspScaler(&r.scaler); }, 0, true, 0},
      {"DspScaler_filtered", "DspScaler", FRAMEDSP_NULL_RECORD(DspScaler), nullptr,
       [](Rig &r) { return DspScaler(&r.scaler); }, DSP_S_OK, true, 3},
      {"DspNonUniformScaler_plain", "DspNonUniformScaler",
       FRAMEDSP_NULL_RECORD(DspNonUniformScaler), nullptr,
       [](Rig &r) { return DspNonUniformScaler(reinterpret_cast<DSP_NONUNIFORM_SCALER_PARAMS *>(&r.scaler)); },
       DSP_S_OK, true, 1},
      {"DspNonUniformScaler_filtered", "DspNonUniformScaler",
       FRAMEDSP_NULL_RECORD(DspNonUniformScaler), nullptr,
       [](Rig &r) { return DspNonUniformScaler(reinterpret_cast<DSP_NONUNIFORM_SCALER_PARAMS *>(&r.scaler)); },
       DSP_S_OK, true, 2},
      {"DspSubPixelScaler_plain", "DspSubPixelScaler", FRAMEDSP_NULL_RECORD(DspSubPixelScaler),
       nullptr, [](Rig &r) { return DspSubPixelScaler(&r.subpixel_scaler); }, DSP_S_OK, true, 0},
      {"DspSubPixelScaler_filtered", "DspSubPixelScaler", FRAMEDSP_NULL_RECORD(DspSubPixelScaler),
       nullptr, [](Rig &r) { return DspSubPixelScaler(&r.subpixel_scaler); }, DSP_S_OK, true, 2},
      {"DspScalerHelper", "DspScalerHelper",
       {{"null_in", [](Rig &r) { return DspScalerHelper(nullptr, &r.helper_out); }, kPtr},
        {"null_out", [](Rig &r) { return DspScalerHelper(&r.helper_in, nullptr); }, kPtr},
        {"both_null", [](Rig &) { return DspScalerHelper(nullptr, nullptr); }, kPtr}},
       [](Rig &r) { r.helper_in.ulDstAspectDenominator = 0; },
       [](Rig &r) { return DspScalerHelper(&r.helper_in, &r.helper_out); }, DSP_S_OK, true},
      {"DspSubPixelScalerHelper", "DspSubPixelScalerHelper",
       {{"null_in", [](Rig &r) { return DspSubPixelScalerHelper(nullptr, &r.subpixel_helper_out); },
         kPtr},
        {"null_out", [](Rig &r) { return DspSubPixelScalerHelper(&r.subpixel_helper_in, nullptr); },
         kPtr},
        {"both_null", [](Rig &) { return DspSubPixelScalerHelper(nullptr, nullptr); }, kPtr}},
       [](Rig &r) { r.subpixel_helper_in.ulReserved[2] = 1; },
       [](Rig &r) { return DspSubPixelScalerHelper(&r.subpixel_helper_in, &r.subpixel_helper_out); },
       DSP_S_OK, true},
      {"DspCreateFrameRateConverter", "DspCreateFrameRateConverter",
       {{"null_record", [](Rig &r) { return DspCreateFrameRateConverter(nullptr, &r.created); },
         kPtr},
        {"null_handle_address",
         [](Rig &r) { return DspCreateFrameRateConverter(&r.converter_params, nullptr); }, kPtr},
        {"both_null", [](Rig &) { return DspCreateFrameRateConverter(nullptr, nullptr); }, kPtr}},
       nullptr,
       [](Rig &r) { return DspCreateFrameRateConverter(&r.converter_params, &r.created); },
       DSP_S_OK, true},
      {"DspFrameRateConvert", "DspFrameRateConvert",
       {{"zero_handle", [](Rig &r) { return DspFrameRateConvert(nullptr, &r.convert, 0); }, kHdl},
        {"zero_handle_null_record", [](Rig &) { return DspFrameRateConvert(nullptr, nullptr, 0); },
         kHdl},
        {"all_ones_handle", [](Rig &r) { return DspFrameRateConvert(kAllOnes, &r.convert, 7); },
         kHdl}},
       nullptr, [](Rig &r) { return DspFrameRateConvert(r.converter, &r.convert, 0xFFFFFFFFu); },
       DSP_E_INVALIDARG, true},  // the zeroed record has no frames
      {"DspCreateMotionVectors", "DspCreateMotionVectors",
       {{"null_record", [](Rig &r) { return DspCreateMotionVectors(r.converter, nullptr); }, kPtr},
        {"null_record_bad_handle", [](Rig &) { return DspCreateMotionVectors(nullptr, nullptr); },
         kPtr},
        {"zero_handle", [](Rig &r) { return DspCreateMotionVectors(nullptr, &r.motion); }, kHdl},
        {"all_ones_handle", [](Rig &r) { return DspCreateMotionVectors(kAllOnes, &r.motion); },
         kHdl}},
       nullptr, [](Rig &r) { return DspCreateMotionVectors(r.converter, &r.motion); }, DSP_E_INVALIDARG,
       true},
      {"DspCreateMipMaps", "DspCreateMipMaps",
       {{"null_record", [](Rig &r) { return DspCreateMipMaps(r.converter, nullptr); }, kPtr},
        {"null_record_bad_handle", [](Rig &) { return DspCreateMipMaps(kAllOnes, nullptr); },
         kPtr},
        {"zero_handle", [](Rig &r) { return DspCreateMipMaps(nullptr, &r.mipmap); }, kHdl},
        {"all_ones_handle", [](Rig &r) { return DspCreateMipMaps(kAllOnes, &r.mipmap); }, kHdl}},
       nullptr, [](Rig &r) { return DspCreateMipMaps(r.converter, &r.mipmap); }, DSP_S_OK, true},
  };
  return cases;
}

template <class Keep>
std::vector<ExportCase> cases_where(Keep keep) {
  std::vector<ExportCase> out;
  for (const ExportCase &c : export_cases()) {
    if (keep(c)) out.push_back(c);
  }
  return out;
}

std::string case_name(const ::testing::TestParamInfo<ExportCase> &info) {
  return info.param.label;
}

class ExportFrame : public HookedTest, public ::testing::TestWithParam<ExportCase> {
 protected:
  void SetUp() override {
    rig.scaler.ulOptions = rig.subpixel_scaler.ulOptions = GetParam().call_flags;
  }

  // A refused call leaves every byte it was given, every output byte and the guards alone,
  // enters no worker, and gives the converter back its reference.
  void expect_nothing_done(const std::string &in, const std::string &out, int32_t refs) {
    EXPECT_TRUE(rig.inputs() == in) << "a caller's record or the input image changed";
    EXPECT_TRUE(rig.outputs() == out) << "output image or result record written";
    EXPECT_TRUE(rig.out_mem.intact()) << rig.out_mem.damage();
    EXPECT_TRUE(rig.in_mem.intact()) << rig.in_mem.damage();
    EXPECT_TRUE(g_entered.empty()) << "entered " << g_entered.front();
    EXPECT_EQ(converter_references(rig.converter), refs);
  }

  Rig rig;
};

class ExportRefusals : public ExportFrame {};
class ExportValidation : public ExportFrame {};
class ExportWorker : public ExportFrame {};

TEST_P(ExportRefusals, NullPointersAndBadHandles) {
  const int32_t refs = converter_references(rig.converter);
  ASSERT_EQ(refs, 1);
  for (const Refusal &refusal : GetParam().refusals) {
    SCOPED_TRACE(refusal.what);
    const std::string in = rig.inputs(), out = rig.outputs();
    EXPECT_EQ(refusal.call(rig), refusal.expected);
    expect_nothing_done(in, out, refs);
  }
}

TEST_P(ExportValidation, RejectedRecordIsQuietSuccess) {
  GetParam().reject(rig);
  const int32_t refs = converter_references(rig.converter);
  const std::string in = rig.inputs(), out = rig.outputs();
  EXPECT_EQ(GetParam().call(rig), DSP_S_OK);
  expect_nothing_done(in, out, refs);
}

TEST_P(ExportWorker, AcceptedRecordReachesTheWorkerSilently) {
  const int32_t refs = converter_references(rig.converter);
  const std::string in = rig.inputs();
  HRESULT status = 0;
  const std::string text = traced(1, [&] { status = GetParam().call(rig); });
  EXPECT_EQ(status, GetParam().accepted);
  // Silent, unless the worker itself refuses the zeroed record (a single line naming the export).
  if (status == DSP_E_INVALIDARG) {
    EXPECT_EQ(text.rfind(std::string(GetParam().worker) + ": refused: ", 0), 0u) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
  } else {
    EXPECT_EQ(text, "");
  }
  // The pyramid enters the scaler once per level after its own worker.
  ASSERT_FALSE(g_entered.empty());
  EXPECT_EQ(g_entered.front(), GetParam().worker);
  for (size_t k = 1; k < g_entered.size(); ++k) EXPECT_EQ(g_entered[k], "DspScaler");
  EXPECT_TRUE(rig.inputs() == in) << "a caller's record or the input image changed";
  EXPECT_TRUE(rig.out_mem.intact()) << rig.out_mem.damage();
  EXPECT_EQ(converter_references(rig.converter), refs);
}

TEST_P(ExportWorker, ThrowingWorkerGivesUnexpected) {
  const int32_t refs = converter_references(rig.converter);
  const int64_t live = framedsp::live_handle_objects();
  const std::string in = rig.inputs(), out = rig.outputs();
  g_throw_for = GetParam().worker;
  EXPECT_EQ(GetParam().call(rig), DSP_E_UNEXPECTED);
  EXPECT_EQ(g_entered, std::vector<std::string>{GetParam().worker});
  EXPECT_TRUE(rig.inputs() == in);
  EXPECT_TRUE(rig.outputs() == out) << "written although the worker threw at entry";
  EXPECT_TRUE(rig.out_mem.intact()) << rig.out_mem.damage();
  // The reference taken for the call is dropped as the exception passes; a converter under
  // construction is unwound whole.
  EXPECT_EQ(converter_references(rig.converter), refs);
  EXPECT_EQ(framedsp::live_handle_objects(), live);
}

INSTANTIATE_TEST_SUITE_P(Frame, ExportRefusals, ::testing::ValuesIn(export_cases()), case_name);
INSTANTIATE_TEST_SUITE_P(Frame, ExportValidation,
                         ::testing::ValuesIn(cases_where([](const ExportCase &c) {
                           return c.reject != nullptr;
                         })),
                         case_name);
INSTANTIATE_TEST_SUITE_P(Frame, ExportWorker,
                         ::testing::ValuesIn(cases_where([](const ExportCase &c) {
                           return c.run_worker;
                         })),
                         case_name);

// ---- validation steps as tables, seen through the exports ---------------------------------------

template <class Record>
struct EdgeCase {
  const char *label;
  void (*edit)(Record &);
  bool accepted;
  const char *trace = nullptr;  // the refusal's trace text, when compared
};

// Accepted: the worker is entered, answers S_OK and nothing is traced.  Refused: S_OK and no worker
// (or `refused_status` from the worker for settings), not a byte written, one trace line
// "<export>: refused: <trace>" (the text is compared when `trace` is given), nothing with tracing
// off.
void expect_verdict(Rig &rig, Call call, const char *worker, bool accepted, const char *trace = nullptr,
                    HRESULT refused_status = DSP_S_OK) {
  const std::string in = rig.inputs(), out = rig.outputs();
  HRESULT status = 0;
  const std::string text = traced(1, [&] { status = call(rig); });
  EXPECT_TRUE(rig.inputs() == in);
  EXPECT_TRUE(rig.out_mem.intact()) << rig.out_mem.damage();
  if (accepted) {
    EXPECT_EQ(status, DSP_S_OK);
    EXPECT_EQ(g_entered, std::vector<std::string>{worker});
    EXPECT_EQ(text, "");
    return;
  }
  EXPECT_EQ(status, refused_status);
  // A record is refused before the worker; settings are the worker's to read.
  EXPECT_EQ(g_entered.empty(), refused_status == DSP_S_OK);
  EXPECT_TRUE(rig.outputs() == out);
  const std::string prefix = std::string(worker) + ": refused: ";
  if (trace) {
    EXPECT_EQ(text, prefix + trace + "\n");
  } else {
    EXPECT_EQ(text.rfind(prefix, 0), 0u) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
  }
  EXPECT_EQ(traced(0, [&] { EXPECT_EQ(call(rig), refused_status); }), "");
}

// Each case of a table on a fresh rig: its edit on the record `part` picks, then the verdict.
template <class Record, size_t N, class Part>
void expect_verdicts(const EdgeCase<Record> (&cases)[N], Part part, Call call, const char *worker) {
  for (const EdgeCase<Record> &c : cases) {
    SCOPED_TRACE(c.label);
    Rig rig;
    c.edit(part(rig));
    expect_verdict(rig, call, worker, c.accepted, c.trace);
    g_entered.clear();
  }
}

class Validation : public HookedTest, public ::testing::Test {};

// Fields shared by DSP_BUFFER and DSP_SUBPIXEL_BUFFER.
template <class B>
void formats(B &b, uint32_t f) {
  b.In.ePixelFormat = b.Out.ePixelFormat = f;
}

template <class B>
void frames(B &b, uint32_t in_interlace, uint32_t out_interlace) {
  b.In.Buffer.eBufferType = b.Out.Buffer.eBufferType = DSP_BUFFER_TYPE_FRAME;
  b.In.eInterlace = in_interlace;
  b.Out.eInterlace = out_interlace;
}

template <class B, class H>
void heights(B &b, uint32_t in_type, H in_h, uint32_t out_type, H out_h) {
  b.In.Buffer.eBufferType = in_type;
  b.Out.Buffer.eBufferType = out_type;
  b.In.Buffer.Region.ulHeight = in_h;
  b.Out.Buffer.Region.ulHeight = out_h;
  b.In.ulHeight = b.Out.ulHeight = kLines;
}

void widths(DSP_BUFFER &b, uint32_t w) {
  b.In.ulWidth = b.Out.ulWidth = b.In.Buffer.Region.ulWidth = b.Out.Buffer.Region.ulWidth = w;
}

void widths(DSP_SUBPIXEL_BUFFER &b, double in_w, double out_w) {
  b.In.Buffer.Region.ulWidth = in_w;
  b.Out.Buffer.Region.ulWidth = out_w;
  b.In.ulWidth = b.Out.ulWidth = 722;
}

constexpr uint32_t kFrame = DSP_BUFFER_TYPE_FRAME;
constexpr uint32_t kFieldA = DSP_BUFFER_TYPE_FIELD_A;
constexpr uint32_t kFieldB = DSP_BUFFER_TYPE_FIELD_B;

// ---- copy

#define WIDE " (4:2:2 formats need even widths)"
#define INTERLEAVED \
  "input frame has interleaved fields (interlace 0) and the output frame is progressive (interlace 2); that pair is not taken"

HRESULT copy_call(Rig &r) { return DspBufferSmartCopy(&r.buffer); }

const EdgeCase<DSP_BUFFER> kCopyCases[] = {
    {"uyvy_unchanged", [](auto &) {}, true},
    {"formats_differ", [](auto &b) { b.Out.ePixelFormat = 25; }, false,
     "output format 25 differs from input format 21 (no format conversion)"},
    {"uyvy_odd_in_width", [](auto &b) { b.In.ulWidth = 65; }, false, "input width 65 is odd for format 21" WIDE},
    {"uyvy_odd_in_region_width", [](auto &b) { b.In.Buffer.Region.ulWidth = 63; }, false,
     "input region width 63 is odd for format 21" WIDE},
    {"uyvy_odd_out_width", [](auto &b) { b.Out.ulWidth = 65; }, false, "output width 65 is odd for format 21" WIDE},
    {"uyvy_odd_out_region_width", [](auto &b) { b.Out.Buffer.Region.ulWidth = 63; }, false,
     "output region width 63 is odd for format 21" WIDE},
    {"first_odd_width_named", [](auto &b) { b.In.Buffer.Region.ulWidth = 5; b.Out.ulWidth = 7; }, false,
     "input region width 5 is odd for format 21" WIDE},
    {"bgr24_odd_widths", [](auto &b) { formats(b, 1); widths(b, 63); }, true},
    {"uyvy_key_odd_widths", [](auto &b) { formats(b, 28); widths(b, 63); }, false},
    {"key8_odd_widths", [](auto &b) { formats(b, 261); widths(b, 63); }, false,
     "input width 63 is odd for format 261 (only formats 0, 1, 5 and 27 take odd widths)"},
    {"interleaved_frame_to_progressive_frame", [](auto &b) { frames(b, 0, 2); }, false, INTERLEAVED},
    {"interlace1_frame_to_progressive_frame", [](auto &b) { frames(b, 1, 2); }, true},
    {"interleaved_frame_to_interleaved_frame", [](auto &b) { frames(b, 0, 0); }, true},
    {"interleaved_frame_to_separate_frame", [](auto &b) { frames(b, 0, 3); }, true},
    {"progressive_frame_to_interleaved_frame", [](auto &b) { frames(b, 2, 0); }, true},
    {"interleaved_field_to_progressive_frame",
     [](auto &b) { frames(b, 0, 2); b.In.Buffer.eBufferType = kFieldA; }, true},
    {"interleaved_frame_to_progressive_field",
     [](auto &b) { frames(b, 0, 2); heights(b, kFrame, 8u, kFieldB, 4u); }, true},
    // The copy's steps compare no heights; the line geometry decides how many lines run.
    {"region_heights_not_compared", [](auto &b) { b.Out.Buffer.Region.ulHeight = 3; }, true},
};
TEST_F(Validation, Copy) {
  expect_verdicts(kCopyCases, [](Rig &r) -> DSP_BUFFER & { return r.buffer; }, copy_call, "DspBufferSmartCopy");
}

// Every format the table knows and some it does not, with even widths: the copy takes exactly its
// formats; the comparison enters its worker without a trace line for its own (which it writes its
// results into: checked in its own tests) and refuses the others quietly.
TEST_F(Validation, Formats) {
  const std::vector<uint32_t> copies = {0, 1, 5, 21, 22, 23, 24, 25, 28, 30, 31, 129, 261, 262};
  const std::vector<uint32_t> compares = {0, 1, 5, 21, 25, 28, 30, 261};
  for (uint32_t f : {0u,   1u,   2u,   3u,   4u,   5u,   16u,  17u,  18u,  21u,  22u,  23u,  24u,  25u,
                     26u,  27u,  28u,  29u,  30u,  31u,  64u,  128u, 129u, 132u, 258u, 259u, 260u, 261u,
                     262u, 263u, 512u, 513u, 1000u, 4000000000u}) {
    SCOPED_TRACE(f);
    const bool copied = std::count(copies.begin(), copies.end(), f) != 0;
    Rig rig;
    formats(rig.buffer, f);
    const std::string trace = "input format " + std::to_string(f) +
                              " is not one this operation takes (0, 1, 5, 21..25, 28, 30, 31, 129, 261, 262)";
    expect_verdict(rig, copy_call, "DspBufferSmartCopy", copied, trace.c_str());
    g_entered.clear();
    rig.compare.ePixelFormat = f;
    if (std::count(compares.begin(), compares.end(), f)) {
      HRESULT status = DSP_E_FAIL;
      EXPECT_EQ(traced(1, [&] { status = DspCompare(&rig.compare); }), "");
      EXPECT_EQ(status, DSP_S_OK);
      EXPECT_EQ(g_entered, std::vector<std::string>{"DspCompare"});
      g_entered.clear();
      continue;
    }
    const std::string refused = "pixel format " + std::to_string(f) +
                                " is not one the comparison takes (0, 1, 5, 21, 25, 28, 30, 261)";
    expect_verdict(rig, [](Rig &r) { return DspCompare(&r.compare); }, "DspCompare", false, refused.c_str());
    g_entered.clear();
  }
}

// ---- filter

const EdgeCase<DSP_BUFFER> kFilterCases[] = {
    {"frame_to_frame_equal", [](auto &b) { heights(b, kFrame, 480u, kFrame, 480u); }, true},
    {"frame_to_field_halves", [](auto &b) { heights(b, kFrame, 480u, kFieldA, 240u); }, true},
    {"frame_to_field_same_height", [](auto &b) { heights(b, kFrame, 480u, kFieldA, 480u); }, false,
     "input region height 480 does not match output region height 480 (a frame into a field needs twice the field's lines)"},
    {"odd_frame_to_field", [](auto &b) { heights(b, kFrame, 481u, kFieldA, 240u); }, false},
    {"field_to_frame_doubles", [](auto &b) { heights(b, kFieldA, 240u, kFrame, 480u); }, true},
    {"field_to_frame_same_height", [](auto &b) { heights(b, kFieldB, 240u, kFrame, 240u); }, false,
     "input region height 240 does not match output region height 240 (a field into a frame needs half the frame's lines)"},
    {"odd_field_to_frame", [](auto &b) { heights(b, kFieldA, 241u, kFrame, 482u); }, true},
    {"field_to_odd_frame", [](auto &b) { heights(b, kFieldA, 240u, kFrame, 481u); }, false},
    {"field_to_field_equal", [](auto &b) { heights(b, kFieldA, 240u, kFieldB, 240u); }, true},
    {"field_to_field_unequal", [](auto &b) { heights(b, kFieldA, 240u, kFieldA, 120u); }, false},
    {"frame_to_frame_unequal", [](auto &b) { b.Out.Buffer.Region.ulHeight = 3; }, false,
     "input region height 8 does not match output region height 3 (they must be equal)"},
    {"unequal_region_widths", [](auto &b) { b.Out.Buffer.Region.ulWidth = 32; }, false,
     "input region width 64 differs from output region width 32 (the filter does not scale)"},
    {"unequal_image_widths", [](auto &b) { b.Out.ulWidth = 128; }, true},
    {"interleaved_frame_to_progressive_frame", [](auto &b) { frames(b, 0, 2); }, false, INTERLEAVED},
    {"formats_differ", [](auto &b) { b.Out.ePixelFormat = 25; }, false,
     "output format 25 differs from input format 21 (no format conversion)"},
    {"uyvy_odd_widths", [](auto &b) { widths(b, 63); }, false, "input width 63 is odd for format 21" WIDE},
    {"bgr24_odd_widths", [](auto &b) { formats(b, 1); widths(b, 63); }, true},
};
// The rules the filter shares with the copy once each (the copy's table has them all).
TEST_F(Validation, Filter) {
  expect_verdicts(kFilterCases, [](Rig &r) -> DSP_BUFFER & { return r.filter.Buffer; },
                  [](Rig &r) { return DspFilter(&r.filter); }, "DspFilter");
}

// ---- settings errors of the filter and the sub-pixel filter: E_INVALIDARG and a trace line

struct SettingsCase {
  const char *label;
  uint32_t type;
  DSP_FIR_SETTINGS fir;
  DSP_BOX_SETTINGS box;
  bool null_settings;
  const char *trace;  // null: accepted
};

void expect_settings_verdict(const SettingsCase &c) {
  SCOPED_TRACE(c.label);
  for (int subpixel = 0; subpixel < 2; ++subpixel) {
    Rig rig;
    const void *settings = c.null_settings ? nullptr : c.type == DSP_FILTER_TYPE_BOX
                                                           ? static_cast<const void *>(&c.box)
                                                           : static_cast<const void *>(&c.fir);
    rig.filter.eFilterType = rig.subpixel_filter.eFilterType = c.type;
    rig.filter.pSettings = rig.subpixel_filter.pSettings = settings;
    if (subpixel) {
      expect_verdict(rig, [](Rig &r) { return DspSubPixelFilter(&r.subpixel_filter); }, "DspSubPixelFilter",
                     !c.trace, c.trace, DSP_E_INVALIDARG);
    } else {
      expect_verdict(rig, [](Rig &r) { return DspFilter(&r.filter); }, "DspFilter", !c.trace, c.trace,
                     DSP_E_INVALIDARG);
    }
    g_entered.clear();
  }
}

const uint32_t kFirT = DSP_FILTER_TYPE_FIR, kBoxT = DSP_FILTER_TYPE_BOX;
const SettingsCase kSettingsCases[] = {
    {"fir_accepted", kFirT, {3, 50, 0, 3, 50}, {}, false, nullptr},
    {"box_accepted", kBoxT, {}, {3, 0, 3}, false, nullptr},
    {"fir_taps_of_an_off_direction", kFirT, {99, 100, 0, 3, 50}, {}, false, nullptr},
    {"filter_type", 3, {3, 50, 0, 3, 50}, {}, false, "filter type 3 is neither 1 (FIR) nor 2 (box)"},
    {"fir_without_settings", kFirT, {}, {}, true, "FIR filter without settings (pSettings is null)"},
    {"box_without_settings", kBoxT, {}, {}, true, "box filter without settings (pSettings is null)"},
    {"fir_horizontal_cutoff", kFirT, {3, 101, 0, 3, 50}, {}, false,
     "FIR horizontal cut-off 101 is above 100 (100 turns the direction off)"},
    {"fir_vertical_cutoff", kFirT, {3, 50, 0, 3, 4000000000u}, {}, false,
     "FIR vertical cut-off 4000000000 is above 100 (100 turns the direction off)"},
    {"fir_horizontal_taps", kFirT, {2, 50, 0, 3, 50}, {}, false, "FIR horizontal taps 2 are outside 3..15"},
    {"fir_vertical_taps", kFirT, {3, 100, 0, 16, 50}, {}, false, "FIR vertical taps 16 are outside 3..15"},
    {"box_horizontal_size", kBoxT, {}, {257, 0, 3}, false, "box horizontal size 257 is above 256"},
    {"box_vertical_size", kBoxT, {}, {256, 0, 1000}, false, "box vertical size 1000 is above 256"},
};
TEST_F(Validation, FilterSettings) {
  for (const SettingsCase &c : kSettingsCases) expect_settings_verdict(c);
}

// ---- sub-pixel filter

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

const EdgeCase<DSP_SUBPIXEL_BUFFER> kSubPixelCases[] = {
    {"widths_720_and_720", [](auto &b) { widths(b, 720.0, 720.0); }, true},
    {"widths_720_and_720_5", [](auto &b) { widths(b, 720.0, 720.5); }, false},
    {"uyvy_width_721_5", [](auto &b) { widths(b, 721.5, 721.5); }, false},
    {"uyvy_width_720_999", [](auto &b) { widths(b, 720.999, 720.999); }, true},
    {"bgr24_width_721_5", [](auto &b) { formats(b, 1); widths(b, 721.5, 721.5); }, true},
    // Truncation toward zero: -3.5 has integer part -3 (odd); rounding down would give -4.
    {"uyvy_width_minus_3_5", [](auto &b) { widths(b, -3.5, -3.5); }, false},
    {"uyvy_odd_image_width", [](auto &b) { b.In.ulWidth = 65; }, false},
    {"bgra32_nan_widths", [](auto &b) { formats(b, 0); widths(b, kNaN, kNaN); }, false},
    {"uyvy_infinite_widths", [](auto &b) { widths(b, kInf, kInf); }, false},
    {"frame_480_to_field_240", [](auto &b) { heights(b, kFrame, 480.0, kFieldA, 240.0); }, true},
    {"frame_480_to_field_240_5", [](auto &b) { heights(b, kFrame, 480.0, kFieldA, 240.5); },
     false},
    {"field_240_25_to_frame_480_5", [](auto &b) { heights(b, kFieldB, 240.25, kFrame, 480.5); },
     true},
    {"field_to_field_unequal", [](auto &b) { heights(b, kFieldA, 240.0, kFieldB, 240.5); }, false},
    {"interleaved_frame_to_progressive_frame", [](auto &b) { frames(b, 0, 2); }, false},
    {"formats_differ", [](auto &b) { b.Out.ePixelFormat = 25; }, false},
};
TEST_F(Validation, SubPixelFilter) {
  expect_verdicts(kSubPixelCases, [](Rig &r) -> DSP_SUBPIXEL_BUFFER & { return r.subpixel_filter.Buffer; },
                  [](Rig &r) { return DspSubPixelFilter(&r.subpixel_filter); }, "DspSubPixelFilter");
}

// ---- scaler helper

void fill(DSP_SCALER_HELPER_IN &in, uint32_t w, uint32_t h) {
  in.ulFlags = DSP_SCALER_HELPER_FILL;
  in.ulSrcRegionWidth = w;
  in.ulSrcRegionHeight = h;
}

const EdgeCase<DSP_SCALER_HELPER_IN> kHelperCases[] = {
    {"fit_height", [](auto &) {}, true},
    {"zero_src_aspect_numerator", [](auto &in) { in.ulSrcAspectNumerator = 0; }, false},
    {"zero_src_aspect_denominator", [](auto &in) { in.ulSrcAspectDenominator = 0; }, false},
    {"zero_src_width", [](auto &in) { in.ulSrcWidth = 0; }, false},
    {"zero_src_height", [](auto &in) { in.ulSrcHeight = 0; }, false},
    {"zero_dst_aspect_numerator", [](auto &in) { in.ulDstAspectNumerator = 0; }, false},
    {"zero_dst_aspect_denominator", [](auto &in) { in.ulDstAspectDenominator = 0; }, false},
    {"zero_dst_width", [](auto &in) { in.ulDstWidth = 0; }, false},
    {"zero_dst_height", [](auto &in) { in.ulDstHeight = 0; }, false},
    {"unread_words_ignored", [](auto &in) { in.ulReserved1 = in.ulReserved2 = ~0u; }, true},
    {"fit_width_partial_source",
     [](auto &in) { in.ulFlags = 1; in.ulSrcRegionWidth = 360; in.ulSrcRegionHeight = 243; },
     true},
    {"fill_whole_source", [](auto &in) { fill(in, 720, 486); }, true},
    {"fill_zero_region", [](auto &in) { fill(in, 0, 0); }, false},
    {"fill_zero_region_width", [](auto &in) { fill(in, 0, 486); }, false},
    {"fill_zero_region_height", [](auto &in) { fill(in, 720, 0); }, false},
    {"fill_smaller_region", [](auto &in) { fill(in, 704, 486); }, false},
    {"fill_larger_region", [](auto &in) { fill(in, 720, 490); }, false},
    {"fill_and_fit_width_bits", [](auto &in) { fill(in, 704, 486); in.ulFlags = 3; }, false},
    {"fill_destination_region_free",
     [](auto &in) { fill(in, 720, 486); in.ulDstRegionWidth = 100; in.ulDstRegionHeight = 7; },
     true},
};
TEST_F(Validation, ScalerHelper) {
  expect_verdicts(kHelperCases, [](Rig &r) -> DSP_SCALER_HELPER_IN & { return r.helper_in; },
                  [](Rig &r) { return DspScalerHelper(&r.helper_in, &r.helper_out); }, "DspScalerHelper");
}

}  // namespace
