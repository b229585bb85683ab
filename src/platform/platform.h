// The operating-system calls the library makes, behind one small interface with a POSIX and a
// Win32 implementation (platform_posix.cpp, platform_win32.cpp).  Nothing else includes OS
// headers.
#pragma once

#include <cstddef>
#include <cstdint>

namespace framedsp {
namespace platform {

// Committed read/write pages straight from the virtual-memory service; null when refused.
void *vm_allocate(size_t bytes);
void vm_release(void *address, size_t bytes);

// The machine-wide 4-byte counter in named shared memory.  open returns the address of the word
// (never null: a process-local word stands in when the section cannot be had) and whether the
// shared section is in use.
uint32_t *shared_counter_open(bool *shared);
void shared_counter_close();
// The shared-memory object's name on this platform (for tests and tools).
const char *shared_counter_name();

// Reads n bytes at address into out without faulting; false when the memory is not readable.
bool probe_read(const void *address, void *out, size_t n);
// Test hook: probe through the portable fallback even where the direct way works (no effect
// where there is only one way).
void probe_use_fallback(bool on);

// Shows a diagnostic text: message box on Windows (default caption, OK only), stderr elsewhere.
void show_text(const char *text);

// Library load and unload hooks (ELF constructor/destructor or DllMain call these).
void on_load();
void on_unload();

}  // namespace platform
}  // namespace framedsp
