// The blob: a set of named variants kept sorted by name, encoded as one unit
// (binary, zlib-compressed binary or text), and its two storage classes.
#ifndef KELVOR_KBLOB_H
#define KELVOR_KBLOB_H

#include <base/classes/list/KPtrListOwned.h>
#include <base/tools/KMem.h>
#include <base/tools/KVariant.h>

// One element: a variant with a name.
class KELVOR_API CKBlobElement : public CKVariant {
public:
  CKBlobElement();
  ~CKBlobElement() override;

  int IsEmpty() const { return m_nType == 0; }
  int IsRaw() const { return m_nType == 1; }
  int IsText() const { return m_nType == 2; }
  int IsList() const { return m_nType == 3; }
  int IsInt() const { return m_nType == 4; }
  int IsDword() const { return m_nType == 5; }
  int IsListInt() const { return m_nType == 6; }
  int IsGuid() const { return m_nType == 7; }
  int IsListGuid() const { return m_nType == 8; }
  int IsTextUni() const { return m_nType == 9; }
  int IsListUni() const { return m_nType == 10; }
  int IsDouble() const { return m_nType == 13; }
  int IsFloat() const { return m_nType == 14; }
  int IsDateTime() const { return m_nType == 15; }
  int IsListDateTime() const { return m_nType == 16; }
  int IsUINT64() const { return m_nType == 18; }
  int IsListUINT64() const { return m_nType == 19; }
  int IsListList() const { return m_nType == 20; }
  int IsLangList() const { return m_nType == 21; }

  // Name and deep copy of the value.
  int Copy(CKBlobElement& src);
  __int64 GetRawSize() const;
  // The size the binary encoder is expected to write (see docs/formats.md
  // for the kinds it miscounts on purpose).
  __int64 GetEncodedSize() const;
  static __int64 StringEncodedSize(const CKString& s, int bWide);
  // One element as one zero-terminated line of 0xFF-separated fields.
  int EncodeElementText(CKByteStream& bs);
  int DecodeElementText(CKByteStream& bs, int bWithName);
  // One binary record, name included; texts are carved from pPool when it
  // is not null (see src/KStringPool.h).
  int DecodeRecord(CKByteStream& bs, KStringPool* pPool) { return DecodeAt(bs, &m_strName, 0, pPool); }

  CKString m_strName;
};

typedef CKPtrListOwned<CKBlobElement> CKBlobElementList;
// The elements in list order, their name index and the pool decoded
// elements are carved from (src/KBlob.cpp).
struct KBlobElements;

class KELVOR_API CKBlob {
public:
  CKBlob();
  virtual ~CKBlob();

  // 0 nothing held, 1 encoded bytes waiting, 2 decoded, -1 last decode failed.
  virtual int GetStatus() const;
  virtual int IsDecoded() const;
  virtual int IsMemory() const;
  virtual int IsBlobFile() const;
  virtual int IsBlobMemory() const;
  virtual int IsText() const;
  virtual int IsZip() const;
  // Storage hooks: decode the held bytes now; whether bytes are waiting;
  // forget them.
  virtual int BlobDecodePending() = 0;
  virtual int BlobHasPending() const = 0;
  virtual void BlobDropPending() = 0;
  // Calls fn for each element until it returns 0; the count of calls.
  virtual int ToDecoded(long nParam, int (*fn)(CKBlob*, CKBlobElement*, long));
  // Called after each typed set; its result is the setter's.
  virtual int OnBlobElementSetValue(CKBlobElement* pElement);

  void SetTextMode(int bText) { m_bText = bText; }
  void SetZipped(int bZip) { m_bZip = bZip; }
  void DeleteDecodedContent();

  // ---------------------------------------------------------------- elements
  // Elements are kept sorted by name; names compare without case. The index
  // of the element called szName, or -1.
  int BlobElementIndex(const char* szName);
  int BlobElementExist(const char* szName) { return BlobElementIndex(szName) != -1; }
  CKBlobElement* BlobElementGet(int nIndex);
  CKBlobElement* BlobElementGet(const char* szName);
  // The element called szName, added (empty) when missing; null on failure.
  CKBlobElement* BlobElementAdd(const char* szName);
  int BlobElementCount();
  const char* BlobElementName(int nIndex);
  int BlobElementType(int nIndex);
  int BlobElementType(const char* szName);
  void BlobElementSetName(int nIndex, const char* szNewName);
  void BlobElementSetName(const char* szName, const char* szNewName);
  void BlobElementDelete(int nIndex);
  void BlobElementDelete(const char* szName);
  void BlobElementDeleteAll();

  // Each setter finds or adds the element, stores the value as the variant's
  // Set for that kind does (lists: copied when bDetach is 0, moved out of l
  // otherwise) and returns OnBlobElementSetValue's answer; 0 on failure.
  int SetElement(const char* szName, const char* szText);
  int SetElement(const char* szName, const CKString& s);
  int SetElement(const char* szName, int n);
  int SetElement(const char* szName, unsigned int n);
  int SetElement(const char* szName, __int64 n);
  int SetElement(const char* szName, unsigned __int64 n);
  int SetElement(const char* szName, float f);
  int SetElement(const char* szName, double d);
  int SetElement(const char* szName, const CKDateTime& d);
  // A GUID is kept as its text form (the binary encoder has no GUID kind).
  int SetElement(const char* szName, const CKGuid& g);
  int SetElement(const char* szName, const CKVariant& v);
  int SetElement(const char* szName, CKList& l, int bDetach);
  int SetElement(const char* szName, CKListList& l, int bDetach);
  int SetElement(const char* szName, CKListUINT64& l, int bDetach);
  int SetElement(const char* szName, CKLangList& l, int bDetach);
  int SetElement(const char* szName, CKListTyped<int>& l, int bDetach);
  int SetElement(const char* szName, CKListDateTime& l, int bDetach);
  int SetElementRaw(const char* szName, CKFile& file, int bDetach);
  // The raw element's file image (kind 1); null when the element is missing
  // and bCreate is 0. With bDetach the caller takes ownership.
  CKFile* GetElementRaw(const char* szName, int bDetach, int bCreate);

  // Each getter reads the element through the variant's typed Get, with no
  // widening between kinds: 0 when the element is missing or of another
  // kind, 1 otherwise. bDetach moves a list out instead of copying it.
  int GetElement(const char* szName, CKString& s);
  int GetElement(const char* szName, int& n);
  int GetElement(const char* szName, unsigned int& n);
  int GetElement(const char* szName, __int64& n);
  int GetElement(const char* szName, unsigned __int64& n);
  int GetElement(const char* szName, float& f);
  int GetElement(const char* szName, double& d);
  int GetElement(const char* szName, CKDateTime& d);
  int GetElement(const char* szName, CKList& l, int bDetach);
  int GetElement(const char* szName, CKListList& l, int bDetach);
  int GetElement(const char* szName, CKListUINT64& l, int bDetach);
  int GetElement(const char* szName, CKLangList& l, int bDetach);
  int GetElement(const char* szName, CKListTyped<int>& l, int bDetach);
  int GetElement(const char* szName, CKListDateTime& l, int bDetach);
  // The element's list itself (null when missing and bCreate is 0, or of
  // another kind); with bDetach the caller owns it and the element is left
  // empty.
  CKList* GetElementList(const char* szName, int bDetach, int bCreate);
  CKListList* GetElementListList(const char* szName, int bDetach, int bCreate);
  CKListUINT64* GetElementListUINT64(const char* szName, int bDetach, int bCreate);
  CKLangList* GetElementLangList(const char* szName, int bDetach, int bCreate);
  CKListTyped<int>* GetElementListInt(const char* szName, int bDetach, int bCreate);
  CKListDateTime* GetElementListDateTime(const char* szName, int bDetach, int bCreate);

  __int64 EncodedSize() const;

protected:
  void BlobDecodedDelete();
  // The whole blob in the form its flags choose (binary, zipped or text;
  // see docs/formats.md). Encode checks the bytes written against the
  // expected size; Decode replaces every element and fails (0, blob empty)
  // on any malformed input.
  int Encode(CKByteStream& bs);
  int Encode(CKFile& file);
  int Decode(CKByteStream& bs);
  int Decode(CKFile& file);
  // Runs the storage's pending decode; 0 when the elements are unavailable.
  int EnsureDecoded();
  // Decodes the waiting image and frees it (pImage is left null).
  int DecodeImage(CKFile*& pImage);

  KBlobElements* m_pElements;  // null until an element is added or a decode succeeds
  int m_bZip;
  int m_bText;
  int m_nStatus;

private:
  CKBlob(const CKBlob&) = delete;
  CKBlob& operator=(const CKBlob&) = delete;
  int BlobVersion(CKByteStream& bs);
  int _AddElement(const char* szName);
  int EncodeSized(CKByteStream& bs, __int64& fullsize);
  int EncodeText(CKByteStream& bs);
  int DecodeText(CKByteStream& bs);
  // The element of an existing or new name, null when it cannot be made.
  CKBlobElement* ElementFor(const char* szName);
  CKBlobElement* Found(const char* szName);
  int Changed(CKBlobElement* p) { return OnBlobElementSetValue(p); }
  // The element made or found for a name; null for a null or empty name.
  CKBlobElement* AddElement(const char* szName);
};

// Encoded bytes held in memory, decoded on the first element access.
class KELVOR_API CKBlobMemory : public CKBlob {
public:
  CKBlobMemory();
  ~CKBlobMemory() override;
  int FromMem(const CKMem& mem);
  int ToMem(CKMem& mem);

  int IsMemory() const override { return 1; }
  int IsBlobMemory() const override { return 1; }
  int BlobDecodePending() override;
  int BlobHasPending() const override;
  void BlobDropPending() override;

private:
  CKFile* m_pImage;  // the encoded bytes waiting for their decode
};

// A blob stored in a file: Load reads the bytes (decoded on first access),
// Save writes a temporary file beside the target and renames it over it.
class KELVOR_API CKBlobFile : public CKBlob {
public:
  explicit CKBlobFile(const char* szFile);
  ~CKBlobFile() override;
  int Load();
  int Save();
  const CKString& FileName() const { return m_strFile; }

  int IsBlobFile() const override { return 1; }
  int BlobDecodePending() override;
  int BlobHasPending() const override;
  void BlobDropPending() override;

private:
  CKString m_strFile;
  CKFile* m_pImage;
};

#endif  // KELVOR_KBLOB_H
