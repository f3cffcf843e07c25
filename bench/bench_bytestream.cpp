// CKByteStream against hand-written peers on the same data, in one run:
// typed writes and reads of 10 million integers and of short texts against a
// buffered little-endian writer/reader over the same memory, and large raw
// writes to a disk file against fwrite. The last entry prints the ratios
// (stream time / peer time; the goals are 1.2 and 1.1).
#include <benchmark/benchmark.h>

#include <ctime>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <base/tools/KByteStream.h>

namespace {

const int kInts = 10000000;
const int kTexts = 3000000;
const size_t kRaw = 256u << 20;  // bytes per disk run
const size_t kRawBlock = 1u << 20;

std::map<std::string, double> g_best;  // fastest seconds per run, by name

// Processor time (the machine may be shared: wall time there is noise).
struct Timer {
  explicit Timer(const char* sz) : szName(sz), t0(std::clock()) {}
  ~Timer() {
    const double s = (double)(std::clock() - t0) / CLOCKS_PER_SEC;
    auto it = g_best.find(szName);
    if (it == g_best.end() || s < it->second) g_best[szName] = s;
  }
  const char* szName;
  std::clock_t t0;
};

const char* Text(int i) {
  static const char* s_texts[] = {"a", "short", "texts of", "several sizes", "k"};
  return s_texts[i % 5];
}

// The peers: a buffered little-endian writer and reader written by hand. The
// writer fills a 64 KiB buffer and copies it out to the destination memory
// when full; the reader takes the source memory in 64 KiB windows. Both
// leave their edge handling out of line, as the stream does.
const size_t kWindow = 0x10000;

struct LeWriter {
  std::vector<unsigned char> out;
  unsigned char buf[kWindow];
  unsigned char* p = buf;
  unsigned char* end = buf + kWindow;
  __attribute__((noinline)) void Flush() {
    out.insert(out.end(), buf, p);
    p = buf;
  }
  void Int(int v) {
    if (end - p < 4) Flush();
    p[0] = (unsigned char)v;
    p[1] = (unsigned char)(v >> 8);
    p[2] = (unsigned char)(v >> 16);
    p[3] = (unsigned char)(v >> 24);
    p += 4;
  }
  void Str(const char* s) {
    const size_t l = strlen(s) + 1;
    Int((int)l);
    if ((size_t)(end - p) < l) Flush();
    memcpy(p, s, l);
    p += l;
  }
};

struct LeReader {
  const unsigned char* src;
  const unsigned char* srcEnd;
  const unsigned char* p = nullptr;
  const unsigned char* end = nullptr;
  // The next window, from the first byte not yet read.
  __attribute__((noinline)) bool Refill(size_t nNeed) {
    const unsigned char* q = p ? p : src;
    if ((size_t)(srcEnd - q) < nNeed) return false;
    size_t n = (size_t)(srcEnd - q);
    if (n > kWindow) n = kWindow;
    if (n < nNeed) n = nNeed;
    p = q;
    end = q + n;
    return true;
  }
  bool Int(int& v) {
    if (end - p < 4 && !Refill(4)) return false;
    v = (int)((uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24);
    p += 4;
    return true;
  }
  bool Str(std::string& s) {
    int l;
    if (!Int(l) || l <= 0) return false;
    if (end - p < l && !Refill((size_t)l)) return false;
    if (p[l - 1]) return false;
    s.assign((const char*)p, (size_t)l - 1);
    p += l;
    return true;
  }
};

void StreamWriteInts(benchmark::State& state) {
  for (auto _ : state) {
    Timer t("write ints");
    CKByteStream s;
    s.InitWrite();
    for (int i = 0; i < kInts; ++i) s.Put(i);
    s.TermWrite();
    benchmark::DoNotOptimize(s.File()->MemData());
  }
  state.SetItemsProcessed(state.iterations() * kInts);
}

void PeerWriteInts(benchmark::State& state) {
  for (auto _ : state) {
    Timer t("peer write ints");
    LeWriter w;
    for (int i = 0; i < kInts; ++i) w.Int(i);
    w.Flush();
    benchmark::DoNotOptimize(w.out.data());
  }
  state.SetItemsProcessed(state.iterations() * kInts);
}

void StreamReadInts(benchmark::State& state) {
  CKByteStream w;
  w.InitWrite();
  for (int i = 0; i < kInts; ++i) w.Put(i);
  w.TermWrite();
  for (auto _ : state) {
    Timer t("read ints");
    CKByteStream s;
    s.InitRead(w.File());
    int v = 0;
    long long sum = 0;
    while (s.Get(v)) sum += v;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kInts);
}

void PeerReadInts(benchmark::State& state) {
  CKByteStream w;
  w.InitWrite();
  for (int i = 0; i < kInts; ++i) w.Put(i);
  w.TermWrite();
  for (auto _ : state) {
    Timer t("peer read ints");
    LeReader r{w.File()->MemData(), w.File()->MemData() + w.File()->Size()};
    r.p = r.end = nullptr;
    int v = 0;
    long long sum = 0;
    while (r.Int(v)) sum += v;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * kInts);
}

void StreamWriteTexts(benchmark::State& state) {
  for (auto _ : state) {
    Timer t("write texts");
    CKByteStream s;
    s.InitWrite();
    for (int i = 0; i < kTexts; ++i) s.Put(Text(i));
    s.TermWrite();
    benchmark::DoNotOptimize(s.File()->MemData());
  }
  state.SetItemsProcessed(state.iterations() * kTexts);
}

void PeerWriteTexts(benchmark::State& state) {
  for (auto _ : state) {
    Timer t("peer write texts");
    LeWriter w;
    for (int i = 0; i < kTexts; ++i) w.Str(Text(i));
    w.Flush();
    benchmark::DoNotOptimize(w.out.data());
  }
  state.SetItemsProcessed(state.iterations() * kTexts);
}

void StreamReadTexts(benchmark::State& state) {
  CKByteStream w;
  w.InitWrite();
  for (int i = 0; i < kTexts; ++i) w.Put(Text(i));
  w.TermWrite();
  for (auto _ : state) {
    Timer t("read texts");
    CKByteStream s;
    s.InitRead(w.File());
    CKString str;
    size_t n = 0;
    while (n < (size_t)kTexts && s.Get(str)) n += str.GetLength();
    benchmark::DoNotOptimize(n);
  }
  state.SetItemsProcessed(state.iterations() * kTexts);
}

void PeerReadTexts(benchmark::State& state) {
  CKByteStream w;
  w.InitWrite();
  for (int i = 0; i < kTexts; ++i) w.Put(Text(i));
  w.TermWrite();
  for (auto _ : state) {
    Timer t("peer read texts");
    LeReader r{w.File()->MemData(), w.File()->MemData() + w.File()->Size()};
    r.p = r.end = nullptr;
    std::string str;
    size_t n = 0;
    while (r.Str(str)) n += str.size();
    benchmark::DoNotOptimize(n);
  }
  state.SetItemsProcessed(state.iterations() * kTexts);
}

std::string TempPath() {
  static const std::string s_str = (const char*)KFileGetTemp(nullptr, "kbench", 1);
  return s_str;
}

void StreamRawDisk(benchmark::State& state) {
  std::vector<unsigned char> block(kRawBlock, 0x5a);
  for (auto _ : state) {
    Timer t("raw disk");
    CKByteStream s;
    s.InitWrite(TempPath().c_str(), 0, -1, 1);
    for (size_t n = 0; n < kRaw; n += kRawBlock) s.Put(block.data(), (__int64)block.size());
    s.Close();
  }
  state.SetBytesProcessed(state.iterations() * (int64_t)kRaw);
}

void PeerRawDisk(benchmark::State& state) {
  std::vector<unsigned char> block(kRawBlock, 0x5a);
  for (auto _ : state) {
    Timer t("peer raw disk");
    FILE* f = fopen(TempPath().c_str(), "wb");
    for (size_t n = 0; n < kRaw; n += kRawBlock) fwrite(block.data(), 1, block.size(), f);
    fclose(f);
  }
  state.SetBytesProcessed(state.iterations() * (int64_t)kRaw);
}

void Ratios(benchmark::State& state) {
  for (auto _ : state) {
  }
  const char* names[] = {"write ints", "read ints", "write texts", "read texts", "raw disk"};
  printf("\nCKByteStream / peer (best processor time of each; goal <= 1.2, raw disk <= 1.1)\n");
  for (const char* sz : names) {
    const std::string strPeer = std::string("peer ") + sz;
    if (!g_best.count(sz) || !g_best.count(strPeer)) continue;
    printf("  %-12s %8.4f s vs %8.4f s  ratio %.3f\n", sz, g_best[sz], g_best[strPeer],
           g_best[sz] / g_best[strPeer]);
  }
  std::remove(TempPath().c_str());
}

}  // namespace

BENCHMARK(StreamWriteInts)->Unit(benchmark::kMillisecond);
BENCHMARK(PeerWriteInts)->Unit(benchmark::kMillisecond);
BENCHMARK(StreamReadInts)->Unit(benchmark::kMillisecond);
BENCHMARK(PeerReadInts)->Unit(benchmark::kMillisecond);
BENCHMARK(StreamWriteTexts)->Unit(benchmark::kMillisecond);
BENCHMARK(PeerWriteTexts)->Unit(benchmark::kMillisecond);
BENCHMARK(StreamReadTexts)->Unit(benchmark::kMillisecond);
BENCHMARK(PeerReadTexts)->Unit(benchmark::kMillisecond);
BENCHMARK(StreamRawDisk)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(PeerRawDisk)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(Ratios)->Iterations(1);
