// The DSP_BUFFER record as the line engine takes it: the bottom-up re-measure every worker applies
// to its private copy, and the diagnostic dump.
#pragma once

#include "framedsp/framedsp.h"

namespace framedsp {

// Bottom-up re-measure of the region on a private copy: for each side whose orientation is 1,
// ptOffset.y = ulHeight - Region.ulHeight - ptOffset.y.
void normalise_orientation(DSP_BUFFER *copy);
void normalise_side(DSP_IMAGE *image);  // the same for one image

// Diagnostic dump of a buffer record: message box on Windows, stderr elsewhere.  Developer aid;
// no operation calls it.  format_buffer_dump writes the text (returns its length, truncating to
// size - 1 like snprintf).
int format_buffer_dump(const DSP_BUFFER *buffer, const char *title, char *out, int size);
void dump_buffer(const DSP_BUFFER *buffer, const char *title);

}  // namespace framedsp
