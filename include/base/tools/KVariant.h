// The typed variant: a one-byte tag and a 64-bit slot holding either the
// number itself or a pointer to an owned object (string, date, file image or
// one of the list containers). Getters never convert: a getter answers only
// when the tag is exactly its own.
#ifndef KELVOR_KVARIANT_H
#define KELVOR_KVARIANT_H

#include <base/classes/list/KList.h>
#include <base/classes/list/KPile.h>
#include <base/classes/list/KPtrListOwned.h>
#include <base/tools/KDateTime.h>
#include <base/tools/KDefs.h>
#include <base/tools/KGuid.h>
#include <base/tools/KString.h>
#include <lang/KLangList.h>

class CKFile;
class CKByteStream;
struct KStringPool;

// Type tags.
enum {
  KVT_EMPTY = 0,
  KVT_FILE = 1,
  KVT_STRING = 2,
  KVT_LIST = 3,
  KVT_INT = 4,
  KVT_LISTINT = 6,
  KVT_LISTGUID = 8,
  KVT_LISTVARIANT = 12,
  KVT_DOUBLE = 13,
  KVT_FLOAT = 14,
  KVT_DATETIME = 15,
  KVT_LISTDATETIME = 16,
  KVT_UINT64 = 18,
  KVT_LISTUINT64 = 19,
  KVT_LISTLIST = 20,
  KVT_LANGLIST = 21,
  KVT_VARIANT = 22,
  KVT_INT64 = 23,
  KVT_LISTINT64 = 24,
  KVT_UINT32 = 25,
  KVT_FASTLIST = 26,
  KVT_LAST = 26
};

class KELVOR_API CKVariant {
public:
  class CKListVariant;

  CKVariant() : m_nValue(0), m_nType(0) {}
  CKVariant(int n);
  CKVariant(unsigned int n);
  CKVariant(__int64 n);
  CKVariant(unsigned __int64 n);
  CKVariant(float f);
  CKVariant(double d);
  CKVariant(const char* sz);
  CKVariant(const CKString& s);
  CKVariant(const CKDateTime& d);
  CKVariant(const CKFile& x);
  CKVariant(const CKList& x);
  CKVariant(const CKFastList& x);
  CKVariant(const CKListList& x);
  CKVariant(const CKLangList& x);
  CKVariant(const CKListTyped<int>& x);
  CKVariant(const CKListUINT64& x);
  CKVariant(const CKPileT<__int64>& x);
  CKVariant(const CKListDateTime& x);
  CKVariant(const CKListGuid& x);
  CKVariant(const CKListVariant& x);
  virtual ~CKVariant();

  char Type() const { return m_nType; }

  // ---------------------------------------------------------------- scalars
  CKVariant& operator=(int n);
  CKVariant& operator=(unsigned int n);
  CKVariant& operator=(__int64 n);
  CKVariant& operator=(unsigned __int64 n);
  CKVariant& operator=(float f);
  CKVariant& operator=(double d);
  void Set(int n);
  void Set(unsigned int n);
  void Set(__int64 n);
  void Set(unsigned __int64 n);
  void Set(float f);
  void Set(double d);

  // ---------------------------------------------------------------- text, date
  CKVariant& operator=(const CKString& s);
  CKVariant& operator=(const char* sz);
  void Set(const CKString& s);
  void Set(const char* sz);
  void Set(CKString* p);  // takes ownership
  CKVariant& operator=(const CKDateTime& d);
  void Set(const CKDateTime& d);
  void Set(CKDateTime* p);  // takes ownership

  // ---------------------------------------------------------------- containers
  // Set(x, bDetach): an owned copy of x, or x's contents moved with x's own
  // Detach. Set(p): takes ownership of p. operator=: stores a boxed copy
  // (tag 22), unlike Set.
  void Set(CKFile& x, int bDetach);
  void Set(CKList& x, int bDetach);
  void Set(CKFastList& x, int bDetach);
  void Set(CKListList& x, int bDetach);
  void Set(CKLangList& x, int bDetach);
  void Set(CKListTyped<int>& x, int bDetach);
  void Set(CKListUINT64& x, int bDetach);
  void Set(CKPileT<__int64>& x, int bDetach);
  void Set(CKListDateTime& x, int bDetach);
  void Set(CKListGuid& x, int bDetach);
  void Set(CKListVariant& x, int bDetach);
  void Set(CKFile* p);
  void Set(CKList* p);
  void Set(CKFastList* p);
  void Set(CKListList* p);
  void Set(CKLangList* p);
  void Set(CKListTyped<int>* p);
  void Set(CKListUINT64* p);
  void Set(CKPileT<__int64>* p);
  void Set(CKListDateTime* p);
  void Set(CKListGuid* p);
  void Set(CKListVariant* p);
  CKVariant& operator=(const CKFile& x);
  CKVariant& operator=(const CKList& x);
  CKVariant& operator=(const CKFastList& x);
  CKVariant& operator=(const CKListList& x);
  CKVariant& operator=(const CKLangList& x);
  CKVariant& operator=(const CKListTyped<int>& x);
  CKVariant& operator=(const CKListUINT64& x);
  CKVariant& operator=(const CKPileT<__int64>& x);
  CKVariant& operator=(const CKListDateTime& x);
  CKVariant& operator=(const CKListGuid& x);
  CKVariant& operator=(const CKListVariant& x);

  // ---------------------------------------------------------------- getters
  // The owned object when the tag matches, else null. With bDetach non-zero
  // the caller takes the object over and the variant becomes empty.
  CKFile* GetFile() const;
  CKList* GetList() const;
  CKFastList* GetFastList() const;
  CKListList* GetListList() const;
  CKLangList* GetLangList() const;
  CKListTyped<int>* GetListInt() const;
  CKListUINT64* GetListUINT64() const;
  CKPileT<__int64>* GetListINT64() const;
  CKListDateTime* GetListDateTime() const;
  CKListGuid* GetListGuid() const;
  CKListVariant* GetListVariant() const;
  CKString* GetString() const;
  CKDateTime* GetDateTime() const;
  CKVariant* GetVariant() const;
  CKFile* GetFile(int bDetach);
  CKList* GetList(int bDetach);
  CKFastList* GetFastList(int bDetach);
  CKListList* GetListList(int bDetach);
  CKLangList* GetLangList(int bDetach);
  CKListTyped<int>* GetListInt(int bDetach);
  CKListUINT64* GetListUINT64(int bDetach);
  CKPileT<__int64>* GetListINT64(int bDetach);
  CKListDateTime* GetListDateTime(int bDetach);
  CKListGuid* GetListGuid(int bDetach);
  CKListVariant* GetListVariant(int bDetach);
  CKString* GetString(int bDetach);
  CKDateTime* GetDateTime(int bDetach);
  CKVariant* GetVariant(int bDetach);

  // out receives a copy of the held container (or its contents, moved with
  // the container's Detach when bDetach is non-zero). 0 on a tag mismatch or
  // a null value.
  int Get(CKFile& out, int bDetach) const;
  int Get(CKList& out, int bDetach) const;
  int Get(CKFastList& out, int bDetach) const;
  int Get(CKListList& out, int bDetach) const;
  int Get(CKLangList& out, int bDetach) const;
  int Get(CKListTyped<int>& out, int bDetach) const;
  int Get(CKListUINT64& out, int bDetach) const;
  int Get(CKPileT<__int64>& out, int bDetach) const;
  int Get(CKListDateTime& out, int bDetach) const;
  int Get(CKListGuid& out, int bDetach) const;
  int Get(CKListVariant& out, int bDetach) const;

  int Get(int& n) const;
  int Get(unsigned int& n) const;
  int Get(__int64& n) const;
  int Get(unsigned __int64& n) const;
  int Get(float& f) const;
  int Get(double& d) const;
  int Get(CKString& s) const;
  int Get(CKDateTime& d) const;
  // A deep copy of the boxed variant (tag 22).
  int Get(CKVariant& out);
  int GetInt32() const;
  unsigned int GetUInt32() const;
  __int64 GetInt64() const;
  unsigned __int64 GetUInt64() const;
  float GetFloat() const;
  double GetDouble() const;
  CKString GetText() const;
  CKString GetText(int bDetach);

  // ---------------------------------------------------------------- copies
  // A deep copy of v's value under v's own tag (VariantCopy); Set and
  // VariantAssign box the copy instead (tag 22).
  CKVariant& operator=(const CKVariant& v);
  // Boxes a deep copy of v (tag 22).
  void Set(const CKVariant& v);
  void VariantAssign(const CKVariant& v);
  void VariantCopy(const CKVariant& v);
  // target releases its value and takes this one's value and tag; this one is left empty.
  void Detach(CKVariant& target);
  // Releases the owned value; the variant is empty (tag 0).
  void VariantDelete();

  // ---------------------------------------------------------------- persistence
  // One record (docs/formats.md): the tag, the name when szName is not null,
  // then the value. Decoding reads the name into *pName when pName is not null;
  // a failure leaves the variant empty.
  int VariantEncode(CKByteStream& bs, const char* szName) const;
  int VariantDecode(CKByteStream& bs, CKString* pName);
  // Bytes of the value's data alone (texts with their terminators, 4 or 8 per
  // number, 7 per date); 0 for a file image.
  unsigned int VariantSize() const;

protected:
  // Boxes a deep copy of v.
  CKVariant(const CKVariant& v);
  void VariantInternalCopy(const CKVariant& v);
  void* Ptr() const { return (void*)(intptr_t)m_nValue; }
  void SetPtr(void* p) { m_nValue = (__int64)(intptr_t)p; }
  // Replaces value and tag without releasing anything.
  void Store(void* p, char nType) {
    SetPtr(p);
    m_nType = nType;
  }
  // With pPool, the name and the texts are carved from it (file-backed
  // streams only, where each length can be checked against what remains).
  int DecodeAt(CKByteStream& bs, CKString* pName, int nDepth, KStringPool* pPool = nullptr);
  int EncodeAt(CKByteStream& bs, const char* szName, int nDepth) const;

  __int64 m_nValue;
  char m_nType;
  // The value object (a text or a list, decoded at the top of a binary blob)
  // lives in a decoder's pool: it is destroyed in place and becomes a heap
  // object before it is handed to anyone.
  char m_bPooled = 0;

private:
  void Unpool();
  void SetScalar(const void* p, unsigned nSize, char nType);
  int GetScalar(void* p, unsigned nSize, char nType) const;
  void Box(const CKVariant& v);
  void* Take(char nType, int bDetach);
};

// A list that owns CKVariant objects; copies are deep.
class KELVOR_API CKVariant::CKListVariant : public CKPtrListOwnedC<CKVariant> {
public:
  CKListVariant();
  CKListVariant(const CKListVariant& l);
  CKListVariant& operator=(const CKListVariant& l);
  ~CKListVariant() override;
};

#endif  // KELVOR_KVARIANT_H
