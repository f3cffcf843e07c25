// Object trees from XML text. Property: whatever CreateFromXmlText builds
// renders with ToXmlString, and from the second rendering on, reading and
// rendering again is a fixed point (the first round may drop what the
// parser normalises: layout blanks, CR LF pairs).
#include <cstddef>
#include <cstdint>
#include <string>

#include <misc/KObj.h>

#include "KFuzz.h"

namespace {

CKObj* NewObj(int nType) {
  if (nType == KOBJ_TYPE_LINK) return new CObjLink((CKObj*)nullptr);
  if (nType < 0 || nType > 3) return nullptr;
  CKObj* p = new CKObj;
  p->SetType(nType);
  return p;
}

std::string Render(CKObj* p) {
  CKString s;
  KFUZZ_CHECK(p->ToXmlString(s));
  return KFuzzStr(s);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ObjNew = NewObj;
  CKObj* p1 = CKObj::CreateFromXmlText((const char*)data, (unsigned)size);
  if (!p1) return 0;
  const std::string s1 = Render(p1);
  CKObj* p2 = CKObj::CreateFromXmlText(s1.data(), (unsigned)s1.size());
  KFUZZ_CHECK(p2 != nullptr);
  const std::string s2 = Render(p2);
  CKObj* p3 = CKObj::CreateFromXmlText(s2.data(), (unsigned)s2.size());
  KFUZZ_CHECK(p3 != nullptr);
  KFUZZ_EQ(Render(p3), s2);
  KFUZZ_EQ(p3->Key().GetString(), p1->Key().GetString());
  delete p3;
  delete p2;
  delete p1;
  return 0;
}
