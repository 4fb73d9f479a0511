// Rendering cost of the report: one big table on its own, and the whole
// document against the agent simulator, typical and scaled up. Besides time,
// each run reports the output size, the requests sent, and the peak of live
// heap bytes while the document is built and rendered (malloc is counted
// by HeapCounter.h; the simulator is another process and not included).
#include <benchmark/benchmark.h>


#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/HeapCounter.h"
#include "html/CollapsibleComposite.h"
#include "html/HTMLComposite.h"
#include "html/TableComponent.h"
#include "pages/Zentrix.h"
#include "tests/support/AgentSimulator.h"

namespace {

// ---------------------------------------------------------------------------
// One table of range(0) rows, rendered again and again.

// Renders `root` again and again; reports bytes/s, output size and the peak
// heap the render needs beyond the tree.
void MeasureRender(benchmark::State& state, HTMLComponent& root) {
  size_t bytes = 0;
  int64_t heapPeak = 0;
  for (auto _ : state) {
    const int64_t base = heap_counter::StartWatch();
    std::string html = root.renderContent();
    heapPeak = std::max(heapPeak, heap_counter::Peak() - base);
    bytes = html.size();
    benchmark::DoNotOptimize(html.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["output_bytes"] = static_cast<double>(bytes);
  state.counters["heap_peak_per_output"] = bytes ? static_cast<double>(heapPeak) / bytes : 0;
}

void BM_TableRender(benchmark::State& state) {
  TableComponent table;
  for (const char* column : {"Status", "Designation", "Type", "RPM"}) table.addColumn(column);
  for (int64_t i = 0; i < state.range(0); ++i) {
    table.addRow(ComponentStatus(STATUS_NORMAL, "OK"),
                 {"FAN" + std::to_string(i) + " SYS", i % 7 == 0 ? "" : "CPU Fan", std::to_string(5400 + i % 300)});
  }
  MeasureRender(state, table);
}
BENCHMARK(BM_TableRender)->Arg(100000)->Unit(benchmark::kMillisecond);

// A page-shaped tree without the agent: range(0) categories, each holding
// two sections of one 2000-row table, rendered from the top.
void BM_SectionTreeRender(benchmark::State& state) {
  HTMLComposite page;
  for (int64_t c = 0; c < state.range(0); ++c) {
    HTMLComponent* category = new CollapsibleComposite;
    category->setTitle("Category " + std::to_string(c));
    for (int s = 0; s < 2; ++s) {
      HTMLComponent* table = new TableComponent;
      for (const char* column : {"Status", "Designation", "Location"}) table->addColumn(column);
      for (int r = 0; r < 2000; ++r) {
        table->addRow(ComponentStatus(STATUS_WARNING, "Warning"),
                      {"Dual-port 10GbE Adapter (port " + std::to_string(r) + ")", "PCI slot 2, bus 0x18"});
      }
      HTMLComponent* section = new CollapsibleComposite;
      section->setTitle("Section");
      section->setStatus(STATUS_NORMAL);
      section->add(table);
      category->add(section);
    }
    page.add(category);
  }
  MeasureRender(state, page);
}
BENCHMARK(BM_SectionTreeRender)->Arg(10)->Unit(benchmark::kMillisecond);

// ---------------------------------------------------------------------------
// The whole document against the simulator.

long RequestsServed(const AgentSimulator& sim) {
  const std::string status = sim.query("status");
  const size_t at = status.find(" requests=");
  return at == std::string::npos ? 0 : std::strtol(status.c_str() + at + 10, nullptr, 10);
}

void RenderReports(benchmark::State& state, AgentSimulator& sim) {
  if (!sim.running()) {
    state.SkipWithError("simulator did not start");
    return;
  }
  size_t bytes = 0;
  long requests = 0;
  int64_t heapPeak = 0;
  for (auto _ : state) {
    const long before = RequestsServed(sim);
    const int64_t base = heap_counter::StartWatch();
    {
      Zentrix document;
      std::string html = document.renderContent();
      bytes = html.size();
      benchmark::DoNotOptimize(html.data());
    }
    heapPeak = std::max(heapPeak, heap_counter::Peak() - base);
    state.PauseTiming();
    requests = RequestsServed(sim) - before;
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * requests));
  state.counters["output_bytes"] = static_cast<double>(bytes);
  state.counters["requests"] = static_cast<double>(requests);
  state.counters["heap_peak_bytes"] = static_cast<double>(heapPeak);
  state.counters["heap_peak_per_output"] = bytes ? static_cast<double>(heapPeak) / bytes : 0;
}

AgentSimulator::Options SimulatorWith(std::string profile) {
  AgentSimulator::Options options;
  options.profile = std::move(profile);
  options.record = false;
  return options;
}

void BM_ReportTypical(benchmark::State& state) {
  AgentSimulator sim(SimulatorWith("typical"));
  RenderReports(state, sim);
}
BENCHMARK(BM_ReportTypical)->Unit(benchmark::kMillisecond)->UseRealTime();

// A server description with n entries in every component list (RAID: one
// adapter with n logical and n physical drives) and `events` event log
// records. A reply bigger than the socket buffer arrives in pieces, a second
// apart by design, so large event logs measure that pacing above all.
std::string LargeProfile(int64_t n, int64_t events) {
  auto number = [](int64_t v) { return std::to_string(v); };
  auto list = [n](const char* name, auto entry) {
    std::string text = std::string(",\"") + name + "\":[";
    for (int64_t i = 0; i < n; ++i) text += (i ? "," : "") + entry(i);
    return text + "]";
  };
  std::string p = "{\"cabinet\":0,\"system\":{\"model\":\"ORVANA RS9000 XL\",\"serialNumber\":\"VM4K0000001\","
                  "\"hostName\":\"big.example.net\",\"uptimeSeconds\":1123456,\"osName\":\"Debian GNU/Linux 12\"}";
  p += list("fans", [&](int64_t i) {
    return "{\"designation\":\"FAN" + number(i) + " SYS\",\"status\":1,\"type\":3,\"rpm\":" + number(5000 + i % 900) + "}";
  });
  p += list("temperatureSensors", [&](int64_t i) {
    return "{\"designation\":\"Sensor " + number(i) + "\",\"status\":6,\"type\":" + number(1 + i % 5) +
           ",\"celsius\":" + number(20 + i % 40) + "}";
  });
  p += list("powerSupplies", [&](int64_t i) {
    return "{\"designation\":\"PSU" + number(i) + "\",\"status\":1,\"currentWatts\":" + number(100 + i % 700) +
           ",\"nominalWatts\":800}";
  });
  p += list("voltages", [&](int64_t i) {
    return "{\"designation\":\"RAIL " + number(i) + " 3.3V\",\"status\":1,\"current\":330,\"min\":297,\"max\":363}";
  });
  p += list("memoryModules", [&](int64_t i) {
    return "{\"socket\":\"DIMM-" + number(i) + "\",\"status\":1,\"sizeMB\":32768,\"type\":\"DDR5\","
           "\"subtype\":\"RDIMM 4800\"}";
  });
  p += list("processors", [&](int64_t i) {
    return "{\"socket\":\"CPU" + number(i) + "\",\"status\":1,\"type\":\"x86-64 64-Core Processor\",\"mhz\":2600}";
  });
  p += list("pciSlots", [&](int64_t i) {
    return "{\"designation\":\"PCIE-" + number(i) + " (x16)\",\"status\":" + number(i % 2 ? 1 : 4) + "}";
  });
  p += list("driverMonitor", [&](int64_t i) {
    return "{\"designation\":\"Adapter " + number(i) + "\",\"location\":\"PCI bus 0x" + number(i % 256) +
           "\",\"class\":" + number(2 + i % 2) + ",\"status\":1}";
  });
  std::string logical;
  std::string physical;
  for (int64_t i = 0; i < n; ++i) {
    logical += (i ? "," : "") + ("{\"designation\":\"LogicalDrive_" + number(i) +
                                 "\",\"status\":0,\"level\":\"RAID-1\",\"sizeMB\":457862}");
    physical += (i ? "," : "") + ("{\"designation\":\"SSD SATA 6G 480GB (" + number(i) +
                                  ")\",\"status\":0,\"smart\":0,\"interface\":7,\"sizeMB\":457862}");
  }
  p += ",\"raid\":{\"version\":\"7.31.3\",\"status\":1,\"adapters\":[{\"designation\":\"SAS RAID 12G\",\"status\":0,"
       "\"logicalDrives\":[" + logical + "],\"physicalDrives\":[" + physical + "]}]}";
  p += ",\"overall\":{\"environment\":1,\"powerSupply\":1,\"massStorage\":1,\"systemBoard\":1,\"network\":1}";
  p += ",\"ipAddresses\":[\"10.17.4.23\",\"2001:db8:17::23\"]";
  p += ",\"eventLog\":[";
  for (int64_t i = 0; i < events; ++i) {
    p += (i ? "," : "") + ("{\"severity\":" + number(i % 4) + ",\"code\":" + number(800 + i % 4000) +
                           ",\"time\":" + number(1704067200 + 61 * i) +
                           ",\"message\":\"FAN3 SYS: fan speed below warning threshold\"}");
  }
  return p + "]}";
}

void BM_ReportLarge(benchmark::State& state) {
  AgentSimulator sim(SimulatorWith(LargeProfile(state.range(0), state.range(1))));
  RenderReports(state, sim);
}
// Rows with an event log that still fits one socket buffer, then a big log.
BENCHMARK(BM_ReportLarge)
    ->Args({250, 400})
    ->Args({1000, 400})
    ->Args({4000, 400})
    ->Args({250, 4000})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
