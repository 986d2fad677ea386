#pragma once
// Timing helpers shared by the benchmarks that run a peer tool in the same run.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

inline double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

/// Seconds the call takes.
template <class F> double timed(F f) {
    auto t = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

/// Runs a shell command that must succeed; a failure ends the benchmark.
inline void sh(const std::string& cmd) {
    if (system(cmd.c_str()) != 0) {
        fprintf(stderr, "failed: %s\n", cmd.c_str());
        exit(1);
    }
}
