#ifndef ORVACAM_TESTS_SUPPORT_FAULT_INJECTOR_H
#define ORVACAM_TESTS_SUPPORT_FAULT_INJECTOR_H

/// \file
/// Lets the library's calls to the memory and the file system fail, one chosen call at a time, and counts the
/// memory that it holds. The program is linked by orvacam_inject_faults (tests/support/CMakeLists.txt), which
/// sends these calls here; everything else that is linked in takes the same way, so that calls fail only
/// where a test asks for it. For one thread.

#include <cstddef>

namespace faults {

/// The calls that may fail. `New` stands for every form of operator new.
enum class Call : unsigned int {
  None,
  Malloc,  // aligned_alloc, too
  Calloc,
  Realloc,
  New,
  FileOpen,  // fopen, fdopen
  FileClose,
  FileRead,
  FileWrite,
  FileSeek,
  FileTell,
  FileFlush,
  Open,
  Read,
  Write,
  Close,
  Control,        // fcntl
  Status,         // stat, fstat
  MakeDirectory,  // mkdtemp, too
  Rename,
  CurrentDirectory,
  DiskSpace,
  Count
};
const char* nameOf(Call call);

/// Whether one call fails or that one and all that follow, as memory that ran out and full disks have it.
enum class Extent { Once, FromThenOn };

/// While it lives, the call of that number (from 0) fails: of all kinds, counted together, or of one kind.
class Failing {
 public:
  Failing(long number, Extent extent, Call only = Call::None);
  Failing(const Failing&) = delete;
  Failing& operator=(const Failing&) = delete;
  ~Failing();

  /// The first call that failed; None as long as none did.
  static Call first();
  /// Whether a call of this kind failed.
  static bool had(Call call);
};

/// While it lives, write() takes one byte less than half of what it is given (at least one) and is
/// interrupted by a signal each other time: both are successes that a caller goes on after.
class InterruptedWrites {
 public:
  InterruptedWrites();
  InterruptedWrites(const InterruptedWrites&) = delete;
  InterruptedWrites& operator=(const InterruptedWrites&) = delete;
  ~InterruptedWrites();
};

/// While it lives, the clock stands still, so that what is stamped with the time is the same each time.
class StoppedClock {
 public:
  StoppedClock();
  StoppedClock(const StoppedClock&) = delete;
  StoppedClock& operator=(const StoppedClock&) = delete;
  ~StoppedClock();
};

/// Memory that was allocated while this lives and not given back, in bytes as asked for.
class MemoryWatch {
 public:
  MemoryWatch();
  MemoryWatch(const MemoryWatch&) = delete;
  MemoryWatch& operator=(const MemoryWatch&) = delete;
  ~MemoryWatch();

  std::size_t blocks() const;
  std::size_t bytes() const;
  /// The most bytes held at a time.
  std::size_t peak() const;
};

/// Open file descriptors of the process.
unsigned int openDescriptors();

}  // namespace faults

#endif  // ORVACAM_TESTS_SUPPORT_FAULT_INJECTOR_H
