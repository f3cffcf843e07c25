// Containers and appends against their standard-library peers, on one data
// set: 100 000 strings of 8 to 64 characters from a fixed seed. Each Kelvor
// benchmark has a peer doing the same work; main runs them all, then prints
// one "ratio" line per pair (Kelvor time / peer time, best of the repetitions,
// CPU time so that a busy machine skews less). Pass
// --benchmark_repetitions=N --benchmark_enable_random_interleaving=true for
// steadier ratios.
#include <benchmark/benchmark.h>

#include "KBenchBest.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <strings.h>
#include <unordered_map>
#include <utility>
#include <vector>

#include <base/classes/hash/KHashStringToPtr.h>
#include <base/classes/hash/KHashStringToString.h>
#include <base/classes/list/KList.h>
#include <base/tools/KListParamValue.h>
#include <base/tools/KString.h>

namespace {

using benchmark::DoNotOptimize;

const int kCount = 100000;
const int kFinds = 64;          // searched names per Find iteration
const int kPiecesPerLine = 64;  // appends per built string

struct CData {
  std::vector<std::string> strs;          // the data set
  std::vector<std::string> values;        // value of name i: the next string
  std::vector<int> lookupOrder;           // every index once, shuffled
  std::vector<std::string> needles;       // spread over the list, all present
  std::vector<std::string> upperNeedles;  // the same in capitals
  std::vector<std::string> shortTexts;    // 1 to 8 leading characters of each string
  std::vector<const char*> shortTextPtrs; // their texts
  std::vector<char> firstChars;           // the first character of each string

  CData() {
    std::mt19937 rng(20240611u);
    static const char kAlphabet[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    for (int i = 0; i < kCount; ++i) {
      std::string s(8 + rng() % 57, ' ');
      for (char& c : s) c = kAlphabet[rng() % 62];
      strs.push_back(s);
    }
    for (int i = 0; i < kCount; ++i) {
      values.push_back(strs[(i + 1) % kCount]);
      lookupOrder.push_back(i);
      shortTexts.push_back(strs[i].substr(0, 1 + i % 8));
      firstChars.push_back(strs[i][0]);
    }
    std::shuffle(lookupOrder.begin(), lookupOrder.end(), rng);
    for (const std::string& t : shortTexts) shortTextPtrs.push_back(t.c_str());
    for (int k = 0; k < kFinds; ++k) {
      needles.push_back(strs[(int)((long long)kCount * (2 * k + 1) / (2 * kFinds))]);
      std::string u = needles.back();
      for (char& c : u) c = (char)toupper((unsigned char)c);
      upperNeedles.push_back(u);
    }
  }
};

const CData& Data() {
  static const CData d;
  return d;
}

// ---------------------------------------------------------------- filling
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
typedef std::vector<std::pair<std::string, std::string>> CPairs;
typedef CKHashStringToPtr<CValue> CPtrMap;
typedef std::unordered_map<std::string, std::string> CStdStrMap;
typedef std::unordered_map<std::string, std::unique_ptr<CValue>> CStdPtrMap;

// Every name of the data with its value, in order.
template <class F>
void ForPairs(F f) {
  const CData& d = Data();
  for (int i = 0; i < kCount; ++i) f(d.strs[i], d.values[i]);
}

void Fill(CKHashStringToString& m, bool bSized) {
  if (bSized) m.InitHashTable(kSizedTable, kSizedStep);
  ForPairs([&](const std::string& k, const std::string& v) { m.Set(k.c_str(), v.c_str()); });
}
void Fill(CPtrMap& m, bool bSized) {
  if (bSized) m.InitHashTable(kSizedTable, kSizedStep);
  ForPairs([&](const std::string& k, const std::string&) { m.Set(k.c_str(), new CValue); });
}
void Fill(CStdStrMap& m, bool bSized) {
  if (bSized) m.reserve(kCount);
  ForPairs([&](const std::string& k, const std::string& v) { m.emplace(k, v); });
}
void Fill(CStdPtrMap& m, bool bSized) {
  if (bSized) m.reserve(kCount);
  ForPairs([&](const std::string& k, const std::string&) {
    m.emplace(k, std::unique_ptr<CValue>(new CValue));
  });
}

// The searched structures are all built before any timing, one after the
// other on a fresh heap, so that no side inherits the heap the others left.
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
    for (const std::string& s : Data().strs) list.Add(s.c_str());
    vec = Data().strs;
    ForPairs([&](const std::string& k, const std::string& v) {
      table.AddValue(k.c_str(), v.c_str());
    });
    ForPairs([&](const std::string& k, const std::string& v) { pairs.emplace_back(k, v); });
    Fill(strDefault, false);
    Fill(strSized, true);
    Fill(stdStr, false);
    Fill(ptrSized, true);
    Fill(stdPtr, false);
  }
};

const CFixtures& Fixtures() {
  static const CFixtures f;
  return f;
}

// ---------------------------------------------------------------- bodies
// Peer of the name/value look-ups: a linear scan over
// vector<pair<string,string>> with the table's own equality rule: sizes
// first, then the bytes (memcmp), or for the no-case look-up an ASCII
// case-folding comparison (strncasecmp in the C locale). Both sides return
// the first match's value; the peer by pointer.
const std::string* ScanPairs(const CPairs& t, const std::string& name, bool bNoCase) {
  for (const auto& p : t)
    if (p.first.size() == name.size() &&
        (bNoCase ? strncasecmp(p.first.data(), name.data(), name.size())
                 : memcmp(p.first.data(), name.data(), name.size())) == 0)
      return &p.second;
  return nullptr;
}

// A fresh map filled with the data, then dropped.
template <class TMap>
void Insert(bool bSized) {
  TMap m;
  Fill(m, bSized);
  DoNotOptimize(&m);
}

// One look-up of a key in each map.
const void* InStrDefault(const std::string& k) { return Fixtures().strDefault.Lookup(k.c_str()); }
const void* InStrSized(const std::string& k) { return Fixtures().strSized.Lookup(k.c_str()); }
const void* InStdStr(const std::string& k) {
  auto it = Fixtures().stdStr.find(k);
  return it == Fixtures().stdStr.end() ? nullptr : &it->second;
}
const void* InPtrSized(const std::string& k) { return Fixtures().ptrSized.Get(k.c_str()); }
const void* InStdPtr(const std::string& k) {
  auto it = Fixtures().stdPtr.find(k);
  return it == Fixtures().stdPtr.end() ? nullptr : it->second.get();
}

// Every key of the data once, in shuffled order.
template <const void* (*In)(const std::string&)>
void LookUpAll() {
  const CData& d = Data();
  for (int i : d.lookupOrder) DoNotOptimize(In(d.strs[i]));
}

// Lines of kPiecesPerLine pieces, a new string per line on both sides.
template <class TString, class TPiece>
void BuildLines(const std::vector<TPiece>& pieces) {
  for (size_t i = 0; i + kPiecesPerLine <= pieces.size(); i += kPiecesPerLine) {
    TString s;
    for (size_t k = i; k < i + kPiecesPerLine; ++k) s += pieces[k];
    DoNotOptimize(&s);
  }
}

struct CBench {
  const char* name;
  std::function<void()> body;  // one iteration
};

const CBench kBenches[] = {
    {"BM_KList_Add",
     [] {
       CKList l;
       for (const std::string& s : Data().strs) l.Add(s.c_str());
       DoNotOptimize(&l);
     }},
    {"BM_Std_PushBack",
     [] {
       std::vector<std::string> v;
       for (const std::string& s : Data().strs) v.push_back(s);
       DoNotOptimize(&v);
     }},
    {"BM_KList_Find",
     [] {
       for (const std::string& s : Data().needles) DoNotOptimize(Fixtures().list.Find(s.c_str()));
     }},
    {"BM_Std_Find",
     [] {
       const std::vector<std::string>& v = Fixtures().vec;
       for (const std::string& s : Data().needles) DoNotOptimize(std::find(v.begin(), v.end(), s));
     }},
    {"BM_ParamValue_Get",
     [] {
       for (const std::string& s : Data().needles)
         DoNotOptimize(Fixtures().table.GetValue(s.c_str(), FALSE).GetLength());
     }},
    {"BM_Std_PairScan",
     [] {
       for (const std::string& s : Data().needles)
         DoNotOptimize(ScanPairs(Fixtures().pairs, s, false));
     }},
    {"BM_ParamValue_GetNoCase",
     [] {
       for (const std::string& s : Data().upperNeedles)
         DoNotOptimize(Fixtures().table.GetValue(s.c_str(), TRUE).GetLength());
     }},
    {"BM_Std_PairScanNoCase",
     [] {
       for (const std::string& s : Data().upperNeedles)
         DoNotOptimize(ScanPairs(Fixtures().pairs, s, true));
     }},
    {"BM_HashStrStr_LookupDefault", LookUpAll<InStrDefault>},
    {"BM_HashStrStr_LookupSized", LookUpAll<InStrSized>},
    {"BM_Std_StrMapFind", LookUpAll<InStdStr>},
    {"BM_HashStrPtr_GetSized", LookUpAll<InPtrSized>},
    {"BM_Std_PtrMapFind", LookUpAll<InStdPtr>},
    {"BM_HashStrStr_InsertDefault", [] { Insert<CKHashStringToString>(false); }},
    {"BM_HashStrStr_InsertSized", [] { Insert<CKHashStringToString>(true); }},
    {"BM_Std_StrMapInsert", [] { Insert<CStdStrMap>(false); }},
    {"BM_Std_StrMapInsertReserved", [] { Insert<CStdStrMap>(true); }},
    {"BM_HashStrPtr_InsertSized", [] { Insert<CPtrMap>(true); }},
    {"BM_Std_PtrMapInsertReserved", [] { Insert<CStdPtrMap>(true); }},
    {"BM_KString_AppendText", [] { BuildLines<CKString>(Data().shortTextPtrs); }},
    {"BM_Std_AppendText", [] { BuildLines<std::string>(Data().shortTextPtrs); }},
    {"BM_KString_AppendChar", [] { BuildLines<CKString>(Data().firstChars); }},
    {"BM_Std_AppendChar", [] { BuildLines<std::string>(Data().firstChars); }},
};

// ---------------------------------------------------------------- ratios


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
  for (const CBench& b : kBenches) {
    const std::function<void()>& body = b.body;
    benchmark::RegisterBenchmark(b.name, [&body](benchmark::State& state) {
      for (auto _ : state) body();
    });
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  CBestReporter reporter(benchmark::ConsoleReporter::OO_None);  // plain text: it is read back
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
