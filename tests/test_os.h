// The operating-system services the tests need, with a POSIX and a Windows half: pages of chosen
// protection (guard pages), addresses that are certainly not mapped, the identity counter's
// named shared memory, and one test body run in several processes at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace framedsp_test {

size_t page_size();
// Read/write pages straight from the virtual-memory service; null when refused.
uint8_t *map_pages(size_t bytes);
// Gives back a whole mapping made by map_pages.
void unmap_pages(void *pages, size_t bytes);
// Takes every access right from whole pages inside a mapping (PROT_NONE, PAGE_NOACCESS).
bool protect_pages(void *pages, size_t bytes);
// An address that is certainly not mapped: a page mapped and given back.
void *unmapped_address();

// Sets the calling thread's last system error (errno, SetLastError).
void set_last_error(int value);

// Why the named shared memory cannot be used here, or null when it can.
const char *named_memory_missing();
// Maps the 4-byte named shared object `name` as a second, independent view; null when it does
// not exist.  *everyone: whether every user of the machine may open it too.
uint32_t *map_named_word(const char *name, bool *everyone);
void unmap_named_word(uint32_t *word);

// Runs draw() in `children` other processes and in this one, all starting together, and
// returns what each drew (this process's first); empty with *error set when a child failed.
// A child is a fresh copy of this test process (POSIX: forked; Windows: this program started
// again with the current test alone), so draw must not rely on state the test built earlier.
std::vector<std::vector<uint32_t>> draw_in_processes(int children, std::vector<uint32_t> (*draw)(),
                                                     std::string *error);

}  // namespace framedsp_test
