// A console reporter that also keeps each run's time per item, so that a
// benchmark program can print its cases against floors measured in the same run.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace DL::bench {

class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // Nanoseconds per item (from items_per_second) of every run, by case name
  // without the "/iterations:N" or "/repeats:N" suffixes.
  std::map<std::string, std::vector<double>> ns_per_item;
  // The last value of each user counter, by case name and counter.
  std::map<std::string, std::map<std::string, double>> counters;

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.run_type != Run::RT_Iteration || r.error_occurred) continue;
      const std::string name = case_name(r.benchmark_name());
      for (const auto& [key, counter] : r.counters) counters[name][key] = counter.value;
      auto items = r.counters.find("items_per_second");
      if (items != r.counters.end() && items->second.value > 0)
        ns_per_item[name].push_back(1e9 / items->second.value);
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // The median time per item of a case; 0 if it did not run.
  double median(const std::string& name) const {
    auto it = ns_per_item.find(name);
    if (it == ns_per_item.end() || it->second.empty()) return 0;
    std::vector<double> v = it->second;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  }

  double counter(const std::string& name, const std::string& key) const {
    auto it = counters.find(name);
    if (it == counters.end()) return 0;
    auto c = it->second.find(key);
    return c == it->second.end() ? 0 : c->second;
  }

 private:
  static std::string case_name(std::string name) {
    for (const char* suffix : {"/iterations:", "/repeats:", "/min_time:", "/real_time"}) {
      std::size_t at = name.find(suffix);
      if (at != std::string::npos) name.resize(at);
    }
    return name;
  }
};

}  // namespace DL::bench
