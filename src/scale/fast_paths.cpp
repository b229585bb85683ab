// The fixed-ratio fast paths.  Not built yet: nothing is eligible, so every call takes the
// general path.
#include "scale/fast_paths.h"

namespace framedsp {

bool integer_ratio_eligible(const FastPathCall &) { return false; }
HRESULT integer_ratio_scale(const FastPathCall &) { return kNotImpl; }
bool hd_width_eligible(const FastPathCall &) { return false; }
HRESULT hd_width_scale(const FastPathCall &) { return kNotImpl; }

}  // namespace framedsp
