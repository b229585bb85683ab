// The exception guard of every export: anything thrown by the library's own code (allocation
// failures included) becomes E_UNEXPECTED.  Processor faults are not caught.
#pragma once

#include "platform/status.h"

#define FRAMEDSP_GUARD_BEGIN try {
#define FRAMEDSP_GUARD_END                  \
  }                                         \
  catch (...) {                             \
    return ::framedsp::kUnexpected;         \
  }
