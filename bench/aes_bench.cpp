// Throughput of the AES engines beside OpenSSL's EVP AES-128, ECB and CBC on 16 KiB buffers,
// in MB/s, with the ratios of the medians printed at the end:
//   realaes_hw, aes_hw   the engines on the CPU's AES instructions (where it has them)
//   realaes_sw           REALAES without AES instructions, at its best on this CPU: bitsliced
//                        in AVX2 registers where it has AVX2 (ECB, CBC decryption), byte
//                        shuffles in VEX encoding for CBC encryption
//   realaes_ssse3        the same on SSE registers alone, as on CPUs without AVX2
//   realaes_tables       REALAES on table lookups, as on CPUs without SSSE3
//   aes_sw               AES without AES instructions: S-box lookups
//   openssl              OpenSSL as linked, on the AES instructions
//   openssl_sw           a second copy of libcrypto, loaded into a namespace of its own after
//                        OPENSSL_ia32cap="~0x200000200000000" has masked the AES instructions:
//                        OpenSSL's best software-only path, in the same process
// Unless told otherwise it runs 9 repetitions of every case in random order (interleaved)
// and reports medians. The load average is printed before and after: the machine is shared.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "tavik/aes.h"
#include "tavik/aes_modes.h"
#include "tavik/realaes.h"

namespace {

constexpr size_t bufferLen = 16 * 1024;
const uint8_t key[16] = {0x2b, 0x7e, 0x15, 0x16, 0x28, 0xae, 0xd2, 0xa6,
                         0xab, 0xf7, 0x15, 0x88, 0x09, 0xcf, 0x4f, 0x3c};
const uint8_t iv[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

enum mode { ecbEncrypt, ecbDecrypt, cbcEncrypt, cbcDecrypt };
const char* const modeNames[] = {"ecbEncrypt", "ecbDecrypt", "cbcEncrypt", "cbcDecrypt"};

std::vector<uint8_t> sampleBuffer() {
    std::vector<uint8_t> data(bufferLen);
    for (size_t i = 0; i < bufferLen; ++i) data[i] = static_cast<uint8_t>(i * 7 + 3);
    return data;
}

void reportRate(benchmark::State& state) {
    double bytes = static_cast<double>(state.iterations()) * bufferLen;
    state.counters["MB/s"] = benchmark::Counter(bytes / 1e6, benchmark::Counter::kIsRate);
}

template <class Engine>
void tavikRun(benchmark::State& state, mode m, tavik::aesModes::path fastest) {
    tavik::aesModes::limitPath(fastest);
    Engine engine;
    engine.setKey(key);
    std::vector<uint8_t> in = sampleBuffer(), out(bufferLen);
    for (auto _ : state) {
        if (m == ecbEncrypt) {
            engine.AES128_ECB_encrypt_buffer(out.data(), in.data(), bufferLen);
        } else if (m == ecbDecrypt) {
            engine.AES128_ECB_decrypt_buffer(out.data(), in.data(), bufferLen);
        } else if (m == cbcEncrypt) {
            engine.AES128_CBC_encrypt_buffer(out.data(), in.data(), bufferLen, iv);
        } else {
            engine.AES128_CBC_decrypt_buffer(out.data(), in.data(), bufferLen, iv);
        }
        benchmark::DoNotOptimize(out.data());
    }
    tavik::aesModes::limitPath(tavik::aesModes::path::aesInstructions);
    reportRate(state);
}

// The EVP calls the benchmark makes, from one copy of libcrypto.
struct evp {
    EVP_CIPHER_CTX* (*ctxNew)();
    void (*ctxFree)(EVP_CIPHER_CTX*);
    int (*init)(EVP_CIPHER_CTX*, const EVP_CIPHER*, ENGINE*, const unsigned char*,
                const unsigned char*, int);
    int (*setPadding)(EVP_CIPHER_CTX*, int);
    int (*update)(EVP_CIPHER_CTX*, unsigned char*, int*, const unsigned char*, int);
    const EVP_CIPHER* (*ecb)();
    const EVP_CIPHER* (*cbc)();
};

const evp linked = {EVP_CIPHER_CTX_new, EVP_CIPHER_CTX_free, EVP_CipherInit_ex,
                    EVP_CIPHER_CTX_set_padding, EVP_CipherUpdate, EVP_aes_128_ecb,
                    EVP_aes_128_cbc};
evp softwareOnly = {};

// libcrypto reads OPENSSL_ia32cap once, when it is loaded: a copy loaded now, into a link
// map of its own, sees the mask while the linked copy keeps the AES instructions.
bool loadSoftwareOnlyOpenssl() {
    setenv("OPENSSL_ia32cap", "~0x200000200000000", 1);
    void* lib = dlmopen(LM_ID_NEWLM, "libcrypto.so.3", RTLD_NOW | RTLD_LOCAL);
    unsetenv("OPENSSL_ia32cap");
    if (lib == nullptr) {
        std::fprintf(stderr, "no software-only OpenSSL: %s\n", dlerror());
        return false;
    }
    auto symbol = [lib](auto& fn, const char* name) {
        fn = reinterpret_cast<std::remove_reference_t<decltype(fn)>>(dlsym(lib, name));
        return fn != nullptr;
    };
    // Its clean-up at exit would run against the C library of its own link map, after that
    // has gone: the copy is initialised without it.
    int (*initCrypto)(uint64_t, const OPENSSL_INIT_SETTINGS*) = nullptr;
    if (!symbol(initCrypto, "OPENSSL_init_crypto") || !initCrypto(OPENSSL_INIT_NO_ATEXIT, nullptr)) {
        return false;
    }
    return symbol(softwareOnly.ctxNew, "EVP_CIPHER_CTX_new") &&
           symbol(softwareOnly.ctxFree, "EVP_CIPHER_CTX_free") &&
           symbol(softwareOnly.init, "EVP_CipherInit_ex") &&
           symbol(softwareOnly.setPadding, "EVP_CIPHER_CTX_set_padding") &&
           symbol(softwareOnly.update, "EVP_CipherUpdate") &&
           symbol(softwareOnly.ecb, "EVP_aes_128_ecb") && symbol(softwareOnly.cbc, "EVP_aes_128_cbc");
}

void opensslRun(benchmark::State& state, mode m, const evp* api) {
    bool encrypt = m == ecbEncrypt || m == cbcEncrypt;
    EVP_CIPHER_CTX* ctx = api->ctxNew();
    api->init(ctx, m <= ecbDecrypt ? api->ecb() : api->cbc(), nullptr, key, iv, encrypt ? 1 : 0);
    api->setPadding(ctx, 0);
    std::vector<uint8_t> in = sampleBuffer(), out(bufferLen);
    for (auto _ : state) {
        int len = 0;
        api->init(ctx, nullptr, nullptr, nullptr, iv, -1);  // restart the chain
        api->update(ctx, out.data(), &len, in.data(), static_cast<int>(bufferLen));
        benchmark::DoNotOptimize(out.data());
    }
    api->ctxFree(ctx);
    reportRate(state);
}

// Console output as usual, and the table of median ratios at the end.
class ratioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            auto rate = run.counters.find("MB/s");
            if (run.aggregate_name == "median" && rate != run.counters.end()) {
                medians[run.run_name.function_name] = rate->second.value;
            }
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        const char* const rows[][3] = {{"realaes_hw", "openssl", ""},
                                       {"realaes_sw", "openssl_sw", ""},
                                       {"realaes_ssse3", "openssl_sw", ""},
                                       {"realaes_tables", "openssl_sw", ""},
                                       {"aes_hw", "openssl", ""},
                                       {"aes_sw", "openssl_sw", ""}};
        std::printf("\nmedian MB/s, ratio tavik / peer\n%-28s", "");
        for (const char* name : modeNames) std::printf("%24s", name);
        std::printf("\n");
        for (const auto& row : rows) {
            std::printf("%-28s", (std::string(row[0]) + " / " + row[1]).c_str());
            for (const char* name : modeNames) {
                double ours = medians[std::string(name) + "/" + row[0]];
                double peer = medians[std::string(name) + "/" + row[1]];
                std::printf("%9.0f / %5.0f %5.2f", ours, peer, peer > 0 ? ours / peer : 0.0);
            }
            std::printf("\n");
        }
    }

private:
    std::map<std::string, double> medians;
};

void printLoad(const char* when) {
    double load[3] = {};
    if (getloadavg(load, 3) == 3) {
        std::printf("load average %s: %.2f, %.2f, %.2f\n", when, load[0], load[1], load[2]);
    }
}

}  // namespace

int main(int argc, char** argv) {
    bool peer = loadSoftwareOnlyOpenssl();
    for (int m = ecbEncrypt; m <= cbcDecrypt; ++m) {
        mode md = static_cast<mode>(m);
        auto add = [&](const char* impl, auto fn, auto... args) {
            benchmark::RegisterBenchmark((std::string(modeNames[m]) + "/" + impl).c_str(), fn,
                                         md, args...);
        };
        using tavik::aesModes::path;
        add("realaes_hw", tavikRun<tavik::REALAES>, path::aesInstructions);
        add("realaes_sw", tavikRun<tavik::REALAES>, path::avx2);
        add("realaes_ssse3", tavikRun<tavik::REALAES>, path::ssse3);
        add("realaes_tables", tavikRun<tavik::REALAES>, path::tables);
        add("aes_hw", tavikRun<tavik::AES>, path::aesInstructions);
        add("aes_sw", tavikRun<tavik::AES>, path::tables);
        add("openssl", opensslRun, &linked);
        if (peer) add("openssl_sw", opensslRun, &softwareOnly);
    }
    // Defaults first, so that flags on the command line override them.
    std::vector<char*> args = {argv[0]};
    std::string defaults[] = {"--benchmark_repetitions=9",
                              "--benchmark_enable_random_interleaving=true",
                              "--benchmark_report_aggregates_only=true",
                              "--benchmark_min_time=0.1"};
    for (std::string& d : defaults) args.push_back(d.data());
    args.insert(args.end(), argv + 1, argv + argc);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    const char* const paths[] = {"AES instructions", "AVX2", "SSSE3", "tables"};
    std::printf("fastest AES path: %s\n", paths[static_cast<int>(tavik::aesModes::fastestPath())]);
    printLoad("before");
    ratioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printLoad("after");
    benchmark::Shutdown();
    return 0;
}
