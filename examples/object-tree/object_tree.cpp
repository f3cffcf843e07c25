// An object tree: application classes derived from CKObj, created by type
// number through the ObjNew hook, with properties and a link, saved to XML,
// loaded back and compared.
#include <kelvor/Kelvor.h>

#include <cstdio>
#include <string>

namespace {

enum { TYPE_PROJECT = 1, TYPE_TASK = 2 };

class CProject : public CKObj {
public:
  CProject() { SetType(TYPE_PROJECT); }
  CKString TypeStr() override { return "project"; }
};

class CTask : public CKObj {
public:
  CTask() { SetType(TYPE_TASK); }
  CKString TypeStr() override { return "task"; }
  // Derived state kept in properties, so that XML persistence carries it.
  int Priority() const { return Prop("priority") ? Prop("priority")->GetValueInt() : 0; }
};

// The loader asks the application for an object of each type it reads; a
// link node (type KOBJ_TYPE_LINK) is made here too.
CKObj* NewByType(int nType) {
  switch (nType) {
    case TYPE_PROJECT: return new CProject;
    case TYPE_TASK: return new CTask;
    case KOBJ_TYPE_LINK: return new CObjLink((CKObj*)nullptr);
    default: return nullptr;  // unknown types are reported and skipped
  }
}

CKObj* Task(const char* szName, const char* szPriority, const char* szOwner) {
  CTask* p = new CTask;
  p->Rename(szName);
  p->PropAdd("priority", szPriority);
  p->PropAdd("owner", szOwner);
  return p;
}

void Print(CKObj* p, int nDepth) {
  std::printf("  %*s%s \"%s\"", nDepth * 2, "", (const char*)p->TypeStr(), (const char*)p->Name());
  if (CObjLink* pLink = p->ObjLink())
    std::printf(" -> %s", pLink->GetLinked() ? (const char*)pLink->GetLinked()->Key() : "(unresolved)");
  for (int i = 0; i < p->PropCount(); i++)
    std::printf(" %s=%s", (const char*)p->Prop(i)->GetName(), (const char*)p->Prop(i)->GetValueStr());
  std::printf("\n");
  for (int i = 0; i < p->Count(); i++) Print(p->Get(i), nDepth + 1);
}

}  // namespace

int main(int argc, char** argv) {
  ObjNew = NewByType;
  const std::string strFile = std::string(argc > 1 ? argv[1] : ".") + "/project.xml";

  // A project with two tasks, a sub-project and, in it, a link to a task.
  CProject* root = new CProject;
  root->Rename("Release 1.0 <beta> & more");  // reserved XML characters are escaped
  root->SetDescr("the next release");
  CKObj* build = Task("build", "1", "ana");
  root->Add(build);
  root->Add(Task("test", "2", "bo"));
  CProject* docs = new CProject;
  docs->Rename("docs");
  docs->Add(new CObjLink(build));  // a second place for "build"
  root->Add(docs);
  std::printf("Tree built in memory (%d objects live):\n", ObjCount());
  Print(root, 0);

  if (!root->ToXml(strFile.c_str())) {
    std::printf("could not write %s\n", strFile.c_str());
    return 1;
  }
  CKString strXml;
  root->ToXmlString(strXml);
  std::printf("Saved to %s (%u bytes of XML)\n", strFile.c_str(), strXml.GetLength());
  const std::string strRootKey = (const char*)root->Key();
  const std::string strBuildKey = (const char*)build->Key();
  delete root;  // frees the whole tree

  // Loading gives back the same objects, identities (GUID keys) included.
  CKObj* loaded = CKObj::CreateFromXml(strFile.c_str());
  if (!loaded) {
    std::printf("could not load %s\n", strFile.c_str());
    return 1;
  }
  loaded->ResolveLinks(TRUE);  // links find their targets by key
  std::printf("Loaded back:\n");
  Print(loaded, 0);

  CKObj* pBuild = loaded->FindRec("build", FALSE);
  CTask* pTest = dynamic_cast<CTask*>(loaded->Find(TYPE_TASK, "test", FALSE));
  CKObj* pDocs = loaded->Find("docs", FALSE);
  CObjLink* pLink = pDocs && pDocs->Count() == 1 ? pDocs->Get(0)->ObjLink() : nullptr;
  const bool bOk = loaded->Key() == strRootKey.c_str() && loaded->Name() == "Release 1.0 <beta> & more" &&
                   loaded->Descr() == "the next release" && pBuild && pBuild->Key() == strBuildKey.c_str() &&
                   pBuild->PropValue("owner") == "ana" && pTest && pTest->Priority() == 2 && pLink &&
                   pLink->GetLinked() == pBuild && ObjByKey(strBuildKey.c_str()) == pBuild;
  delete loaded;
  std::remove(strFile.c_str());
  ObjNew = nullptr;
  std::printf(bOk ? "the loaded tree matches the saved one\n" : "the loaded tree differs\n");
  return bOk ? 0 : 1;
}
