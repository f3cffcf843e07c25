// Blob encoding against msgpack-c's C++ interface and memcpy, on one data
// set: 100 000 elements of mixed kinds (int, text, double, unsigned 64-bit,
// list of texts) under distinct names. msgpack packs the same names and
// values as a map and unpacks them into its object tree. Also: building a
// blob with 100 000 SetElement calls, names ascending and shuffled, and the
// heap held per element by a decoded blob. main prints one "ratio" line per
// pair (Kelvor time / peer time, best CPU time of the repetitions).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <msgpack.hpp>

#include <base/tools/KBlob.h>

#include "KBenchBest.h"

namespace {

const int kCount = 100000;

struct CItem {
  std::string name;
  int kind;  // 0 int, 1 text, 2 double, 3 u64, 4 list
  long long n;
  double d;
  std::string text;
  std::vector<std::string> list;
};

struct CData {
  std::vector<CItem> items;
  std::vector<std::string> shuffled;  // the names in random order
  std::string encoded;                // the blob's binary form
  msgpack::sbuffer packed;
};

CData& Data() {
  static CData s_data;
  return s_data;
}

std::string Bytes(const CKMem& m) {
  const unsigned char* p = m.m_pMemRef ? m.m_pMemRef->pData : nullptr;
  return p ? std::string((const char*)p + m.m_nStartOffset, m.Size() - m.m_nStartOffset) : "";
}

void Fill(CKBlob& b) {
  for (const CItem& it : Data().items) {
    switch (it.kind) {
      case 0: b.SetElement(it.name.c_str(), (int)it.n); break;
      case 1: b.SetElement(it.name.c_str(), it.text.c_str()); break;
      case 2: b.SetElement(it.name.c_str(), it.d); break;
      case 3: b.SetElement(it.name.c_str(), (unsigned __int64)it.n); break;
      default: {
        CKList l;
        for (const std::string& s : it.list) l.Add(s.c_str());
        b.SetElement(it.name.c_str(), l, 1);
      }
    }
  }
}

void Pack(msgpack::sbuffer& buf) {
  msgpack::packer<msgpack::sbuffer> pk(&buf);
  pk.pack_map((uint32_t)Data().items.size());
  for (const CItem& it : Data().items) {
    pk.pack(it.name);
    switch (it.kind) {
      case 0: pk.pack((int)it.n); break;
      case 1: pk.pack(it.text); break;
      case 2: pk.pack(it.d); break;
      case 3: pk.pack((unsigned long long)it.n); break;
      default: pk.pack(it.list);
    }
  }
}

void Fixtures() {
  CData& d = Data();
  std::mt19937 rng(12345);
  for (int i = 0; i < kCount; i++) {
    CItem it;
    char sz[16];
    std::snprintf(sz, sizeof sz, "elt%06d", i);
    it.name = sz;
    it.kind = i % 5;
    it.n = (long long)(rng() % 1000000);
    it.d = it.n / 7.0;
    it.text.assign(8 + rng() % 24, (char)('a' + rng() % 26));
    if (it.kind == 4)
      for (int k = 0; k < 3; k++) it.list.push_back(it.text.substr(0, 4 + k));
    d.items.push_back(it);
    d.shuffled.push_back(it.name);
  }
  std::shuffle(d.shuffled.begin(), d.shuffled.end(), rng);
  CKBlobMemory b;
  Fill(b);
  CKMem m;
  if (!b.ToMem(m)) std::fprintf(stderr, "blob encoding failed\n");
  d.encoded = Bytes(m);
  Pack(d.packed);
}

void BM_BlobEncode(benchmark::State& state) {
  CKBlobMemory b;
  Fill(b);
  for (auto _ : state) {
    CKMem m;
    benchmark::DoNotOptimize(b.ToMem(m));
  }
  state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)Data().encoded.size());
}

void BM_BlobDecode(benchmark::State& state) {
  CKMem src;
  std::string copy = Data().encoded;
  src.Set(&copy[0], (unsigned)copy.size());
  for (auto _ : state) {
    CKBlobMemory b;
    b.FromMem(src);
    benchmark::DoNotOptimize(b.BlobElementCount());
  }
  state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)Data().encoded.size());
}

void BM_MsgpackPack(benchmark::State& state) {
  for (auto _ : state) {
    msgpack::sbuffer buf;
    Pack(buf);
    benchmark::DoNotOptimize(buf.size());
  }
  state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)Data().packed.size());
}

void BM_MsgpackUnpack(benchmark::State& state) {
  for (auto _ : state) {
    msgpack::object_handle oh = msgpack::unpack(Data().packed.data(), Data().packed.size());
    benchmark::DoNotOptimize(oh.get().via.map.size);
  }
  state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)Data().packed.size());
}

void BM_Memcpy(benchmark::State& state) {
  std::vector<char> dst(Data().encoded.size());
  for (auto _ : state) {
    std::memcpy(dst.data(), Data().encoded.data(), dst.size());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)Data().encoded.size());
}

void SetMany(benchmark::State& state, bool bShuffled) {
  for (auto _ : state) {
    CKBlobMemory b;
    int i = 0;
    if (bShuffled)
      for (const std::string& s : Data().shuffled) b.SetElement(s.c_str(), i++);
    else
      for (const CItem& it : Data().items) b.SetElement(it.name.c_str(), i++);
    benchmark::DoNotOptimize(b.BlobElementCount());
  }
}
void BM_SetElementAscending(benchmark::State& state) { SetMany(state, false); }
void BM_SetElementRandom(benchmark::State& state) { SetMany(state, true); }

BENCHMARK(BM_BlobEncode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MsgpackPack)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BlobDecode)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MsgpackUnpack)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SetElementAscending)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SetElementRandom)->Unit(benchmark::kMillisecond);

// Heap bytes held by a decoded blob, per element.
double BytesPerElement() {
#if defined(__GLIBC__)
  CKMem src;
  std::string copy = Data().encoded;
  src.Set(&copy[0], (unsigned)copy.size());
  const size_t before = mallinfo2().uordblks;
  CKBlobMemory* b = new CKBlobMemory;
  b->FromMem(src);
  b->BlobElementCount();
  const size_t after = mallinfo2().uordblks;
  delete b;
  return (double)(after - before) / kCount;
#else
  return 0;
#endif
}

}  // namespace

int main(int argc, char** argv) {
  Fixtures();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  CBestReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  struct {
    const char* label;
    const char* kelvor;
    const char* peer;
    double goal;
  } pairs[] = {{"blob encode / msgpack pack", "BM_BlobEncode", "BM_MsgpackPack", 1.0},
               {"blob decode / msgpack unpack", "BM_BlobDecode", "BM_MsgpackUnpack", 1.43},
               {"blob encode / memcpy", "BM_BlobEncode", "BM_Memcpy", 0},
               {"blob decode / memcpy", "BM_BlobDecode", "BM_Memcpy", 0},
               {"SetElement random / ascending", "BM_SetElementRandom", "BM_SetElementAscending", 0}};
  std::printf("\nencoded bytes: blob %zu, msgpack %zu\n", Data().encoded.size(), Data().packed.size());
  std::printf("%-40s %14s %14s %7s %5s\n", "pair", "kelvor ns", "peer ns", "ratio", "goal");
  for (const auto& p : pairs) {
    auto k = reporter.best.find(p.kelvor);
    auto s = reporter.best.find(p.peer);
    if (k == reporter.best.end() || s == reporter.best.end() || s->second <= 0) continue;
    std::printf("ratio %-34s %14.0f %14.0f %7.2f %5.2f\n", p.label, k->second, s->second,
                k->second / s->second, p.goal);
  }
  std::printf("decoded blob heap: %.1f bytes per element\n", BytesPerElement());
  benchmark::Shutdown();
  return 0;
}
