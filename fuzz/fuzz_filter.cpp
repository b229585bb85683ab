// DspFilter (FIR and box) on records built from the fuzz input.
#include <cstring>

#include "filter/filter.h"
#include "line_call.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz::Reader r(data, size);
  fuzz::draw_cpu_mask(r);
  DSP_FILTER_PARAMS p{};
  DSP_FIR_SETTINGS fir{};
  DSP_BOX_SETTINGS box{};
  const uint8_t type = r.u8();
  p.eFilterType = type < 120 ? DSP_FILTER_TYPE_FIR : type < 240 ? DSP_FILTER_TYPE_BOX : r.u32();
  // Settings mostly in range, sometimes anywhere.
  const bool wild = r.u8() >= 240;
  fir.ulHorzTaps = wild ? r.u32() : r.range(0, 16);
  fir.ulVertTaps = wild ? r.u32() : r.range(0, 16);
  fir.ulHorzCutoff = wild ? r.u32() : r.range(0, 100);
  fir.ulVertCutoff = wild ? r.u32() : r.range(0, 100);
  fir.ulReserved = r.u32();
  box.ulHorzSize = wild ? r.u32() : r.range(0, 260);
  box.ulVertSize = wild ? r.u32() : r.range(0, 260);
  box.ulReserved = r.u32();
  p.pSettings = r.u8() < 250 ? (p.eFilterType == DSP_FILTER_TYPE_BOX ? static_cast<const void *>(&box)
                                                                     : static_cast<const void *>(&fir))
                             : nullptr;
  p.ulOptions = r.u8() & 3u;
  p.ulReserved = r.u32();

  fuzz::LineCall call;
  fuzz::draw_line_call(r, fuzz::RegionRule::kFieldFactor, &call);
  p.Buffer = call.buffer;
  const DSP_FILTER_PARAMS before = p;
  const DSP_FIR_SETTINGS fir_before = fir;
  const DSP_BOX_SETTINGS box_before = box;
  const bool refused = framedsp::filter_validate(&p) != DSP_S_OK;
  const DSP_HRESULT hr = DspFilter(&p);
  fuzz::require(std::memcmp(&before, &p, sizeof p) == 0, "DspFilter", "the record changed");
  fuzz::require(std::memcmp(&fir_before, &fir, sizeof fir) == 0 &&
                    std::memcmp(&box_before, &box, sizeof box) == 0,
                "DspFilter", "the settings changed");
  if (refused) fuzz::require(hr == DSP_S_OK, "DspFilter", "refused record answered other than S_OK");
  fuzz::require(hr == DSP_S_OK || hr == DSP_E_INVALIDARG, "DspFilter", "unexpected status");
  call.buffer = p.Buffer;
  // A settings error is found before any line is written.
  fuzz::check_line_call("DspFilter", call, before.Buffer, refused || hr == DSP_E_INVALIDARG);
  return 0;
}
