// One agent value read, piece by piece: building the request text, parsing
// the reply and running the getter (no socket), the whole SystemInformation
// read with the exchange answered from memory, and the same read over the
// simulator's socket next to a raw ping-pong of the same bytes (the floor).
#include <benchmark/benchmark.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "agent/SipJson.h"
#include "bench/HeapCounter.h"
#include "bench/RawSocket.h"
#include "sysinfo/CDataStream.h"
#include "sysinfo/SystemInformation.h"
#include "tests/support/AgentSimulator.h"

namespace {

// Heap allocations per iteration of the timed loop.
class AllocationCount {
 public:
  AllocationCount() : m_Start(heap_counter::Allocations()) {}
  void report(benchmark::State& state) const {
    if (state.iterations() == 0) return;
    state.counters["allocs_per_op"] =
        static_cast<double>(heap_counter::Allocations() - m_Start) / static_cast<double>(state.iterations());
  }

 private:
  int64_t m_Start;
};

const char kNumberReply[] = "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":769,\"OI\":3,\"CA\":0,\"ST\":0,\"DA\":1}]}}";
const char kStringReply[] =
    "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":772,\"OI\":3,\"CA\":0,\"ST\":0,\"DA\":\"FAN4 SYS\"}]}}";

std::string RawReply(int64_t bytes) {
  std::string text = "{\"SIP\":{\"V\":1,\"CMD\":[{\"OC\":2832,\"CA\":0,\"ST\":0,\"DA\":{\"RAW\":[";
  for (int64_t i = 0; i < bytes; ++i) {
    if (i != 0) text += ',';
    text += std::to_string((i * 37) & 0xFF);
  }
  text += "]}}]}}";
  return text;
}

// The fill of SystemInformation's read: value id always, sub-index and object
// index only when set, cabinet always.
void FillRead(SipJson& record, unsigned valueId, unsigned objectIndex) {
  SipJson::GenericValue& cmd = record.GetCmd();
  SipJson::SetCmdElemValue(cmd, "OC", valueId, false);
  SipJson::SetCmdElemValue(cmd, "OE", 0, true);
  SipJson::SetCmdElemValue(cmd, "OI", objectIndex, true);
  SipJson::SetCmdElemValue(cmd, "CA", 0, false);
}

// The shared record still holds the previous reply when the next read is
// filled in, so that is what gets serialised.
void BM_BuildReadRequest(benchmark::State& state) {
  SipJson record;
  record.ParseReply(kNumberReply);
  std::string text;
  unsigned index = 0;
  const AllocationCount allocations;
  for (auto _ : state) {
    FillRead(record, 0x0301, ++index & 7);
    record.Serialize(text);
    benchmark::DoNotOptimize(text.data());
  }
  allocations.report(state);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_BuildReadRequest);

void BM_ParseNumberReply(benchmark::State& state) {
  SipJson record;
  const std::string reply = kNumberReply;
  const AllocationCount allocations;
  for (auto _ : state) {
    record.ParseReply(reply);
    unsigned value = 0;
    const bool ok = record.GetCmdElemValue(0, "ST", 22) == 0 && record.HasReplyData() &&
                    record.GetCmdDataType(0) == 6 && record.GetCmdUIntData(0, value);
    benchmark::DoNotOptimize(ok);
    benchmark::DoNotOptimize(value);
  }
  allocations.report(state);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * reply.size()));
}
BENCHMARK(BM_ParseNumberReply);

void BM_ParseStringReply(benchmark::State& state) {
  SipJson record;
  const std::string reply = kStringReply;
  const AllocationCount allocations;
  for (auto _ : state) {
    record.ParseReply(reply);
    std::string value;
    const bool ok = record.GetCmdElemValue(0, "ST", 22) == 0 && record.HasReplyData() &&
                    record.GetCmdDataType(0) == 5 && record.GetCmdDataString(0, value, 0);
    benchmark::DoNotOptimize(ok);
    benchmark::DoNotOptimize(value.data());
  }
  allocations.report(state);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * reply.size()));
}
BENCHMARK(BM_ParseStringReply);

// A RAW block of range(0) bytes: parse, then the stream read's own checks and
// the copy into a CDataStream.
void BM_ParseRawReply(benchmark::State& state) {
  SipJson record;
  const std::string reply = RawReply(state.range(0));
  const AllocationCount allocations;
  for (auto _ : state) {
    record.ParseReply(reply);
    CDataStream stream;
    const SipJson::GenericValue* data = record.FindCmdMember(0, "DA");
    std::vector<unsigned char> bytes;
    if (data != nullptr && data->IsObject() && data->HasMember("RAW") && record.GetCmdDataStream(0, bytes)) {
      stream.assign(std::move(bytes));
    }
    benchmark::DoNotOptimize(stream.data());
  }
  allocations.report(state);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * reply.size()));
  state.counters["block_bytes"] = static_cast<double>(state.range(0));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ParseRawReply)->RangeMultiplier(16)->Range(4, 1 << 20)->Complexity(benchmark::oN);

// ---------------------------------------------------------------------------
// Whole reads through SystemInformation.

AgentSimulator::Options QuietSimulator() {
  AgentSimulator::Options options;
  options.record = false;
  return options;
}

// Started on first use, stopped at exit.
AgentSimulator& Simulator() {
  static AgentSimulator simulator(QuietSimulator());
  return simulator;
}

// Answers every request from memory after serialising it as the real
// exchange does, so only the socket is left out.
class CannedSystemInformation : public SystemInformation {
 public:
  void setReply(std::string reply) { m_Reply = std::move(reply); }
  unsigned Request(SipJson& cmd, unsigned) override {
    cmd.Serialize(m_Text);
    benchmark::DoNotOptimize(m_Text.data());
    cmd.ParseReply(m_Reply);
    return cmd.GetCmdElemValue(cmd.GetCmdIndex(), "ST", 22);
  }

 private:
  std::string m_Reply;
  std::string m_Text;
};

void BM_CannedReadNumber(benchmark::State& state) {
  Simulator();
  CannedSystemInformation info;
  info.setReply(kNumberReply);
  const AllocationCount allocations;
  for (auto _ : state) benchmark::DoNotOptimize(info.getSipNumberValue(0x0301, 0, 3));
  allocations.report(state);
}
BENCHMARK(BM_CannedReadNumber);

void BM_CannedReadString(benchmark::State& state) {
  Simulator();
  CannedSystemInformation info;
  info.setReply(kStringReply);
  const AllocationCount allocations;
  for (auto _ : state) benchmark::DoNotOptimize(info.getSipStringValue(0x0304, 0, 3).size());
  allocations.report(state);
}
BENCHMARK(BM_CannedReadString);

void BM_SimReadNumber(benchmark::State& state) {
  Simulator();
  SystemInformation info;
  const AllocationCount allocations;
  for (auto _ : state) benchmark::DoNotOptimize(info.getSipNumberValue(0x0301, 0, 3));
  allocations.report(state);
}
BENCHMARK(BM_SimReadNumber)->UseRealTime();

void BM_SimReadString(benchmark::State& state) {
  Simulator();
  SystemInformation info;
  const AllocationCount allocations;
  for (auto _ : state) benchmark::DoNotOptimize(info.getSipStringValue(0x0304, 0, 3).size());
  allocations.report(state);
}
BENCHMARK(BM_SimReadString)->UseRealTime();

// The frame a fan status read sends once the record holds a previous reply,
// exchanged with the simulator over a bare socket.
void BM_SimRawPingPong(benchmark::State& state) {
  AgentSimulator& sim = Simulator();
  SipJson record;
  record.ParseReply(kNumberReply);
  FillRead(record, 0x0301, 3);
  const std::string frame = rawsocket::Frame(record.Serialize());

  const std::string path = sim.path("/dev/omadsj");
  const int fd = rawsocket::Connect(path);
  if (fd < 0) {
    state.SkipWithError("connect failed");
    return;
  }
  std::vector<char> reply(64 * 1024);
  const AllocationCount allocations;
  for (auto _ : state) {
    uint32_t replyLength = 0;
    if (!rawsocket::WriteAll(fd, frame) ||
        !rawsocket::ReadExactly(fd, reinterpret_cast<char*>(&replyLength), 4) || replyLength > reply.size() ||
        !rawsocket::ReadExactly(fd, reply.data(), replyLength)) {
      state.SkipWithError("ping-pong failed");
      break;
    }
    benchmark::DoNotOptimize(reply.data());
  }
  allocations.report(state);
  close(fd);
}
BENCHMARK(BM_SimRawPingPong)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
