#ifndef ORVACAM_SRC_FACE_STACK_CONTENTS_H
#define ORVACAM_SRC_FACE_STACK_CONTENTS_H

#include <orvacam_c.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "face/Counted.h"
#include "face/Images.h"

namespace orvacam::face {

/// The settings that what a stack keeps depends on.
struct StackRule {
  int method;
  double sigmaLow = 3, sigmaHigh = 3;
};

/// What a stack keeps of its frames, by its method. Planes are of 16 bits and of one size.
class StackContents {
 public:
  StackContents() = default;
  StackContents(const StackContents&) = delete;
  StackContents& operator=(const StackContents&) = delete;
  virtual ~StackContents() = default;

  /// A frame's plane. Throws std::bad_alloc, and is then as before; so does merge.
  virtual void add(const Held<const orva_image>& plane) = 0;
  /// What another stack of the same method keeps; may be this one.
  virtual void merge(const StackContents& other) = 0;
  /// The result: of doubles, rounded to floats, cut off to 16 bits.
  virtual void result(double* values) const = 0;
  virtual void result(float* values) const = 0;
  virtual void result(std::uint16_t* values) const = 0;
};

/// Exact sums: of a mean or a sum.
class StackSums : public StackContents {
 public:
  StackSums(bool isMean, std::size_t pixels) : m_isMean(isMean), m_sums(pixels), m_squares(pixels) {}
  StackSums(bool isMean, std::size_t pixels, std::uint64_t count, const std::uint64_t* sums,
            const std::uint64_t* squares)
      : m_isMean(isMean), m_count(count), m_sums(sums, sums + pixels), m_squares(squares, squares + pixels) {}

  void add(const Held<const orva_image>& plane) override;
  void merge(const StackContents& other) override;
  void result(double* values) const override;
  void result(float* values) const override;
  void result(std::uint16_t* values) const override;

  const std::vector<std::uint64_t>& sums() const { return m_sums; }
  const std::vector<std::uint64_t>& squares() const { return m_squares; }

 private:
  bool m_isMean;
  std::uint64_t m_count = 0;
  std::vector<std::uint64_t> m_sums, m_squares;
};

/// Nothing yet, for planes of so many pixels.
std::unique_ptr<StackContents> emptyContents(const StackRule& rule, std::size_t pixels);

}  // namespace orvacam::face

#endif  // ORVACAM_SRC_FACE_STACK_CONTENTS_H
