#include "bench/Harness.h"

#include <sys/utsname.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "bench/Measure.h"

namespace vela_bench {
namespace {

struct Row {
  std::string what, candidate, peer;
  double goal;
};

std::vector<Row>& rows() {
  static std::vector<Row> all;
  return all;
}

// Nanoseconds an iteration, one for each repetition, by the benchmark's name without what the
// library adds to it.
std::map<std::string, std::vector<double>>& times() {
  static std::map<std::string, std::vector<double>> all;
  return all;
}

// The usual screen output, of the medians alone, and the times of all repetitions.
class Reporter : public benchmark::ConsoleReporter {
 public:
  Reporter() : ConsoleReporter(OO_Tabular) {}

  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<Run> shown;
    for (const Run& run : runs) {
      if (run.error_occurred) {
        shown.push_back(run);
      } else if (run.run_type == Run::RT_Iteration) {
        benchmark::BenchmarkName name = run.run_name;
        name.repetitions.clear();
        name.iterations.clear();
        name.min_time.clear();
        name.time_type.clear();
        times()[name.str()].push_back(run.cpu_accumulated_time * 1e9 /
                                      static_cast<double>(run.iterations));
      } else if (run.aggregate_name == "median") {
        shown.push_back(run);
      }
    }
    ConsoleReporter::ReportRuns(shown);
  }
};

// Prints the table and gives it as JSON.
nlohmann::ordered_json compare() {
  nlohmann::ordered_json table = nlohmann::ordered_json::array();
  bool isFirst = true;
  for (const Row& row : rows()) {
    const auto candidate = times().find(row.candidate), peer = times().find(row.peer);
    if (candidate == times().end() || peer == times().end()) continue;
    const double ours = median(candidate->second), theirs = median(peer->second);
    if (isFirst) std::printf("\n%-62s %10s %10s %7s %6s\n", "", "ns", "peer's", "ratio", "goal");
    isFirst = false;
    std::printf("%-62s %10.4g %10.4g %7.2f", row.what.c_str(), ours, theirs, ours / theirs);
    if (row.goal > 0)
      std::printf(" %6.2f%s", row.goal, ours / theirs <= row.goal ? "" : "  missed");
    std::printf("\n");
    table.push_back({{"what", row.what},
                     {"candidate", row.candidate},
                     {"peer", row.peer},
                     {"ns", ours},
                     {"peerNs", theirs},
                     {"ratio", ours / theirs}});
    if (row.goal > 0) table.back()["goal"] = row.goal;
  }
  return table;
}

nlohmann::ordered_json machine() {
  utsname system{};
  uname(&system);
  std::string processor;
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; processor.empty() && std::getline(info, line);)
    if (line.rfind("model name", 0) == 0) processor = line.substr(line.find(':') + 2);
  return {{"processor", processor},
          {"threads", std::thread::hardware_concurrency()},
          {"system", std::string(system.sysname) + " " + system.machine},
          {"compiler", VELA_BENCH_COMPILER}};
}

int run(int argc, char** argv) {
  // Ours first; what is left goes to the library, behind the defaults so that it counts.
  std::string json;
  bool isQuick = false;
  std::vector<char*> given;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0 && i + 1 < argc)
      json = argv[++i];
    else if (std::strcmp(argv[i], "--quick") == 0)
      isQuick = true;
    else
      given.push_back(argv[i]);
  }
  std::vector<std::string> defaults = {"--benchmark_enable_random_interleaving=true"};
  defaults.push_back(isQuick ? "--benchmark_repetitions=3" : "--benchmark_repetitions=9");
  defaults.push_back(isQuick ? "--benchmark_min_time=0.01" : "--benchmark_min_time=0.05");
  std::vector<char*> all{argv[0]};
  for (std::string& flag : defaults) all.push_back(flag.data());
  all.insert(all.end(), given.begin(), given.end());
  int count = static_cast<int>(all.size());
  benchmark::Initialize(&count, all.data());
  if (benchmark::ReportUnrecognizedArguments(count, all.data())) return 2;

  Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  const nlohmann::ordered_json table = compare();
  if (json.empty()) return 0;

  nlohmann::ordered_json out = {{"machine", machine()}, {"ratios", table}};
  for (const auto& [name, values] : times()) out["medians"][name] = median(values);
  std::ofstream file(json);
  file << out.dump(2) << '\n';
  if (file.flush()) return 0;
  std::cerr << argv[0] << ": error: " << json << " cannot be written\n";
  return 1;
}

}  // namespace

int ratio(std::string what, std::string candidate, std::string peer, double goal) {
  rows().push_back({std::move(what), std::move(candidate), std::move(peer), goal});
  return 0;
}

}  // namespace vela_bench

int main(int argc, char** argv) { return vela_bench::run(argc, argv); }
