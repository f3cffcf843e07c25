// Containers and appends against their standard-library peers, on one data
// set: 100 000 strings of 8 to 64 characters from a fixed seed. Each Kelvor
// benchmark has a peer doing the same work; main runs them all, then prints
// one "ratio" line per pair (Kelvor time / peer time, best of the repetitions,
// CPU time so that a busy machine skews less).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <base/classes/hash/KHashStringToPtr.h>
#include <base/classes/hash/KHashStringToString.h>
#include <base/classes/list/KList.h>
#include <base/tools/KListParamValue.h>
#include <base/tools/KString.h>

namespace {

const int kCount = 100000;
const int kFinds = 64;         // searched names per Find iteration
const int kPiecesPerLine = 64; // appends per built string

struct CData {
  std::vector<std::string> strs;    // the data set
  std::vector<std::string> values;  // value of name i: the next string
  std::vector<int> lookupOrder;     // every index once, shuffled
  std::vector<std::string> needles; // spread over the list, found
  std::vector<std::string> upperNeedles;
  std::vector<std::string> shortTexts;  // 1 to 8 leading characters of each string

  CData() {
    std::mt19937 rng(20240611u);
    static const char kAlphabet[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    strs.reserve(kCount);
    for (int i = 0; i < kCount; ++i) {
      std::string s(8 + rng() % 57, ' ');
      for (char& c : s) c = kAlphabet[rng() % 62];
      strs.push_back(s);
    }
    for (int i = 0; i < kCount; ++i) values.push_back(strs[(i + 1) % kCount]);
    for (int i = 0; i < kCount; ++i) lookupOrder.push_back(i);
    std::shuffle(lookupOrder.begin(), lookupOrder.end(), rng);
    for (int k = 0; k < kFinds; ++k) {
      needles.push_back(strs[(int)((long long)kCount * (2 * k + 1) / (2 * kFinds))]);
      std::string u = needles.back();
      for (char& c : u) c = (char)toupper((unsigned char)c);
      upperNeedles.push_back(u);
    }
    for (int i = 0; i < kCount; ++i) shortTexts.push_back(strs[i].substr(0, 1 + i % 8));
  }
};

const CData& Data() {
  static const CData d;
  return d;
}

// ---------------------------------------------------------------- fixtures
// The searched structures are all built before any timing, one after the
// other on a fresh heap, so that no side inherits the heap the others left.

typedef std::vector<std::pair<std::string, std::string>> CPairs;

// The bucket table never grows: "Default" maps keep the 1031 buckets they
// start with, "Sized" ones are made with InitHashTable for the data (as a
// caller who knows its size does) and are paired with a reserved
// unordered_map.
const int kSizedTable = 100003;  // a prime
const int kSizedStep = 4096;

struct CValue {
  int n = 0;
  virtual ~CValue() {}
};
typedef CKHashStringToPtr<CValue> CPtrMap;
typedef std::unordered_map<std::string, std::string> CStdStrMap;
typedef std::unordered_map<std::string, std::unique_ptr<CValue>> CStdPtrMap;

void FillTable(CKListParamValue& t) {
  const CData& d = Data();
  for (int i = 0; i < kCount; ++i) t.AddValue(d.strs[i].c_str(), d.values[i].c_str());
}

void FillPairs(CPairs& t) {
  const CData& d = Data();
  for (int i = 0; i < kCount; ++i) t.emplace_back(d.strs[i], d.values[i]);
}

void FillStrMap(CKHashStringToString& m, bool bSized) {
  const CData& d = Data();
  if (bSized) m.InitHashTable(kSizedTable, kSizedStep);
  for (int i = 0; i < kCount; ++i) m.Set(d.strs[i].c_str(), d.values[i].c_str());
}

void FillStdStrMap(CStdStrMap& m, bool bSized) {
  const CData& d = Data();
  if (bSized) m.reserve(kCount);
  for (int i = 0; i < kCount; ++i) m.emplace(d.strs[i], d.values[i]);
}

void FillPtrMap(CPtrMap& m, bool bSized) {
  const CData& d = Data();
  if (bSized) m.InitHashTable(kSizedTable, kSizedStep);
  for (int i = 0; i < kCount; ++i) m.Set(d.strs[i].c_str(), new CValue);
}

void FillStdPtrMap(CStdPtrMap& m, bool bSized) {
  const CData& d = Data();
  if (bSized) m.reserve(kCount);
  for (int i = 0; i < kCount; ++i) m.emplace(d.strs[i], std::unique_ptr<CValue>(new CValue));
}

struct CFixtures {
  CKList list;
  std::vector<std::string> vec;
  CKListParamValue table;
  CPairs pairs;
  CKHashStringToString strDefault, strSized;
  CStdStrMap stdStr;
  CPtrMap ptrSized;
  CStdPtrMap stdPtr;

  CFixtures() {
    const CData& d = Data();
    for (const std::string& s : d.strs) list.Add(s.c_str());
    for (const std::string& s : d.strs) vec.push_back(s);
    FillTable(table);
    FillPairs(pairs);
    FillStrMap(strDefault, false);
    FillStrMap(strSized, true);
    FillStdStrMap(stdStr, false);
    FillPtrMap(ptrSized, true);
    FillStdPtrMap(stdPtr, false);
  }
};

const CFixtures& Fixtures() {
  static const CFixtures f;
  return f;
}

// ---------------------------------------------------------------- list add

void BM_KList_Add(benchmark::State& state) {
  const CData& d = Data();
  for (auto _ : state) {
    CKList l;
    for (const std::string& s : d.strs) l.Add(s.c_str());
    benchmark::DoNotOptimize(l.Count());
  }
}
BENCHMARK(BM_KList_Add);

void BM_Std_PushBack(benchmark::State& state) {
  const CData& d = Data();
  for (auto _ : state) {
    std::vector<std::string> v;
    for (const std::string& s : d.strs) v.push_back(s);
    benchmark::DoNotOptimize(v.size());
  }
}
BENCHMARK(BM_Std_PushBack);

// ---------------------------------------------------------------- list find

void BM_KList_Find(benchmark::State& state) {
  const CKList& l = Fixtures().list;
  for (auto _ : state)
    for (const std::string& s : Data().needles) benchmark::DoNotOptimize(l.Find(s.c_str()));
}
BENCHMARK(BM_KList_Find);

void BM_Std_Find(benchmark::State& state) {
  const std::vector<std::string>& v = Fixtures().vec;
  for (auto _ : state)
    for (const std::string& s : Data().needles)
      benchmark::DoNotOptimize(std::find(v.begin(), v.end(), s) - v.begin());
}
BENCHMARK(BM_Std_Find);

// ---------------------------------------------------------------- name/value look-ups
// Peer: a linear scan over vector<pair<string,string>> with the table's own
// equality rule: sizes first, then the bytes (memcmp), or for the no-case
// look-up an ASCII case-folding comparison (strncasecmp in the C locale).
// Both return the first match's value; the peer returns it by pointer.

const std::string* ScanPairs(const CPairs& t, const std::string& name, bool bNoCase) {
  for (const auto& p : t)
    if (p.first.size() == name.size() &&
        (bNoCase ? strncasecmp(p.first.data(), name.data(), name.size())
                 : memcmp(p.first.data(), name.data(), name.size())) == 0)
      return &p.second;
  return nullptr;
}

void BM_ParamValue_Get(benchmark::State& state) {
  const CKListParamValue& t = Fixtures().table;
  for (auto _ : state)
    for (const std::string& s : Data().needles)
      benchmark::DoNotOptimize(t.GetValue(s.c_str(), FALSE).GetLength());
}
BENCHMARK(BM_ParamValue_Get);

void BM_Std_PairScan(benchmark::State& state) {
  const CPairs& t = Fixtures().pairs;
  for (auto _ : state)
    for (const std::string& s : Data().needles) benchmark::DoNotOptimize(ScanPairs(t, s, false));
}
BENCHMARK(BM_Std_PairScan);

void BM_ParamValue_GetNoCase(benchmark::State& state) {
  const CKListParamValue& t = Fixtures().table;
  for (auto _ : state)
    for (const std::string& s : Data().upperNeedles)
      benchmark::DoNotOptimize(t.GetValue(s.c_str(), TRUE).GetLength());
}
BENCHMARK(BM_ParamValue_GetNoCase);

void BM_Std_PairScanNoCase(benchmark::State& state) {
  const CPairs& t = Fixtures().pairs;
  for (auto _ : state)
    for (const std::string& s : Data().upperNeedles)
      benchmark::DoNotOptimize(ScanPairs(t, s, true));
}
BENCHMARK(BM_Std_PairScanNoCase);

// ---------------------------------------------------------------- hash maps

void BM_HashStrStr_LookupDefault(benchmark::State& state) {
  const CData& d = Data();
  const CKHashStringToString& m = Fixtures().strDefault;
  for (auto _ : state)
    for (int i : d.lookupOrder) benchmark::DoNotOptimize(m.Lookup(d.strs[i].c_str()));
}
BENCHMARK(BM_HashStrStr_LookupDefault);

void BM_HashStrStr_LookupSized(benchmark::State& state) {
  const CData& d = Data();
  const CKHashStringToString& m = Fixtures().strSized;
  for (auto _ : state)
    for (int i : d.lookupOrder) benchmark::DoNotOptimize(m.Lookup(d.strs[i].c_str()));
}
BENCHMARK(BM_HashStrStr_LookupSized);

void BM_Std_StrMapFind(benchmark::State& state) {
  const CData& d = Data();
  const CStdStrMap& m = Fixtures().stdStr;
  for (auto _ : state)
    for (int i : d.lookupOrder) benchmark::DoNotOptimize(&m.find(d.strs[i])->second);
}
BENCHMARK(BM_Std_StrMapFind);

void BM_HashStrPtr_GetSized(benchmark::State& state) {
  const CData& d = Data();
  const CPtrMap& m = Fixtures().ptrSized;
  for (auto _ : state)
    for (int i : d.lookupOrder) benchmark::DoNotOptimize(m.Get(d.strs[i].c_str()));
}
BENCHMARK(BM_HashStrPtr_GetSized);

void BM_Std_PtrMapFind(benchmark::State& state) {
  const CData& d = Data();
  const CStdPtrMap& m = Fixtures().stdPtr;
  for (auto _ : state)
    for (int i : d.lookupOrder) benchmark::DoNotOptimize(m.find(d.strs[i])->second.get());
}
BENCHMARK(BM_Std_PtrMapFind);

void BM_HashStrStr_InsertDefault(benchmark::State& state) {
  for (auto _ : state) {
    CKHashStringToString m;
    FillStrMap(m, false);
    benchmark::DoNotOptimize(m.Count());
  }
}
BENCHMARK(BM_HashStrStr_InsertDefault);

void BM_HashStrStr_InsertSized(benchmark::State& state) {
  for (auto _ : state) {
    CKHashStringToString m;
    FillStrMap(m, true);
    benchmark::DoNotOptimize(m.Count());
  }
}
BENCHMARK(BM_HashStrStr_InsertSized);

void BM_Std_StrMapInsert(benchmark::State& state) {
  for (auto _ : state) {
    CStdStrMap m;
    FillStdStrMap(m, false);
    benchmark::DoNotOptimize(m.size());
  }
}
BENCHMARK(BM_Std_StrMapInsert);

void BM_Std_StrMapInsertReserved(benchmark::State& state) {
  for (auto _ : state) {
    CStdStrMap m;
    FillStdStrMap(m, true);
    benchmark::DoNotOptimize(m.size());
  }
}
BENCHMARK(BM_Std_StrMapInsertReserved);

void BM_HashStrPtr_InsertSized(benchmark::State& state) {
  for (auto _ : state) {
    CPtrMap m;
    FillPtrMap(m, true);
    benchmark::DoNotOptimize(m.Count());
  }
}
BENCHMARK(BM_HashStrPtr_InsertSized);

void BM_Std_PtrMapInsertReserved(benchmark::State& state) {
  for (auto _ : state) {
    CStdPtrMap m;
    FillStdPtrMap(m, true);
    benchmark::DoNotOptimize(m.size());
  }
}
BENCHMARK(BM_Std_PtrMapInsertReserved);

// ---------------------------------------------------------------- appends
// Lines of kPiecesPerLine pieces, each piece from the data; a new string per
// line on both sides.

void BM_KString_AppendText(benchmark::State& state) {
  const CData& d = Data();
  for (auto _ : state) {
    for (int i = 0; i + kPiecesPerLine <= kCount; i += kPiecesPerLine) {
      CKString s;
      for (int k = i; k < i + kPiecesPerLine; ++k) s += d.shortTexts[k].c_str();
      benchmark::DoNotOptimize(s.GetLength());
    }
  }
}
BENCHMARK(BM_KString_AppendText);

void BM_Std_AppendText(benchmark::State& state) {
  const CData& d = Data();
  for (auto _ : state) {
    for (int i = 0; i + kPiecesPerLine <= kCount; i += kPiecesPerLine) {
      std::string s;
      for (int k = i; k < i + kPiecesPerLine; ++k) s += d.shortTexts[k].c_str();
      benchmark::DoNotOptimize(s.size());
    }
  }
}
BENCHMARK(BM_Std_AppendText);

void BM_KString_AppendChar(benchmark::State& state) {
  const CData& d = Data();
  for (auto _ : state) {
    for (int i = 0; i + kPiecesPerLine <= kCount; i += kPiecesPerLine) {
      CKString s;
      for (int k = i; k < i + kPiecesPerLine; ++k) s += d.strs[k][0];
      benchmark::DoNotOptimize(s.GetLength());
    }
  }
}
BENCHMARK(BM_KString_AppendChar);

void BM_Std_AppendChar(benchmark::State& state) {
  const CData& d = Data();
  for (auto _ : state) {
    for (int i = 0; i + kPiecesPerLine <= kCount; i += kPiecesPerLine) {
      std::string s;
      for (int k = i; k < i + kPiecesPerLine; ++k) s += d.strs[k][0];
      benchmark::DoNotOptimize(s.size());
    }
  }
}
BENCHMARK(BM_Std_AppendChar);

// ---------------------------------------------------------------- ratios

// Keeps the best CPU time per iteration of each benchmark while the console
// reporter prints as usual.
class CBestReporter : public benchmark::ConsoleReporter {
public:
  std::map<std::string, double> best;  // nanoseconds
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred || r.run_type != Run::RT_Iteration) continue;
      const double ns = r.GetAdjustedCPUTime() *
                        benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                        benchmark::GetTimeUnitMultiplier(r.time_unit);
      const std::string name = r.run_name.function_name;
      auto it = best.find(name);
      if (it == best.end() || ns < it->second) best[name] = ns;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

struct CPair {
  const char* label;
  const char* kelvor;
  const char* peer;
  double goal;
};

const CPair kPairs[] = {
    {"CKList::Add / vector::push_back", "BM_KList_Add", "BM_Std_PushBack", 2.0},
    {"CKList::Find / std::find", "BM_KList_Find", "BM_Std_Find", 3.0},
    {"CKListParamValue::GetValue / pair scan", "BM_ParamValue_Get", "BM_Std_PairScan", 2.0},
    {"CKListParamValue::GetValue no case / pair scan", "BM_ParamValue_GetNoCase",
     "BM_Std_PairScanNoCase", 2.0},
    {"CKHashStringToString::Lookup sized / find", "BM_HashStrStr_LookupSized",
     "BM_Std_StrMapFind", 1.5},
    {"CKHashStringToString::Lookup 1031 buckets / find", "BM_HashStrStr_LookupDefault",
     "BM_Std_StrMapFind", 1.5},
    {"CKHashStringToPtr::Get sized / find", "BM_HashStrPtr_GetSized", "BM_Std_PtrMapFind", 1.5},
    {"CKHashStringToString::Set sized / emplace reserved", "BM_HashStrStr_InsertSized",
     "BM_Std_StrMapInsertReserved", 2.0},
    {"CKHashStringToString::Set 1031 buckets / emplace", "BM_HashStrStr_InsertDefault",
     "BM_Std_StrMapInsert", 2.0},
    {"CKHashStringToPtr::Set sized / emplace reserved", "BM_HashStrPtr_InsertSized",
     "BM_Std_PtrMapInsertReserved", 2.0},
    {"CKString += text / std::string += text", "BM_KString_AppendText", "BM_Std_AppendText", 1.3},
    {"CKString += char / std::string += char", "BM_KString_AppendChar", "BM_Std_AppendChar", 1.3},
};

}  // namespace

int main(int argc, char** argv) {
  Fixtures();  // built once, before any timing
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  CBestReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\n%-52s %14s %14s %7s %5s\n", "pair", "kelvor ns", "peer ns", "ratio", "goal");
  for (const CPair& p : kPairs) {
    auto k = reporter.best.find(p.kelvor);
    auto s = reporter.best.find(p.peer);
    if (k == reporter.best.end() || s == reporter.best.end() || s->second <= 0) continue;
    std::printf("ratio %-46s %14.0f %14.0f %7.2f %5.1f\n", p.label, k->second, s->second,
                k->second / s->second, p.goal);
  }
  benchmark::Shutdown();
  return 0;
}
