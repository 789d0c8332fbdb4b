// Throughput of REALAES beside OpenSSL's EVP AES-128, ECB and CBC on 16 KiB buffers, in MB/s.
// Run once as is and once with OPENSSL_ia32cap="~0x200000200000000" in the environment,
// which masks the AES instructions and makes OpenSSL the best software-only peer.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstdint>
#include <vector>

#include "tavik/realaes.h"

namespace {

constexpr size_t bufferLen = 16 * 1024;
const uint8_t key[16] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                         0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
const uint8_t iv[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

std::vector<uint8_t> sampleBuffer() {
    std::vector<uint8_t> data(bufferLen);
    for (size_t i = 0; i < bufferLen; ++i) data[i] = static_cast<uint8_t>(i * 7 + 3);
    return data;
}

void reportRate(benchmark::State& state) {
    double bytes = static_cast<double>(state.iterations()) * bufferLen;
    state.counters["MB/s"] = benchmark::Counter(bytes / 1e6, benchmark::Counter::kIsRate);
}

void realaesEcb(benchmark::State& state, bool encrypt) {
    tavik::REALAES engine;
    engine.setKey(key);
    std::vector<uint8_t> in = sampleBuffer(), out(bufferLen);
    for (auto _ : state) {
        for (size_t i = 0; i < bufferLen; i += 16) {
            if (encrypt) {
                engine.AES128_ECB_encrypt(in.data() + i, out.data() + i);
            } else {
                engine.AES128_ECB_decrypt(in.data() + i, out.data() + i);
            }
        }
        benchmark::DoNotOptimize(out.data());
    }
    reportRate(state);
}

void realaesCbc(benchmark::State& state, bool encrypt) {
    tavik::REALAES engine;
    engine.setKey(key);
    std::vector<uint8_t> in = sampleBuffer(), out(bufferLen);
    for (auto _ : state) {
        if (encrypt) {
            engine.AES128_CBC_encrypt_buffer(out.data(), in.data(), bufferLen, iv);
        } else {
            engine.AES128_CBC_decrypt_buffer(out.data(), in.data(), bufferLen, iv);
        }
        benchmark::DoNotOptimize(out.data());
    }
    reportRate(state);
}

void opensslRun(benchmark::State& state, const EVP_CIPHER* type, bool encrypt) {
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    EVP_CipherInit_ex(ctx, type, nullptr, key, iv, encrypt ? 1 : 0);
    EVP_CIPHER_CTX_set_padding(ctx, 0);
    std::vector<uint8_t> in = sampleBuffer(), out(bufferLen);
    for (auto _ : state) {
        int len = 0;
        EVP_CipherInit_ex(ctx, nullptr, nullptr, nullptr, iv, -1);  // restart the chain
        EVP_CipherUpdate(ctx, out.data(), &len, in.data(), static_cast<int>(bufferLen));
        benchmark::DoNotOptimize(out.data());
    }
    EVP_CIPHER_CTX_free(ctx);
    reportRate(state);
}

BENCHMARK_CAPTURE(realaesEcb, encrypt, true);
BENCHMARK_CAPTURE(opensslRun, ecbEncrypt, EVP_aes_128_ecb(), true);
BENCHMARK_CAPTURE(realaesEcb, decrypt, false);
BENCHMARK_CAPTURE(opensslRun, ecbDecrypt, EVP_aes_128_ecb(), false);
BENCHMARK_CAPTURE(realaesCbc, encrypt, true);
BENCHMARK_CAPTURE(opensslRun, cbcEncrypt, EVP_aes_128_cbc(), true);
BENCHMARK_CAPTURE(realaesCbc, decrypt, false);
BENCHMARK_CAPTURE(opensslRun, cbcDecrypt, EVP_aes_128_cbc(), false);

}  // namespace

BENCHMARK_MAIN();
