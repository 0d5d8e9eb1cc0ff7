// The main of the benchmark programs whose outputs are large: unless --default_malloc is given,
// freed blocks stay in the heap. glibc gives blocks above its mmap threshold (at most 32 MB)
// fresh mappings and unmaps them when freed, so each iteration would pay thousands of page
// faults for its output, and the rates would measure the kernel more than the code.
#pragma once

#include <benchmark/benchmark.h>

#include <cstring>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

// Takes --default_malloc out of the arguments; unless it was given, keeps freed blocks in the
// heap from here on. Says which in the benchmark context.
inline void keep_freed_memory_in_heap(int& argc, char** argv) {
  bool keep_heap = true;
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--default_malloc") == 0) {
      keep_heap = false;
    } else {
      argv[kept++] = argv[i];
    }
  }
  argc = kept;
#if defined(__GLIBC__)
  if (keep_heap) {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
  }
#endif
  benchmark::AddCustomContext("malloc", keep_heap ? "freed blocks kept in the heap" : "default");
}

// Runs the registered benchmarks with the command line's options.
inline int run_registered_benchmarks(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

inline int run_benchmarks_keeping_heap(int argc, char** argv) {
  keep_freed_memory_in_heap(argc, argv);
  return run_registered_benchmarks(argc, argv);
}
