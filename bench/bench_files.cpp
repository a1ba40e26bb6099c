// Whole-file load and save against the plain stdio a user would write
// instead (fopen/fseek/ftell/fread, fopen/fwrite/fclose), on files in /tmp.
// The backup save is measured too: its price is the fsync and two renames.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

#include "qvlib.h"

namespace {

std::string bench_path(const char *tag) {
    return std::string("/tmp/qvbench-files-") + tag + "-" + std::to_string(getpid());
}

std::vector<char> payload(size_t n) {
    std::vector<char> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<char>(i * 131u);
    return v;
}

void BM_Load_Qv(benchmark::State &state) {
    const std::string p = bench_path("load");
    auto data = payload(static_cast<size_t>(state.range(0)));
    qv_file_data_save(p.c_str(), data.data(), data.size());
    for (auto _ : state) {
        void *buf = nullptr;
        size_t len = 0;
        if (qv_file_data_load(p.c_str(), &buf, &len) != 0) state.SkipWithError("load failed");
        benchmark::DoNotOptimize(buf);
        qv_free(buf);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    unlink(p.c_str());
}

void BM_Load_Stdio(benchmark::State &state) {
    const std::string p = bench_path("load");
    auto data = payload(static_cast<size_t>(state.range(0)));
    qv_file_data_save(p.c_str(), data.data(), data.size());
    for (auto _ : state) {
        FILE *f = fopen(p.c_str(), "rb");
        fseek(f, 0, SEEK_END);
        long n = ftell(f);
        fseek(f, 0, SEEK_SET);
        char *buf = static_cast<char *>(malloc(static_cast<size_t>(n) + 1));
        if (fread(buf, 1, static_cast<size_t>(n), f) != static_cast<size_t>(n)) state.SkipWithError("read failed");
        buf[n] = '\0';
        fclose(f);
        benchmark::DoNotOptimize(buf);
        free(buf);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    unlink(p.c_str());
}

void BM_Save_Qv(benchmark::State &state) {
    const std::string p = bench_path("save");
    auto data = payload(static_cast<size_t>(state.range(0)));
    for (auto _ : state)
        if (qv_file_data_save(p.c_str(), data.data(), data.size()) != 0) state.SkipWithError("save failed");
    state.SetBytesProcessed(state.iterations() * state.range(0));
    unlink(p.c_str());
}

void BM_Save_Stdio(benchmark::State &state) {
    const std::string p = bench_path("save");
    auto data = payload(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        FILE *f = fopen(p.c_str(), "wb");
        if (fwrite(data.data(), 1, data.size(), f) != data.size()) state.SkipWithError("write failed");
        fclose(f);
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    unlink(p.c_str());
}

void BM_SaveWithBackup_Qv(benchmark::State &state) {
    const std::string p = bench_path("backup");
    auto data = payload(static_cast<size_t>(state.range(0)));
    for (auto _ : state)
        if (qv_file_data_save_with_backup(p.c_str(), data.data(), data.size()) != 0)
            state.SkipWithError("save failed");
    state.SetBytesProcessed(state.iterations() * state.range(0));
    unlink(p.c_str());
    unlink((p + ".bak").c_str());
}

}  // namespace

BENCHMARK(BM_Load_Qv)->Arg(4 << 10)->Arg(1 << 20)->Arg(64 << 20)->UseRealTime();
BENCHMARK(BM_Load_Stdio)->Arg(4 << 10)->Arg(1 << 20)->Arg(64 << 20)->UseRealTime();
BENCHMARK(BM_Save_Qv)->Arg(4 << 10)->Arg(1 << 20)->Arg(64 << 20)->UseRealTime();
BENCHMARK(BM_Save_Stdio)->Arg(4 << 10)->Arg(1 << 20)->Arg(64 << 20)->UseRealTime();
BENCHMARK(BM_SaveWithBackup_Qv)->Arg(4 << 10)->Arg(1 << 20)->UseRealTime();

BENCHMARK_MAIN();
