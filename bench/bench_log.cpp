// Log lines: to a file sink flushed per line, beside a reference that formats
// the same timestamp with localtime_r, takes a mutex, fprintfs the same line
// and flushes; and to a callback sink, counting heap allocations per message.
#include <benchmark/benchmark.h>

#include <ctime>
#include <mutex>
#include <string>
#include <unistd.h>

#include "alloc_counter.h"
#include "qvlib.h"

namespace {

std::string temp_path(const char *name) {
    const char *dir = getenv("TMPDIR");
    return std::string(dir ? dir : "/tmp") + "/" + name + "." + std::to_string(getpid());
}

void BM_log_file_reference(benchmark::State &state) {
    std::string path = temp_path("qvbench-ref.log");
    FILE *fp = fopen(path.c_str(), "a");
    std::mutex m;
    int i = 0;
    for (auto _ : state) {
        time_t now = time(nullptr);
        struct tm tm;
        localtime_r(&now, &tm);
        std::lock_guard<std::mutex> g(m);
        fprintf(fp, "%04u-%02u-%02u %02u:%02u:%02u %s:%d[%d] connection %d closed by peer\n",
                static_cast<unsigned>(tm.tm_year + 1900), static_cast<unsigned>(tm.tm_mon + 1),
                static_cast<unsigned>(tm.tm_mday), static_cast<unsigned>(tm.tm_hour),
                static_cast<unsigned>(tm.tm_min), static_cast<unsigned>(tm.tm_sec), __FILE__, __LINE__, 7, i++);
        fflush(fp);
    }
    fclose(fp);
    unlink(path.c_str());
    state.SetItemsProcessed(state.iterations());
}

void BM_log_file_qv(benchmark::State &state) {
    std::string path = temp_path("qvbench-qv.log");
    qv_log_uninit();
    if (state.range(0)) qv_log_init_threaded();
    qv_log_logfile_set_name(nullptr, path.c_str());
    qv_log_logfile_enable(nullptr);
    qv_log_stderr_disable(nullptr);
    int i = 0;
    for (auto _ : state) QV_LOG(7, "connection %d closed by peer", i++);
    qv_log_uninit();
    unlink(path.c_str());
    state.SetItemsProcessed(state.iterations());
}

int sink(const char *msg, size_t len, int, int64_t, void *user) {
    *static_cast<size_t *>(user) += len + static_cast<unsigned char>(msg[0]);
    return 0;
}

void BM_log_callback_qv(benchmark::State &state) {
    qv_log_uninit();
    size_t total = 0;
    qv_log_callback_set(nullptr, sink, &total);
    qv_log_callback_enable(nullptr);
    qv_log_stderr_disable(nullptr);
    // Grow the buffers once; from then on no message may allocate.
    QV_LOG(7, "connection %d closed by peer", 1000000);
    unsigned long before = bench::g_allocations.load();
    int i = 0;
    for (auto _ : state) QV_LOG(7, "connection %d closed by peer", i++ % 1000000);
    unsigned long allocs = bench::g_allocations.load() - before;
    state.counters["allocs_per_msg"] = static_cast<double>(allocs) / static_cast<double>(state.iterations());
    benchmark::DoNotOptimize(total);
    qv_log_uninit();
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_log_file_reference);
BENCHMARK(BM_log_file_qv)->Arg(0)->Arg(1);
BENCHMARK(BM_log_callback_qv);

}  // namespace

BENCHMARK_MAIN();
