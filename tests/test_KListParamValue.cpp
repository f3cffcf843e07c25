#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <base/tools/KListParamValue.h>
#include <base/tools/KStr.h>
#include <base/tools/KTools.h>

namespace {

class CLogCapture : public CKTools {
public:
  CLogCapture() {
    SetFlags(GetFlags() | KTOOLS_FLAG_LOG);
    KToolsInit(this);
  }
  ~CLogCapture() override { KToolsInit(nullptr); }
  void Log(const char* szText, int nType) override {
    m_lines.push_back(szText ? szText : "");
    m_types.push_back(nType);
  }
  std::vector<std::string> m_lines;
  std::vector<int> m_types;
};

std::string S(const CKString& s) { return std::string(s.GetString(), s.GetLength()); }

std::vector<std::pair<std::string, std::string>> Pairs(const CKListParamValue& l) {
  std::vector<std::pair<std::string, std::string>> v;
  for (int i = 0; i < l.Count(); ++i) v.push_back({S(l.GetParam(i)), S(l.GetValue(i))});
  return v;
}

std::string TempPath(const char* szName) {
  return ::testing::TempDir() + "kelvor_pv_" + szName;
}

std::string ReadBytes(const std::string& strPath) {
  std::ifstream f(strPath, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

CKString Upper(const char* s) { return KStrUpcase(s); }

int ByValueLengthDesc(int i, int j, const CKListParamValue& l) {
  return (int)l.GetValue(j).GetLength() - (int)l.GetValue(i).GetLength();
}

}  // namespace

TEST(KListParamValue, LookupsAndEdits) {
  CKListParamValue l;
  l.AddValue("Name", "first");
  l.AddValue("name", "second");
  l.AddValue("Name", "third");  // duplicates are kept
  l.AddValue("n", "12x");
  l.AddValue("neg", "-12");
  ASSERT_EQ(l.Count(), 5);

  EXPECT_EQ(l.Find("name"), 1);
  EXPECT_EQ(l.Find("NAME"), -1);
  EXPECT_EQ(l.Find("NAME", TRUE), 0);
  EXPECT_EQ(l.Find("nam", TRUE), -1);
  EXPECT_TRUE(l.Exist("neg"));
  EXPECT_FALSE(l.Exist(nullptr));
  EXPECT_EQ(l.FindValue("THIRD", TRUE), 2);
  EXPECT_EQ(l.GetValue("NAME", TRUE), "first");
  EXPECT_EQ(l.GetValue("missing", FALSE, nullptr), "");
  EXPECT_EQ(l.GetValue("missing", FALSE, "dflt"), "dflt");
  EXPECT_EQ(l.GetValueInt("n", FALSE, 7), 7);
  EXPECT_EQ(l.GetValueInt("neg", FALSE, 7), -12);
  EXPECT_EQ(l.GetValueUINT("neg", FALSE, 7u), 7u);

  l.SetValue("Name", "changed");  // first occurrence only
  EXPECT_EQ(l.GetValue(0), "changed");
  EXPECT_EQ(l.GetValue(2), "third");
  l.SetValue("new", "v");  // absent: appended
  EXPECT_EQ(l.GetParam(5), "new");
  l.AddUnique("new", "w", FALSE);
  EXPECT_EQ(l.GetValue("new"), "v");
  l.AddUnique("NEW", "w", FALSE);  // case-sensitive: another pair
  EXPECT_EQ(l.Count(), 7);
  l.AddUnique("new", "z", TRUE);
  EXPECT_EQ(l.GetValue("new"), "z");

  l.Remove("name", TRUE);  // first match under no-case: "Name" at 0
  EXPECT_EQ(l.GetParam(0), "name");
  l.InsertValue(1, "ins", "x");
  l.Swap(0, 1);
  EXPECT_EQ(l.GetParam(0), "ins");
  EXPECT_EQ(l.GetValue(0), "x");
  EXPECT_EQ(l.GetValue(1), "second");
  l.Remove(0);
  EXPECT_EQ(l.GetParam(0), "name");
  EXPECT_EQ(l.GetParamList().Count(), l.GetValueList().Count());

  CKListParamValue copy(l), assigned;
  assigned = l;
  const CKListParamValue& self = assigned;
  assigned = self;
  l.Empty();
  EXPECT_EQ(l.Count(), 0);
  EXPECT_EQ(copy.Count(), 6);
  EXPECT_EQ(Pairs(assigned), Pairs(copy));

  CKListParamValue nums;
  nums.AddValue("u", "4294967295");
  nums.AddValue("big", "4294967296");
  nums.AddValue("u64", "18446744073709551615");
  nums.AddValue("over", "18446744073709551616");
  EXPECT_EQ(nums.GetValueUINT("u"), 4294967295u);
  EXPECT_EQ(nums.GetValueUINT("big", FALSE, 3u), 3u);
  EXPECT_EQ(nums.GetValueUINT64("big"), 4294967296ull);
  EXPECT_EQ(nums.GetValueUINT64("u64"), 18446744073709551615ull);
  EXPECT_EQ(nums.GetValueUINT64("over", FALSE, 9), 9ull);
}

TEST(KListParamValue, BadIndexesAreReportedAndPairsStayAligned) {
  CLogCapture log;
  CKListParamValue l;
  l.AddValue("a", "1");
  l.SetValue(5, "x");
  l.SetParam(-1, "x");
  l.Remove(3);
  EXPECT_EQ(l.GetValue(1), "");
  EXPECT_EQ(l.Count(), 1);
  EXPECT_EQ(l.GetParamList().Count(), 1);
  EXPECT_EQ(l.GetValueList().Count(), 1);
  ASSERT_EQ(log.m_lines.size(), 4u);
  EXPECT_EQ(log.m_lines[0].rfind("Assertion failed (nIndex>=0&&nIndex<Count() in src/KListParamValue on line ", 0), 0u);
  EXPECT_EQ(log.m_types[0], 8);
}

TEST(KListParamValue, OneLineTextForms) {
  CKListParamValue l;
  EXPECT_EQ(l.ToString('=', ';'), "");
  l.AddValue("a", "1");
  l.AddValue("b", "");
  EXPECT_EQ(l.ToString('=', ';'), "a=1;b=");
  EXPECT_EQ(l.ToString(": ", "\n"), "a: 1\nb: ");

  l.FromString("a=1;b=2", '=', ';');
  EXPECT_EQ(Pairs(l), (decltype(Pairs(l)){{"a", "1"}, {"b", "2"}}));
  l.FromString("=1", '=', ';');
  EXPECT_EQ(l.Count(), 0);
  l.FromString("k=a=b;x=;y", '=', ';');  // a value runs to the next separator
  EXPECT_EQ(Pairs(l), (decltype(Pairs(l)){{"k", "a=b"}, {"x", ""}, {"y", ""}}));
  l.FromString("a=1;=2;c=3", '=', ';');  // stops at the empty name
  EXPECT_EQ(l.Count(), 1);
  l.FromString(nullptr, '=', ';');
  EXPECT_EQ(l.Count(), 0);

  l.FromString("p=>x||q=>y z", "=>", "||");
  EXPECT_EQ(Pairs(l), (decltype(Pairs(l)){{"p", "x"}, {"q", "y z"}}));
  l.FromString("p=a&q=b", "=", "&", &Upper);
  EXPECT_EQ(Pairs(l), (decltype(Pairs(l)){{"p", "A"}, {"q", "B"}}));

  CKListParamValue back;
  l.AddValue("w", "x=y");
  back.FromString(l.ToString('=', ';'), '=', ';');
  EXPECT_EQ(Pairs(back), Pairs(l));
}

TEST(KListParamValue, SaveWritesCrLfLinesAndLoadReadsThemBack) {
  const std::string strPath = TempPath("pv.txt");
  CKListParamValue l;
  l.AddValue("a", "1");
  l.AddValue("url", "http://h/?x=1&y=2");
  l.AddValue("empty", "");
  l.AddValue("", "no name");
  l.AddValue("dup", "1");
  l.AddValue("dup", "2");
  ASSERT_TRUE(l.Save(strPath.c_str()));
  EXPECT_EQ(ReadBytes(strPath),
            "a=1\r\nurl=http://h/?x=1&y=2\r\nempty=\r\n=no name\r\ndup=1\r\ndup=2\r\n");

  CKListParamValue in;
  in.AddValue("stale", "x");
  ASSERT_TRUE(in.Load(strPath.c_str()));
  EXPECT_EQ(Pairs(in), Pairs(l));

  // Hand-written files: LF or CR breaks, blank lines, a line without "=".
  {
    std::ofstream f(strPath, std::ios::binary);
    f << "x=1\n\ny==2\rflag\r\n\r\nz=3";
  }
  ASSERT_TRUE(in.Load(strPath.c_str()));
  EXPECT_EQ(Pairs(in), (decltype(Pairs(in)){{"x", "1"}, {"y", "=2"}, {"flag", ""}, {"z", "3"}}));

  CKListParamValue none;
  ASSERT_TRUE(none.Save(strPath.c_str()));
  EXPECT_EQ(ReadBytes(strPath), "");
  ASSERT_TRUE(in.Load(strPath.c_str()));
  EXPECT_EQ(in.Count(), 0);
  std::remove(strPath.c_str());

  CLogCapture log;
  l.AddValue("keep", "me");
  EXPECT_FALSE(l.Load((strPath + ".missing").c_str()));
  EXPECT_EQ(l.Count(), 7);  // a failed load loses nothing
  EXPECT_FALSE(log.m_lines.empty());
}

TEST(KListParamValue, AddListAndSorting) {
  CKListParamValue a, b;
  a.AddValue("x", "1");
  a.AddValue("y", "2");
  b.AddValue("y", "20");
  b.AddValue("z", "30");
  CKListParamValue c(a);
  c.AddList(b);  // append
  EXPECT_EQ(c.ToString('=', ';'), "x=1;y=2;y=20;z=30");
  c = a;
  c.AddList(b, TRUE, FALSE);
  EXPECT_EQ(c.ToString('=', ';'), "x=1;y=2;z=30");
  c = a;
  c.AddList(b, TRUE, TRUE);
  EXPECT_EQ(c.ToString('=', ';'), "x=1;y=20;z=30");
  c.AddList(c);
  EXPECT_EQ(c.Count(), 6);

  // Many pairs with repeated names, each value tied to its name.
  CKListParamValue l;
  std::vector<std::string> names;
  unsigned seed = 12345;
  for (int i = 0; i < 3000; ++i) {
    seed = seed * 1103515245u + 12345u;
    std::string n = "k" + std::to_string((seed >> 8) % 400);
    names.push_back(n);
    l.AddValue(n.c_str(), (n + "#").c_str());
  }
  l.SortByParam();
  std::sort(names.begin(), names.end());
  ASSERT_EQ(l.Count(), (int)names.size());
  for (int i = 0; i < l.Count(); ++i) {
    EXPECT_EQ(S(l.GetParam(i)), names[i]);
    EXPECT_EQ(S(l.GetValue(i)), names[i] + "#");
  }

  CKListParamValue same;
  for (int i = 0; i < 500; ++i) same.AddValue("k", std::to_string(i).c_str());
  same.SortByParam();
  std::vector<int> seen;
  for (int i = 0; i < same.Count(); ++i) seen.push_back(atoi(same.GetValue(i)));
  std::sort(seen.begin(), seen.end());
  for (int i = 0; i < 500; ++i) EXPECT_EQ(seen[i], i);

  CKListParamValue byLen;
  byLen.FromString("a=xx;b=x;c=xxxx;d=xxx", '=', ';');
  byLen.Sort(&ByValueLengthDesc);
  EXPECT_EQ(byLen.ToString('=', ';'), "c=xxxx;d=xxx;a=xx;b=x");
}

TEST(KListParamValueInt, CountingCopiesAndSorting) {
  CKListParamValueInt l;
  for (const char* w : {"a", "b", "A", "c", "a"}) l.AddValue(w, 1, FALSE);
  EXPECT_EQ(l.Count(), 4);
  EXPECT_EQ(l.GetValue(l.Find("a")), 2);
  l.AddValue("C", 5, TRUE);  // no-case: accumulates on "c"
  EXPECT_EQ(l.GetValue(l.Find("c")), 6);
  l.SetValue("b", 9);
  l.SetValue("new", -4);
  EXPECT_EQ(l.GetValue(l.Find("b")), 9);
  EXPECT_EQ(l.GetValue(l.Find("new")), -4);
  l.EnsureAddValue("a", 100);
  EXPECT_EQ(l.Count(), 6);
  EXPECT_EQ(l.FindValue(100), 5);
  EXPECT_EQ(l.GetParamByValue(9), "b");
  EXPECT_EQ(l.GetParamByValue(12345), "");

  CKListParamValueInt copy(l);
  copy.SetValue(0, 77);
  copy.Remove("b");
  EXPECT_EQ(l.GetValue(0), 2);
  EXPECT_EQ(l.Count(), 6);
  EXPECT_EQ(copy.Count(), 5);

  l.SortByValue();
  for (int i = 1; i < l.Count(); ++i) EXPECT_LE(l.GetValue(i - 1), l.GetValue(i));
  EXPECT_EQ(l.GetParam(0), "new");
  EXPECT_EQ(l.GetParam(l.Count() - 1), "a");
  EXPECT_EQ(l.GetValue(l.Count() - 1), 100);
  l.Swap(0, 1);
  EXPECT_EQ(l.GetValue(1), -4);

  CKListParamValueInt sum;
  sum.AddValue("x", 1);
  CKListParamValueInt other;
  other.AddValue("x", 2);
  other.AddValue("y", 3);
  sum += other;
  sum += other;
  EXPECT_EQ(sum.GetValue(sum.Find("x")), 5);
  EXPECT_EQ(sum.GetValue(sum.Find("y")), 6);
  CKListParamValueInt merged(sum);
  merged.AddList(other, TRUE, FALSE);
  EXPECT_EQ(merged.Count(), 2);
  merged.AddList(other, TRUE, TRUE);
  EXPECT_EQ(merged.GetValue(merged.Find("y")), 3);
  merged.AddList(other);
  EXPECT_EQ(merged.Count(), 4);

  CKList names;
  names.Add("p");
  names.Add("q");
  merged = names;
  ASSERT_EQ(merged.Count(), 2);
  EXPECT_EQ(merged.GetParam(1), "q");
  EXPECT_EQ(merged.GetValue(1), 0);
  merged.Empty();
  EXPECT_EQ(merged.Count(), 0);
}

TEST(KListParamValueInt, SortedInsertionAndBinarySearch) {
  CLogCapture log;
  CKListParamValueInt l;
  const char* words[] = {"m", "c", "x", "a", "q", "e", "z", "b"};
  int n = 0;
  for (const char* w : words) l.InsertSorted(&kelvor_comp_func_string, w, n++);
  EXPECT_TRUE(log.m_lines.empty());
  ASSERT_EQ(l.Count(), 8);
  for (int i = 1; i < l.Count(); ++i) EXPECT_LT(strcmp(l.GetParam(i - 1), l.GetParam(i)), 0);
  EXPECT_EQ(l.GetValue(l.Find("q")), 4);  // values follow their names

  for (const char* w : words) {
    CKString key(w);
    EXPECT_EQ(l.BSearchIndex(&kelvor_comp_func_string, &key), l.Find(w)) << w;
  }
  CKString missing("d");
  EXPECT_EQ(l.BSearchIndex(&kelvor_comp_func_string, &missing), -1);
  CKListParamValueInt empty;
  EXPECT_EQ(empty.BSearchIndex(&kelvor_comp_func_string, &missing), -1);

  // A duplicate name breaks the strict order: reported, inserted anyway.
  l.InsertSorted(&kelvor_comp_func_string, "e", 99);
  EXPECT_EQ(l.Count(), 9);
  ASSERT_EQ(log.m_lines.size(), 1u);
  // "Assertion failed (" cond ") in src/KListParamValue on line " N ". Continue..."
  const std::string& line = log.m_lines[0];
  EXPECT_EQ(line.rfind("Assertion failed ((*CompareFunction) (&pKey, &pKey2) < 0) in "
                       "src/KListParamValue on line ", 0), 0u) << line;
  EXPECT_EQ(line.size() - line.rfind(". Continue..."), 13u) << line;
  EXPECT_EQ(log.m_types[0], 8);
  int i = l.Find("e");
  EXPECT_EQ(l.GetParam(i + 1), "e");

  // Between two equal names both neighbour checks fail, the next one first.
  CKListParamValueInt bad;
  bad.EnsureAddValue("b", 0);
  bad.EnsureAddValue("b", 0);
  log.m_lines.clear();
  bad.InsertSorted(&kelvor_comp_func_string, "b", 1);
  ASSERT_EQ(log.m_lines.size(), 2u);
  EXPECT_NE(log.m_lines[0].find(") < 0) in"), std::string::npos);
  EXPECT_NE(log.m_lines[1].find(") > 0) in"), std::string::npos);
}

TEST(KListParamParamValue, TriplesAndFlatLists) {
  CKListParamParamValue t;
  t.AddValue("font", "size", "12");
  t.AddValue("font", "face", "serif");
  t.AddValue("page", "size", "A4");
  EXPECT_EQ(t.Find("font", "face"), 1);
  EXPECT_EQ(t.Find("PAGE", "Size"), -1);
  EXPECT_EQ(t.Find("PAGE", "Size", TRUE), 2);
  EXPECT_EQ(t.GetValue("page", "size"), "A4");
  EXPECT_EQ(t.GetValue("page", "face", FALSE, "none"), "none");
  t.SetValue("font", "size", "14");
  t.SetValue("page", "margin", "2");
  EXPECT_EQ(t.Count(), 4);
  EXPECT_EQ(t.GetValue(0), "14");

  CKList flat;
  flat.Add("old");
  t.ToList(flat);
  ASSERT_EQ(flat.Count(), 12);
  EXPECT_EQ(flat.Get(3), "font");
  EXPECT_EQ(flat.Get(4), "face");
  EXPECT_EQ(flat.Get(11), "2");
  CKListParamParamValue back;
  back.FromList(flat);
  ASSERT_EQ(back.Count(), 4);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(back.GetParam1(i), t.GetParam1(i));
    EXPECT_EQ(back.GetParam2(i), t.GetParam2(i));
    EXPECT_EQ(back.GetValue(i), t.GetValue(i));
  }
  back.Remove(0);
  EXPECT_EQ(back.GetParam2(0), "face");

  CLogCapture log;
  flat.DeleteLast();  // incomplete last triple
  back.FromList(flat);
  EXPECT_EQ(back.Count(), 4);
  EXPECT_EQ(back.GetValue(3), "");
  EXPECT_EQ(back.GetParam2(3), "margin");
  EXPECT_EQ(log.m_lines.size(), 1u);
}
