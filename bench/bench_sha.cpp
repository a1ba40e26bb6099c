// SHA-1 and SHA-256 beside OpenSSL's EVP digests and nettle, on 1 MiB
// buffers and on 64-byte messages, for our hardware and portable paths.
// nettle picks its own path once at start-up: run this program a second time
// with NETTLE_FAT_OVERRIDE=vendor:amd to measure nettle's portable code.
#include <benchmark/benchmark.h>

#include <nettle/sha1.h>
#include <nettle/sha2.h>
#include <openssl/evp.h>

#include <cstdlib>
#include <vector>

#include "crypto/qvsha.h"
#include "qvlib.h"

namespace {

std::vector<unsigned char> input(size_t n) {
    std::vector<unsigned char> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = static_cast<unsigned char>(i * 2654435761u >> 13);
    return v;
}

constexpr size_t kMiB = 1 << 20;

// Our digests; arg 1 selects the portable path.
template <class Obj, Obj *(*Create)(), void (*Init)(Obj *), void (*Update)(Obj *, const void *, size_t),
          void (*Final)(Obj *), void (*Digest)(Obj *, unsigned char *), void (*Destroy)(Obj *)>
void BM_qv(benchmark::State &state) {
    const bool portable = state.range(1) != 0;
    if (!portable && !qv::sha::hardware_supported()) {
        state.SkipWithError("no SHA extensions on this CPU");
        return;
    }
    qv::sha::force_portable(portable);
    auto data = input(static_cast<size_t>(state.range(0)));
    Obj *o = Create();
    unsigned char d[32];
    for (auto _ : state) {
        Init(o);
        Update(o, data.data(), data.size());
        Final(o);
        Digest(o, d);
        benchmark::DoNotOptimize(d);
    }
    Destroy(o);
    qv::sha::force_portable(false);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_qv_sha1(benchmark::State &state) {
    BM_qv<qv_sha1, qv_sha1_create, qv_sha1_init, qv_sha1_update, qv_sha1_finalize, qv_sha1_digest,
          qv_sha1_destroy>(state);
}
void BM_qv_sha256(benchmark::State &state) {
    BM_qv<qv_sha256, qv_sha256_create, qv_sha256_init, qv_sha256_update, qv_sha256_finalize, qv_sha256_digest,
          qv_sha256_destroy>(state);
}

void BM_openssl(benchmark::State &state, const EVP_MD *md) {
    auto data = input(static_cast<size_t>(state.range(0)));
    EVP_MD_CTX *ctx = EVP_MD_CTX_new();
    unsigned char d[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    for (auto _ : state) {
        EVP_DigestInit_ex(ctx, md, nullptr);
        EVP_DigestUpdate(ctx, data.data(), data.size());
        EVP_DigestFinal_ex(ctx, d, &n);
        benchmark::DoNotOptimize(d);
    }
    EVP_MD_CTX_free(ctx);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
void BM_openssl_sha1(benchmark::State &state) { BM_openssl(state, EVP_sha1()); }
void BM_openssl_sha256(benchmark::State &state) { BM_openssl(state, EVP_sha256()); }

void BM_nettle_sha1(benchmark::State &state) {
    auto data = input(static_cast<size_t>(state.range(0)));
    sha1_ctx ctx;
    unsigned char d[SHA1_DIGEST_SIZE];
    for (auto _ : state) {
        sha1_init(&ctx);
        sha1_update(&ctx, data.size(), data.data());
        sha1_digest(&ctx, sizeof d, d);
        benchmark::DoNotOptimize(d);
    }
    state.SetLabel(std::getenv("NETTLE_FAT_OVERRIDE") ? "nettle portable" : "nettle default");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void BM_nettle_sha256(benchmark::State &state) {
    auto data = input(static_cast<size_t>(state.range(0)));
    sha256_ctx ctx;
    unsigned char d[SHA256_DIGEST_SIZE];
    for (auto _ : state) {
        sha256_init(&ctx);
        sha256_update(&ctx, data.size(), data.data());
        sha256_digest(&ctx, sizeof d, d);
        benchmark::DoNotOptimize(d);
    }
    state.SetLabel(std::getenv("NETTLE_FAT_OVERRIDE") ? "nettle portable" : "nettle default");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

}  // namespace

// Args: message size, then (ours only) 0 = hardware path, 1 = portable path.
BENCHMARK(BM_qv_sha1)->Args({kMiB, 0})->Args({kMiB, 1})->Args({64, 0})->Args({64, 1});
BENCHMARK(BM_openssl_sha1)->Arg(kMiB)->Arg(64);
BENCHMARK(BM_nettle_sha1)->Arg(kMiB)->Arg(64);
BENCHMARK(BM_qv_sha256)->Args({kMiB, 0})->Args({kMiB, 1})->Args({64, 0})->Args({64, 1});
BENCHMARK(BM_openssl_sha256)->Arg(kMiB)->Arg(64);
BENCHMARK(BM_nettle_sha256)->Arg(kMiB)->Arg(64);

BENCHMARK_MAIN();
