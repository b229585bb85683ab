// POSIX implementation of the platform layer: anonymous mappings for work memory, a POSIX
// shared-memory object for the machine-wide identity counter, and fault-free probing reads.
#include "platform/platform.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "platform/handle.h"

namespace framedsp {
namespace platform {

namespace {

// The section name the Windows build uses, turned into a POSIX name: a leading '/', and the
// namespace separator '\' (legal, but awkward in /dev/shm listings) replaced by '_'.
constexpr char kSectionName[] = "Global\\{7F0369A3-6A89-4fa8-AF2E-1F173F606C0C}";
constexpr size_t kCounterBytes = 4;

struct PosixName {
  char text[sizeof(kSectionName) + 1];
  PosixName() {
    text[0] = '/';
    for (size_t i = 0; i < sizeof(kSectionName); ++i) {
      const char c = kSectionName[i];
      text[i + 1] = (c == '\\' || c == '/') ? '_' : c;
    }
  }
};

const PosixName &posix_name() {
  static const PosixName name;
  return name;
}

// Stands in for the shared word when the section cannot be had; ids are then unique only
// within this process.
uint32_t g_local_word = 0;
// The word in use: a mapped view of the section, &g_local_word, or null while closed.
std::atomic<uint32_t *> g_counter_word{nullptr};

std::atomic<bool> g_probe_fallback{false};

uint32_t *map_section() {
  const int fd = shm_open(posix_name().text, O_CREAT | O_RDWR | O_CLOEXEC, 0666);
  if (fd < 0) return nullptr;
  uint32_t *word = nullptr;
  struct stat st;
  bool sized = fstat(fd, &st) == 0;
  if (sized && st.st_size < static_cast<off_t>(kCounterBytes)) {
    // A new object (ours or a racing peer's): the creator's umask may have narrowed 0666, and
    // every user must be able to open it.  ftruncate only grows it, so a race is harmless.
    (void)fchmod(fd, 0666);
    sized = ftruncate(fd, kCounterBytes) == 0;
  }
  if (sized) {
    void *view = mmap(nullptr, kCounterBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (view != MAP_FAILED) word = static_cast<uint32_t *>(view);
  }
  close(fd);
  return word;
}

bool probe_with_pipe(const void *address, void *out, size_t n) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return false;
  bool ok = true;
  size_t done = 0;
  // A pipe holds at least one page, and n is a few words, so write and read never block.
  while (ok && done < n) {
    // The raw system call: a sanitizer's write() wrapper checks the source bytes itself, and a
    // stale handle points into freed memory.
    const char *from = static_cast<const char *>(address) + done;
    const ssize_t w = syscall(SYS_write, fds[1], from, n - done);
    if (w <= 0) {
      ok = false;
      break;
    }
    const ssize_t r = read(fds[0], static_cast<char *>(out) + done, static_cast<size_t>(w));
    ok = r == w;
    done += static_cast<size_t>(w);
  }
  close(fds[0]);
  close(fds[1]);
  return ok;
}

}  // namespace

void *vm_allocate(size_t bytes) {
  if (bytes == 0) return nullptr;
  // Work memory is written in full right after it is taken, so its pages are committed by the
  // mapping call itself: one trip into the kernel instead of a page fault per page, which costs a
  // good share of a frame's time on virtualised hosts.
  int flags = MAP_PRIVATE | MAP_ANONYMOUS;
#if defined(MAP_POPULATE)
  flags |= MAP_POPULATE;
#endif
  void *p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, flags, -1, 0);
  return p == MAP_FAILED ? nullptr : p;
}

void vm_release(void *address, size_t bytes) {
  if (address) munmap(address, bytes);
}

uint32_t *shared_counter_open(bool *shared) {
  uint32_t *word = g_counter_word.load(std::memory_order_acquire);
  if (!word) {
    // Lock-free: racing openers each map a view; one installs its own, the others unmap theirs.
    uint32_t *view = map_section();
    uint32_t *candidate = view ? view : &g_local_word;
    if (g_counter_word.compare_exchange_strong(word, candidate, std::memory_order_acq_rel)) {
      word = candidate;
    } else if (view) {
      munmap(view, kCounterBytes);
    }
  }
  if (shared) *shared = word != &g_local_word;
  return word;
}

void shared_counter_close() {
  uint32_t *word = g_counter_word.exchange(nullptr, std::memory_order_acq_rel);
  if (word && word != &g_local_word) munmap(word, kCounterBytes);
}

const char *shared_counter_name() { return posix_name().text; }

bool probe_read(const void *address, void *out, size_t n) {
  if (n == 0) return true;
  const int saved_errno = errno;
  // The kernel copies from our own address space and reports EFAULT for pages that are
  // unmapped or unreadable, so no signal is ever raised.
  iovec local{out, n};
  iovec remote{const_cast<void *>(address), n};
  ssize_t got = -1;
  errno = ENOSYS;
  if (!g_probe_fallback.load(std::memory_order_relaxed)) {
    got = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
  }
  bool ok = got == static_cast<ssize_t>(n);
  if (got < 0 && errno != EFAULT) {
    // The call itself is unavailable (old kernel, seccomp): write() into a pipe checks the
    // source the same way and fails with EFAULT.
    ok = probe_with_pipe(address, out, n);
  }
  errno = saved_errno;
  return ok;
}

void probe_use_fallback(bool on) { g_probe_fallback.store(on, std::memory_order_relaxed); }

void show_text(const char *text) {
  std::fputs(text ? text : "", stderr);
  std::fputc('\n', stderr);
  std::fflush(stderr);
}

void on_load() { identity_counter_open(); }

void on_unload() { identity_counter_close(); }

}  // namespace platform
}  // namespace framedsp
