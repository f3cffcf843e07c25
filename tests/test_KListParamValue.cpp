#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <base/tools/KListParamValue.h>
#include <base/tools/KStr.h>

#include "KTestLog.h"
#include "KTestTemp.h"

namespace {

std::string S(const CKString& s) { return std::string(s.GetString(), s.GetLength()); }

std::string Dump(const CKListParamValue& l) { return S(l.ToString(">", "|")); }
std::string Dump(const CKListParamValueInt& l) {
  std::string s;
  for (int i = 0; i < l.Count(); ++i)
    s += (i ? "|" : "") + S(l.GetParam(i)) + ">" + std::to_string(l.GetValue(i));
  return s;
}

std::string ReadBytes(const std::string& strPath) {
  std::string s;
  if (FILE* f = std::fopen(strPath.c_str(), "rb")) {
    char buf[256];
    for (size_t n; (n = std::fread(buf, 1, sizeof(buf), f)) > 0;) s.append(buf, n);
    std::fclose(f);
  }
  return s;
}

}  // namespace

TEST(KListParamValue, LookupsEditsAndBadIndexes) {
  CKListParamValue l;
  l.FromString("Name=first;name=second;Name=third;n=12x;neg=-12;u=4294967295;big=4294967296",
               '=', ';');
  EXPECT_EQ(l.Find("name"), 1);
  EXPECT_EQ(l.Find("NAME"), -1);
  EXPECT_EQ(l.Find("NAME", TRUE), 0);
  EXPECT_EQ(l.Find("nam", TRUE), -1);
  EXPECT_EQ(l.FindValue("THIRD", TRUE), 2);
  EXPECT_EQ(l.GetValue("missing", FALSE, nullptr), "");
  EXPECT_EQ(l.GetValue("missing", FALSE, "dflt"), "dflt");
  EXPECT_EQ(l.GetValueInt("n", FALSE, 7), 7);
  EXPECT_EQ(l.GetValueInt("neg", FALSE, 7), -12);
  EXPECT_EQ(l.GetValueUINT("neg", FALSE, 7u), 7u);
  EXPECT_EQ(l.GetValueUINT("u"), 4294967295u);
  EXPECT_EQ(l.GetValueUINT("big", FALSE, 3u), 3u);
  EXPECT_EQ(l.GetValueUINT64("big"), 4294967296ull);
  EXPECT_EQ(l.GetValueInt("u", FALSE, 7), 7);  // past INT_MAX: the default
  CKListParamValue n;
  n.FromString("max=2147483647;min=-2147483648;over=2147483648;under=-2147483649;z=-007", "=",
               ";");
  EXPECT_EQ(n.GetValueInt("max", FALSE, 7), INT_MAX);
  EXPECT_EQ(n.GetValueInt("min", FALSE, 7), INT_MIN);
  EXPECT_EQ(n.GetValueInt("over", FALSE, 7), 7);
  EXPECT_EQ(n.GetValueInt("under", FALSE, 7), 7);
  EXPECT_EQ(n.GetValueInt("z", FALSE, 7), -7);

  l.SetValue("Name", "changed");  // first occurrence only
  EXPECT_EQ(l.ToString(',', ';').Left(35), "Name,changed;name,second;Name,third");
  l.AddUnique("n", "w", FALSE);
  EXPECT_EQ(l.GetValue("n"), "12x");
  l.AddUnique("N", "w", FALSE);  // case-sensitive: a new pair
  l.AddUnique("n", "z", TRUE);
  l.Remove("name", TRUE);  // first match ignoring case: "Name" at 0
  l.InsertValue(1, "ins", "x");
  l.Swap(0, 1);
  EXPECT_EQ(Dump(l), "ins>x|name>second|Name>third|n>z|neg>-12|u>4294967295|big>4294967296|N>w");
  l.Remove(0);

  CKListParamValue copy(l);
  const CKListParamValue& self = copy;
  copy = self;
  l.Empty();
  EXPECT_EQ(copy.Count(), 7);
  EXPECT_EQ(copy.GetParam(0), "name");

  // Out-of-range indexes are reported and never let one list outgrow the other.
  CKTestLog log;
  copy.SetValue(7, "x");
  copy.SetParam(-1, "x");
  copy.Remove(9);
  EXPECT_EQ(copy.GetValue(7), "");
  EXPECT_EQ(copy.GetParamList().Count(), 7);
  EXPECT_EQ(copy.GetValueList().Count(), 7);
  ASSERT_EQ(log.Count(), 4u);
  EXPECT_TRUE(CKTestLog::IsAssert(log.lines[0].text, "nIndex>=0&&nIndex<Count()",
                                  "src/KListParamValue", CKTestLog::kReturn));
}

TEST(KListParamValue, OneLineTextForms) {
  CKListParamValue l, back;
  EXPECT_EQ(l.ToString('=', ';'), "");
  l.AddValue("a", "1");
  l.AddValue("b", "");
  EXPECT_EQ(l.ToString('=', ';'), "a=1;b=");
  EXPECT_EQ(l.ToString(": ", "\n"), "a: 1\nb: ");
  EXPECT_EQ(l.ToString(nullptr, ";"), "a1;b");  // a null separator is an empty one
  EXPECT_EQ(l.ToString("=", nullptr), "a=1b=");

  auto Parsed = [&l](auto... args) {
    l.FromString(args...);
    return Dump(l);
  };
  EXPECT_EQ(Parsed("a=1;b=2", '=', ';'), "a>1|b>2");
  EXPECT_EQ(Parsed("=1", '=', ';'), "");
  EXPECT_EQ(Parsed("k=a=b;x=;y", '=', ';'), "k>a=b|x>|y>");  // a value runs to the next separator
  EXPECT_EQ(Parsed("a=1;=2;c=3", '=', ';'), "a>1");          // stops at the empty name
  EXPECT_EQ(Parsed("p=>x||q=>y z", "=>", "||"), "p>x|q>y z");
  EXPECT_EQ(Parsed("p=a&q=b", "=", "&", &KStrUpcase), "p>A|q>B");
  back.FromString(l.ToString('=', ';'), '=', ';');
  EXPECT_EQ(Dump(back), Dump(l));
}

TEST(KListParamValue, SaveWritesCrLfLinesAndLoadReadsThemBack) {
  CKTestTempDir dir;
  const std::string strPath = dir.Path("pv.txt");
  CKListParamValue l, in;
  l.FromString("a=1;url=http://h/?x=1&y=2;empty=;dup=1;dup=2", "=", ";");
  l.InsertValue(3, "", "no name");
  ASSERT_TRUE(l.Save(strPath.c_str()));
  EXPECT_EQ(ReadBytes(strPath), "a=1\r\nurl=http://h/?x=1&y=2\r\nempty=\r\n=no name\r\ndup=1\r\ndup=2\r\n");
  in.AddValue("stale", "x");
  ASSERT_TRUE(in.Load(strPath.c_str()));
  EXPECT_EQ(Dump(in), Dump(l));

  // Hand-written files: LF or CR breaks, blank lines, a line without "=".
  std::ofstream(strPath, std::ios::binary) << "x=1\n\ny==2\rflag\r\n\r\nz=3";
  ASSERT_TRUE(in.Load(strPath.c_str()));
  EXPECT_EQ(Dump(in), "x>1|y>=2|flag>|z>3");

  ASSERT_TRUE(CKListParamValue().Save(strPath.c_str()));
  EXPECT_EQ(ReadBytes(strPath), "");

  CKTestLog log;
  EXPECT_FALSE(l.Load(dir.Path("missing.txt").c_str()));
  EXPECT_EQ(l.Count(), 6);  // a failed load loses nothing
  EXPECT_NE(0u, log.Count());
}

TEST(KListParamValue, AddListAndSorting) {
  CKListParamValue a, b, c;
  a.FromString("x=1;y=2", '=', ';');
  b.FromString("y=20;z=30", '=', ';');
  c = a;
  c.AddList(b);
  EXPECT_EQ(c.ToString('=', ';'), "x=1;y=2;y=20;z=30");
  c = a;
  c.AddList(b, TRUE, FALSE);
  EXPECT_EQ(c.ToString('=', ';'), "x=1;y=2;z=30");
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
    names.push_back("k" + std::to_string((seed >> 8) % 400));
    l.AddValue(names.back().c_str(), (names.back() + "#").c_str());
  }
  for (int i = 0; i < 300; ++i) l.AddValue("k", "k#");
  names.insert(names.end(), 300, "k");
  l.SortByParam();
  std::sort(names.begin(), names.end());
  ASSERT_EQ(l.Count(), (int)names.size());
  for (int i = 0; i < l.Count(); ++i) {
    ASSERT_EQ(S(l.GetParam(i)), names[i]);
    ASSERT_EQ(S(l.GetValue(i)), names[i] + "#");
  }

  CKListParamValue byLen;
  byLen.FromString("a=xx;b=x;c=xxxx;d=xxx", '=', ';');
  byLen.Sort([](int i, int j, const CKListParamValue& t) {
    return (int)t.GetValue(j).GetLength() - (int)t.GetValue(i).GetLength();  // longest first
  });
  EXPECT_EQ(byLen.ToString('=', ';'), "c=xxxx;d=xxx;a=xx;b=x");
  byLen.Sort([](int, int, const CKListParamValue&) { return 1; });  // must end
  EXPECT_EQ(byLen.Count(), 4);
}

TEST(KListParamValueInt, CountingCopiesAndSorting) {
  CKListParamValueInt l;
  for (const char* w : {"a", "b", "A", "c", "a"}) l.AddValue(w, 1, FALSE);
  l.AddValue("C", 5, TRUE);  // ignoring case: accumulates on "c"
  EXPECT_EQ(Dump(l), "a>2|b>1|A>1|c>6");
  l.SetValue("b", 9);
  l.SetValue("new", -4);
  l.EnsureAddValue("a", 100);
  EXPECT_EQ(l.FindValue(100), 5);
  EXPECT_EQ(l.GetParamByValue(9), "b");

  CKListParamValueInt copy(l);
  copy.SetValue(0, 77);
  copy.Remove("b");
  EXPECT_EQ(Dump(l), "a>2|b>9|A>1|c>6|new>-4|a>100");
  l.SortByValue();
  EXPECT_EQ(Dump(l), "new>-4|A>1|a>2|c>6|b>9|a>100");

  CKListParamValueInt sum, other;
  sum.AddValue("x", 1);
  other.AddValue("x", 2);
  other.AddValue("y", 3);
  sum += other;
  sum += other;
  EXPECT_EQ(Dump(sum), "x>5|y>6");
  sum.AddList(other, TRUE, TRUE);
  EXPECT_EQ(Dump(sum), "x>2|y>3");

  CKList names;
  names.FromString("p,q", ',');
  sum = names;
  EXPECT_EQ(Dump(sum), "p>0|q>0");
}

TEST(KListParamValueInt, SortedInsertionAndBinarySearch) {
  CKTestLog log;
  CKListParamValueInt l;
  const char* words[] = {"m", "c", "x", "a", "q", "e", "z", "b"};
  int n = 0;
  for (const char* w : words) l.InsertSorted(&kelvor_comp_func_string, w, n++);
  EXPECT_EQ(0u, log.Count());
  EXPECT_EQ(Dump(l), "a>3|b>7|c>1|e>5|m>0|q>4|x>2|z>6");

  for (const char* w : words) {
    CKString key(w);
    EXPECT_EQ(l.BSearchIndex(&kelvor_comp_func_string, &key), l.Find(w)) << w;
  }
  CKString missing("d");
  EXPECT_EQ(l.BSearchIndex(&kelvor_comp_func_string, &missing), -1);

  // A duplicate name breaks the strict order: reported, inserted anyway.
  l.InsertSorted(&kelvor_comp_func_string, "e", 99);
  ASSERT_EQ(log.Count(), 1u);
  EXPECT_TRUE(log.HasAssert("(*CompareFunction) (&pKey, &pKey2) < 0", "src/KListParamValue"))
      << log.Last();
  EXPECT_EQ(l.GetParam(l.Find("e") + 1), "e");

  // Between two equal names both neighbour checks fail, the next one first.
  CKListParamValueInt bad;
  for (int i = 0; i < 2; ++i) bad.EnsureAddValue("b", 0);
  log.Clear();
  bad.InsertSorted(&kelvor_comp_func_string, "b", 1);
  ASSERT_EQ(log.Count(), 2u);
  EXPECT_NE(log.lines[0].text.find(") < 0) in"), std::string::npos);
  EXPECT_NE(log.lines[1].text.find(") > 0) in"), std::string::npos);
}

TEST(KListParamParamValue, TriplesAndFlatLists) {
  CKListParamParamValue t;
  t.AddValue("font", "size", "12");
  t.AddValue("font", "face", "serif");
  t.AddValue("page", "size", "A4");
  EXPECT_EQ(t.Find("font", "face"), 1);
  EXPECT_EQ(t.Find("PAGE", "Size"), -1);
  EXPECT_EQ(t.Find("PAGE", "Size", TRUE), 2);
  EXPECT_EQ(t.GetValue("page", "face", FALSE, "none"), "none");
  t.SetValue("font", "size", "14");
  t.SetValue("page", "margin", "2");

  CKList flat;
  flat.Add("old");
  t.ToList(flat);
  EXPECT_EQ(flat.ToString(','), "font,size,14,font,face,serif,page,size,A4,page,margin,2");
  CKListParamParamValue back;
  back.FromList(flat);
  CKList again;
  back.ToList(again);
  EXPECT_TRUE(again == flat);

  CKTestLog log;
  flat.DeleteLast();  // incomplete last triple
  back.FromList(flat);
  EXPECT_EQ(back.Count(), 4);
  EXPECT_EQ(back.GetParam2(3), "margin");
  EXPECT_EQ(back.GetValue(3), "");
  EXPECT_EQ(log.Count(), 1u);
}
