// Formatting: qv_snprintf and qv_strdupf beside libc's snprintf and asprintf.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

#include "qvlib.h"

namespace {

// A typical log-prefix-sized line and a longer one that no stack buffer holds.
const char *const kShort = "request";
const std::string kLong(600, 'L');

void BM_snprintf_libc(benchmark::State &state) {
    char buf[128];
    int i = 0;
    for (auto _ : state) {
        int n = snprintf(buf, sizeof buf, "%s:%d[%d] %s %08x", "src/net/qvhttp.cpp", 1234, 7, kShort, i++);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buf);
    }
}
void BM_snprintf_qv(benchmark::State &state) {
    char buf[128];
    int i = 0;
    for (auto _ : state) {
        int n = qv_snprintf(buf, sizeof buf, "%s:%d[%d] %s %08x", "src/net/qvhttp.cpp", 1234, 7, kShort, i++);
        benchmark::DoNotOptimize(n);
        benchmark::DoNotOptimize(buf);
    }
}
void BM_asprintf_libc(benchmark::State &state) {
    const char *arg = state.range(0) ? kLong.c_str() : kShort;
    int i = 0;
    for (auto _ : state) {
        char *s = nullptr;
        int n = asprintf(&s, "%s:%d %s", "key", i++, arg);
        benchmark::DoNotOptimize(n);
        free(s);
    }
}
void BM_strdupf_qv(benchmark::State &state) {
    const char *arg = state.range(0) ? kLong.c_str() : kShort;
    int i = 0;
    for (auto _ : state) {
        char *s = qv_strdupf("%s:%d %s", "key", i++, arg);
        benchmark::DoNotOptimize(s);
        qv_free(s);
    }
}

BENCHMARK(BM_snprintf_libc);
BENCHMARK(BM_snprintf_qv);
BENCHMARK(BM_asprintf_libc)->Arg(0)->Arg(1);
BENCHMARK(BM_strdupf_qv)->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
