#include "Tables.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>

#include "kernels/Choice.h"

namespace orvacam::bench {

namespace {

using NamedTable = std::pair<std::string, const kernels::KernelTable*>;

std::vector<NamedTable> tablesOfThisProcessor() {
  const kernels::Processor processor = kernels::thisProcessor();
  std::vector<NamedTable> found;
  std::size_t count = 0;
  const kernels::KernelTable* const* tables = kernels::allTables(count);
  for (std::size_t i = 0; i < count; ++i)
    if (kernels::runs(processor, *tables[i]))
      found.emplace_back(tables[i]->name, tables[i]);
    else
      std::fprintf(stderr, "this processor does not run the kernels '%s'\n", tables[i]->name);
  const auto isChosen = [](const NamedTable& table) { return table.first == chosenTable().name; };
  if (std::none_of(found.begin(), found.end(), isChosen)) found.emplace_back("chosen", &chosenTable());
  return found;
}

}  // namespace

const kernels::KernelTable& chosenTable() {
  static const kernels::KernelTable table = kernels::choose(kernels::thisProcessor());
  return table;
}

const std::vector<NamedTable>& tablesToCompare() {
  static const std::vector<NamedTable> tables = tablesOfThisProcessor();
  return tables;
}

void addContext() {
  benchmark::AddCustomContext("compiler", __VERSION__);
  benchmark::AddCustomContext("kernels", chosenTable().name);
}

}  // namespace orvacam::bench
