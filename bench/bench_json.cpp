// JSON: parse to a document and write back to text, qvlib beside cJSON,
// jansson and json-c on the usual corpora (twitter, citm_catalog, canada),
// plus the heap a parsed document holds (live blocks and their usable bytes,
// counted by a malloc interposer around the parse).
#include <benchmark/benchmark.h>

#include <cjson/cJSON.h>
#include <jansson.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "qvlib.h"

// bench_json_jsonc.cpp
namespace jsonc {
void *parse(const char *text);
void release(void *doc);
const char *write(void *doc);
}  // namespace jsonc

// ---------------------------------------------------------------------------
// Counting interposer: every malloc in the process (qvlib's qv_malloc and the
// peers' allocators alike) passes through here; counting is on only while a
// memory benchmark parses.
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
}

namespace {
bool g_counting = false;
long g_blocks = 0;
long g_bytes = 0;
inline void on_alloc(void *p) {
    if (g_counting && p) {
        ++g_blocks;
        g_bytes += static_cast<long>(malloc_usable_size(p));
    }
}
inline void on_free(void *p) {
    if (g_counting && p) {
        --g_blocks;
        g_bytes -= static_cast<long>(malloc_usable_size(p));
    }
}
}  // namespace

extern "C" void *malloc(size_t n) {
    void *p = __libc_malloc(n);
    on_alloc(p);
    return p;
}
extern "C" void *calloc(size_t c, size_t n) {
    void *p = __libc_calloc(c, n);
    on_alloc(p);
    return p;
}
extern "C" void *realloc(void *old, size_t n) {
    on_free(old);
    void *p = __libc_realloc(old, n);
    on_alloc(p != nullptr ? p : old);
    return p;
}
extern "C" void free(void *p) {
    on_free(p);
    __libc_free(p);
}

namespace {

const char *const kFiles[] = {"twitter.json", "citm_catalog.json", "canada.json"};

const std::string &corpus(int i) {
    static std::string texts[3];
    static bool loaded[3];
    if (!loaded[i]) {
        std::ifstream in(std::string("/work/shared/data/json/") + kFiles[i], std::ios::binary);
        std::ostringstream ss;
        ss << in.rdbuf();
        texts[i] = ss.str();
        loaded[i] = true;
    }
    return texts[i];
}

bool usable(benchmark::State &state, const std::string &text) {
    if (text.empty()) {
        state.SkipWithError("corpus missing");
        return false;
    }
    state.SetLabel(kFiles[state.range(0)]);
    return true;
}

void quiet() {
    static bool done = false;
    if (!done) {
        qv_log_init();
        qv_log_stderr_disable(NULL);
        done = true;
    }
}

// --- parse -----------------------------------------------------------------

void BM_Parse_qvlib(benchmark::State &state) {
    const std::string &text = corpus(static_cast<int>(state.range(0)));
    if (!usable(state, text)) return;
    quiet();
    for (auto _ : state) {
        qv_json *j = qv_json_create();
        if (qv_json_parse(j, text.c_str()) != 0) state.SkipWithError("parse failed");
        qv_json_destroy(j);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_Parse_cJSON(benchmark::State &state) {
    const std::string &text = corpus(static_cast<int>(state.range(0)));
    if (!usable(state, text)) return;
    for (auto _ : state) {
        cJSON *c = cJSON_Parse(text.c_str());
        if (c == nullptr) state.SkipWithError("parse failed");
        cJSON_Delete(c);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_Parse_jansson(benchmark::State &state) {
    const std::string &text = corpus(static_cast<int>(state.range(0)));
    if (!usable(state, text)) return;
    for (auto _ : state) {
        json_error_t err;
        json_t *jt = json_loads(text.c_str(), 0, &err);
        if (jt == nullptr) state.SkipWithError("parse failed");
        json_decref(jt);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

void BM_Parse_jsonc(benchmark::State &state) {
    const std::string &text = corpus(static_cast<int>(state.range(0)));
    if (!usable(state, text)) return;
    for (auto _ : state) {
        void *o = jsonc::parse(text.c_str());
        if (o == nullptr) state.SkipWithError("parse failed");
        jsonc::release(o);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// --- write -----------------------------------------------------------------

void BM_Write_qvlib(benchmark::State &state) {
    const std::string &text = corpus(static_cast<int>(state.range(0)));
    if (!usable(state, text)) return;
    quiet();
    qv_json *j = qv_json_create();
    qv_json_parse(j, text.c_str());
    size_t bytes = 0;
    for (auto _ : state) {
        char *out = qv_json_output(j);
        bytes += strlen(out);
        qv_free(out);
    }
    qv_json_destroy(j);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

void BM_Write_cJSON(benchmark::State &state) {
    const std::string &text = corpus(static_cast<int>(state.range(0)));
    if (!usable(state, text)) return;
    cJSON *c = cJSON_Parse(text.c_str());
    size_t bytes = 0;
    for (auto _ : state) {
        char *out = cJSON_PrintUnformatted(c);
        bytes += strlen(out);
        cJSON_free(out);
    }
    cJSON_Delete(c);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

void BM_Write_jansson(benchmark::State &state) {
    const std::string &text = corpus(static_cast<int>(state.range(0)));
    if (!usable(state, text)) return;
    json_error_t err;
    json_t *jt = json_loads(text.c_str(), 0, &err);
    size_t bytes = 0;
    for (auto _ : state) {
        char *out = json_dumps(jt, JSON_COMPACT);
        bytes += strlen(out);
        free(out);
    }
    json_decref(jt);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

void BM_Write_jsonc(benchmark::State &state) {
    const std::string &text = corpus(static_cast<int>(state.range(0)));
    if (!usable(state, text)) return;
    void *o = jsonc::parse(text.c_str());
    size_t bytes = 0;
    for (auto _ : state) {
        const char *out = jsonc::write(o);
        bytes += strlen(out);
    }
    jsonc::release(o);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

// --- memory held by a parsed document --------------------------------------

template <class Parse, class Release>
void measure(benchmark::State &state, Parse parse, Release release) {
    const std::string &text = corpus(static_cast<int>(state.range(0)));
    if (!usable(state, text)) return;
    long blocks = 0, bytes = 0;
    for (auto _ : state) {
        g_blocks = g_bytes = 0;
        g_counting = true;
        void *doc = parse(text.c_str());
        blocks = g_blocks;
        bytes = g_bytes;
        g_counting = false;
        release(doc);
    }
    state.counters["blocks"] = static_cast<double>(blocks);
    state.counters["heap_bytes"] = static_cast<double>(bytes);
}

void BM_Memory_qvlib(benchmark::State &state) {
    quiet();
    measure(state, [](const char *t) -> void * {
        qv_json *j = qv_json_create();
        qv_json_parse(j, t);
        return j;
    }, [](void *d) { qv_json_destroy(static_cast<qv_json *>(d)); });
}

void BM_Memory_cJSON(benchmark::State &state) {
    measure(state, [](const char *t) -> void * { return cJSON_Parse(t); },
            [](void *d) { cJSON_Delete(static_cast<cJSON *>(d)); });
}

void BM_Memory_jansson(benchmark::State &state) {
    measure(state, [](const char *t) -> void * {
        json_error_t err;
        return json_loads(t, 0, &err);
    }, [](void *d) { json_decref(static_cast<json_t *>(d)); });
}

void BM_Memory_jsonc(benchmark::State &state) {
    measure(state, [](const char *t) -> void * { return jsonc::parse(t); },
            [](void *d) { jsonc::release(d); });
}

}  // namespace

#define QV_JSON_BENCH(fn) BENCHMARK(fn)->DenseRange(0, 2)->Unit(benchmark::kMillisecond)
QV_JSON_BENCH(BM_Parse_qvlib);
QV_JSON_BENCH(BM_Parse_cJSON);
QV_JSON_BENCH(BM_Parse_jansson);
QV_JSON_BENCH(BM_Parse_jsonc);
QV_JSON_BENCH(BM_Write_qvlib);
QV_JSON_BENCH(BM_Write_cJSON);
QV_JSON_BENCH(BM_Write_jansson);
QV_JSON_BENCH(BM_Write_jsonc);
BENCHMARK(BM_Memory_qvlib)->DenseRange(0, 2)->Iterations(3);
BENCHMARK(BM_Memory_cJSON)->DenseRange(0, 2)->Iterations(3);
BENCHMARK(BM_Memory_jansson)->DenseRange(0, 2)->Iterations(3);
BENCHMARK(BM_Memory_jsonc)->DenseRange(0, 2)->Iterations(3);

BENCHMARK_MAIN();
