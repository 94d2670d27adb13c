#ifndef ORVACAM_SRC_FACE_COUNTED_H
#define ORVACAM_SRC_FACE_COUNTED_H

#include <atomic>
#include <utility>

namespace orvacam::face {

/// Something that handles share: it goes with the last of them. Any number of threads may hold handles.
class Counted {
 public:
  Counted() = default;
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

  void share() const { m_handles.fetch_add(1, std::memory_order_relaxed); }
  /// Whether this was the last handle.
  bool drop() const { return m_handles.fetch_sub(1, std::memory_order_acq_rel) == 1; }

 protected:
  ~Counted() = default;

 private:
  mutable std::atomic<unsigned long> m_handles{1};
};

/// A handle that the library holds itself.
template <typename Type>
class Held {
 public:
  Held() = default;
  /// Takes over a handle.
  explicit Held(Type* owned) : m_pointer(owned) {}
  Held(const Held& other) : m_pointer(other.m_pointer) {
    if (m_pointer != nullptr) m_pointer->share();
  }
  Held(Held&& other) noexcept : m_pointer(std::exchange(other.m_pointer, nullptr)) {}
  Held& operator=(Held other) noexcept {
    std::swap(m_pointer, other.m_pointer);
    return *this;
  }
  ~Held() {
    if (m_pointer != nullptr && m_pointer->drop()) delete m_pointer;
  }

  /// Another handle of what somebody else holds.
  static Held shared(Type& object) {
    object.share();
    return Held(&object);
  }

  Type* get() const { return m_pointer; }
  Type* operator->() const { return m_pointer; }
  Type& operator*() const { return *m_pointer; }
  explicit operator bool() const { return m_pointer != nullptr; }
  /// Gives the handle away.
  Type* release() { return std::exchange(m_pointer, nullptr); }

 private:
  Type* m_pointer = nullptr;
};

/// The C interface's share and free.
template <typename Type>
Type* shareHandle(const Type* handle) noexcept {
  if (handle != nullptr) handle->share();
  return const_cast<Type*>(handle);
}
template <typename Type>
void freeHandle(Type* handle) noexcept {
  if (handle != nullptr && handle->drop()) delete handle;
}

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_COUNTED_H
