#include "support/FaultInjector.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <map>
#include <new>

// The linker sends a call of f to __wrap_f, and a call of __real_f to f.
// NOLINTBEGIN(bugprone-reserved-identifier)
// clang-format off
#define REAL(function) extern "C" decltype(::function) __real_##function
REAL(malloc); REAL(calloc); REAL(realloc); REAL(aligned_alloc); REAL(free); REAL(fopen); REAL(fdopen);
REAL(fclose); REAL(fread); REAL(fwrite); REAL(fseek); REAL(ftell); REAL(fflush); REAL(open);
REAL(read); REAL(mkdtemp); REAL(rename); REAL(write); REAL(close); REAL(fcntl); REAL(stat);
REAL(fstat); REAL(mkdir); REAL(getcwd); REAL(statvfs); REAL(clock_gettime);
#undef REAL
// clang-format on

namespace faults {

namespace {

// ---- Which call fails

struct State {
  bool active = false;
  Extent extent = Extent::Once;
  Call only = Call::None;
  long untilFailure = 0;
  Call first = Call::None;
  bool had[static_cast<unsigned int>(Call::Count)] = {};
};
State state;
bool clockStands = false;
bool writesAreInterrupted = false;
bool nextWriteIsInterrupted = false;

/// Counts the call; whether it fails.
bool fails(Call call, int error) {
  if (!state.active || (state.only != Call::None && state.only != call)) return false;
  const long left = state.untilFailure--;
  if (left > 0 || (left < 0 && state.extent == Extent::Once)) return false;
  if (state.first == Call::None) state.first = call;
  state.had[static_cast<unsigned int>(call)] = true;
  errno = error;
  return true;
}

// ---- Memory

/// The watch's own memory is not watched.
template <typename Value>
struct Unwatched {
  using value_type = Value;
  Unwatched() = default;
  template <typename Other>
  Unwatched(const Unwatched<Other>& /*other*/) {}  // NOLINT(google-explicit-constructor)
  Value* allocate(std::size_t count) { return static_cast<Value*>(__real_malloc(count * sizeof(Value))); }
  void deallocate(Value* memory, std::size_t /*count*/) { __real_free(memory); }
  bool operator==(const Unwatched& /*other*/) const { return true; }
  bool operator!=(const Unwatched& /*other*/) const { return false; }
};
using Blocks = std::map<void*, std::size_t, std::less<>, Unwatched<std::pair<void* const, std::size_t>>>;

struct Watched {
  bool active = false;
  Blocks blocks;
  std::size_t bytes = 0;
  std::size_t peak = 0;
};

/// Never destroyed: memory is given back until the very end of the program.
Watched& watched() {
  static Watched& only = *new (__real_malloc(sizeof(Watched))) Watched;
  return only;
}

void* took(void* memory, std::size_t size) {
  Watched& w = watched();
  if (!w.active || memory == nullptr) return memory;
  w.blocks[memory] = size;
  w.bytes += size;
  w.peak = std::max(w.peak, w.bytes);
  return memory;
}

void gave(void* memory) {
  Watched& w = watched();
  if (!w.active || memory == nullptr) return;
  const auto block = w.blocks.find(memory);
  if (block == w.blocks.end()) return;
  w.bytes -= block->second;
  w.blocks.erase(block);
}

void* allocate(std::size_t size) {
  return fails(Call::New, ENOMEM) ? nullptr : took(__real_malloc(size > 0 ? size : 1), size);
}

void* allocateOrThrow(std::size_t size) {
  void* const memory = allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void release(void* memory) {
  gave(memory);
  __real_free(memory);
}

}  // namespace

const char* nameOf(Call call) {
  static constexpr const char* names[] = {"none",   "malloc", "calloc", "realloc", "new",   "fopen",
                                          "fclose", "fread",  "fwrite", "fseek",   "ftell", "fflush",
                                          "open",   "read",   "write",  "close",   "fcntl", "stat",
                                          "mkdir",  "rename", "getcwd", "statvfs"};
  static_assert(sizeof names / sizeof names[0] == static_cast<unsigned int>(Call::Count));
  return names[static_cast<unsigned int>(call)];
}

Failing::Failing(long number, Extent extent, Call only) {
  state = State();
  state.extent = extent;
  state.only = only;
  state.untilFailure = number;
  state.active = true;
}
Failing::~Failing() {
  state.active = false;
}
Call Failing::first() {
  return state.first;
}
bool Failing::had(Call call) {
  return state.had[static_cast<unsigned int>(call)];
}

InterruptedWrites::InterruptedWrites() {
  writesAreInterrupted = true;
}
InterruptedWrites::~InterruptedWrites() {
  writesAreInterrupted = false;
}

StoppedClock::StoppedClock() {
  clockStands = true;
}
StoppedClock::~StoppedClock() {
  clockStands = false;
}

MemoryWatch::MemoryWatch() {
  watched().blocks.clear();
  watched().bytes = watched().peak = 0;
  watched().active = true;
}
MemoryWatch::~MemoryWatch() {
  watched().active = false;
}
std::size_t MemoryWatch::blocks() const {
  return watched().blocks.size();
}
std::size_t MemoryWatch::bytes() const {
  return watched().bytes;
}
std::size_t MemoryWatch::peak() const {
  return watched().peak;
}

unsigned int openDescriptors() {
  unsigned int count = 0;
  for (int file = 0; file < 256; ++file)
    if (__real_fcntl(file, F_GETFD) >= 0) ++count;
  return count;
}

}  // namespace faults

// ---- What the linker calls

using faults::Call;
using faults::fails;

extern "C" {

void* __wrap_malloc(std::size_t size) {
  return fails(Call::Malloc, ENOMEM) ? nullptr : faults::took(__real_malloc(size), size);
}
void* __wrap_aligned_alloc(std::size_t alignment, std::size_t size) {
  return fails(Call::Malloc, ENOMEM) ? nullptr : faults::took(__real_aligned_alloc(alignment, size), size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return fails(Call::Calloc, ENOMEM) ? nullptr : faults::took(__real_calloc(count, size), count * size);
}
void* __wrap_realloc(void* memory, std::size_t size) {
  if (fails(Call::Realloc, ENOMEM)) return nullptr;
  faults::gave(memory);
  return faults::took(__real_realloc(memory, size), size);
}
void __wrap_free(void* memory) {
  faults::release(memory);
}

std::FILE* __wrap_fopen(const char* name, const char* mode) {
  return fails(Call::FileOpen, EMFILE) ? nullptr : __real_fopen(name, mode);
}
std::FILE* __wrap_fdopen(int file, const char* mode) {
  return fails(Call::FileOpen, ENOMEM) ? nullptr : __real_fdopen(file, mode);
}
int __wrap_fclose(std::FILE* file) {
  // A failing close closes all the same.
  const bool failing = fails(Call::FileClose, ENOSPC);
  const int status = __real_fclose(file);
  if (failing) errno = ENOSPC;
  return failing ? EOF : status;
}
std::size_t __wrap_fread(void* buffer, std::size_t size, std::size_t count, std::FILE* file) {
  return fails(Call::FileRead, EIO) ? 0 : __real_fread(buffer, size, count, file);
}
std::size_t __wrap_fwrite(const void* buffer, std::size_t size, std::size_t count, std::FILE* file) {
  return fails(Call::FileWrite, ENOSPC) ? 0 : __real_fwrite(buffer, size, count, file);
}
int __wrap_fseek(std::FILE* file, long offset, int from) {
  return fails(Call::FileSeek, EIO) ? -1 : __real_fseek(file, offset, from);
}
long __wrap_ftell(std::FILE* file) {
  return fails(Call::FileTell, EIO) ? -1 : __real_ftell(file);
}
int __wrap_fflush(std::FILE* file) {
  return fails(Call::FileFlush, ENOSPC) ? EOF : __real_fflush(file);
}

int __wrap_open(const char* name, int flags, ...) {
  va_list list;
  va_start(list, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
  va_end(list);
  return fails(Call::Open, EMFILE) ? -1 : __real_open(name, flags, mode);
}
ssize_t __wrap_read(int file, void* bytes, std::size_t count) {
  return fails(Call::Read, EIO) ? -1 : __real_read(file, bytes, count);
}
ssize_t __wrap_write(int file, const void* bytes, std::size_t count) {
  if (fails(Call::Write, ENOSPC)) return -1;
  if (!faults::writesAreInterrupted) return __real_write(file, bytes, count);
  faults::nextWriteIsInterrupted = !faults::nextWriteIsInterrupted;
  if (faults::nextWriteIsInterrupted) {
    errno = EINTR;
    return -1;
  }
  return __real_write(file, bytes, count > 3 ? count / 2 - 1 : std::min<std::size_t>(count, 1));
}
int __wrap_close(int file) {
  const bool failing = fails(Call::Close, ENOSPC);
  const int status = __real_close(file);
  if (failing) errno = ENOSPC;
  return failing ? -1 : status;
}
int __wrap_fcntl(int file, int command, ...) {
  va_list list;
  va_start(list, command);
  const long argument = va_arg(list, long);
  va_end(list);
  return fails(Call::Control, EIO) ? -1 : __real_fcntl(file, command, argument);
}
int __wrap_stat(const char* name, struct stat* status) {
  return fails(Call::Status, EIO) ? -1 : __real_stat(name, status);
}
int __wrap_fstat(int file, struct stat* status) {
  return fails(Call::Status, EIO) ? -1 : __real_fstat(file, status);
}
int __wrap_mkdir(const char* name, mode_t mode) {
  return fails(Call::MakeDirectory, ENOSPC) ? -1 : __real_mkdir(name, mode);
}
char* __wrap_mkdtemp(char* name) {
  return fails(Call::MakeDirectory, ENOSPC) ? nullptr : __real_mkdtemp(name);
}
int __wrap_rename(const char* from, const char* to) {
  return fails(Call::Rename, EIO) ? -1 : __real_rename(from, to);
}
char* __wrap_getcwd(char* buffer, std::size_t size) {
  return fails(Call::CurrentDirectory, ENOENT) ? nullptr : __real_getcwd(buffer, size);
}
int __wrap_statvfs(const char* name, struct statvfs* status) {
  return fails(Call::DiskSpace, EIO) ? -1 : __real_statvfs(name, status);
}
int __wrap_clock_gettime(clockid_t clock, timespec* time) {
  const int status = __real_clock_gettime(clock, time);
  if (faults::clockStands) *time = {1700000000, 0};
  return status;
}
}
// NOLINTEND(bugprone-reserved-identifier)

void* operator new(std::size_t size) {
  return faults::allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return faults::allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return faults::allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return faults::allocate(size);
}
void operator delete(void* memory) noexcept {
  faults::release(memory);
}
void operator delete[](void* memory) noexcept {
  faults::release(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  faults::release(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  faults::release(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
  faults::release(memory);
}
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept {
  faults::release(memory);
}
