// Cost of one trace line on each path, against a plain memcpy of a record of
// the same size.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "runtime/CDebug.h"
#include "tests/support/ScopedSystemRoot.h"

namespace {

constexpr char kFormat[] = "\nCSwitchClient::Request: command=%u, object=%u, status=%d";

// A trace log of its own in a scratch root, configured by one application
// section.
struct TraceSetup {
  explicit TraceSetup(const std::string& keys) {
    for (const char* name : {"OV_LOG_DEBUG_LEVEL", "OV_LOG_RINGBUF_DIR", "OV_LOG_RINGBUF_WEIGHT",
                             "TraceFileLimit", "OV_LOG_DYNAMIC_UPDATE", "OV_LOG_FILE_MAX_SIZE"}) {
      unsetenv(name);
    }
    root.makeDirs("/var/log/orvmon");
    root.writeFile("/etc/velmark/OrvanaSuite/TraceConfig/z.ini",
                   "[Zentrix]\n" + keys + "\n[EndOfFile]\n");
    debug = std::make_unique<CDebug>("Zentrix");
  }
  ScopedSystemRoot root;
  std::unique_ptr<CDebug> debug;
};

void BM_SuppressedPrint(benchmark::State& state) {
  TraceSetup setup("FileDebugLevel=1\nMemoryTracesFlag=0");
  CDebug& debug = *setup.debug;
  unsigned i = 0;
  for (auto _ : state) {
    debug.Print(5, kFormat, i, i, 0);
    ++i;
  }
}
BENCHMARK(BM_SuppressedPrint);

void RingRecord(benchmark::State& state, const char* memoryFlag) {
  TraceSetup setup(std::string("FileDebugLevel=2\nRingBufferSizeFactor=2\nRingBufferSizeWeight=1\n") +
                   memoryFlag);
  CDebug& debug = *setup.debug;
  if (debug.GetTraceTarget() != CDebug::kTargetRingBuffer) {
    state.SkipWithError("ring buffer did not start");
    return;
  }
  unsigned i = 0;
  for (auto _ : state) {
    debug.Print(2, kFormat, i, i, 0);
    ++i;
  }
}

void BM_RingRecord(benchmark::State& state) { RingRecord(state, "MemoryTracesFlag=0"); }
BENCHMARK(BM_RingRecord);

void BM_RingRecordWithMemoryColumn(benchmark::State& state) { RingRecord(state, ""); }
BENCHMARK(BM_RingRecordWithMemoryColumn);

void BM_LogFileRecord(benchmark::State& state) {
  TraceSetup setup("FileDebugLevel=2\nMemoryTracesFlag=0");
  CDebug& debug = *setup.debug;
  unsigned i = 0;
  for (auto _ : state) {
    debug.PrintAlways(kFormat, i, i, 0);
    ++i;
  }
}
BENCHMARK(BM_LogFileRecord);

// The floor: copying an already formatted record of the same length into a
// 2 MiB buffer.
void BM_MemcpyRecordBaseline(benchmark::State& state) {
  const std::string record =
      "2024-01-01 12:00:00.000 [0A1B2C3D] Zentrix      "
      "CSwitchClient::Request: command=1234, object=1234, status=0\n";
  std::vector<char> ring(2 * 1024 * 1024);
  size_t offset = 0;
  for (auto _ : state) {
    if (offset + record.size() > ring.size()) offset = 0;
    memcpy(ring.data() + offset, record.data(), record.size());
    benchmark::DoNotOptimize(ring.data() + offset);
    benchmark::ClobberMemory();
    offset += record.size();
  }
}
BENCHMARK(BM_MemcpyRecordBaseline);

}  // namespace

BENCHMARK_MAIN();
