// The kov benchmarks: W1 pack and unpack with kov and with the hand-written codec, a long
// distributed list, a layout of deferred fields, the checksum and the map. Each W1 image is held
// against its published SHA-256 and the reference writer before it is timed; a mismatch ends the
// program with status 1. After the runs a summary gives the scaling from 3,000 to 30,000
// instances, kov against the hand-written codec, and the targets.
//
// The headline rows time what a user pays for W1: w1_pack_whole builds the pack tree, packs it
// and frees it; w1_unpack_whole makes the CKovUp, unpacks and frees it; w1_json_pack and
// w1_json_unpack go from values text to image bytes and back through the declarative layer (the
// work of kovtool pack and unpack without the process start and the file I/O). The rows
// w1_pack, w1_unpack and w1_unpack_copy are their breakdown: FillImage over a tree built once,
// FullUnpack with the freeing left out of the timing.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "bench/sha256.h"
#include "bench/w1.h"
#include "bench/w1_json.h"
#include "bench/workloads.h"
#include "kov/kov.h"
#include "kovjson/jsonlayout.h"
#include "kovjson/jsonread.h"
#include "kovjson/jsonvalues.h"

namespace {

const uint32_t kW1Sizes[] = {300, 3000, 30000};
// Both sizes lie beyond the 1 MiB second-level cache: at 2000 instances the deferred workload
// still fitted there and ran twice as fast an instance, which the ratio showed as super-linear.
const uint32_t kDeferredSizes[] = {5000, 50000};

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "kov_bench: %s\n", what.c_str());
  std::exit(1);
}

std::string kovTextOf(CMevGenException* e) {
  std::string text = e->GetMessage();
  delete e;
  return text;
}

// Everything W1 needs at one size, built and checked once; one size is held at a time.
struct W1Data {
  uint32_t b = 0;
  std::vector<w1::Bank> banks;
  std::vector<uint8_t> image;
  std::unique_ptr<w1::PackTree> tree;
  std::string valuesText;  // the values file of banks
};

const CKovCpLayout* w1Layout() {
  static std::unique_ptr<CKovCpLayout> layout = w1::makeLayout();
  return layout.get();
}

const CKovJsonLayout& w1JsonLayout() {
  static std::unique_ptr<CKovJsonLayout> layout =
      CKovJsonLayout::Load(w1::jsonLayout(), "w1.layout.json", false);
  return *layout;
}

// Values text to image bytes through the declarative layer.
std::vector<uint8_t> jsonPack(const std::string& valuesText) {
  const CKovJsonLayout& layout = w1JsonLayout();
  auto data = kovJsonPackData(layout, kovJsonParse(valuesText, "w1.values.json"), "w1.values.json");
  return kovJsonPackImage(layout, *data, false, "");
}

// Image bytes to values text through the declarative layer.
std::string jsonUnpack(const std::vector<uint8_t>& image) {
  const CKovJsonLayout& layout = w1JsonLayout();
  CKovUp up(layout.GetCpLayout(), image, "");
  up.FullUnpack();
  return kovJsonUnpackedValues(layout, up).dump(2) + "\n";
}

const W1Data& w1Data(uint32_t b) {
  static W1Data data;
  if (data.b == b) return data;
  data = W1Data();
  data.b = b;
  data.banks = w1::makeBanks(b);
  data.image = w1::referenceImage(data.banks);
  std::string sum = kovBenchSha256Hex(data.image.data(), data.image.size());
  if (sum != w1::publishedSha256(b))
    fail("W1 reference image of B=" + std::to_string(b) + ": " + sum);
  std::vector<uint8_t> hand;
  if (!w1::handPack(data.banks, hand) || hand != data.image) fail("hand-written pack differs");
  std::vector<w1::Bank> handBanks;
  if (!w1::handUnpack(data.image.data(), data.image.size(), handBanks) || handBanks != data.banks) {
    fail("hand-written unpack differs");
  }
  data.tree = w1::makePackTree(w1Layout(), data.banks);
  try {
    if (w1::kovPack(w1Layout(), *data.tree) != data.image) fail("kov pack differs");
    CKovUp up(w1Layout(), data.image, "");
    up.FullUnpack();
    std::vector<w1::Bank> kovBanks;
    w1::copyOut(up, kovBanks);
    if (kovBanks != data.banks) fail("kov unpack differs");
    data.valuesText = w1::jsonValues(data.banks);
    if (jsonPack(data.valuesText) != data.image) fail("pack of the values file differs");
    if (jsonUnpack(data.image) != data.valuesText) fail("unpack to a values file differs");
  } catch (CMevGenException* e) {
    fail("kov: " + kovTextOf(e));
  } catch (const KovJsonError& e) {
    fail(std::string("kovjson: ") + e.what());
  }
  return data;
}

void setW1Counters(benchmark::State& state, uint32_t b) {
  state.counters["fields"] = benchmark::Counter(double{w1::kFieldsPerInstance} * b,
                                                benchmark::Counter::kIsIterationInvariantRate);
  state.counters["bytes"] = benchmark::Counter(double{w1::kInstanceSz} * b,
                                               benchmark::Counter::kIsIterationInvariantRate);
}

void w1PackKov(benchmark::State& state) {
  uint32_t b = static_cast<uint32_t>(state.range(0));
  const W1Data& data = w1Data(b);
  for (auto _ : state) {
    CKovImage image(b * w1::kInstanceSz);
    CKovPk pk(&data.tree->blks, 0);
    uint32_t used = 0;
    pk.FillImage(w1Layout(), &image, used, nullptr, 0, 0, 0);
    benchmark::DoNotOptimize(image.GetBytesArray());
  }
  setW1Counters(state, b);
}

// What the application pays for a pack: the tree built, packed and freed.
void w1PackWhole(benchmark::State& state) {
  uint32_t b = static_cast<uint32_t>(state.range(0));
  const W1Data& data = w1Data(b);
  for (auto _ : state) {
    std::unique_ptr<w1::PackTree> tree = w1::makePackTree(w1Layout(), data.banks);
    CKovImage image(b * w1::kInstanceSz);
    CKovPk pk(&tree->blks, 0);
    uint32_t used = 0;
    pk.FillImage(w1Layout(), &image, used, nullptr, 0, 0, 0);
    benchmark::DoNotOptimize(image.GetBytesArray());
  }
  setW1Counters(state, b);
}

// The same with the pack tree made in an arena of the application's (kov/platform/arena.h): built
// and freed inside its scope, packed outside it, the arena dropped whole.
void w1PackWholeArena(benchmark::State& state) {
  uint32_t b = static_cast<uint32_t>(state.range(0));
  const W1Data& data = w1Data(b);
  for (auto _ : state) {
    CKovArena arena;
    std::unique_ptr<w1::PackTree> tree;
    {
      KovArenaScope scope(&arena);
      tree = w1::makePackTree(w1Layout(), data.banks);
    }
    CKovImage image(b * w1::kInstanceSz);
    {
      CKovPk pk(&tree->blks, 0);
      uint32_t used = 0;
      pk.FillImage(w1Layout(), &image, used, nullptr, 0, 0, 0);
    }
    benchmark::DoNotOptimize(image.GetBytesArray());
    KovArenaScope scope(&arena);
    tree.reset();
  }
  setW1Counters(state, b);
}

// What the application pays for an unpack: the CKovUp made, unpacked and freed.
void w1UnpackWhole(benchmark::State& state) {
  uint32_t b = static_cast<uint32_t>(state.range(0));
  const W1Data& data = w1Data(b);
  for (auto _ : state) {
    CKovUp up(w1Layout(), data.image, "");
    up.FullUnpack();
    benchmark::DoNotOptimize(&up);
  }
  setW1Counters(state, b);
}

void w1JsonPack(benchmark::State& state) {
  uint32_t b = static_cast<uint32_t>(state.range(0));
  const W1Data& data = w1Data(b);
  for (auto _ : state) {
    std::vector<uint8_t> image = jsonPack(data.valuesText);
    benchmark::DoNotOptimize(image.data());
  }
  setW1Counters(state, b);
}

void w1JsonUnpack(benchmark::State& state) {
  uint32_t b = static_cast<uint32_t>(state.range(0));
  const W1Data& data = w1Data(b);
  for (auto _ : state) {
    std::string text = jsonUnpack(data.image);
    benchmark::DoNotOptimize(text.data());
  }
  setW1Counters(state, b);
}

void w1PackHand(benchmark::State& state) {
  uint32_t b = static_cast<uint32_t>(state.range(0));
  const W1Data& data = w1Data(b);
  for (auto _ : state) {
    std::vector<uint8_t> image;
    if (!w1::handPack(data.banks, image)) state.SkipWithError("hand-written pack refused");
    benchmark::DoNotOptimize(image.data());
  }
  setW1Counters(state, b);
}

// The unpack's results are freed outside the timing: W1 times bytes to values in memory.
void w1UnpackKov(benchmark::State& state, bool copyOut) {
  uint32_t b = static_cast<uint32_t>(state.range(0));
  const W1Data& data = w1Data(b);
  std::vector<w1::Bank> banks;
  for (auto _ : state) {
    auto up = std::make_unique<CKovUp>(w1Layout(), data.image, "");
    up->FullUnpack();
    if (copyOut) w1::copyOut(*up, banks);
    benchmark::DoNotOptimize(up.get());
    state.PauseTiming();
    up.reset();
    banks.clear();
    state.ResumeTiming();
  }
  setW1Counters(state, b);
}

void w1UnpackHand(benchmark::State& state) {
  uint32_t b = static_cast<uint32_t>(state.range(0));
  const W1Data& data = w1Data(b);
  std::vector<w1::Bank> banks;
  for (auto _ : state) {
    if (!w1::handUnpack(data.image.data(), data.image.size(), banks)) {
      state.SkipWithError("hand-written unpack refused");
    }
    benchmark::DoNotOptimize(banks.data());
    state.PauseTiming();
    banks.clear();
    state.ResumeTiming();
  }
  setW1Counters(state, b);
}

void setWorkloadCounters(benchmark::State& state, const KovBenchWorkload& w) {
  state.counters["fields"] =
      benchmark::Counter(w.numFields, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["bytes"] =
      benchmark::Counter(w.imageSz, benchmark::Counter::kIsIterationInvariantRate);
}

void workloadPack(benchmark::State& state, const KovBenchWorkload& w) {
  for (auto _ : state) {
    CKovImage image(w.imageSz);
    CKovPk pk(&w.pkBlks, 0);
    uint32_t used = 0;
    pk.FillImage(w.layout.get(), &image, used, nullptr, 0, 0, 0);
    benchmark::DoNotOptimize(image.GetBytesArray());
  }
  setWorkloadCounters(state, w);
}

void workloadUnpack(benchmark::State& state, const KovBenchWorkload& w,
                    const std::vector<uint8_t>& image) {
  for (auto _ : state) {
    auto up = std::make_unique<CKovUp>(w.layout.get(), image, "");
    up->FullUnpack();
    benchmark::DoNotOptimize(up.get());
    state.PauseTiming();
    up.reset();
    state.ResumeTiming();
  }
  setWorkloadCounters(state, w);
}

// A workload and its image, made on first use.
struct Workload {
  std::unique_ptr<KovBenchWorkload> w;
  std::vector<uint8_t> image;
};

Workload makeWorkload(std::unique_ptr<KovBenchWorkload> w, const char* what) {
  Workload made;
  try {
    made.image = kovBenchPack(*w);
  } catch (CMevGenException* e) {
    fail(std::string(what) + ": " + kovTextOf(e));
  }
  if (made.image.size() != w->imageSz) fail(std::string(what) + ": unexpected image size");
  try {
    CKovUp up(w->layout.get(), made.image, "");
    up.FullUnpack();
  } catch (CMevGenException* e) {
    fail(std::string(what) + ": " + kovTextOf(e));
  }
  made.w = std::move(w);
  return made;
}

const Workload& distList() {
  static Workload made = makeWorkload(kovBenchDistList(60000), "distributed list");
  return made;
}

const Workload& deferred(uint32_t instances) {
  static std::map<uint32_t, Workload> made;
  auto it = made.find(instances);
  if (it == made.end()) {
    it = made.emplace(instances, makeWorkload(kovBenchDeferred(instances), "deferred")).first;
  }
  return it->second;
}

void crc(benchmark::State& state) {
  std::vector<uint8_t> bytes(1 << 20);
  std::mt19937 random(1);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
  for (auto _ : state) {
    uint16_t checksum = 0;
    kovCalculateChecksum(bytes.data(), bytes.size(), checksum);
    benchmark::DoNotOptimize(checksum);
  }
  state.counters["bytes"] =
      benchmark::Counter(double(bytes.size()), benchmark::Counter::kIsIterationInvariantRate);
}

constexpr uint32_t kMapKeys = 100000;

// Distinct keys in no order: i times an odd number is a permutation of the 32-bit numbers.
uint32_t mapKey(uint32_t i) { return i * 0x9E3779B1u; }

void mapInsert(benchmark::State& state) {
  for (auto _ : state) {
    CKovMap<uint32_t, uint32_t> map;
    for (uint32_t i = 0; i < kMapKeys; ++i) map.SetAt(mapKey(i), i);
    benchmark::DoNotOptimize(map.GetCount());
  }
  state.counters["keys"] =
      benchmark::Counter(kMapKeys, benchmark::Counter::kIsIterationInvariantRate);
}

void mapLookup(benchmark::State& state) {
  CKovMap<uint32_t, uint32_t> map;
  for (uint32_t i = 0; i < kMapKeys; ++i) map.SetAt(mapKey(i), i);
  for (auto _ : state) {
    uint32_t sum = 0;
    for (uint32_t i = 0; i < kMapKeys; ++i) {
      uint32_t value = 0;
      map.Lookup(mapKey(i), value);
      sum += value;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.counters["keys"] =
      benchmark::Counter(kMapKeys, benchmark::Counter::kIsIterationInvariantRate);
}

double minOf(const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); }
double maxOf(const std::vector<double>& v) { return *std::max_element(v.begin(), v.end()); }

benchmark::internal::Benchmark* withStats(benchmark::internal::Benchmark* b) {
  return b->ComputeStatistics("min", minOf)
      ->ComputeStatistics("max", maxOf)
      ->Unit(benchmark::kMillisecond);
}

void registerAll() {
  for (uint32_t b : kW1Sizes) {
    auto arg = [b](benchmark::internal::Benchmark* bm) { withStats(bm->ArgName("B")->Arg(b)); };
    arg(benchmark::RegisterBenchmark("w1_pack_whole/kov", w1PackWhole));
    arg(benchmark::RegisterBenchmark("w1_pack_whole_arena/kov", w1PackWholeArena));
    arg(benchmark::RegisterBenchmark("w1_unpack_whole/kov", w1UnpackWhole));
    arg(benchmark::RegisterBenchmark("w1_json_pack/kov", w1JsonPack));
    arg(benchmark::RegisterBenchmark("w1_json_unpack/kov", w1JsonUnpack));
    arg(benchmark::RegisterBenchmark("w1_pack/kov", w1PackKov));
    arg(benchmark::RegisterBenchmark("w1_pack/hand", w1PackHand));
    arg(benchmark::RegisterBenchmark("w1_unpack/kov", w1UnpackKov, false));
    arg(benchmark::RegisterBenchmark("w1_unpack_copy/kov", w1UnpackKov, true));
    arg(benchmark::RegisterBenchmark("w1_unpack/hand", w1UnpackHand));
  }
  // Different images on different threads over one const layout: the throughput of two threads
  // against one, in wall-clock time.
  for (int threads : {1, 2}) {
    withStats(benchmark::RegisterBenchmark("w1_threads_pack_whole/kov", w1PackWhole)
                  ->ArgName("B")
                  ->Arg(3000)
                  ->UseRealTime()
                  ->Threads(threads));
    withStats(benchmark::RegisterBenchmark("w1_threads_unpack_whole/kov", w1UnpackWhole)
                  ->ArgName("B")
                  ->Arg(3000)
                  ->UseRealTime()
                  ->Threads(threads));
  }
  withStats(benchmark::RegisterBenchmark(
      "dist_list_60000/pack", [](benchmark::State& s) { workloadPack(s, *distList().w); }));
  withStats(benchmark::RegisterBenchmark("dist_list_60000/unpack", [](benchmark::State& s) {
    workloadUnpack(s, *distList().w, distList().image);
  }));
  for (uint32_t n : kDeferredSizes) {
    withStats(benchmark::RegisterBenchmark("deferred/pack",
                                           [](benchmark::State& s) {
                                             workloadPack(
                                                 s, *deferred(static_cast<uint32_t>(s.range(0))).w);
                                           })
                  ->ArgName("N")
                  ->Arg(n));
    withStats(benchmark::RegisterBenchmark("deferred/unpack",
                                           [](benchmark::State& s) {
                                             const Workload& w =
                                                 deferred(static_cast<uint32_t>(s.range(0)));
                                             workloadUnpack(s, *w.w, w.image);
                                           })
                  ->ArgName("N")
                  ->Arg(n));
  }
  withStats(benchmark::RegisterBenchmark("crc_1MiB", crc))->Unit(benchmark::kMicrosecond);
  withStats(benchmark::RegisterBenchmark("kovmap_100k/insert", mapInsert));
  withStats(benchmark::RegisterBenchmark("kovmap_100k/lookup", mapLookup));
}

// The console report with only the median, min and max of repeated runs, and the summary at
// the end, from the medians (or the single runs without repetitions), in CPU time.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  explicit SummaryReporter(OutputOptions options) : ConsoleReporter(options) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<Run> shown;
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Aggregate) {
        const std::string& stat = run.aggregate_name;
        if (stat != "median" && stat != "min" && stat != "max") continue;
        if (stat == "median") note(run);
      } else {
        if (run.repetitions > 1) continue;
        note(run);
      }
      shown.push_back(run);
    }
    if (!shown.empty()) ConsoleReporter::ReportRuns(shown);
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    print("\nSummary (median CPU time per run; the machine's load shows in every figure)\n");
    print("  what a user pays at B=3000 (M = 10^6):\n");
    rate("    W1 pack: build the tree, pack, free; fields/s (target >= 15M)",
         key("w1_pack_whole/kov", "B:3000"), "fields");
    rate("    W1 pack, the tree in the application's arena; fields/s",
         key("w1_pack_whole_arena/kov", "B:3000"), "fields");
    rate("    W1 unpack: make, unpack, free; fields/s (target >= 25M, aim 40M)",
         key("w1_unpack_whole/kov", "B:3000"), "fields");
    rate("    W1 values text to image, fields/s (target >= 3M)", key("w1_json_pack/kov", "B:3000"),
         "fields");
    rate("    W1 image to values text, fields/s (target >= 3M)",
         key("w1_json_unpack/kov", "B:3000"), "fields");
    print("  two threads against one, throughput at B=3000 in wall-clock time (target >= 1.7):\n");
    gain("    pack, whole cost", key("w1_threads_pack_whole/kov", "B:3000/real_time/threads:2"),
         key("w1_threads_pack_whole/kov", "B:3000/real_time/threads:1"));
    gain("    unpack, whole cost", key("w1_threads_unpack_whole/kov", "B:3000/real_time/threads:2"),
         key("w1_threads_unpack_whole/kov", "B:3000/real_time/threads:1"));
    print("  kov / hand-written, whole cost at B=3000:\n");
    ratio("    pack", key("w1_pack_whole/kov", "B:3000"), key("w1_pack/hand", "B:3000"));
    ratio("    unpack", key("w1_unpack_whole/kov", "B:3000"), key("w1_unpack/hand", "B:3000"));
    print("  scaling time(B=30000) / time(B=3000), target <= 11:\n");
    for (const char* name :
         {"w1_pack_whole/kov", "w1_unpack_whole/kov", "w1_json_pack/kov", "w1_json_unpack/kov",
          "w1_pack/kov", "w1_unpack/kov", "w1_unpack_copy/kov", "w1_pack/hand",
          "w1_unpack/hand"}) {
      ratio(std::string("    ") + name, key(name, "B:30000"), key(name, "B:3000"));
    }
    print("  scaling of the deferred layout, time(N=50000) / time(N=5000):\n");
    ratio("    deferred/pack", key("deferred/pack", "N:50000"), key("deferred/pack", "N:5000"));
    ratio("    deferred/unpack", key("deferred/unpack", "N:50000"),
          key("deferred/unpack", "N:5000"));
    print("  breakdown: kov / hand-written, time at B=3000:\n");
    ratio("    pack", key("w1_pack/kov", "B:3000"), key("w1_pack/hand", "B:3000"));
    ratio("    unpack", key("w1_unpack/kov", "B:3000"), key("w1_unpack/hand", "B:3000"));
    ratio("    unpack and copy out", key("w1_unpack_copy/kov", "B:3000"),
          key("w1_unpack/hand", "B:3000"));
    print("  breakdown at B=3000 (M = 10^6, G = 10^9):\n");
    rate("    W1 FillImage alone, fields/s (target >= 50M)", key("w1_pack/kov", "B:3000"),
         "fields");
    rate("    W1 pack, MB/s", key("w1_pack/kov", "B:3000"), "bytes", 1e6);
    rate("    W1 FullUnpack alone, fields/s", key("w1_unpack/kov", "B:3000"), "fields");
    rate("    W1 unpack, MB/s", key("w1_unpack/kov", "B:3000"), "bytes", 1e6);
    rate("    W1 unpack and copy out, fields/s", key("w1_unpack_copy/kov", "B:3000"), "fields");
    rate("    CRC-16 over 1 MiB, GB/s (target >= 1)", key("crc_1MiB", ""), "bytes", 1e9);
  }

 private:
  struct Noted {
    double seconds;
    // Wall-clock time per iteration; on a row of several threads, the run's wall time over the
    // iterations of all its threads, so that it falls as the threads share the work.
    double realSeconds;
    std::map<std::string, double> rates;
  };

  static std::string key(const std::string& name, const std::string& args) {
    return args.empty() ? name : name + "/" + args;
  }

  void note(const Run& run) {
    Noted n;
    n.seconds = run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
    n.realSeconds = run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
    for (const auto& kv : run.counters) n.rates[kv.first] = kv.second.value;
    noted[run.run_name.str()] = n;
  }

  void ratio(const std::string& label, const std::string& top, const std::string& bottom) {
    auto a = noted.find(top), b = noted.find(bottom);
    if (a == noted.end() || b == noted.end() || b->second.seconds <= 0) return;
    char line[160];
    std::snprintf(line, sizeof line, "%-40s %8.2f   (%.4g s / %.4g s)\n", label.c_str(),
                  a->second.seconds / b->second.seconds, a->second.seconds, b->second.seconds);
    print(line);
  }

  // The ratio of two runs' fields/s.
  void gain(const std::string& label, const std::string& top, const std::string& bottom) {
    // The rate counters of a row of several threads add every thread's rate over its own time,
    // which counts the threads twice: the wall time per iteration tells the throughput.
    auto a = noted.find(top), b = noted.find(bottom);
    if (a == noted.end() || b == noted.end() || a->second.realSeconds <= 0) return;
    char line[160];
    std::snprintf(line, sizeof line, "%-40s %8.2f\n", label.c_str(),
                  b->second.realSeconds / a->second.realSeconds);
    print(line);
  }

  void rate(const std::string& label, const std::string& name, const std::string& counter,
            double unit = 1) {
    auto it = noted.find(name);
    if (it == noted.end()) return;
    auto c = it->second.rates.find(counter);
    if (c == it->second.rates.end()) return;
    char line[160];
    std::snprintf(line, sizeof line, "%-70s %10.4g\n", label.c_str(), c->second / unit);
    print(line);
  }

  // Into the reporter's own stream, so that the summary follows the table.
  void print(const char* text) { GetOutputStream() << text; }

  std::map<std::string, Noted> noted;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  // The published sums of W1 are checked before anything is timed (B = 300, 3000 and 30000
  // again when their turn comes).
  {
    std::vector<uint8_t> image = w1::referenceImage(w1::makeBanks(3));
    if (kovBenchSha256Hex(image.data(), image.size()) != w1::publishedSha256(3)) {
      fail("W1 reference image of B=3 does not match its published SHA-256");
    }
  }
  registerAll();
  // Colours only on a terminal: the output often goes to a file.
  SummaryReporter reporter(isatty(fileno(stdout)) != 0 ? benchmark::ConsoleReporter::OO_ColorTabular
                                                       : benchmark::ConsoleReporter::OO_Tabular);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
