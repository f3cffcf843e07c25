// kelvor demo: the typical persistence round trip, narrated, in a temporary
// directory that is removed afterwards.
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <random>

#include <CLI/CLI.hpp>

#include "Tool.h"

namespace fs = std::filesystem;

namespace ktool {
namespace {

void Step(const std::string& s) { std::cout << s << "\n"; }

void Check(bool b, const std::string& strWhat) {
  if (!b) Fail("demo", strWhat);
}

// Objects of the demo: plain CKObj nodes of two types, and links.
enum { kTypeFolder = 1, kTypeItem = 2 };

class CDemoObj : public CKObj {
public:
  explicit CDemoObj(int nType) { SetType(nType); }
};

CKObj* DemoNew(int nType) {
  if (nType == KOBJ_TYPE_LINK) return new CObjLink((CKObj*)nullptr);
  if (nType == kTypeFolder || nType == kTypeItem) return new CDemoObj(nType);
  return nullptr;
}

void FillBlob(CKBlob& b) {
  CKList list;
  list.Add("alpha");
  list.Add("beta");
  CKListTyped<int> ints;
  ints.Add(-1);
  ints.Add(42);
  CKListUINT64 big;
  big.Add(18446744073709551615ull);
  CKListDateTime dates;
  CKDateTime d;
  d.SetDateTime(2006, 3, 15, 10, 20, 30);
  dates.Add(d);
  CKListList ll;
  ll.Add(new CKList(list));
  CKLangList lang;
  CKList fr;
  fr.Add("bonjour");
  lang.Add('F', fr, TRUE);
  b.SetElement("text", "Gr\xFC\xDF" "e aus Kelvor");  // ISO-8859-1
  b.SetElement("int", -7);
  b.SetElement("uint64", (unsigned __int64)1 << 40);
  b.SetElement("double", 3.25);
  b.SetElement("float", 0.5f);
  b.SetElement("date", d);
  b.SetElement("list", list, FALSE);
  b.SetElement("listint", ints, FALSE);
  b.SetElement("listuint64", big, FALSE);
  b.SetElement("listdatetime", dates, FALSE);
  b.SetElement("listlist", ll, FALSE);
  b.SetElement("langlist", lang, FALSE);
  CKFile raw(nullptr, KFILE_READ | KFILE_WRITE | KFILE_MEMORY);
  raw.SetSize(4);
  for (int i = 0; i < 4; ++i) raw.MemData()[i] = (unsigned char)(0xFE + i);
  b.SetElementRaw("raw", raw, FALSE);
}

std::string Digest(const std::string& strFile, bool bSha1) {
  CKString s;
  if (!bSha1) return KMd5Get(strFile.c_str()).GetString();
  return KSha1DoFile(strFile.c_str(), s) ? s.GetString() : "?";
}

void RunDemo(const std::string& strKeep) {
  std::error_code ec;
  std::random_device rd;
  const fs::path dir =
      strKeep.empty() ? fs::temp_directory_path(ec) / ("kelvor-demo-" + std::to_string(rd())) : fs::path(strKeep);
  if (ec || (!fs::create_directory(dir, ec) && (strKeep.empty() || !fs::is_directory(dir, ec))))
    Fail(dir.string(), "cannot make the demo directory");
  struct Cleanup {
    fs::path p;
    ~Cleanup() {
      std::error_code e;
      if (!p.empty()) fs::remove_all(p, e);
    }
  } cleanup{strKeep.empty() ? dir : fs::path()};
  Step("Working in " + dir.string());
  std::vector<std::string> files;

  Step("\n1. A blob with every persisted element kind, in its three forms");
  const struct {
    const char* szName;
    int bZip, bText;
  } forms[] = {{"blob.bin", 0, 0}, {"blob.zip", 1, 0}, {"blob.txt", 0, 1}};
  for (const auto& f : forms) {
    const std::string strPath = (dir / f.szName).string();
    CKBlobFile blob(strPath.c_str());
    blob.SetZipped(f.bZip);
    blob.SetTextMode(f.bText);
    FillBlob(blob);
    // The binary form counts a date as 8 bytes and writes 7: the library
    // refuses such a file unless zipped, so the binary file leaves the date out.
    if (!f.bZip && !f.bText) blob.BlobElementDelete("date");
    const int n = blob.BlobElementCount();
    Check(blob.Save() != 0, std::string("saving ") + f.szName);
    TakeLibraryMessage();
    CKBlobFile back(strPath.c_str());
    back.SetZipped(f.bZip);
    back.SetTextMode(f.bText);
    Check(back.Load() != 0, std::string("loading ") + f.szName);
    CKString strText;
    int nInt = 0;
    back.GetElement("text", strText);
    back.GetElement("int", nInt);
    Check(back.BlobElementCount() == blob.BlobElementCount() && nInt == -7, std::string("reading ") + f.szName);
    std::cout << "   " << f.szName << ": " << fs::file_size(strPath, ec) << " bytes, " << n << " elements written, "
              << back.BlobElementCount() << " read back; text = \"" << Latin1ToUtf8(strText, strText.GetLength())
              << "\", int = " << nInt << "\n";
    if (!f.bZip && !f.bText)
      std::cout << "   (the date was left out of blob.bin: the unzipped binary form counts a date as 8 bytes\n"
                   "    but writes 7, and the library refuses a file whose size does not add up)\n";
    files.push_back(strPath);
  }
  Step("   (kelvor blob show FILE prints any of them; --json gives JSON that kelvor blob make reads)");

  Step("\n2. An object tree with properties and a link, saved as XML and reloaded");
  KObjNewFunc oldNew = ObjNew;
  ObjNew = DemoNew;
  const std::string strXml = (dir / "tree.xml").string();
  std::string strRootKey;
  {
    CDemoObj* root = new CDemoObj(kTypeFolder);
    root->Rename("library");
    CDemoObj* a = new CDemoObj(kTypeItem);
    a->Rename("report 2006");
    a->PropAdd("author", "Durand");
    a->PropAdd("pages", "12");
    CDemoObj* b = new CDemoObj(kTypeFolder);
    b->Rename("shortcuts");
    root->Add(a);
    root->Add(b);
    b->Add(new CObjLink(a));
    strRootKey = root->Key().GetString();
    const bool bOk = root->ToXml(strXml.c_str()) != 0;
    std::cout << "   saved " << root->CountRec() << " objects to tree.xml (" << fs::file_size(strXml, ec)
              << " bytes)\n";
    delete root;
    Check(bOk, "saving tree.xml");
  }
  CKObj* loaded = CKObj::CreateFromXml(strXml.c_str());
  ObjNew = oldNew;
  Check(loaded != nullptr, "loading tree.xml");
  loaded->ResolveLinks(TRUE);
  CKObj* item = loaded->Get(0);
  CObjLink* link = loaded->Get(1) && loaded->Get(1)->Get(0) ? loaded->Get(1)->Get(0)->ObjLink() : nullptr;
  const bool bResolved = link && link->GetLinked() == item;
  std::cout << "   reloaded \"" << loaded->Name().GetString() << "\" with the same key: "
            << (strRootKey == loaded->Key().GetString() ? "yes" : "no") << "\n"
            << "   property author of \"" << item->Name().GetString() << "\" = "
            << item->PropValue("author").GetString() << "\n"
            << "   the link resolves to \"" << (link ? link->Name().GetString() : "?") << "\": "
            << (bResolved ? "yes" : "no") << "\n";
  delete loaded;
  Check(bResolved, "resolving the link");
  files.push_back(strXml);
  Step("   (kelvor xml show " + strXml + " prints the tree)");

  Step("\n3. Digests of the files written (MD5, SHA-1)");
  for (const std::string& f : files)
    std::cout << "   " << fs::path(f).filename().string() << "  md5 " << Digest(f, false) << "  sha1 (base32) "
              << Digest(f, true) << "\n";

  Step(strKeep.empty() ? "\n4. Removing " + dir.string() : "\n4. Keeping the files in " + dir.string());
}

}  // namespace

void AddDemoCommand(CLI::App& app) {
  CLI::App* c = app.add_subcommand("demo", "Run and narrate the persistence round trip in a temporary directory");
  static std::string s_strKeep;
  c->add_option("--keep", s_strKeep, "Write the files into this directory and keep them");
  c->callback([] { RunDemo(s_strKeep); });
}

}  // namespace ktool
