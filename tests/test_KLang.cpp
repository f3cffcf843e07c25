#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <base/classes/list/KList.h>
#include <base/tools/KStr.h>
#include <lang/KLangList.h>

#include "KTestLog.h"

namespace {

// A table of languages given as code followed by its strings.
CKLangList MakeTable(std::initializer_list<std::vector<const char*>> langs) {
  CKLangList t;
  for (const auto& l : langs) {
    CKList* p = t.Add(l[0][0]);
    for (size_t i = 1; i < l.size(); ++i) p->Add(l[i]);
  }
  return t;
}

// Restores an empty current table and the thread's defaults.
struct LangReset {
  ~LangReset() {
    CKLangList empty;
    KLangSetTable(empty, FALSE);
    KLangSetThreadLang(0);
    KLangExtSetThreadLang(nullptr);
  }
};

}  // namespace

TEST(KLang, TableOrderCopiesAndCompare) {
  CKLangList t = MakeTable({{"F", "oui", "vrai", "Fichier"}, {"E", "yes", "true", "File"}});
  CKList* pD = t.Add('D');
  EXPECT_EQ(t.Add('F'), t.Get('F'));  // an existing language is kept
  ASSERT_EQ(t.Count(), 3);
  EXPECT_EQ(t.GetCode(0), 'F');
  EXPECT_EQ(t.GetCode(2), 'D');
  EXPECT_EQ(t.GetAt(2), pD);
  EXPECT_EQ(t.GetCode(3), 0);
  EXPECT_EQ(t.Find('E'), 1);
  EXPECT_EQ(t.Find('X'), -1);
  EXPECT_STREQ(t.GetString('E', 2), "File");
  EXPECT_STREQ(t.GetString('E', 3), "");

  EXPECT_EQ(t.Delete('F'), 1);
  EXPECT_EQ(t.Delete('F'), 0);
  EXPECT_EQ(t.Count(), 2);
  EXPECT_EQ(t.GetCode(0), 'E');
  EXPECT_EQ(t.Get('F'), nullptr);
  t.Add('F');
  EXPECT_EQ(t.GetCode(2), 'F');  // a language added again goes last
  EXPECT_EQ(t.Get('F')->Count(), 0);

  CKTestLog log;
  EXPECT_EQ(t.Add('\0'), nullptr);
  EXPECT_EQ(t.Count(), 3);
  ASSERT_EQ(log.Count(), 1u);
  EXPECT_TRUE(log.HasAssert("cCode != 0", "src/KLang", CKTestLog::kReturnValue));

  CKLangList a = MakeTable({{"E", "yes", "true"}, {"F", "oui", "vrai"}});
  CKLangList b(a);
  EXPECT_TRUE(b == a);
  b.Get('F')->Set(0, "si");
  EXPECT_STREQ(a.GetString('F', 0), "oui");
  EXPECT_TRUE(b != a);
  b = a;
  EXPECT_TRUE(b == a);
  CKLangList& rb = b;
  b = rb;
  EXPECT_EQ(b.Count(), 2);  // self-assignment keeps the table
  CKLangList c = MakeTable({{"F", "oui", "vrai"}, {"E", "yes", "true"}});
  EXPECT_FALSE(c == a);  // same languages, other order

  CKLangList d = MakeTable({{"X", "gone"}});
  a.Detach(d);
  EXPECT_EQ(a.Count(), 0);
  EXPECT_EQ(a.Get('E'), nullptr);
  EXPECT_TRUE(d == b);
  EXPECT_EQ(d.Get('X'), nullptr);

  CKList words;
  for (const char* s : {"ja", "wahr"}) words.Add(s);
  d.Add('D', words, FALSE);
  EXPECT_EQ(words.Count(), 2);
  words.Set(0, "nein");
  CKList* pDe = d.Add('D', words, TRUE);  // replaces, keeps the place
  EXPECT_EQ(words.Count(), 0);
  EXPECT_EQ(d.Find('D'), 2);
  EXPECT_STREQ(pDe->Get(0), "nein");
  EXPECT_EQ(pDe->Count(), 2);
}

TEST(KLang, PerThreadLanguageAndLookUp) {
  LangReset reset;
  EXPECT_EQ(KLangGet(), 0);
  EXPECT_STREQ(KLangExtGet(), "");
  KLangSetThreadLang('F');
  KLangExtSetThreadLang("pro");
  char cOther = 'x';
  CKString strOtherExt("x");
  std::thread([&] {
    cOther = KLangGet();
    strOtherExt = KLangExtGet();
    KLangSetThreadLang('E');
  }).join();
  EXPECT_EQ(cOther, 0);
  EXPECT_STREQ(strOtherExt, "");
  EXPECT_EQ(KLangGet(), 'F');
  CKString ext = KLangExtGet();
  EXPECT_STREQ(ext, "pro");
  EXPECT_EQ(ext.GetRefCount(), 1u);  // a private copy, safe to hand over

  KLangSetThreadLang(0);
  EXPECT_STREQ(KLangYes(), "");
  EXPECT_EQ(KBool("ja"), 0);

  CKLangList t = MakeTable({{"E", "yes", "true", "File", "Edit"},
                            {"D", "ja", "wahr", "Datei", ""},
                            {"S", "s\xed", "verdadero"}});
  KLangSetTable(t, TRUE);
  EXPECT_EQ(t.Count(), 0);

  EXPECT_STREQ(KLangString(2), "File");  // no language chosen: the first one
  KLangSetThreadLang('D');
  EXPECT_STREQ(KLangString(2), "Datei");
  EXPECT_STREQ(KLangString(3), "Edit");  // empty translation: the first language's
  for (int n : {9, -1}) EXPECT_STREQ(KLangString(n), "") << n;
  EXPECT_STREQ(KLangString(3, 'D'), "");
  EXPECT_STREQ(KLangString(1, 'S'), "verdadero");
  EXPECT_STREQ(KLangYes(), "ja");
  EXPECT_STREQ(KLangTrue(), "wahr");
  for (const char* s : {"JA", "Wahr", "oui"}) EXPECT_EQ(KBool(s), 1) << s;  // fixed words stay
  EXPECT_EQ(KBool("verdadero"), 0);

  KLangSetThreadLang('S');
  EXPECT_EQ(KBool("S\xed"), 1);
  EXPECT_EQ(KBool("ja"), 0);
  KLangSetThreadLang('Q');  // unknown: the first language
  EXPECT_STREQ(KLangYes(), "yes");

  CKLangList copy;
  KLangGetTable(copy);
  EXPECT_EQ(copy.Count(), 3);
  EXPECT_STREQ(copy.GetString('S', 0), "s\xed");
  copy.Get('E')->Set(2, "changed");
  EXPECT_STREQ(KLangString(2, 'E'), "File");
}

TEST(KLang, ConcurrentReadersWhileReplaced) {
  LangReset reset;
  CKLangList a = MakeTable({{"E", "yes", "true", "one"}});
  CKLangList b = MakeTable({{"E", "yes", "true", "two"}});
  KLangSetTable(a, FALSE);
  std::atomic<bool> bStop{false};
  std::atomic<int> nBad{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i)
    readers.emplace_back([&] {
      while (!bStop) {
        CKString s = KLangString(2);
        if (s != "one" && s != "two") ++nBad;
      }
    });
  for (int i = 0; i < 300; ++i) KLangSetTable(i % 2 ? a : b, FALSE);
  bStop = true;
  for (auto& t : readers) t.join();
  EXPECT_EQ(nBad.load(), 0);
}
