// Load and unload of the library on POSIX systems: the ELF constructor and destructor play the
// part DllMain plays on Windows (platform_win32.cpp).  Both run once per process for the shared
// library.  When the library is linked statically this object file may be dropped by the linker;
// the identity counter then opens itself on first use (handle.cpp).
#include "platform/platform.h"

#if !defined(_WIN32)

namespace {

__attribute__((constructor)) void framedsp_library_load() { framedsp::platform::on_load(); }

__attribute__((destructor)) void framedsp_library_unload() { framedsp::platform::on_unload(); }

}  // namespace

#endif
