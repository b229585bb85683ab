#include "test_os.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <aclapi.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace framedsp_test {

namespace {

std::string ids_file(int child) {
  const auto dir = std::filesystem::temp_directory_path();
#if defined(_WIN32)
  const unsigned long pid = GetCurrentProcessId();
#else
  const unsigned long pid = static_cast<unsigned long>(getpid());
#endif
  return (dir / ("framedsp-ids-" + std::to_string(pid) + "-" + std::to_string(child))).string();
}

bool write_ids(const std::string &path, const std::vector<uint32_t> &ids) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char *>(ids.data()), std::streamsize(ids.size() * sizeof(uint32_t)));
  return bool(out.flush());
}

std::vector<uint32_t> read_ids(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<uint32_t> ids;
  uint32_t id;
  while (in.read(reinterpret_cast<char *>(&id), sizeof id)) ids.push_back(id);
  in.close();
  std::remove(path.c_str());
  return ids;
}

}  // namespace

#if defined(_WIN32)

size_t page_size() {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  return info.dwPageSize;
}

uint8_t *map_pages(size_t bytes) {
  return static_cast<uint8_t *>(VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
}

void unmap_pages(void *pages, size_t) { VirtualFree(pages, 0, MEM_RELEASE); }

bool protect_pages(void *pages, size_t bytes) {
  DWORD old;
  return VirtualProtect(pages, bytes, PAGE_NOACCESS, &old) != 0;
}

void set_last_error(int value) { SetLastError(static_cast<DWORD>(value)); }

const char *named_memory_missing() { return nullptr; }

uint32_t *map_named_word(const char *name, bool *everyone) {
  const DWORD access = FILE_MAP_READ | FILE_MAP_WRITE | READ_CONTROL;
  HANDLE section = OpenFileMappingA(access, FALSE, name);
  if (!section) return nullptr;
  PACL dacl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  // A present but null access list grants everything to everyone.
  *everyone = GetSecurityInfo(section, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                              &dacl, nullptr, &descriptor) == ERROR_SUCCESS && !dacl;
  if (descriptor) LocalFree(descriptor);
  void *view = MapViewOfFile(section, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 4);
  CloseHandle(section);
  return static_cast<uint32_t *>(view);
}

void unmap_named_word(uint32_t *word) { UnmapViewOfFile(word); }

// The child's instructions travel in the environment: "<ids file>|<start event>".
constexpr char kChildVariable[] = "FRAMEDSP_TEST_CHILD";

std::vector<std::vector<uint32_t>> draw_in_processes(int children, std::vector<uint32_t> (*draw)(),
                                                     std::string *error) {
  if (const char *task = std::getenv(kChildVariable)) {
    const std::string text = task;
    const size_t bar = text.find('|');
    HANDLE start = OpenEventA(SYNCHRONIZE, FALSE, text.substr(bar + 1).c_str());
    if (!start || WaitForSingleObject(start, 60000) != WAIT_OBJECT_0) ExitProcess(4);
    ExitProcess(write_ids(text.substr(0, bar), draw()) ? 0 : 5);
  }
  const std::string event = "framedsp-test-start-" + std::to_string(GetCurrentProcessId());
  HANDLE start = CreateEventA(nullptr, TRUE, FALSE, event.c_str());
  char program[MAX_PATH];
  GetModuleFileNameA(nullptr, program, sizeof program);
  const auto *test = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string command = std::string("\"") + program + "\" --gtest_filter=" + test->test_suite_name() +
                        "." + test->name();
  SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
  HANDLE null_out =
      CreateFileA("NUL", GENERIC_WRITE, FILE_SHARE_WRITE, &inherit, OPEN_EXISTING, 0, nullptr);
  // The copy runs the one test, whatever shard of the suite this process runs.
  const char *shard_variables[] = {"GTEST_TOTAL_SHARDS", "GTEST_SHARD_INDEX"};
  std::string shards[2];
  for (int i = 0; i < 2; ++i) {
    if (const char *value = std::getenv(shard_variables[i])) shards[i] = value;
    SetEnvironmentVariableA(shard_variables[i], nullptr);
  }
  std::vector<PROCESS_INFORMATION> started;
  for (int c = 0; c < children; ++c) {
    SetEnvironmentVariableA(kChildVariable, (ids_file(c) + "|" + event).c_str());
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = null_out;  // the copy's own test report
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process{};
    std::vector<char> line(command.begin(), command.end());
    line.push_back('\0');
    if (CreateProcessA(program, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                       &process)) {
      started.push_back(process);
    }
  }
  SetEnvironmentVariableA(kChildVariable, nullptr);
  for (int i = 0; i < 2; ++i) {
    if (!shards[i].empty()) SetEnvironmentVariableA(shard_variables[i], shards[i].c_str());
  }
  SetEvent(start);
  std::vector<std::vector<uint32_t>> ids{draw()};
  for (size_t c = 0; c < started.size(); ++c) {
    DWORD code = 1;
    if (WaitForSingleObject(started[c].hProcess, 120000) != WAIT_OBJECT_0 ||
        !GetExitCodeProcess(started[c].hProcess, &code) || code != 0) {
      *error = "child " + std::to_string(c) + " failed with " + std::to_string(code);
    }
    CloseHandle(started[c].hProcess);
    CloseHandle(started[c].hThread);
    ids.push_back(read_ids(ids_file(int(c))));
  }
  CloseHandle(null_out);
  CloseHandle(start);
  if (int(started.size()) != children) *error = "could not start the child processes";
  if (!error->empty()) ids.clear();
  return ids;
}

#else

size_t page_size() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

uint8_t *map_pages(size_t bytes) {
  void *p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : static_cast<uint8_t *>(p);
}

void unmap_pages(void *pages, size_t bytes) { munmap(pages, bytes); }

bool protect_pages(void *pages, size_t bytes) { return mprotect(pages, bytes, PROT_NONE) == 0; }

void set_last_error(int value) { errno = value; }

// POSIX shared memory lives in /dev/shm on Linux; where it is missing or read-only the counter
// falls back to a process-local word by design.
const char *named_memory_missing() {
  if (access("/dev/shm", W_OK | X_OK) == 0) return nullptr;
  return "/dev/shm is unavailable here: ids are process-local";
}

uint32_t *map_named_word(const char *name, bool *everyone) {
  const int fd = shm_open(name, O_RDWR, 0);
  if (fd < 0) return nullptr;
  struct stat st{};
  *everyone = fstat(fd, &st) == 0 && (st.st_mode & 0777) == 0666;
  void *view = MAP_FAILED;
  if (st.st_size >= 4) view = mmap(nullptr, 4, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return view == MAP_FAILED ? nullptr : static_cast<uint32_t *>(view);
}

void unmap_named_word(uint32_t *word) { munmap(word, 4); }

std::vector<std::vector<uint32_t>> draw_in_processes(int children, std::vector<uint32_t> (*draw)(),
                                                     std::string *error) {
  int start[2];
  if (pipe(start) != 0) {
    *error = "pipe failed";
    return {};
  }
  std::fflush(nullptr);  // or the children write the parent's buffered output again
  std::vector<pid_t> pids;
  for (int c = 0; c < children; ++c) {
    const std::string file = ids_file(c);  // named after the parent
    const pid_t pid = fork();
    if (pid == 0) {
      close(start[1]);
      char byte;
      if (read(start[0], &byte, 1) != 0) _exit(4);  // released when the parent closes `start`
      _exit(write_ids(file, draw()) ? 0 : 5);
    }
    if (pid > 0) pids.push_back(pid);
  }
  close(start[0]);
  close(start[1]);
  std::vector<std::vector<uint32_t>> ids{draw()};
  for (size_t c = 0; c < pids.size(); ++c) {
    int status = 0;
    if (waitpid(pids[c], &status, 0) != pids[c] || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      *error = "child " + std::to_string(c) + " failed with status " + std::to_string(status);
    }
    ids.push_back(read_ids(ids_file(int(c))));
  }
  if (int(pids.size()) != children) *error = "fork failed";
  if (!error->empty()) ids.clear();
  return ids;
}

#endif

void *unmapped_address() {
  const size_t page = page_size();
  void *p = map_pages(page);
  if (p) unmap_pages(p, page);
  return p;
}

}  // namespace framedsp_test
