#ifndef ORVACAM_TESTS_MERGE_HANDED_OUT_H
#define ORVACAM_TESTS_MERGE_HANDED_OUT_H

#include <orvacam/types/merge_types.h>

#include <vector>

/// Planes of terms that a merge handed out, deleted at the end.
struct HandedOut : ref_frames_t {
  HandedOut() : ref_frames_t{} {}
  HandedOut(const HandedOut&) = delete;
  HandedOut& operator=(const HandedOut&) = delete;
  ~HandedOut() { clear(); }

  void clear() {
    delete[] pAdditiveLow;
    delete[] pAdditiveHigh;
    delete[] pMultiplicativeLow;
    delete[] pMultiplicativeHigh;
    static_cast<ref_frames_t&>(*this) = {};
  }
  template <typename Term>
  std::vector<int> termsOf(const Term* plane) const {
    return {plane, plane + uiWidth * uiHeight};
  }
  std::vector<int> additiveLow() const { return termsOf(pAdditiveLow); }
  std::vector<int> additiveHigh() const { return termsOf(pAdditiveHigh); }
  std::vector<int> multiplicativeLow() const { return termsOf(pMultiplicativeLow); }
  std::vector<int> multiplicativeHigh() const { return termsOf(pMultiplicativeHigh); }
};

#endif  // ORVACAM_TESTS_MERGE_HANDED_OUT_H
