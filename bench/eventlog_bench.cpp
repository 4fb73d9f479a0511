// The system event log has no row limit, so turning the agent's block into
// the rendered table must stay linear in the number of records.
#include <cstdint>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "html/TableComponent.h"
#include "pages/SystemEventLog.h"

namespace {

std::vector<unsigned char> makeBlock(int64_t records) {
  const std::string message = "PSU2: AC input lost, redundancy degraded";
  std::vector<unsigned char> block;
  for (int64_t i = 0; i < records; ++i) {
    size_t length = 16 + message.size() + 1;
    uint32_t time = 1700000000u + static_cast<uint32_t>(i);
    unsigned char header[16] = {static_cast<unsigned char>(length), static_cast<unsigned char>(length >> 8), 0,
                                static_cast<unsigned char>(i % 4), static_cast<unsigned char>(i), 0x05, 0, 0,
                                static_cast<unsigned char>(time), static_cast<unsigned char>(time >> 8),
                                static_cast<unsigned char>(time >> 16), static_cast<unsigned char>(time >> 24)};
    block.insert(block.end(), header, header + 16);
    block.insert(block.end(), message.begin(), message.end());
    block.push_back(0);
  }
  return block;
}

void BM_EventLogTable(benchmark::State& state) {
  const std::vector<unsigned char> block = makeBlock(state.range(0));
  for (auto _ : state) {
    TableComponent table;
    for (const char* column : {"Status", "Error Code", "Timestamp", "Message"}) table.addColumn(column);
    for (SystemEventLog::Row& row : SystemEventLog::rowsFromBlock(block.data(), block.size())) {
      table.addRow(std::move(row.status), std::move(row.cells));
    }
    std::string html = table.renderContent();
    benchmark::DoNotOptimize(html.data());
  }
  state.SetComplexityN(state.range(0));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_EventLogTable)->RangeMultiplier(8)->Range(64, 32768)->Complexity(benchmark::oN);

}  // namespace

BENCHMARK_MAIN();
