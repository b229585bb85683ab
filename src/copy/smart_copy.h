// Format-converting buffer copy (DspBufferSmartCopy).
#pragma once

#include "platform/status.h"

namespace framedsp {

// 0 when the record is accepted, E_INVALIDARG otherwise.
HRESULT smart_copy_validate(const DSP_BUFFER *buffer);
HRESULT smart_copy(const DSP_BUFFER *buffer);
// The same copy for another operation that has validated the record itself (the scaler's
// no-scaling case): no worker entry of its own.  S_OK or E_FAIL.
HRESULT smart_copy_unchecked(const DSP_BUFFER *buffer);

}  // namespace framedsp
