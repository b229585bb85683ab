// Status values shared by every subsystem.
#pragma once

#include <cstdint>

#include "framedsp/framedsp.h"

namespace framedsp {

using HRESULT = DSP_HRESULT;

constexpr HRESULT kOk = DSP_S_OK;
constexpr HRESULT kPointer = DSP_E_POINTER;
constexpr HRESULT kInvalidArg = DSP_E_INVALIDARG;
constexpr HRESULT kNotImpl = DSP_E_NOTIMPL;
constexpr HRESULT kFail = DSP_E_FAIL;
constexpr HRESULT kOutOfMemory = DSP_E_OUTOFMEMORY;
constexpr HRESULT kHandle = DSP_E_HANDLE;
constexpr HRESULT kUnexpected = DSP_E_UNEXPECTED;

}  // namespace framedsp
