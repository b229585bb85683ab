// (being written)
#include "lines/lctrl.h"
