// The node store of the XML tree builders (library-internal).
#ifndef KELVOR_KXMLNODEPOOL_H
#define KELVOR_KXMLNODEPOOL_H

#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include <base/tools/KXml.h>

// Every node carries one header in front of it naming its pool (null: the
// heap). The pool hands out node-sized slots from blocks it keeps until it
// dies, and takes freed slots back on a free list: a parsed tree costs no
// heap call per element, and a new parse reuses the slots of the last one.
// 16 bytes, so a node keeps the alignment of the block it lies in.
struct KXmlNodeHeader {
  CKXmlNodePool* pPool;
  char pad[16 - sizeof(CKXmlNodePool*)];
};
static_assert(sizeof(KXmlNodeHeader) == 16, "the header keeps the block's alignment");

class CKXmlNodePool {
public:
  CKXmlNodePool() : m_pFree(nullptr) {}
  CKXmlNodePool(const CKXmlNodePool&) = delete;
  CKXmlNodePool& operator=(const CKXmlNodePool&) = delete;
  ~CKXmlNodePool() {
    for (void* p : m_blocks) free(p);
    free(m_pSpare);
  }
  // A slot of kSlot bytes, header first.
  KXmlNodeHeader* Get() {
    if (!m_pFree) Grow();
    Free* p = m_pFree;
    m_pFree = p->pNext;
    return (KXmlNodeHeader*)p;
  }
  void Put(KXmlNodeHeader* h) {
    Free* p = (Free*)h;
    p->pNext = m_pFree;
    m_pFree = p;
  }
  static const size_t kSlot = (sizeof(KXmlNodeHeader) + sizeof(CKXmlTreeNode) + 15) / 16 * 16;

  // A document element with thousands of children would free and regrow a
  // large array on every parse, and large heap blocks freed or asked for
  // make the C heap merge all its small free blocks first. So the largest
  // children array of the last tree (a heap block, like any pile's) is kept
  // and handed to the first element of the next tree that fills an array of
  // kSpareMin slots. It stays a pile's array: a caller removing children
  // shrinks it as usual.
  static const int kSpareMin = 128;
  // d: an emptied children pile; takes its array when it is the largest.
  void KeepSpare(KPile& d) {
    if (d.elts || !d.ptr || d.size <= m_nSpare) return;
    free(m_pSpare);
    m_pSpare = d.ptr;
    m_nSpare = d.size;
    d.ptr = nullptr;
    d.size = 0;
  }
  // d: a full children pile of at least kSpareMin slots.
  void GiveSpare(KPile& d) {
    if (!m_pSpare || m_nSpare <= d.size) return;
    memcpy(m_pSpare, d.ptr, sizeof(void*) * (size_t)d.elts);
    memset(m_pSpare + d.elts, 0, sizeof(void*) * (size_t)(m_nSpare - d.elts));
    free(d.ptr);
    d.ptr = m_pSpare;
    d.size = m_nSpare;
    // A step as large as the array, or the next add would shrink it back to
    // the pile's step rule.
    d.step = m_nSpare;
    m_pSpare = nullptr;
    m_nSpare = 0;
  }

private:
  struct Free {
    Free* pNext;
  };
  void Grow() {
    // Blocks double up to 4096 slots, so small documents stay small.
    const size_t nSlots = m_blocks.empty() ? 64 : (m_nLast < 4096 ? m_nLast * 2 : 4096);
    m_blocks.reserve(m_blocks.size() + 1);
    char* b = (char*)malloc(nSlots * kSlot);
    if (!b) throw std::bad_alloc();
    m_blocks.push_back(b);
    m_nLast = nSlots;
    for (size_t i = nSlots; i-- > 0;) Put((KXmlNodeHeader*)(b + i * kSlot));
  }
  Free* m_pFree;
  void** m_pSpare = nullptr;
  int m_nSpare = 0;
  size_t m_nLast = 0;
  std::vector<void*> m_blocks;
};

#endif  // KELVOR_KXMLNODEPOOL_H
