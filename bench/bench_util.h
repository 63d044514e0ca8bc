// Small helpers shared by the benchmarks: a wall clock, resident memory, a build measured in a child
// process, and the report line.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
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

// What a build measured in a process of its own.
struct Measure {
  double seconds = 0;
  double bytes_per_cell = 0;
  int64_t rows = 0;  // as the build reports it
};

// Runs `build` in a child process, so that each build starts from the same memory: the time it takes,
// and the resident memory it adds per cell of `cells`. `build` returns what it built (kept alive while
// the memory is read) and may set the number of rows it made.
inline Measure InChild(double cells, const std::function<std::shared_ptr<void>(int64_t& rows)>& build) {
  int pipe_fds[2];
  if (pipe(pipe_fds) != 0) std::abort();
  const pid_t child = fork();
  if (child < 0) std::abort();
  if (child == 0) {
    close(pipe_fds[0]);
    Measure measure;
    const long long before = ResidentBytes();
    const double start = Seconds();
    std::shared_ptr<void> built = build(measure.rows);
    measure.seconds = Seconds() - start;
    measure.bytes_per_cell = double(ResidentBytes() - before) / cells;
    if (write(pipe_fds[1], &measure, sizeof measure) != sizeof measure) _exit(1);
    _exit(0);
  }
  close(pipe_fds[1]);
  Measure measure;
  if (read(pipe_fds[0], &measure, sizeof measure) != sizeof measure) std::abort();
  close(pipe_fds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return measure;
}

inline void Report(const std::string& name, double library, double baseline) {
  std::printf("%s: library %.3f s, baseline %.3f s, ratio %.2f\n", name.c_str(), library, baseline,
              baseline > 0 ? library / baseline : 0.0);
  std::fflush(stdout);
}

}  // namespace quorbex::bench
