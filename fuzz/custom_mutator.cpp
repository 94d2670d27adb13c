// What libFuzzer calls to change an input: half of the time a field of a header, else whatever it does
// itself.

#include <algorithm>

#include "header_mutator.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t capacity);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t capacity,
                                               unsigned int seed);

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t capacity,
                                               unsigned int seed) {
  if (seed % 2 == 0) {
    std::vector<std::uint8_t> bytes(data, data + size);
    if (fuzz::mutateHeader(bytes, capacity, seed / 2)) {
      std::copy(bytes.begin(), bytes.end(), data);
      return bytes.size();
    }
  }
  return LLVMFuzzerMutate(data, size, capacity);
}
