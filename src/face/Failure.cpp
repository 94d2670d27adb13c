#include "face/Failure.h"

#include <exception>
#include <new>
#include <utility>

namespace orvacam::face {

namespace {

/// A thread's last reason, and the texts that it points to.
struct LastReason {
  orva_error record{sizeof(orva_error), 0, "", "", 0, 0, 0};
  std::string text, path;

  orva_status note(int kind, const char* plainText) noexcept {
    record = {sizeof(orva_error), kind, plainText, "", 0, 0, 0};
    return -kind;
  }
  orva_status note(Failure&& failure) noexcept {
    text = std::move(failure.text);
    path = std::move(failure.path);
    record = {sizeof(orva_error), failure.kind,      text.c_str(),       path.c_str(),
              failure.needed,     failure.available, failure.systemError};
    return -failure.kind;
  }
};

LastReason& lastReason() {
  thread_local LastReason reason;
  return reason;
}

}  // namespace

orva_status noteException() noexcept {
  LastReason& last = lastReason();
  try {
    throw;
  } catch (Failure& failure) {
    return last.note(std::move(failure));
  } catch (const std::bad_alloc&) {
    return last.note(ORVA_OUT_OF_MEMORY, "there is not enough memory");
  } catch (const std::exception& fault) {
    try {
      return last.note({ORVA_INTERNAL, std::string("a fault of the library: ") + fault.what()});
    } catch (...) {
      return last.note(ORVA_INTERNAL, "a fault of the library");
    }
  } catch (...) {
    return last.note(ORVA_INTERNAL, "a fault of the library");
  }
}

}  // namespace orvacam::face

extern "C" {

const orva_error* orva_last_error(void) {
  return &orvacam::face::lastReason().record;
}

const char* orva_reason_name(int kind) {
  static constexpr const char* names[] = {
      "",         "not_a_frame",  "truncated", "unsupported_sensor", "bad_geometry",
      "mismatch", "bad_argument", "io",        "out_of_memory",      "internal"};
  constexpr int count = sizeof names / sizeof *names;
  return kind > 0 && kind < count ? names[kind] : "";
}
}
