// (being written)
#include "lines/color_kernels.h"
