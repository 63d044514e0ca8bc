// Small helpers shared by the benchmarks: a wall clock, resident memory, and the report line.
#pragma once

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

namespace quorbex::bench {


inline double Seconds() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// Resident set size of this process in bytes (from /proc/self/statm).
inline long long ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  long long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * 4096LL;
}

inline void Report(const std::string& name, double library, double baseline) {
  std::printf("%s: library %.3f s, baseline %.3f s, ratio %.2f\n", name.c_str(), library, baseline,
              baseline > 0 ? library / baseline : 0.0);
  std::fflush(stdout);
}

}  // namespace quorbex::bench
