#include "line_call.h"

#include <cstring>

#include "platform/cpu.h"

namespace fuzz {

namespace {

uint32_t draw_max_dim(Reader &r) {
  static const uint32_t kDims[] = {4, 8, 16, 33, 64, 64, 130, 300};
  return r.pick(kDims);
}

void place_like(Reader &r, DSP_IMAGE *out, uint32_t width, uint32_t height) {
  DSP_REGION &reg = out->Buffer.Region;
  reg.ulWidth = width;
  reg.ulHeight = height;
  // Move the region inside the image when it fits, else keep the drawn offset (clipping).
  if (r.u8() < 200 && width <= out->ulWidth && height <= out->ulHeight) {
    reg.ptOffset.x = static_cast<int32_t>(r.range(0, out->ulWidth - width));
    reg.ptOffset.y = static_cast<int32_t>(r.range(0, out->ulHeight - height));
    if (format_facts(out->ePixelFormat).full_chroma == false) reg.ptOffset.x &= ~1;
  }
}

}  // namespace

void draw_cpu_mask(Reader &r) {
  const uint8_t m = r.u8() % 4;
  framedsp::set_cpu_mask(m == 0 ? 0u : m == 1 ? uint32_t{framedsp::kCpuSSE2} : ~0u);
}

void draw_line_call(Reader &r, RegionRule rule, LineCall *call) {
  DSP_BUFFER &b = call->buffer;
  b = DSP_BUFFER{};
  const uint32_t format = draw_format(r, false);
  const uint32_t max_dim = draw_max_dim(r);
  ImageSide in, out;
  draw_image(r, format, max_dim, &in);
  const uint32_t out_format = r.u8() < 250 ? format : draw_format(r, false);
  // Output images of the same size most of the time, so that whole-image calls are common.
  if (r.u8() < 100) {
    out = in;
    out.image.Buffer.eBufferType = r.range(0, 3) == 3 ? in.image.Buffer.eBufferType : r.range(0, 2);
    out.image.eInterlace = r.range(0, 4);
    out.image.eImageOrientation = r.range(0, 2);
    out.image.eColorSpace = r.range(0, 3);
  } else {
    draw_image(r, out_format, max_dim, &out);
  }
  out.image.ePixelFormat = out_format;

  if (rule == RegionRule::kFieldFactor && r.u8() < 230) {
    const bool in_frame = in.image.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
    const bool out_frame = out.image.Buffer.eBufferType == DSP_BUFFER_TYPE_FRAME;
    uint32_t h = in.image.Buffer.Region.ulHeight;
    if (in_frame && !out_frame) h /= 2;
    if (out_frame && !in_frame) h *= 2;
    place_like(r, &out.image, in.image.Buffer.Region.ulWidth, h);
  } else if (rule == RegionRule::kFree && r.u8() < 100) {
    place_like(r, &out.image, in.image.Buffer.Region.ulWidth, in.image.Buffer.Region.ulHeight);
  }
  out.bytes = image_bytes(out.image);
  out.image.Buffer.ulBytes = static_cast<uint32_t>(out.bytes);

  b.In = in.image;
  b.Out = out.image;
  b.ulFlags = r.u8() < 240 ? (r.u8() & 0x1F) : r.u32();
  if (r.u8() >= 128) {  // bands now and then
    b.ulSliceCount = r.range(0, 9);
    b.ulSliceNumber = r.range(0, b.ulSliceCount + 1);
  }

  call->input.reset(new PageBuffer(in.bytes, r.flag(), 0));
  fill_from(r, call->input->data(), in.bytes);
  call->input_copy.assign(call->input->data(), call->input->data() + in.bytes);
  call->output.reset(new OutputImage(out.bytes, r.flag(), r.u32()));
  b.In.Buffer.pBuffer = call->input->data();
  b.Out.Buffer.pBuffer = call->output->data();
  allow_line_operation(b, call->output.get());
}

void check_line_call(const char *target, LineCall &call, const DSP_BUFFER &before, bool refused) {
  set_failure_context(&before);
  require(std::memcmp(&before, &call.buffer, sizeof before) == 0, target, "the record changed");
  require(call.input_copy.empty() ||
              std::memcmp(call.input_copy.data(), call.input->data(), call.input_copy.size()) == 0,
          target, "the input changed");
  call.output->check(target, refused);
  set_failure_context(nullptr);
}

}  // namespace fuzz
