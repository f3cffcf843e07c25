// MD5 and SHA-1 throughput on a 64 MiB buffer and on 64-byte messages, next
// to OpenSSL's libcrypto hashing the same bytes in the same run; prints each
// ratio (ours / OpenSSL, above 1 is faster) after the table.
#define OPENSSL_API_COMPAT 0x10100000L
#include <benchmark/benchmark.h>
#include <openssl/md5.h>
#include <openssl/sha.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <base/tools/KMd5.h>
#include <base/tools/KSha1.h>

namespace {

const std::vector<unsigned char>& Data() {
  static const std::vector<unsigned char> v = [] {
    std::vector<unsigned char> d(64u << 20);
    unsigned x = 12345;
    for (auto& c : d) {
      x = x * 1103515245u + 12345u;
      c = (unsigned char)(x >> 16);
    }
    return d;
  }();
  return v;
}

// Each iteration hashes the buffer as messages of state.range(0) bytes.
template <class F>
void Run(benchmark::State& state, F f) {
  const std::vector<unsigned char>& d = Data();
  const size_t nMsg = (size_t)state.range(0);
  const size_t nTotal = nMsg >= d.size() ? d.size() : (size_t)1 << 20;
  for (auto _ : state)
    for (size_t i = 0; i + nMsg <= nTotal; i += nMsg) f(d.data() + i, nMsg);
  state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)(nTotal / nMsg * nMsg));
}

// One message through a digest's init, a single update and final.
template <class Ctx, size_t N, class Init, class Update, class Final>
void Hash(const unsigned char* p, size_t n, Init fInit, Update fUpdate, Final fFinal) {
  Ctx ctx;
  unsigned char d[N];
  fInit(&ctx);
  fUpdate(&ctx, p, n);
  fFinal(&ctx, d);
  benchmark::DoNotOptimize(d);
}

void Md5Kelvor(const unsigned char* p, size_t n) {
  Hash<KMd5Data, 16>(p, n, KMd5Init, KMd5Update, KMd5Final);
}

void Md5OpenSSL(const unsigned char* p, size_t n) {
  Hash<MD5_CTX, 16>(p, n, MD5_Init, MD5_Update, [](MD5_CTX* c, unsigned char* d) { MD5_Final(d, c); });
}

void Sha1Kelvor(const unsigned char* p, size_t n) {
  Hash<KSha1Data, 20>(
      p, n, KSha1Init, [](KSha1Data* c, const unsigned char* q, size_t m) { KSha1Update(c, (unsigned)m, q); },
      [](KSha1Data* c, unsigned char* d) { KSha1Digest(c, 20, d); });
}

void Sha1OpenSSL(const unsigned char* p, size_t n) {
  Hash<SHA_CTX, 20>(p, n, SHA1_Init, SHA1_Update, [](SHA_CTX* c, unsigned char* d) { SHA1_Final(d, c); });
}

void BM_Md5_Kelvor(benchmark::State& state) { Run(state, Md5Kelvor); }
void BM_Md5_OpenSSL(benchmark::State& state) { Run(state, Md5OpenSSL); }
void BM_Sha1_Kelvor(benchmark::State& state) { Run(state, Sha1Kelvor); }
void BM_Sha1_OpenSSL(benchmark::State& state) { Run(state, Sha1OpenSSL); }

// The portable code alone, for reference (on machines with SHA instructions).
void BM_Sha1_KelvorPortable(benchmark::State& state) {
  const int bWas = KSha1UseHardware(FALSE);
  Run(state, Sha1Kelvor);
  KSha1UseHardware(bWas);
}

const int64_t kBig = 64 << 20;

// Keeps each benchmark's bytes per second by name: the median when the run
// is repeated (--benchmark_repetitions), else the one measurement.
class Collector : public benchmark::ConsoleReporter {
public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      auto it = r.counters.find("bytes_per_second");
      if (r.error_occurred || it == r.counters.end()) continue;
      const std::string strName = r.run_name.str();
      if (r.run_type == Run::RT_Aggregate && r.aggregate_name == "median") {
        rates[strName] = it->second.value;
        medians[strName] = true;
      } else if (r.run_type == Run::RT_Iteration && !medians[strName]) {
        rates[strName] = it->second.value;
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  std::map<std::string, double> rates;
  std::map<std::string, bool> medians;
};

}  // namespace

BENCHMARK(BM_Md5_Kelvor)->Arg(kBig)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Md5_OpenSSL)->Arg(kBig)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sha1_Kelvor)->Arg(kBig)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sha1_KelvorPortable)->Arg(kBig)->Arg(64)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Sha1_OpenSSL)->Arg(kBig)->Arg(64)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Collector rep;
  benchmark::RunSpecifiedBenchmarks(&rep);
  printf("\nSHA instructions: %s\n", KSha1HasHardware() ? "yes (used)" : "no (portable code)");
  const struct {
    const char *szOurs, *szPeer, *szWhat;
    double dGoal;
  } kPairs[] = {{"BM_Md5_Kelvor", "BM_Md5_OpenSSL", "MD5", 0.95},
                {"BM_Sha1_Kelvor", "BM_Sha1_OpenSSL", "SHA-1", 0.9},
                {"BM_Sha1_KelvorPortable", "BM_Sha1_OpenSSL", "SHA-1 portable", 0.0}};
  for (const auto& p : kPairs)
    for (const char* szArg : {"67108864", "64"}) {
      const std::string a = std::string(p.szOurs) + "/" + szArg, b = std::string(p.szPeer) + "/" + szArg;
      if (!rep.rates.count(a) || !rep.rates.count(b) || rep.rates[b] <= 0) continue;
      const double r = rep.rates[a] / rep.rates[b];
      printf("%-15s %-11s Kelvor %8.1f MB/s  OpenSSL %8.1f MB/s  ratio %.3f", p.szWhat,
             strlen(szArg) > 2 ? "64 MiB" : "64-byte msg", rep.rates[a] / 1e6, rep.rates[b] / 1e6, r);
      if (p.dGoal > 0) printf("  (goal %.2f: %s)", p.dGoal, r >= p.dGoal ? "met" : "missed");
      printf("\n");
    }
  benchmark::Shutdown();
  return 0;
}
