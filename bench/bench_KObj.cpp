// Object tree costs at 100 000 objects with three properties each: building,
// ObjByKey look-ups (against a std::unordered_map keyed by the same texts)
// and heap bytes per object.
#include <benchmark/benchmark.h>

#include "KBenchBest.h"

#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <base/tools/KStr.h>
#include <misc/KObj.h>

namespace {

const int kObjects = 100000;

CKObj* BuildTree(int n) {
  CKObj* root = new CKObj;
  root->Rename("root");
  CKObj* folder = nullptr;
  for (int i = 0; i < n; i++) {
    if (i % 100 == 0) {
      folder = new CKObj;
      folder->Rename(KAnd("folder ", KStr(i)));
      root->Add(folder);
    }
    CKObj* o = new CKObj;
    o->SetType(2);
    o->Rename(KAnd("object ", KStr(i)));
    o->PropAdd("Color", "red");
    o->PropAdd("Size", KStr(i));
    o->PropAdd("Owner", "someone");
    folder->Add(o);
  }
  return root;
}

void Keys(CKObj* root, std::vector<std::string>& v) {
  for (int i = 0; i < root->Count(); i++) {
    CKObj* o = root->Get(i);
    v.push_back(o->Key().GetString());
    Keys(o, v);
  }
}

void BM_BuildTree(benchmark::State& state) {
  for (auto _ : state) {
    std::unique_ptr<CKObj> root(BuildTree(kObjects));
    benchmark::DoNotOptimize(root.get());
  }
  state.SetItemsProcessed(state.iterations() * kObjects);
}
BENCHMARK(BM_BuildTree)->Unit(benchmark::kMillisecond);

void BM_ObjByKey(benchmark::State& state) {
  std::unique_ptr<CKObj> root(BuildTree(kObjects));
  std::vector<std::string> keys;
  Keys(root.get(), keys);
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ObjByKey(keys[i].c_str()));
    if (++i == keys.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ObjByKey);

// The peer: the same texts in a standard hash map (no lock, no parsing).
void BM_StdMapByKeyText(benchmark::State& state) {
  std::unique_ptr<CKObj> root(BuildTree(kObjects));
  std::vector<std::string> keys;
  Keys(root.get(), keys);
  std::unordered_map<std::string, CKObj*> map;
  for (const std::string& k : keys) map[k] = ObjByKey(k.c_str());
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(map.find(keys[i].c_str()));
    if (++i == keys.size()) i = 0;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_StdMapByKeyText);

CKObj* NewObj(int) { return new CKObj; }

void BM_ToXmlString(benchmark::State& state) {
  std::unique_ptr<CKObj> root(BuildTree(kObjects));
  for (auto _ : state) {
    CKString s;
    root->ToXmlString(s);
    benchmark::DoNotOptimize((const char*)s);
  }
  state.SetItemsProcessed(state.iterations() * kObjects);
}
BENCHMARK(BM_ToXmlString)->Unit(benchmark::kMillisecond);

void BM_CreateFromXml(benchmark::State& state) {
  std::unique_ptr<CKObj> root(BuildTree(kObjects));
  CKString s;
  root->ToXmlString(s);
  ObjNew = NewObj;
  for (auto _ : state) {
    std::unique_ptr<CKObj> p(CKObj::CreateFromXmlText(s, s.GetLength()));
    benchmark::DoNotOptimize(p.get());
  }
  state.SetItemsProcessed(state.iterations() * kObjects);
  state.counters["MB"] = s.GetLength() / 1e6;
}
BENCHMARK(BM_CreateFromXml)->Unit(benchmark::kMillisecond);

#if defined(__GLIBC__)
void BM_BytesPerObject(benchmark::State& state) {
  double dBytes = 0;
  for (auto _ : state) {
    const size_t nBefore = mallinfo2().uordblks;
    std::unique_ptr<CKObj> root(BuildTree(kObjects));
    const size_t nAfter = mallinfo2().uordblks;
    dBytes = (double)(nAfter - nBefore) / (kObjects + kObjects / 100 + 1);
  }
  state.counters["bytes/object"] = dBytes;
}
BENCHMARK(BM_BytesPerObject)->Iterations(1)->Unit(benchmark::kMillisecond);
#endif


}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  CBestReporter rep;
  benchmark::RunSpecifiedBenchmarks(&rep);
  const double k = rep.best["BM_ObjByKey"], m = rep.best["BM_StdMapByKeyText"];
  const char* const perObject[] = {"BM_BuildTree", "BM_ToXmlString", "BM_CreateFromXml"};
  for (const char* sz : perObject)
    if (rep.best[sz] > 0) std::printf("%s: %.0f objects/s\n", sz, kObjects / (rep.best[sz] * 1e-9));
  if (k > 0 && m > 0)
    std::printf("ratio ObjByKey / unordered_map<string>::find: %.2f (%.1f M look-ups/s)\n", k / m,
                1e3 / k);
  return 0;
}
