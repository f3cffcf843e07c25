#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <cstring>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <base/tools/KStr.h>
#include <misc/KObj.h>

#include "KTestLog.h"
#include "KTestTemp.h"

namespace {

const char* kPath = "src/KObj";

enum { TYPE_FOLDER = 1, TYPE_ITEM = 2 };

// The test hierarchy: a folder that loads children on demand and an item
// that counts its hook calls.
class CItem : public CKObj {
public:
  static int s_nLive;
  int nLoads = 0, nUpdates = 0, nPropLoads = 0, nSelected = 0, nLoadResult = TRUE;
  CItem() {
    SetType(TYPE_ITEM);
    s_nLive++;
  }
  ~CItem() override { s_nLive--; }
  int OnLoad() override {
    nLoads++;
    return nLoadResult;
  }
  int OnUpdate() override {
    nUpdates++;
    return TRUE;
  }
  int OnLoadProp() override {
    nPropLoads++;
    return TRUE;
  }
  void OnSelected() override { nSelected++; }
};
int CItem::s_nLive = 0;

class CFolder : public CItem {
public:
  CFolder() { SetType(TYPE_FOLDER); }
  int OnObjCopy(CKObj* p) override { return strcmp(p->Name(), "refuse") != 0 ? TRUE : FALSE; }
};

CKObj* TestNew(int nType) {
  switch (nType) {
    case TYPE_FOLDER: return new CFolder;
    case TYPE_ITEM: return new CItem;
    case KOBJ_TYPE_LINK: return new CObjLink((CKObj*)nullptr);
    default: return nullptr;
  }
}

CItem* Named(const char* sz, int nType = TYPE_ITEM) {
  CItem* p = nType == TYPE_FOLDER ? new CFolder : new CItem;
  p->Rename(sz);
  return p;
}

std::string S(const CKString& s) { return std::string(s.GetString()); }

class ObjTest : public ::testing::Test {
protected:
  void SetUp() override {
    ObjNew = TestNew;
    nLive = CItem::s_nLive;
  }
  void TearDown() override {
    ObjNew = nullptr;
    EXPECT_EQ(nLive, CItem::s_nLive) << "objects leaked or freed twice";
  }
  int nLive = 0;
  CKTestLog log;
};

TEST_F(ObjTest, ChildrenRefsAndMainFather) {
  CItem a, b;
  CItem* c = Named("c");
  EXPECT_EQ(0, a.Add(c));
  EXPECT_EQ(0, b.Add(c));
  EXPECT_EQ(2, c->GetRefs());
  EXPECT_EQ(&a, c->GetFather());
  EXPECT_EQ(c, b.Detach(0));
  EXPECT_EQ(&a, c->GetFather());
  EXPECT_EQ(1, c->GetRefs());

  // bNoFather and insertion position.
  CItem* d = Named("d");
  EXPECT_EQ(0, a.Add(d, 0, TRUE));
  EXPECT_EQ(nullptr, d->GetFather());
  EXPECT_EQ(d, a.Get(0));
  EXPECT_EQ(c, a.Get(1));

  // Set past the end pads with nulls and takes the object.
  CItem* e = Named("e");
  a.Set(5, e);
  EXPECT_EQ(6, a.Count());
  EXPECT_EQ(nullptr, a.Get(3));
  EXPECT_EQ(&a, e->GetFather());
  a.Set(-1, e);
  EXPECT_EQ(1, e->GetRefs());

  // Cutting over a null entry reports "o" and keeps going.
  log.Clear();
  a.SetCount(2);
  EXPECT_TRUE(log.HasAssert("o", kPath));
  EXPECT_EQ(0, e->GetRefs());
  EXPECT_EQ(2, a.Count());
  delete e;

  // Add(NULL) is counted.
  a.Add(nullptr);
  EXPECT_EQ(3, a.Count());

  // Delete by pointer returns the old index and deletes; an unknown one -1.
  const int nBefore = CItem::s_nLive;
  EXPECT_EQ(1, a.Delete(c));
  EXPECT_EQ(nBefore - 1, CItem::s_nLive);
  CItem* stranger = Named("x");
  EXPECT_EQ(-1, a.Delete(stranger));
  delete stranger;
  a.DeleteAll();
  EXPECT_EQ(0, a.Count());
}

TEST_F(ObjTest, DeleteSharedChildTracesRefsAndDetachesFromFather) {
  CItem a, b;
  CItem* c = Named("shared");
  a.Add(c);
  b.Add(c);
  b.Detach(c, FALSE, FALSE);
  a.Add(c);  // held twice by a
  log.Clear();
  a.FreeChildren();  // deleted once, not twice
  EXPECT_EQ(0, a.Count());

  // A child deleted directly leaves its main father's list.
  CItem* d = Named("d");
  a.Add(d);
  a.Add(d, -1, FALSE);
  log.Clear();
  delete d;
  EXPECT_EQ(0, a.Count());  // no entry of it is left dangling
  std::vector<std::string> v = log.Texts(4);
  ASSERT_EQ(1u, v.size());
  EXPECT_EQ("CKObj::Delete:Deleting CKObj(d) with (refs==2)", v[0]);
  a.SetCount(0);
}

TEST_F(ObjTest, DetachRecursiveAndDetachAll) {
  CItem root;
  CItem* f1 = Named("f1");
  CItem* f2 = Named("f2");
  CItem* x = Named("x");
  root.Add(f1);
  root.Add(f2);
  f1->Add(x);
  f2->Add(x);
  EXPECT_EQ(nullptr, root.Detach(x, FALSE, FALSE));
  EXPECT_EQ(x, root.Detach(x, TRUE, TRUE));
  EXPECT_EQ(0, f1->Count());
  EXPECT_EQ(1, f2->Count());
  EXPECT_EQ(x, root.Detach(x, TRUE, FALSE));
  EXPECT_EQ(0, f2->Count());
  EXPECT_EQ(0, x->GetRefs());
  delete x;

  root.DetachAll(TRUE);
  EXPECT_EQ(&root, f1->GetFather());
  EXPECT_EQ(0, f1->GetRefs());
  delete f1;  // its father no longer holds it
  delete f2;
}

TEST_F(ObjTest, RegistryFindsLiveObjectsFromAnyThread) {
  CKString strKey;
  {
    CItem o;
    strKey = o.Key();
    EXPECT_EQ(38u, strKey.GetLength());
    EXPECT_EQ(&o, ObjByKey(strKey));
    CItem other;
    EXPECT_NE(other.Key(), strKey);
  }
  EXPECT_EQ(nullptr, ObjByKey(strKey));
  EXPECT_EQ(nullptr, ObjByKey("not a key"));
  EXPECT_EQ(nullptr, ObjByKey(nullptr));

  // Writers and readers at once: every key seen maps back to its object.
  std::vector<CItem*> fixed;
  for (int i = 0; i < 200; i++) fixed.push_back(new CItem);
  std::atomic<int> nBad(0);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 500; i++) {
        if (t % 2) {
          CKObj tmp;
          if (ObjByKey(tmp.Key()) != &tmp) nBad++;
        } else {
          CItem* p = fixed[(size_t)(i % 200)];
          if (ObjByKey(p->Key()) != p) nBad++;
        }
      }
    });
  for (std::thread& th : threads) th.join();
  EXPECT_EQ(0, nBad.load());
  for (CItem* p : fixed) delete p;
}

TEST_F(ObjTest, FindFamily) {
  // root: a(F) [ b, c(F) [ b ] ], B, "" ; depth-first order matters.
  CItem root;
  CItem* a = Named("a", TYPE_FOLDER);
  CItem* b1 = Named("b");
  CItem* c = Named("c", TYPE_FOLDER);
  CItem* b2 = Named("b");
  CItem* B = Named("B");
  CItem* empty = Named("");
  root.Add(a);
  a->Add(b1);
  a->Add(c);
  c->Add(b2);
  root.Add(B);
  root.Add(empty);

  EXPECT_EQ(B, root.Find("b", TRUE));
  EXPECT_EQ(nullptr, root.Find("b", FALSE));
  EXPECT_EQ(b1, root.FindRec("b", FALSE));
  EXPECT_EQ(b1, root.FindRec(TYPE_ITEM, "b", FALSE));
  EXPECT_EQ(c, root.FindRec(TYPE_FOLDER, "c", FALSE));
  EXPECT_EQ(nullptr, root.Find(TYPE_FOLDER, "b", TRUE));
  EXPECT_EQ(empty, root.Find("", FALSE));
  EXPECT_EQ(empty, root.Find((const char*)nullptr, FALSE));
  EXPECT_EQ(nullptr, root.Find("b ", FALSE));  // length must match

  CKPtrList<CKObj> list;
  EXPECT_EQ(2, root.Find("b", list, TRUE));
  EXPECT_EQ(3, root.Find("B", list, TRUE));  // appends
  EXPECT_EQ(a, root.Find(TYPE_FOLDER, FALSE));
  EXPECT_EQ(b1, root.Find(TYPE_ITEM, TRUE));  // a's subtree before B
  EXPECT_EQ(B, root.Find(TYPE_ITEM, FALSE));
  EXPECT_EQ(4, root.CountType(TYPE_ITEM, TRUE));
  EXPECT_EQ(2, root.CountTyped(TYPE_ITEM));
  EXPECT_EQ(4, root.CountTypedR(TYPE_ITEM, TRUE));
  EXPECT_EQ(empty, root.GetTyped(TYPE_ITEM, 1));
  EXPECT_EQ(6, root.CountRec());

  CKObj* pFather = &root;
  EXPECT_EQ(0, root.Find(b2, pFather));
  EXPECT_EQ(c, pFather);
  EXPECT_EQ(-1, root.Find(&root, pFather));
  EXPECT_EQ(nullptr, pFather);
  EXPECT_TRUE(root.FindRec(b2));
  EXPECT_TRUE(root.Exist(b2));
  EXPECT_FALSE(a->Exist(B));

  EXPECT_EQ(3, b2->GetFatherCount());
  EXPECT_EQ(a, b2->GetFather(1));
  EXPECT_EQ(nullptr, b2->GetFather(3));
  EXPECT_EQ(nullptr, b2->GetFather(-1));
  EXPECT_EQ(c, b2->GetFatherOfType(TYPE_FOLDER));
  EXPECT_EQ(&root, b2->GetRoot());
  EXPECT_TRUE(b2->HasFather(a));

  // The nearest level wins for keys; a deeper object is still found.
  EXPECT_EQ(b2, root.FindByKey(b2->Key()));
  CObjLink* l = new CObjLink(b2);
  root.Add(l);
  EXPECT_EQ(b2, root.FindByKey(b2->Key()));  // a link has its own key
  EXPECT_EQ(l, root.FindByKey(l->Key()));

  list.Empty();
  root.FindParents(b1, list, TRUE, TRUE);
  ASSERT_EQ(1, list.Count());
  EXPECT_EQ(a, list.Get(0));
}

TEST_F(ObjTest, CheckNameDuplicate) {
  struct Case {
    std::vector<const char*> siblings;
    const char* name;
    const char* expected;
  } cases[] = {
      {{"Folder", "Folder (2)", "Folder (4)"}, "Folder", "Folder (3)"},
      {{"folder"}, "Folder", "Folder"},
      {{"Folder"}, "Folder", "Folder (2)"},
      {{"Folder", "Folder(2)", "Folder (x)", "Folder ()"}, "Folder", "Folder (2)"},
      {{"Folder", "Folder (2)", "Folder (3)"}, "Folder", "Folder (4)"},
      {{"Folder", "Folder (1)"}, "Folder", "Folder (2)"},
      {{"A (2)"}, "A", "A"},
  };
  for (const Case& c : cases) {
    CItem father;
    for (const char* s : c.siblings) father.Add(Named(s));
    CItem* me = Named("me");
    father.Add(me);
    CKString strName(c.name);
    EXPECT_EQ(std::string(c.expected), S(me->CheckNameDuplicate(strName))) << c.name;
    father.DeleteAll();
  }
  CItem loose;
  CKString s("x");
  EXPECT_EQ("x", S(loose.CheckNameDuplicate(s)));
  CItem father;
  CItem* me = Named("me");
  father.Add(me);
  CKString strEmpty;
  EXPECT_EQ("", S(me->CheckNameDuplicate(strEmpty)));
  EXPECT_TRUE(log.HasAssert("!KIsEmpty(strName)", kPath, CKTestLog::kReturnValue));
}

TEST_F(ObjTest, CompareAndSort) {
  CItem x, y;
  x.Rename("beta");
  x.SetDisplayName("alpha");
  y.Rename("ALPHA");
  EXPECT_GT(x.Compare(&y), 0);
  x.AddFlag(KOBJ_SORTBYDISPLAYNAME);
  EXPECT_EQ(0, x.Compare(&y));
  EXPECT_EQ(1, x.Compare(nullptr));

  const char* names[] = {"m", "b", "Z", "a", "k", "c", "y", "b", "q", "e"};
  CItem root, root2;
  for (const char* n : names) {
    CItem* p = Named(n);
    p->MarkSort(TRUE);
    root.Add(p);
    root2.Add(Named(n));
  }
  root.Sort();
  root2.__Qsort(0, root2.Count() - 1);
  for (int i = 0; i + 1 < root.Count(); i++) {
    EXPECT_LE(root.Get(i)->Compare(root.Get(i + 1)), 0) << i;
    EXPECT_LE(root2.Get(i)->Compare(root2.Get(i + 1)), 0) << i;
    EXPECT_FALSE(root.Get(i)->IsMarkSort());
  }

  // A marked child of a marked father is not sorted in the same pass.
  CItem top;
  CItem* child = Named("z");
  CItem* other = Named("a");
  top.Add(child);
  top.Add(other);
  child->Add(Named("2"));
  child->Add(Named("1"));
  top.MarkSort(TRUE);
  child->MarkSort(TRUE);
  log.Clear();
  top.SortMarked(TRUE);
  EXPECT_EQ(other, top.Get(0));
  EXPECT_EQ("2", S(child->Get(0)->Name()));
  std::vector<std::string> seps = log.Texts(1024);
  ASSERT_EQ(3u, seps.size());
  EXPECT_EQ("--------------------------------", seps[0]);
  EXPECT_EQ(seps[0], seps[1]);
  EXPECT_EQ(0u, seps[2].find("Sort marked done in "));
  // The father keeps its own mark, so it clears the child's again.
  child->MarkSort(TRUE);
  top.SortMarked(TRUE);
  EXPECT_EQ("2", S(child->Get(0)->Name()));
  top.MarkSort(FALSE);
  child->MarkSort(TRUE);
  top.SortMarked(TRUE);
  EXPECT_EQ("1", S(child->Get(0)->Name()));
}

TEST_F(ObjTest, Selection) {
  CItem root;
  for (int i = 0; i < 4; i++) root.Add(Named("n"));
  root.Select(2);
  EXPECT_EQ(2, root.GetSelected());
  EXPECT_TRUE(root.Get(2)->IsSelected());
  EXPECT_FALSE(root.Get(1)->IsSelected());
  CItem* one = static_cast<CItem*>(root.Get(1));
  one->Selected();
  EXPECT_EQ(1, one->nSelected);
  EXPECT_EQ(1, root.FindSelected());
  EXPECT_FALSE(root.IsSelected(2));
  root.Get(2)->SetSelected();
  EXPECT_EQ(1, one->nSelected);  // SetSelected calls no hook
  log.Clear();
  root.Select(9);
  EXPECT_TRUE(log.HasAssert("o", kPath, CKTestLog::kReturn));

  root.MSelect(0);
  root.MSelect(3);
  root.MSelectReverse(0);
  root.MSelectReverse(1);
  EXPECT_EQ(2, root.GetMSelectedCount());
  EXPECT_EQ(1, root.GetMSelected(0));
  EXPECT_EQ(3, root.GetMSelected(1));
  EXPECT_EQ(-1, root.GetMSelected(2));
  EXPECT_EQ(root.Get(3), root.GetMSelectedObj(1));
  EXPECT_FALSE(root.IsMSelected(7));
  root.SaveSelections();
  EXPECT_EQ(KOBJ_SAVEDSELECTED, root.Get(2)->HasFlag(KOBJ_SAVEDSELECTED | KOBJ_SAVEDMSELECTED));
  EXPECT_EQ(KOBJ_SAVEDMSELECTED, root.Get(3)->HasFlag(KOBJ_SAVEDSELECTED | KOBJ_SAVEDMSELECTED));
  EXPECT_EQ(0, root.Get(0)->HasFlag(KOBJ_SAVEDSELECTED | KOBJ_SAVEDMSELECTED));
  root.MUnselectAll();
  EXPECT_EQ(0, root.GetMSelectedCount());
  root.MSelectAll();
  EXPECT_EQ(4, root.GetMSelectedCount());

  // Recursive selected object and first visible.
  root.ClearSelection();
  CItem* deep = Named("deep");
  root.Get(3)->Add(deep);
  deep->SetSelected();
  EXPECT_EQ(nullptr, root.GetSelectedObj(FALSE));
  EXPECT_EQ(deep, root.GetSelectedObj(TRUE));
  root.SetFirstVisible(deep);
  EXPECT_EQ(deep, root.GetFirstVisible());
  root.SetFirstVisible(root.Get(0));
  EXPECT_FALSE(deep->IsFirstVisible());
}

TEST_F(ObjTest, OnDemandContent) {
  CItem o;
  EXPECT_TRUE(o.Load(0));
  EXPECT_EQ(0, o.nLoads);
  EXPECT_FALSE(o.HasPlus());
  o.AddFlag(KOBJ_LOADABLE);
  EXPECT_TRUE(o.HasPlus());
  static int s_nRefresh;
  s_nRefresh = 0;
  ObjRefresh = [](CKObj*, int) { s_nRefresh++; };
  o.nLoadResult = FALSE;
  EXPECT_FALSE(o.Load(0));
  EXPECT_FALSE(o.HasFlag(KOBJ_LOADED));
  o.nLoadResult = TRUE;
  EXPECT_TRUE(o.Update(0));  // not loaded yet: loads
  EXPECT_EQ(2, o.nLoads);
  EXPECT_EQ(0, o.nUpdates);
  EXPECT_TRUE(o.Load(0));
  EXPECT_EQ(2, o.nLoads);
  EXPECT_TRUE(o.Update(0));
  EXPECT_EQ(1, o.nUpdates);
  o.Add(Named("kid"));
  EXPECT_TRUE(o.Reload(0));  // frees the children, loads again
  EXPECT_EQ(0, o.Count());
  EXPECT_EQ(3, o.nLoads);
  EXPECT_TRUE(o.HasFlag(KOBJ_LOADED));
  EXPECT_EQ(4, s_nRefresh);
  ObjRefresh = [](CKObj*, int) {};
  o.AddFlag(KOBJ_NOPLUS);
  o.Add(Named("kid"));
  EXPECT_FALSE(o.HasPlus());

  // Free keeps the name and clears every flag.
  o.Rename("keep");
  o.SetDescr("d");
  o.AddFlag(KOBJ_READONLY);
  o.PropAdd("p", "v");
  o.Free();
  EXPECT_EQ("keep", S(o.Name()));
  EXPECT_EQ("", S(o.Descr()));
  EXPECT_EQ(0, o.GetFlag());
  EXPECT_EQ(0, o.PropCount());
  EXPECT_EQ(0, o.Count());
}

TEST_F(ObjTest, Properties) {
  CItem o;
  EXPECT_NE(nullptr, o.PropAdd("Color", "red", TRUE));
  log.Clear();
  EXPECT_EQ(nullptr, o.PropAdd("COLOR", "blue", FALSE));
  EXPECT_TRUE(log.HasAssert("!pProp->IsReadOnly()", kPath, CKTestLog::kReturnValue));
  EXPECT_EQ("red", S(o.PropValue("color")));
  CProp* p = o.PropAddUnique("Color", "blue", TRUE);
  EXPECT_EQ("blue", S(p->GetValueStr()));
  EXPECT_EQ("Color", S(p->GetName()));
  EXPECT_EQ(p, o.PropAddUnique("color", "green", FALSE));
  EXPECT_EQ("blue", S(p->GetValueStr()));
  log.Clear();
  p->SetReadOnly(FALSE);
  EXPECT_TRUE(log.HasAssert("!m_bIsReadOnly", "include/misc/KObj", CKTestLog::kReturn));
  EXPECT_TRUE(p->IsReadOnly());

  CProp q(&o);
  EXPECT_EQ(KPROP_VT_BSTR, q.GetType());
  q.SetValueInt(-5);
  EXPECT_EQ(-5, q.GetValueInt());
  EXPECT_EQ("-5", S(q.GetValueStr()));
  q.SetType(KPROP_VT_BSTR);
  EXPECT_EQ("-5", S(q.GetValueStr()));
  q.SetType(3);
  EXPECT_EQ("", S(q.GetValueStr()));
  q.SetValueStr("abc");
  EXPECT_EQ(0, q.GetValueInt());

  CItem e;
  e.PropSetCount(3);
  CProp* filled = e.Prop(1);
  ASSERT_NE(nullptr, filled);
  EXPECT_EQ(&e, filled->GetFather());
  EXPECT_EQ(3, e.PropCount());
  EXPECT_EQ(nullptr, e.Prop(3));
  EXPECT_EQ(nullptr, e.Prop(-1));
  EXPECT_EQ(nullptr, e.Prop((const char*)nullptr));
  EXPECT_EQ(nullptr, e.Prop(""));
  EXPECT_EQ("", S(e.PropValue("nothing")));

  CKListParamValue list;
  list.AddValue("a", "1");
  list.AddValue("", "skipped");
  list.AddValue("Color", "white");
  log.Clear();
  o.PropSet(list);
  EXPECT_TRUE(log.HasAssert("!KIsEmpty(strParam)", kPath));
  EXPECT_EQ("1", S(o.PropValue("A")));
  EXPECT_EQ("blue", S(o.PropValue("Color")));

  // Copies: read-only mark travels; a NULL source entry gets filled.
  e.PropCopy(&o);
  ASSERT_EQ(o.PropCount(), e.PropCount());
  EXPECT_TRUE(e.Prop("color")->IsReadOnly());
  EXPECT_EQ(&e, e.Prop(0)->GetFather());

  // On-demand properties.
  o.AddFlag(KOBJ_HASPROPS);
  EXPECT_TRUE(o.PropLoad());
  EXPECT_TRUE(o.PropLoad());
  EXPECT_EQ(1, o.nPropLoads);
  o.PropFree();
  EXPECT_EQ(0, o.PropCount());
  EXPECT_TRUE(o.PropLoad());
  EXPECT_EQ(2, o.nPropLoads);
}

TEST_F(ObjTest, Links) {
  CItem* target = Named("Report");
  target->SetIcon("Folder");
  CObjLink link(target);
  EXPECT_EQ(KOBJ_TYPE_LINK, link.Type());
  EXPECT_EQ(&link, link.ObjLink());
  EXPECT_EQ(1, target->LinkCount());
  EXPECT_EQ("Report", S(link.Name()));
  EXPECT_EQ("FolderLINKED", S(link.Icon()));
  EXPECT_EQ(S(target->Key()), S(link.PropValue("LINKEDKEY")));
  target->SetName("Sales");
  EXPECT_EQ("Sales", S(link.PropValue("LINKEDNAME")));
  target->Rename("Other");
  EXPECT_EQ("Sales", S(link.PropValue("LINKEDNAME")));
  EXPECT_EQ("Other", S(link.Name()));
  link.AddFlag(KOBJ_READONLY);
  EXPECT_TRUE(target->IsReadOnly());
  link.SetName("Renamed");
  EXPECT_EQ("Renamed", S(target->Name()));

  CObjLink copy(&link);
  EXPECT_EQ(target, copy.GetLinked());
  EXPECT_EQ(2, target->LinkCount());

  // Target dies: the links break and keep what they knew.
  link.SetIconLinkBreak("Broken");
  const CKString strKey = target->Key();
  delete target;
  EXPECT_EQ(nullptr, link.GetLinked());
  EXPECT_EQ("Renamed", S(link.Name()));
  EXPECT_EQ("Broken", S(link.Icon()));
  EXPECT_EQ(0, link.GetFlag());
  EXPECT_EQ("", S(copy.Icon()));
  log.Clear();
  EXPECT_FALSE(link.ResolveLink());
  EXPECT_EQ("ERROR => Broken link on Renamed with key=" + S(strKey), log.Last());
  EXPECT_EQ(10, log.LastType());

  // Resolving against a live object with that key re-attaches.
  CItem* again = Named("Again");
  link.PropAdd("LINKEDKEY", again->Key());
  EXPECT_TRUE(link.ResolveLink());
  EXPECT_EQ(again, link.GetLinked());
  EXPECT_EQ("Again", S(link.PropValue("LINKEDNAME")));
  CKString n("LINKEDNAME"), v("stale");
  again->Rename("Fresh");
  EXPECT_TRUE(link.OnWriteXmlProp(n, v));
  EXPECT_EQ("Fresh", S(v));
  link.SetLinked(nullptr, FALSE);
  EXPECT_EQ("", S(link.PropValue("LINKEDKEY")));
  EXPECT_EQ(0, again->LinkCount());
  log.Clear();
  EXPECT_FALSE(link.ResolveLink());
  EXPECT_TRUE(log.HasAssert("!KIsEmpty(strKey)", "src/KObjLink", CKTestLog::kReturnValue));
  log.Clear();
  link.OnNameUpdate();
  EXPECT_TRUE(log.HasAssert("m_pLinked", "src/KObjLink", CKTestLog::kReturn));
  CObjLink bare((CKObj*)nullptr);
  bare.PropFree();
  EXPECT_EQ("Broken Link", S(bare.Name()));
  delete again;

  // Links to links never close a cycle.
  CObjLink* first = new CObjLink((CKObj*)nullptr);
  CObjLink second((CKObj*)first);
  log.Clear();
  first->SetLinked(&second, FALSE);
  EXPECT_EQ(nullptr, first->GetLinked());
  EXPECT_EQ(0u, log.Last().find("ERROR => CObjLink::SetLinked(): link cycle on "));
  delete first;
  EXPECT_EQ(nullptr, second.GetLinked());

  // A link dying first leaves its target's list.
  CItem t;
  { CObjLink l2(&t); }
  EXPECT_EQ(0, t.LinkCount());

  // ResolveLinks: links re-attach, links are not descended into.
  CItem root;
  CItem* tgt = Named("tgt");
  root.Add(tgt);
  CItem* sub = Named("sub");
  root.Add(sub);
  CObjLink* l3 = new CObjLink(tgt);
  sub->Add(l3);
  l3->SetLinked(nullptr, TRUE);
  root.ResolveLinks(TRUE);
  EXPECT_EQ(tgt, l3->GetLinked());
  log.Clear();
  l3->ResolveLinks(TRUE);
  EXPECT_TRUE(log.HasAssert("!ObjLink()", kPath, CKTestLog::kReturn));
}

TEST_F(ObjTest, CopyFromAndObjCopy) {
  CFolder src;
  src.Rename("src");
  src.SetDescr("descr");
  src.SetIcon("icon");
  src.SetParam1("p1");
  src.SetParam1(7);
  src.AddFlag(0x4000);
  src.PropAdd("k", "v", TRUE);
  CItem* target = Named("target", TYPE_FOLDER);
  target->Add(Named("inner"));
  CItem holder;
  holder.Add(target);
  src.Add(Named("child"));
  src.Add(nullptr);
  src.Add(new CObjLink(target));
  src.Add(Named("refuse", TYPE_FOLDER));

  CKObj* plain = ObjCopy(&src, FALSE);
  ASSERT_NE(nullptr, plain);
  EXPECT_EQ(TYPE_FOLDER, plain->Type());
  EXPECT_EQ("src", S(plain->Name()));
  EXPECT_EQ("", S(plain->Icon()));  // not copied
  EXPECT_EQ(7, plain->GetParam1Int());
  EXPECT_EQ(0x4000, plain->GetFlag());
  EXPECT_TRUE(plain->Prop("k")->IsReadOnly());
  EXPECT_NE(S(src.Key()), S(plain->Key()));
  ASSERT_EQ(4, plain->Count());
  EXPECT_EQ(nullptr, plain->Get(1));
  EXPECT_NE(nullptr, plain->Get(2)->ObjLink());
  EXPECT_EQ(nullptr, plain->Get(3));  // refused by OnObjCopy
  EXPECT_EQ(plain, plain->Get(0)->GetFather());
  delete plain;

  CKObj* resolved = ObjCopy(&src, TRUE);
  ASSERT_NE(nullptr, resolved);
  EXPECT_EQ(nullptr, resolved->Get(2)->ObjLink());
  EXPECT_EQ("target", S(resolved->Get(2)->Name()));
  EXPECT_EQ(1, resolved->Get(2)->Count());
  delete resolved;

  // A broken link stops a resolving copy.
  holder.DeleteAll();
  log.Clear();
  CFolder dst;
  dst.CopyFrom(&src, TRUE);
  EXPECT_TRUE(log.HasAssert("o2", kPath, CKTestLog::kReturn));
  EXPECT_EQ(2, dst.Count());

  CItem refuse;
  refuse.Rename("refuse");
  refuse.SetType(TYPE_FOLDER);
  EXPECT_EQ(nullptr, ObjCopy(&refuse, FALSE));
  EXPECT_EQ(nullptr, ObjCopy(nullptr, FALSE));
}

TEST_F(ObjTest, RootHooks) {
  CItem* root = Named("root");
  SetObjRoot(root);
  EXPECT_EQ(root, ObjRoot());
  EXPECT_TRUE(root->IsRoot());
  CItem other;
  EXPECT_FALSE(other.IsRoot());
  ObjTerm();
  EXPECT_EQ(nullptr, ObjRoot());
  EXPECT_EQ("", S(other.TypeStr()));
  ObjType = [](int n) -> CKString { return KAnd("type ", KStr(n)); };
  EXPECT_EQ("type 2", S(other.TypeStr()));
  ObjType = nullptr;
}

// ---------------------------------------------------------------- XML

std::string ReadAll(const std::string& strPath) {
  std::ifstream f(strPath, std::ios::binary);
  std::ostringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

// root(F) [ a(I, props, flags) [ deep(F, loadable) ], tgt(I), link -> tgt ]
CItem* BuildSample() {
  CItem* root = Named("root", TYPE_FOLDER);
  CItem* a = Named("a & b <c>");
  a->SetDisplayName("Display=1$");
  a->SetDescr("descr");
  a->SetIcon("Folder");
  a->SetParam1("p1");
  a->SetParam2("p2");
  a->SetPath("C:\\path");
  a->SetParam1(-42);
  a->AddFlag(KOBJ_MSELECTED | 0x4000);
  a->SetDragable(TRUE);
  a->SetExpanded(TRUE);
  a->SetUpdated(TRUE);
  a->PropAdd("a=b", "x<y");
  a->PropAdd("Color", "red & $blue>");
  a->PropAdd("Empty", "");
  root->Add(a);
  CItem* deep = Named("deep", TYPE_FOLDER);
  deep->AddFlag(KOBJ_LOADABLE);
  a->Add(deep);
  CItem* tgt = Named("target");
  root->Add(tgt);
  root->Add(new CObjLink(tgt));
  a->SetSelected();
  return root;
}

void ExpectSameTree(CKObj* x, CKObj* y) {
  ASSERT_NE(nullptr, y);
  EXPECT_EQ(x->Type(), y->Type());
  EXPECT_EQ(S(x->Key()), S(y->Key()));
  EXPECT_EQ(S(x->Name()), S(y->Name()));
  EXPECT_EQ(S(x->DisplayName()), S(y->DisplayName()));
  EXPECT_EQ(S(x->Descr()), S(y->Descr()));
  EXPECT_EQ(S(x->Icon()), S(y->Icon()));
  EXPECT_EQ(S(x->Param1()), S(y->Param1()));
  EXPECT_EQ(S(x->Param2()), S(y->Param2()));
  EXPECT_EQ(S(x->Path()), S(y->Path()));
  EXPECT_EQ(x->GetParam1Int(), y->GetParam1Int());
  EXPECT_EQ(x->IsDragable(), y->IsDragable());
  EXPECT_EQ(x->IsExpanded(), y->IsExpanded());
  EXPECT_EQ(x->IsUpdated(), y->IsUpdated());
  ASSERT_EQ(x->PropCount(), y->PropCount());
  for (int i = 0; i < x->PropCount(); i++) {
    EXPECT_EQ(S(x->Prop(i)->GetName()), S(y->Prop(i)->GetName()));
    EXPECT_EQ(S(x->Prop(i)->GetValueStr()), S(y->Prop(i)->GetValueStr()));
  }
  ASSERT_EQ(x->Count(), y->Count());
  for (int i = 0; i < x->Count(); i++) {
    EXPECT_EQ(y, y->Get(i)->GetFather());
    ExpectSameTree(x->Get(i), y->Get(i));
  }
}

TEST_F(ObjTest, XmlRoundTripKeepsIdentityMembersPropertiesAndLinks) {
  CKTestTempDir tmp;
  const std::string strFile = tmp.Path("tree.xml");
  CItem* root = BuildSample();
  CKObj* a = root->Get(0);
  CObjLink* link = root->Get(2)->ObjLink();
  ASSERT_NE(nullptr, link);
  CKString strXml;
  ASSERT_TRUE(root->ToXmlString(strXml));
  const std::string x = S(strXml);
  EXPECT_EQ(0u, x.find("<?xml version=\"1.0\" encoding=\"ISO-8859-1\" ?>\r\n"));
  EXPECT_NE(std::string::npos, x.find("<aXMLOBJ_TAGEQb>xXMLOBJ_TAGINFy</aXMLOBJ_TAGEQb>"));
  EXPECT_NE(std::string::npos, x.find("<XMLOBJMEMBER_NAME>a XMLOBJ_TAGAND b XMLOBJ_TAGINFcXMLOBJ_TAGSUP<"));
  EXPECT_NE(std::string::npos, x.find("<XMLOBJMEMBER_SELECTED>TRUE<"));
  // The deep folder is loadable and was loaded before being written.
  EXPECT_EQ(1, static_cast<CItem*>(a->Get(0))->nLoads);
  EXPECT_TRUE(a->Get(0)->HasFlag(KOBJ_LOADED));

  // Save, delete, load: same identities, members and properties; the link
  // re-attaches to the reloaded target.
  ASSERT_TRUE(root->ToXml(strFile.c_str()));
  EXPECT_EQ(x, ReadAll(strFile));
  const std::string strKey = S(root->Key());
  CItem* copy = static_cast<CItem*>(ObjCopy(root, FALSE));
  ASSERT_NE(nullptr, copy);
  delete root;
  EXPECT_EQ(nullptr, ObjByKey(strKey.c_str()));
  log.Clear();
  CKObj* loaded = CKObj::CreateFromXml(strFile.c_str());
  ASSERT_NE(nullptr, loaded);
  EXPECT_EQ(loaded, ObjByKey(strKey.c_str()));
  EXPECT_EQ(1u, log.Texts(512).size());
  EXPECT_EQ(TYPE_FOLDER, loaded->Type());
  EXPECT_EQ(KOBJ_MSELECTED | 0x4000, loaded->Get(0)->GetFlag() & ~KOBJ_LOADED);
  EXPECT_TRUE(loaded->Get(0)->IsSelected());
  CObjLink* l2 = loaded->Get(2)->ObjLink();
  ASSERT_NE(nullptr, l2);
  EXPECT_EQ(nullptr, l2->GetLinked());
  EXPECT_EQ("target", S(l2->Name()));
  loaded->ResolveLinks(TRUE);
  EXPECT_EQ(loaded->Get(1), l2->GetLinked());
  EXPECT_EQ(1, loaded->Get(1)->LinkCount());

  // Saving the reloaded tree gives the same document.
  CKString strAgain;
  ASSERT_TRUE(loaded->ToXmlString(strAgain));
  EXPECT_EQ(x, S(strAgain));
  CKObj* fromText = CKObj::CreateFromXmlText(strAgain, strAgain.GetLength());
  ExpectSameTree(loaded, fromText);
  delete fromText;
  delete loaded;
  delete copy;
}

TEST_F(ObjTest, XmlOutputIsWellFormedForAnIndependentParser) {
  if (std::system("python3 -c 'import xml.etree.ElementTree' >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "python3 with xml.etree is not available";
  CKTestTempDir tmp;
  const std::string strFile = tmp.Path("wf.xml");
  CItem* root = BuildSample();
  ASSERT_TRUE(root->ToXml(strFile.c_str()));
  // Names and texts as the independent parser reads them back.
  const std::string strOut = tmp.Path("out.txt");
  const std::string strCmd =
      "python3 -c \"import sys, xml.etree.ElementTree as E; r = E.parse(sys.argv[1]).getroot(); "
      "e = r.find('XMLOBJ_ENTRY/XMLOBJ_CHILDREN/XMLOBJ_ENTRY'); "
      "open(sys.argv[2], 'w').write(r.tag + '|' + e.find('XMLOBJMEMBER_NAME').text + '|' + "
      "e.find('XMLOBJ_PROPS')[1].text)\" " +
      strFile + " " + strOut;
  ASSERT_EQ(0, std::system(strCmd.c_str()));
  EXPECT_EQ("XMLOBJ_ROOT|a XMLOBJ_TAGAND b XMLOBJ_TAGINFcXMLOBJ_TAGSUP|red XMLOBJ_TAGAND XMLOBJ_TAGDOLblueXMLOBJ_TAGSUP",
            ReadAll(strOut));
  delete root;
}

TEST_F(ObjTest, XmlEscapes) {
  struct Case {
    const char* plain;
    const char* encoded;
  } cases[] = {
      {"a=b", "aXMLOBJ_TAGEQb"},
      {"x<y>z", "xXMLOBJ_TAGINFyXMLOBJ_TAGSUPz"},
      {"&$", "XMLOBJ_TAGANDXMLOBJ_TAGDOL"},
      {"plain", "plain"},
      {"", ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(std::string(c.encoded), S(CKObj::XmlEncode(c.plain)));
    EXPECT_EQ(std::string(c.plain), S(CKObj::XmlDecode(c.encoded)));
  }
  // Tag words already in a text are not protected; unknown ones stay.
  EXPECT_EQ("a=b", S(CKObj::XmlDecode("aXMLOBJ_TAGEQb")));
  EXPECT_EQ("XMLOBJ_TAGXY", S(CKObj::XmlDecode("XMLOBJ_TAGXY")));
  EXPECT_EQ("XMLOBJ_TAG=", S(CKObj::XmlDecode("XMLOBJ_TAGXMLOBJ_TAGEQ")));
}

TEST_F(ObjTest, XmlRefusals) {
  CKTestTempDir tmp;
  // A property of another type is not saved.
  CItem o;
  o.PropAdd("num", "1")->SetType(3);
  o.PropAdd("txt", "t");
  CKString strXml;
  log.Clear();
  ASSERT_TRUE(o.ToXmlString(strXml));
  EXPECT_TRUE(log.HasAssert("pProp->GetType()==VT_BSTR", "src/KObjXml"));
  EXPECT_EQ(std::string::npos, S(strXml).find("<num>"));
  const std::string strItem = tmp.Path("item.xml");
  ASSERT_TRUE(o.ToXml(strItem.c_str()));

  // Unrelated types: refused, object unchanged.
  CFolder f;
  f.Rename("unchanged");
  log.Clear();
  EXPECT_FALSE(f.LoadFromXml(strItem.c_str()));
  EXPECT_EQ("ERROR => CKObj.FromXml(): Types are unrelated '2' & '1'", log.Last());
  EXPECT_EQ("unchanged", S(f.Name()));
  CItem same;
  EXPECT_TRUE(same.LoadFromXml(strItem.c_str()));
  EXPECT_EQ(S(o.Key()), S(same.Key()));
  EXPECT_EQ("t", S(same.PropValue("txt")));

  struct Case {
    const char* name;
    std::string text;
    const char* line;
    int type;
  } cases[] = {
      {"notxml", "<a><b></a>", "ERROR (2) => CKObj.FromXml(): Unable to parse file ", 10},
      {"noroot", "<OTHER/>", "ERROR =>  CKObj.FromXml(): Invalid file format (", 10},
      {"empty", "<XMLOBJ_ROOT></XMLOBJ_ROOT>", "ERROR =>  CKObj.FromXml(): file is empty (no CKObj) (", 10},
      {"unknown",
       "<XMLOBJ_ROOT><XMLOBJ_ENTRY><XMLOBJMEMBER_TYPE>77</XMLOBJMEMBER_TYPE></XMLOBJ_ENTRY></XMLOBJ_ROOT>",
       "ERROR =>  CKObj.FromXml(): Unable to create root cause type is unknown by ObjNew (77)", 24},
      {"noname",
       "<XMLOBJ_ROOT><XMLOBJ_ENTRY><XMLOBJMEMBER_TYPE>2</XMLOBJMEMBER_TYPE></XMLOBJ_ENTRY></XMLOBJ_ROOT>",
       "ERROR (1) => CKObj.ReadXmlMember(): Requested member not found (NAME)", 10},
  };
  for (const Case& c : cases) {
    const std::string strPath = tmp.Path(c.name);
    std::ofstream(strPath, std::ios::binary) << c.text;
    log.Clear();
    EXPECT_EQ(nullptr, CKObj::CreateFromXml(strPath.c_str())) << c.name;
    bool bSeen = false;
    for (const std::string& s : log.Texts(c.type)) bSeen = bSeen || s.find(c.line) == 0;
    EXPECT_TRUE(bSeen) << c.name << ": " << log.Last();
  }
  EXPECT_EQ(nullptr, CKObj::CreateFromXml(tmp.Path("missing").c_str()));
  log.Clear();
  EXPECT_FALSE(same.LoadFromXml(tmp.Path("notxml").c_str()));
  EXPECT_EQ("ERROR (2) => CKObj.LoadFromXml(): Unable to parse file " + tmp.Path("notxml"), log.Last());
  EXPECT_FALSE(same.LoadFromXml(tmp.Path("empty").c_str()));
  EXPECT_EQ("ERROR =>  CKObj.LoadFromXml(): file is empty (no CKObj) (" + tmp.Path("empty") + ")",
            log.Last());

  // A child of an unknown type, a child that is not an entry, missing tags.
  std::string strDoc = S(strXml);
  struct Edit {
    const char* from;
    const char* to;
    const char* line;
    int type;
  } edits[] = {
      {"<XMLOBJ_CHILDREN></XMLOBJ_CHILDREN>",
       "<XMLOBJ_CHILDREN><XMLOBJ_ENTRY><XMLOBJMEMBER_TYPE>9</XMLOBJMEMBER_TYPE></XMLOBJ_ENTRY></XMLOBJ_CHILDREN>",
       "ERROR =>  CKObj.FromXml(): Unable to create obj cause type is unknown by ObjNew (9)", 24},
      {"<XMLOBJ_CHILDREN></XMLOBJ_CHILDREN>", "", "ERROR => CKObj.FromXml(): Cannot find XMLOBJ_CHILDREN tag", 10},
      {"<XMLOBJ_SPECIFIC></XMLOBJ_SPECIFIC>", "", "ERROR => CKObj.FromXml(): Cannot find XMLOBJ_SPECIFIC tag", 10},
      {"<XMLOBJ_CHILDREN></XMLOBJ_CHILDREN>", "<XMLOBJ_CHILDREN><X></X></XMLOBJ_CHILDREN>",
       "Assertion failed (EQ(pTree->GetName(), _T(\"XMLOBJ_ENTRY\"))) in src/KObjXml", 8},
  };
  for (const Edit& e : edits) {
    std::string strBad = strDoc;
    const size_t nAt = strBad.find(e.from);
    ASSERT_NE(std::string::npos, nAt) << e.from;
    strBad.replace(nAt, strlen(e.from), e.to);
    log.Clear();
    EXPECT_EQ(nullptr, CKObj::CreateFromXmlText(strBad.c_str(), (unsigned)strBad.size()));
    bool bSeen = false;
    for (const std::string& s : log.Texts(e.type)) bSeen = bSeen || s.find(e.line) == 0;
    EXPECT_TRUE(bSeen) << e.line << ": " << log.Last();
  }
}

TEST_F(ObjTest, XmlSaveReplacesWholeFilesOnly) {
  CKTestTempDir tmp;
  const std::string strFile = tmp.Path("keep.xml");
  CItem o;
  o.Rename("first");
  ASSERT_TRUE(o.ToXml(strFile.c_str()));
  o.Rename("second");
  ASSERT_TRUE(o.ToXml(strFile.c_str()));
  CKString strXml;
  o.ToXmlString(strXml);
  EXPECT_EQ(S(strXml), ReadAll(strFile));
  int nFiles = 0;
  for (const auto& e : std::filesystem::directory_iterator(tmp.Dir())) {
    (void)e;
    nFiles++;
  }
  EXPECT_EQ(1, nFiles);  // no temporary file left
  log.Clear();
  EXPECT_FALSE(o.ToXml(tmp.Path("no/such/dir/x.xml").c_str()));
  EXPECT_NE(std::string::npos, log.Last().find("ERROR => CKObj.ToXml(): Unable to write file "));
}

}  // namespace
