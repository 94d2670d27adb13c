#ifndef ORVACAM_TESTS_KERNELS_KERNEL_TESTING_H
#define ORVACAM_TESTS_KERNELS_KERNEL_TESTING_H

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "kernels/Choice.h"
#include "kernels/Kernels.h"

namespace kernel_testing {

namespace kernels = orvacam::kernels;

constexpr std::uint32_t seed = 20240517;

/// The tables that this processor runs; says loudly which ones it could not.
inline std::vector<const kernels::KernelTable*> runnableTables() {
  std::vector<const kernels::KernelTable*> tables;
  std::size_t count = 0;
  const kernels::KernelTable* const* all = kernels::allTables(count);
  for (std::size_t i = 0; i < count; ++i) {
    if (kernels::runs(kernels::thisProcessor(), *all[i]))
      tables.push_back(all[i]);
    else
      std::cerr << "NOT TESTED: this processor does not run the kernels '" << all[i]->name << "'\n";
  }
  return tables;
}

class EveryTable : public ::testing::TestWithParam<const kernels::KernelTable*> {
 protected:
  const kernels::KernelTable& table() const { return *GetParam(); }
  const kernels::KernelTable& plain() const { return kernels::plain(); }
};

inline std::string tableName(const ::testing::TestParamInfo<const kernels::KernelTable*>& info) {
  return info.param->name;
}

/// Random bytes with many extremes among them.
template <typename Value>
std::vector<Value> noise(std::size_t count, std::mt19937& random) {
  std::vector<Value> values(count);
  for (Value& value : values) {
    const std::uint32_t bits = random();
    const std::uint32_t kind = bits >> 28;
    value = static_cast<Value>(kind == 0   ? 0
                               : kind == 1 ? 0xFFFFFFFFu
                               : kind == 2 ? 4095
                               : kind == 3 ? 0x8000
                                           : bits);
  }
  return values;
}

/// Room for an output at a misalignment, with sentinels ahead and behind.
template <typename Value>
class Guarded {
 public:
  Guarded(std::size_t count, std::size_t misalignment)
      : m_values(count + misalignment + 2 * guard, mark()), m_count(count), m_start(guard + misalignment) {}

  Value* data() { return m_values.data() + m_start; }
  std::vector<Value> values() const {
    return {m_values.begin() + static_cast<std::ptrdiff_t>(m_start),
            m_values.begin() + static_cast<std::ptrdiff_t>(m_start + m_count)};
  }
  bool intact() const {
    for (std::size_t i = 0; i < m_values.size(); ++i)
      if ((i < m_start || i >= m_start + m_count) && m_values[i] != mark()) return false;
    return true;
  }

 private:
  static constexpr std::size_t guard = 64;
  static Value mark() { return static_cast<Value>(0xA5A5A5A5A5A5A5A5u); }
  std::vector<Value> m_values;
  std::size_t m_count;
  std::size_t m_start;
};

}  // namespace kernel_testing

#endif  // ORVACAM_TESTS_KERNELS_KERNEL_TESTING_H
