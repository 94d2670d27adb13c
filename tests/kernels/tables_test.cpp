// The tables as wholes, and the choice among them for processors that are made up.

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

#include "kernels/KernelTesting.h"

namespace {

using namespace kernel_testing;
using kernels::KernelTable;
using kernels::Maker;
using kernels::Processor;

constexpr std::size_t entriesFrom = offsetof(KernelTable, unpack12);
constexpr std::size_t entryCount = (sizeof(KernelTable) - entriesFrom) / sizeof(void*);
using Entries = std::array<const void*, entryCount>;

/// The functions of a table, whatever they are called.
Entries entriesOf(const KernelTable& table) {
  static_assert(sizeof(void (*)()) == sizeof(void*));
  Entries entries{};
  std::memcpy(entries.data(), reinterpret_cast<const char*>(&table) + entriesFrom, sizeof entries);
  return entries;
}

template <auto Entry>
std::size_t placeOf() {
  static const KernelTable table{};
  return (reinterpret_cast<const char*>(&(table.*Entry)) - reinterpret_cast<const char*>(&table) -
          entriesFrom) /
         sizeof(void*);
}

std::vector<const KernelTable*> everyTable() {
  std::size_t count = 0;
  const KernelTable* const* tables = kernels::allTables(count);
  return {tables, tables + count};
}

const KernelTable* tableNamed(const std::string& name) {
  for (const KernelTable* table : everyTable())
    if (table->name == name) return table;
  return nullptr;
}

TEST(KernelTables, StartWithThePlainOneWhichNeedsNothing) {
  ASSERT_FALSE(everyTable().empty());
  EXPECT_EQ(everyTable().front(), &kernels::plain());
  EXPECT_EQ(kernels::plain().needs, 0u);
  EXPECT_STREQ(kernels::plain().name, "plain");
}

TEST(KernelTables, HaveAFunctionOfTheirOwnInEveryEntry) {
  // Every entry is built for its instruction set, even the loops that tables share in the source, so that
  // none is another table's function. That vector entries use the set's registers is checked on the object
  // files.
  std::vector<const void*> seen;
  for (const KernelTable* const table : everyTable()) {
    const Entries entries = entriesOf(*table);
    for (std::size_t i = 0; i < entries.size(); ++i) {
      ASSERT_NE(entries[i], nullptr) << "entry " << i << " of " << table->name;
      EXPECT_EQ(std::count(seen.begin(), seen.end(), entries[i]), 0)
          << "entry " << i << " of " << table->name;
    }
    seen.insert(seen.end(), entries.begin(), entries.end());
  }
}

TEST(KernelTables, StreamWithFunctionsOfTheirOwnUnlessPlain) {
  for (const KernelTable* const table : everyTable()) {
    const KernelTable& t = *table;
    const bool isPlain = table == &kernels::plain();
    EXPECT_EQ(t.unpack12Streaming == t.unpack12, isPlain) << t.name;
    EXPECT_EQ(t.swapBytesStreaming == t.swapBytes, isPlain) << t.name;
    EXPECT_EQ(t.swapBytesMirroredStreaming == t.swapBytesMirrored, isPlain) << t.name;
    EXPECT_EQ(t.mergeUniformStreaming == t.mergeUniform, isPlain) << t.name;
    EXPECT_EQ(t.mergePlanesStreaming == t.mergePlanes, isPlain) << t.name;
    EXPECT_EQ(t.mergePackedUniformStreaming == t.mergePackedUniform, isPlain) << t.name;
    EXPECT_EQ(t.mergePackedPlanesStreaming == t.mergePackedPlanes, isPlain) << t.name;
    const Entries entries = entriesOf(t);
    if (isPlain) continue;
    for (const void* const entry : entries)
      EXPECT_EQ(std::count(entries.begin(), entries.end(), entry), 1) << t.name;
  }
}

// ---- The choice

/// Expects the entries of one table, but for those at some places, which are another's.
void expectMixed(const Processor& processor, const char* name, const KernelTable& table,
                 const std::vector<std::size_t>& placesOfOther, const KernelTable& other) {
  const KernelTable chosen = kernels::choose(processor);
  EXPECT_STREQ(chosen.name, name);
  Entries expected = entriesOf(table);
  for (const std::size_t place : placesOfOther)
    expected.at(place) = entriesOf(other).at(place);
  EXPECT_EQ(entriesOf(chosen), expected);
}

void expectWhole(const Processor& processor, const KernelTable& table) {
  expectMixed(processor, table.name, table, {}, table);
}

#if defined(__x86_64__)

constexpr std::uint32_t everyFeature = kernels::featureAvx2 | kernels::featureAvx512;

TEST(KernelChoice, IsTheLastTableWhoseFeaturesThereAre) {
  for (const Maker maker : {Maker::other, Maker::amd})
    for (const std::uint32_t family : {0u, 6u, 25u, 26u, 27u}) {
      expectWhole({maker, family, 0}, kernels::plain());
      expectWhole({maker, family, kernels::featureAvx2}, *tableNamed("avx2"));
      if (maker == Maker::amd && (family == 25 || family == 26)) continue;
      expectWhole({maker, family, everyFeature}, *tableNamed("avx512"));
    }
}

TEST(KernelChoice, TakesSimpleLoopsAndSumsOfCountsFromAvx2OnAmdFamily25) {
  const Processor processor = {Maker::amd, 25, everyFeature};
  expectMixed(processor,
              "avx512 with avx2's unpack12, swapBytes, swapBytesMirrored, subtractBias, addToSums16, "
              "keepLesser, keepGreater, sumCounts",
              *tableNamed("avx512"),
              {placeOf<&KernelTable::unpack12>(), placeOf<&KernelTable::swapBytes>(),
               placeOf<&KernelTable::swapBytesMirrored>(), placeOf<&KernelTable::subtractBias>(),
               placeOf<&KernelTable::addToSums16>(), placeOf<&KernelTable::keepLesser>(),
               placeOf<&KernelTable::keepGreater>(), placeOf<&KernelTable::sumCounts>()},
              *tableNamed("avx2"));
}

TEST(KernelChoice, TakesWhatIsBoundByMemoryFromAvx2OnAmdFamily26) {
  const Processor processor = {Maker::amd, 26, everyFeature};
  expectMixed(processor, "avx512 with avx2's unpack12, unpack12Streaming, mergePackedPlanesStreaming",
              *tableNamed("avx512"),
              {placeOf<&KernelTable::unpack12>(), placeOf<&KernelTable::unpack12Streaming>(),
               placeOf<&KernelTable::mergePackedPlanesStreaming>()},
              *tableNamed("avx2"));
}

TEST(KernelChoice, NeverTakesWhatTheProcessorDoesNotRun) {
  for (const std::uint32_t family : {25u, 26u})
    expectWhole({Maker::amd, family, kernels::featureAvx512}, *tableNamed("avx512"));
}

#elif defined(__aarch64__)

TEST(KernelChoice, IsNeonOnEveryProcessor) {
  expectWhole({Maker::other, 0, 0}, *tableNamed("neon"));
}

#endif

TEST(KernelChoice, IsMadeOnceForTheProcessorThatRuns) {
  EXPECT_EQ(&kernels::active(), &kernels::active());
  EXPECT_EQ(entriesOf(kernels::active()), entriesOf(kernels::choose(kernels::thisProcessor())));
  EXPECT_TRUE(kernels::runs(kernels::thisProcessor(), kernels::active()));
}

}  // namespace
