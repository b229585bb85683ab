// Win32 implementation of the platform layer, and the DLL entry point that loads and unloads the
// library.
#include "platform/platform.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <atomic>
#include <cstring>

#include "platform/handle.h"

#if defined(_MSC_VER)
#pragma comment(lib, "advapi32.lib")
#pragma comment(lib, "user32.lib")
#endif

namespace framedsp {
namespace platform {

namespace {

constexpr char kSectionName[] = "Global\\{7F0369A3-6A89-4fa8-AF2E-1F173F606C0C}";
constexpr DWORD kCounterBytes = 4;

// Stands in for the shared word when the section cannot be had.
uint32_t g_local_word = 0;
std::atomic<uint32_t *> g_counter_word{nullptr};
std::atomic<HANDLE> g_section{nullptr};

// A null access list lets processes of every user open the section.  When the descriptor
// cannot be built the failure is dropped and the section gets the default security instead.
struct SectionSecurity {
  SECURITY_DESCRIPTOR descriptor;
  SECURITY_ATTRIBUTES attributes;
  SectionSecurity() {
    attributes.nLength = sizeof attributes;
    attributes.lpSecurityDescriptor = &descriptor;
    attributes.bInheritHandle = FALSE;
    if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)) {
      attributes.lpSecurityDescriptor = nullptr;
    }
  }
};

SECURITY_ATTRIBUTES *section_attributes() {
  static SectionSecurity security;
  return &security.attributes;
}

// Every page of [address, address + n) committed and readable.  Checked before the copy, since
// not every system's ReadProcessMemory refuses no-access pages of the calling process (Wine's
// reads them), and a guard page must not be tripped.
bool pages_readable(const void *address, size_t n) {
  constexpr DWORD kReadable = PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ |
                              PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
  uintptr_t at = reinterpret_cast<uintptr_t>(address);
  const uintptr_t end = at + n;
  if (end < at) return false;
  while (at < end) {
    MEMORY_BASIC_INFORMATION info;
    if (VirtualQuery(reinterpret_cast<LPCVOID>(at), &info, sizeof info) == 0) return false;
    if (info.State != MEM_COMMIT || (info.Protect & PAGE_GUARD) || !(info.Protect & kReadable)) {
      return false;
    }
    at = reinterpret_cast<uintptr_t>(info.BaseAddress) + info.RegionSize;
  }
  return true;
}

}  // namespace

void *vm_allocate(size_t bytes) {
  if (bytes == 0) return nullptr;
  return VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
}

void vm_release(void *address, size_t /*bytes*/) {
  if (address) VirtualFree(address, 0, MEM_RELEASE);
}

uint32_t *shared_counter_open(bool *shared) {
  uint32_t *word = g_counter_word.load(std::memory_order_acquire);
  if (!word) {
    char name[sizeof kSectionName];
    std::memcpy(name, kSectionName, sizeof name);
    HANDLE section = CreateFileMappingA(INVALID_HANDLE_VALUE, section_attributes(),
                                        PAGE_READWRITE | SEC_COMMIT, 0, kCounterBytes, name);
    uint32_t *view = nullptr;
    if (section) view = static_cast<uint32_t *>(MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, 0));
    // Racing first users each open a view; one installs its own, the others give theirs back.
    uint32_t *candidate = view ? view : &g_local_word;
    if (g_counter_word.compare_exchange_strong(word, candidate, std::memory_order_acq_rel)) {
      word = candidate;
      g_section.store(section, std::memory_order_release);
    } else {
      if (view) UnmapViewOfFile(view);
      if (section) CloseHandle(section);
    }
  }
  if (shared) *shared = word != &g_local_word;
  return word;
}

void shared_counter_close() {
  uint32_t *word = g_counter_word.exchange(nullptr, std::memory_order_acq_rel);
  if (word && word != &g_local_word) UnmapViewOfFile(word);
  HANDLE section = g_section.exchange(nullptr, std::memory_order_acq_rel);
  if (section) CloseHandle(section);
}

const char *shared_counter_name() { return kSectionName; }

bool probe_read(const void *address, void *out, size_t n) {
  if (!pages_readable(address, n)) return false;
#if defined(_MSC_VER)
  __try {
    std::memcpy(out, address, n);
  } __except (GetExceptionCode() == EXCEPTION_ACCESS_VIOLATION ? EXCEPTION_EXECUTE_HANDLER
                                                                 : EXCEPTION_CONTINUE_SEARCH) {
    return false;
  }
  return true;
#else
  // No structured exception handling here: the kernel copies, which fails cleanly should another
  // thread have freed the pages since they were checked.
  SIZE_T got = 0;
  return ReadProcessMemory(GetCurrentProcess(), address, out, n, &got) && got == n;
#endif
}

void probe_use_fallback(bool /*on*/) {}

void show_text(const char *text) { MessageBoxA(nullptr, text, nullptr, MB_OK); }

void on_load() {
  (void)section_attributes();
  identity_counter_open();
}

void on_unload() { identity_counter_close(); }

}  // namespace platform
}  // namespace framedsp

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) {
    DisableThreadLibraryCalls(instance);
    framedsp::platform::on_load();
  } else if (reason == DLL_PROCESS_DETACH) {
    framedsp::platform::on_unload();
  }
  return TRUE;
}
