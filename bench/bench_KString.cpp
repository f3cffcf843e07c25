// String costs that the design promises: copies are free until written, and a
// run of appends costs few reallocations.
#include <benchmark/benchmark.h>

#include <string>

#include <base/tools/KStr.h>
#include <base/tools/KString.h>

static void BM_CopyShared(benchmark::State& state) {
  CKString s(std::string(1000, 'x'));
  for (auto _ : state) {
    CKString c(s);
    benchmark::DoNotOptimize((const char*)c);
  }
}
BENCHMARK(BM_CopyShared);

static void BM_StdStringCopy(benchmark::State& state) {
  std::string s(1000, 'x');
  for (auto _ : state) {
    std::string c(s);
    benchmark::DoNotOptimize(c.data());
  }
}
BENCHMARK(BM_StdStringCopy);

static void BM_AppendChars(benchmark::State& state) {
  for (auto _ : state) {
    CKString s;
    for (int i = 0; i < state.range(0); ++i) s += 'a';
    benchmark::DoNotOptimize((const char*)s);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_AppendChars)->Arg(64)->Arg(4096);

static void BM_KAnd5(benchmark::State& state) {
  for (auto _ : state) {
    CKString s = KAnd("Assertion failed (", "nIndex<m_nElts", ") in ", "src/KList", ". Continue...");
    benchmark::DoNotOptimize((const char*)s);
  }
}
BENCHMARK(BM_KAnd5);

static void BM_ReplaceGrow(benchmark::State& state) {
  std::string base;
  for (int i = 0; i < 500; ++i) base += "a.b.";
  for (auto _ : state) {
    CKString s(base);
    benchmark::DoNotOptimize(s.Replace(".", "--"));
  }
}
BENCHMARK(BM_ReplaceGrow);

static void BM_Format(benchmark::State& state) {
  CKString s;
  for (auto _ : state) {
    s.Format("%s=%d (%5.2f)", "value", 12345, 3.14159);
    benchmark::DoNotOptimize((const char*)s);
  }
}
BENCHMARK(BM_Format);
