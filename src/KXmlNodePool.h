// The node store of the XML tree builders (library-internal).
#ifndef KELVOR_KXMLNODEPOOL_H
#define KELVOR_KXMLNODEPOOL_H

#include <cstdlib>
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
  size_t m_nLast = 0;
  std::vector<void*> m_blocks;
};

#endif  // KELVOR_KXMLNODEPOOL_H
