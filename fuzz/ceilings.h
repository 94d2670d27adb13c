#ifndef ORVACAM_FUZZ_CEILINGS_H
#define ORVACAM_FUZZ_CEILINGS_H

#include <orvacam.h>
#include <signal.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define FUZZ_COUNTS_MEMORY 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FUZZ_COUNTS_MEMORY 1
#endif
#endif

// AddressSanitizer's own interface, which clang and gcc both have.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, std::size_t),
                                                         void (*onFree)(const volatile void*));
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void* memory);

namespace fuzz {

/// The bytes of a plane that a header claims, binned or not, worked out by the widest arithmetic that there
/// is and apart from the library's; the largest number when that is more. 0 where the image ends before it
/// starts.
inline std::uint64_t claimedPlane(const CFrameMetaData& metaData, bool binned) {
  const auto value = [&](ORVA_META_KEYS key) { return std::uint64_t{metaData.Value(key).GetValueUint()}; };
  const auto axis = [&](ORVA_META_KEYS start, ORVA_META_KEYS stop, ORVA_META_KEYS before,
                        ORVA_META_KEYS after, ORVA_META_KEYS binning) -> std::uint64_t {
    if (value(stop) < value(start)) return 0;
    const std::uint64_t factor = binned ? std::max<std::uint64_t>(value(binning), 1) : 1;
    const auto parts = [&](std::uint64_t size) { return (size + factor - 1) / factor; };
    return parts(value(stop) - value(start) + 1) + parts(value(before)) + parts(value(after));
  };
  const unsigned __int128 bytes =
      static_cast<unsigned __int128>(axis(ORVA_META_KEY_IMAGE_START_COLUMN, ORVA_META_KEY_IMAGE_STOP_COLUMN,
                                          ORVA_META_KEY_PRE_ROW_REF_PIXELS, ORVA_META_KEY_POST_ROW_REF_PIXELS,
                                          ORVA_META_KEY_HORIZONTAL_BINNING)) *
      axis(ORVA_META_KEY_IMAGE_START_ROW, ORVA_META_KEY_IMAGE_STOP_ROW, ORVA_META_KEY_PRE_REFERENCE_ROWS,
           ORVA_META_KEY_POST_REFERENCE_ROWS, ORVA_META_KEY_VERTICAL_BINNING) *
      2;
  return bytes > ~std::uint64_t{0} ? ~std::uint64_t{0} : static_cast<std::uint64_t>(bytes);
}

/// The same of a frame's bytes; 0 of what does not parse.
inline std::uint64_t claimedPlane(std::vector<unsigned char> frame, bool binned) {
  CFrameMetaData metaData;
  if (metaData.Parse(frame.data(), static_cast<unsigned int>(frame.size())) < 0) return 0;
  return claimedPlane(metaData, binned);
}

/// Holds one execution of a target to the memory and the time that its input justifies, in the target itself,
/// so that what breaks a ceiling stops where it does:
///   64 MiB beyond 16 times the largest plane that the input may rightly claim (8 MiB, or 64 times its
///   bytes), where AddressSanitizer counts the memory; one second of the processor, in libFuzzer programs
///   (FUZZ_CEILINGS): no test depends on time.
class Ceilings {
 public:
  Ceilings(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {
#if defined(FUZZ_COUNTS_MEMORY)
    static const int installed = __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree);
    if (installed == 0) fail("the hooks of AddressSanitizer cannot be installed");
    s_live = s_most = 0;
    s_counting = true;
#endif
    setTimer(seconds);
  }
  Ceilings(const Ceilings&) = delete;
  Ceilings& operator=(const Ceilings&) = delete;
  ~Ceilings() {
    setTimer(0);
    s_counting = false;
    if (s_most > allowedWithoutClaim && s_most > allowedWithoutClaim + planes * claimed())
      fail("memory beyond what the input claims");
  }

 private:
  static constexpr std::int64_t allowedWithoutClaim = 64 << 20;
  static constexpr std::int64_t largestClaim = 8 << 20;
  static constexpr std::int64_t planes = 16;
  static constexpr long seconds = 1;

  [[noreturn]] static void fail(const char* what) {
    std::fprintf(stderr, "must hold: no %s\n", what);
    std::abort();
  }

  /// The largest claim of any header in the input that is in proportion to it.
  std::int64_t claimed() const {
    const auto most =
        static_cast<std::uint64_t>(std::max(largestClaim, static_cast<std::int64_t>(64 * m_size)));
    const std::string_view text(reinterpret_cast<const char*>(m_data), m_size);
    std::uint64_t largest = 0;
    for (const std::string_view word : {"Meta", "SIMPLE"})
      for (std::size_t at = text.find(word); at != text.npos; at = text.find(word, at + 1))
        for (const bool binned : {false, true}) {
          const std::uint64_t claim = claimedPlane({m_data + at, m_data + m_size}, binned);
          if (claim <= most) largest = std::max(largest, claim);
        }
    return static_cast<std::int64_t>(largest);
  }

#if defined(FUZZ_CEILINGS)
  static void setTimer(long limit) {
    struct sigaction action {};
    action.sa_handler = [](int) {
      constexpr char text[] = "must hold: no more than a second of work\n";
      static_cast<void>(!::write(STDERR_FILENO, text, sizeof text - 1));
      std::abort();
    };
    ::sigaction(SIGPROF, &action, nullptr);
    const itimerval timer{{0, 0}, {limit, 0}};
    ::setitimer(ITIMER_PROF, &timer, nullptr);
  }
#else
  static void setTimer(long) {}
#endif

  static void onMalloc(const volatile void*, std::size_t size) {
    if (!s_counting) return;
    s_live += static_cast<std::int64_t>(size);
    s_most = std::max(s_most, s_live);
    // Whatever the claim is: stop where it happens.
    if (s_live > allowedWithoutClaim + planes * largestClaim) {
      s_counting = false;
      fail("memory beyond what any small input claims");
    }
  }
#if defined(FUZZ_COUNTS_MEMORY)
  static void onFree(const volatile void* memory) {
    if (s_counting && memory != nullptr)
      s_live -= static_cast<std::int64_t>(__sanitizer_get_allocated_size(memory));
  }
#endif

  static inline bool s_counting = false;
  static inline std::int64_t s_live = 0;
  static inline std::int64_t s_most = 0;

  const std::uint8_t* m_data;
  std::size_t m_size;
};

}  // namespace fuzz

/// A target's body, held to the ceilings: FUZZ_TARGET(data, size) { ...; return 0; }
#define FUZZ_TARGET(data, size)                                                          \
  static int fuzzOne(const std::uint8_t* data, std::size_t size);                        \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t length);  \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t length) { \
    const fuzz::Ceilings ceilings(input, length);                                        \
    return fuzzOne(input, length);                                                       \
  }                                                                                      \
  static int fuzzOne(const std::uint8_t* data, std::size_t size)

#endif  // ORVACAM_FUZZ_CEILINGS_H
