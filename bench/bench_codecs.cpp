// Base64, hexadecimal and URL encoding on 1 MiB buffers, beside OpenSSL's
// EVP_EncodeBlock/EVP_DecodeBlock and GLib's g_base64_* / g_uri_* in the same
// run. Ours and GLib's allocate their results (freed inside the loop);
// OpenSSL's block functions write into a buffer made beforehand.
#include <benchmark/benchmark.h>

#include <glib.h>
#include <openssl/evp.h>

#include <cstring>
#include <string>
#include <vector>

#include "qvlib.h"

namespace {

constexpr size_t kMiB = 1 << 20;

std::vector<unsigned char> binary(size_t n) {
    std::vector<unsigned char> v(n);
    uint32_t x = 12345;
    for (auto &b : v) {
        x = x * 1103515245u + 12345u;
        b = static_cast<unsigned char>(x >> 16);
    }
    return v;
}

// Text like a query string: mostly unreserved, about one byte in six to
// escape, a few multi-byte UTF-8 characters.
std::string url_text(size_t n) {
    static const char *words[] = {"name=", "J\xc3\xa9r\xc3\xb4me", "&q=", "some text", "/path/to/file.txt",
                                  "?a=1&b=2", "~user_(1)", "50% off!", "caf\xc3\xa9", "x+y"};
    std::string s;
    for (size_t i = 0; s.size() < n; ++i) s += words[(i * 7) % 10];
    s.resize(n);
    return s;
}

void bytes(benchmark::State &state, size_t n) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

// ---- Base64 encode (bytes = binary input) ----
void BM_b64enc_qv(benchmark::State &state) {
    auto in = binary(kMiB);
    for (auto _ : state) {
        char *s = qv_base64_encode(in.data(), in.size());
        benchmark::DoNotOptimize(s);
        qv_free(s);
    }
    bytes(state, kMiB);
}
void BM_b64enc_openssl(benchmark::State &state) {
    auto in = binary(kMiB);
    std::vector<unsigned char> out((kMiB + 2) / 3 * 4 + 1);
    for (auto _ : state) {
        int n = EVP_EncodeBlock(out.data(), in.data(), static_cast<int>(in.size()));
        benchmark::DoNotOptimize(n);
    }
    bytes(state, kMiB);
}
void BM_b64enc_glib(benchmark::State &state) {
    auto in = binary(kMiB);
    for (auto _ : state) {
        gchar *s = g_base64_encode(in.data(), in.size());
        benchmark::DoNotOptimize(s);
        g_free(s);
    }
    bytes(state, kMiB);
}

// ---- Base64 decode (bytes = decoded output, 1 MiB) ----
std::string b64_text() {
    auto in = binary(kMiB);
    char *s = qv_base64_encode(in.data(), in.size());
    std::string t(s);
    qv_free(s);
    return t;
}
void BM_b64dec_qv(benchmark::State &state) {
    std::string t = b64_text();
    for (auto _ : state) {
        void *out = nullptr;
        size_t len = 0;
        int rc = qv_base64_decode(&out, &len, t.data(), t.size());
        benchmark::DoNotOptimize(rc);
        qv_free(out);
    }
    bytes(state, kMiB);
}
void BM_b64dec_openssl(benchmark::State &state) {
    std::string t = b64_text();
    std::vector<unsigned char> out(t.size());
    for (auto _ : state) {
        int n = EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char *>(t.data()),
                                static_cast<int>(t.size()));
        benchmark::DoNotOptimize(n);
    }
    bytes(state, kMiB);
}
void BM_b64dec_glib(benchmark::State &state) {
    std::string t = b64_text();
    for (auto _ : state) {
        gsize len = 0;
        guchar *out = g_base64_decode(t.c_str(), &len);
        benchmark::DoNotOptimize(out);
        g_free(out);
    }
    bytes(state, kMiB);
}

// ---- Hex (bytes = binary side, 1 MiB) ----
void BM_hexenc_qv(benchmark::State &state) {
    auto in = binary(kMiB);
    for (auto _ : state) {
        char *s = qv_bin2hex(in.data(), in.size());
        benchmark::DoNotOptimize(s);
        qv_free(s);
    }
    bytes(state, kMiB);
}
void BM_hexdec_qv(benchmark::State &state) {
    auto in = binary(kMiB);
    char *hex = qv_bin2hex(in.data(), in.size());
    for (auto _ : state) {
        void *out = nullptr;
        size_t len = 0;
        int rc = qv_hex2bin(hex, &out, &len);
        benchmark::DoNotOptimize(rc);
        qv_free(out);
    }
    qv_free(hex);
    bytes(state, kMiB);
}

// ---- URL encoding (bytes = plain text side, 1 MiB) ----
void BM_urlenc_qv(benchmark::State &state) {
    std::string t = url_text(kMiB);
    for (auto _ : state) {
        char *s = qv_urlencode(t.c_str());
        benchmark::DoNotOptimize(s);
        qv_free(s);
    }
    bytes(state, kMiB);
}
void BM_urlenc_glib(benchmark::State &state) {
    std::string t = url_text(kMiB);
    for (auto _ : state) {
        char *s = g_uri_escape_string(t.c_str(), "!*'()", TRUE);
        benchmark::DoNotOptimize(s);
        g_free(s);
    }
    bytes(state, kMiB);
}
void BM_urldec_qv(benchmark::State &state) {
    std::string t = url_text(kMiB);
    char *enc = qv_urlencode(t.c_str());
    for (auto _ : state) {
        char *s = qv_urldecode(enc);
        benchmark::DoNotOptimize(s);
        qv_free(s);
    }
    qv_free(enc);
    bytes(state, kMiB);
}
void BM_urldec_glib(benchmark::State &state) {
    std::string t = url_text(kMiB);
    char *enc = qv_urlencode(t.c_str());
    for (auto _ : state) {
        char *s = g_uri_unescape_string(enc, nullptr);
        benchmark::DoNotOptimize(s);
        g_free(s);
    }
    qv_free(enc);
    bytes(state, kMiB);
}

}  // namespace

BENCHMARK(BM_b64enc_qv);
BENCHMARK(BM_b64enc_openssl);
BENCHMARK(BM_b64enc_glib);
BENCHMARK(BM_b64dec_qv);
BENCHMARK(BM_b64dec_openssl);
BENCHMARK(BM_b64dec_glib);
BENCHMARK(BM_hexenc_qv);
BENCHMARK(BM_hexdec_qv);
BENCHMARK(BM_urlenc_qv);
BENCHMARK(BM_urlenc_glib);
BENCHMARK(BM_urldec_qv);
BENCHMARK(BM_urldec_glib);

BENCHMARK_MAIN();
