#ifndef ORVACAM_SRC_FACE_FAILURE_H
#define ORVACAM_SRC_FACE_FAILURE_H

#include <orvacam_c.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace orvacam::face {

/// What is thrown inside the face; guarded() turns it into a status and the thread's last reason.
struct Failure {
  int kind;  ///< an orva_reason
  std::string text;
  std::uint64_t needed = 0, available = 0;
  std::string path = {};
  int systemError = 0;
};

[[noreturn]] inline void fail(int kind, std::string text) {
  throw Failure{kind, std::move(text)};
}

/// "4096 x 2048", for texts of reasons.
inline std::string sizeText(std::uint64_t width, std::uint64_t height) {
  return std::to_string(width) + " x " + std::to_string(height);
}

/// The exception in hand as the thread's last reason; minus its kind.
orva_status noteException() noexcept;

/// Runs a step of the C interface. Nothing gets out of it but a status.
template <typename Step>
orva_status guarded(const Step& step) noexcept {
  try {
    step();
    return 0;
  } catch (...) {
    return noteException();
  }
}

/// Throws bad_argument for null.
template <typename Type>
Type& required(Type* pointer, const char* what) {
  if (pointer == nullptr) fail(ORVA_BAD_ARGUMENT, std::string(what) + " is null");
  return *pointer;
}

/// Runs a step that makes something for `out`, which is null after a failure.
template <typename Type, typename Step>
orva_status handOut(Type** out, const Step& make) noexcept {
  return guarded([&] {
    required(out, "out") = nullptr;
    *out = make();
  });
}

/// Copies a record out, no more of it than the caller has room for. Records begin with their size.
template <typename Record>
void give(Record* target, Record record, const char* what) {
  constexpr std::size_t sizeField = sizeof(std::size_t);
  const std::size_t room = required(target, what).size;
  if (room < sizeField) fail(ORVA_BAD_ARGUMENT, std::string(what) + " does not state its size");
  record.size = room;
  __builtin_memcpy(static_cast<void*>(target), &record, room < sizeof record ? room : sizeof record);
}

/// Reads a record in: what the caller's does not have is 0.
template <typename Record>
Record taken(const Record* source, const char* what) {
  const std::size_t given = required(source, what).size;
  if (given < sizeof(std::size_t)) fail(ORVA_BAD_ARGUMENT, std::string(what) + " does not state its size");
  Record record{};
  __builtin_memcpy(static_cast<void*>(&record), source, given < sizeof record ? given : sizeof record);
  return record;
}

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_FAILURE_H
