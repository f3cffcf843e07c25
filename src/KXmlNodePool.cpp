// Where a tree node's memory comes from and goes back to. Kept apart from
// the code that makes nodes so that no compiler pairs an inlined allocation
// with the matching release and mistakes the header arithmetic for a
// mismatch.
#include "KXmlNodePool.h"

void* CKXmlTreeNode::operator new(size_t n) {
  KXmlNodeHeader* h = (KXmlNodeHeader*)malloc(sizeof(KXmlNodeHeader) + n);
  if (!h) throw std::bad_alloc();
  h->pPool = nullptr;
  return h + 1;
}

void* CKXmlTreeNode::operator new(size_t n, CKXmlNodePool* pPool) {
  // A derived class is bigger than a slot: the heap then.
  if (!pPool || sizeof(KXmlNodeHeader) + n > CKXmlNodePool::kSlot) return operator new(n);
  KXmlNodeHeader* h = pPool->Get();
  h->pPool = pPool;
  return h + 1;
}

void CKXmlTreeNode::operator delete(void* p) {
  if (!p) return;
  KXmlNodeHeader* h = (KXmlNodeHeader*)p - 1;
  if (h->pPool)
    h->pPool->Put(h);
  else
    free(h);
}

void CKXmlTreeNode::operator delete(void* p, CKXmlNodePool*) { operator delete(p); }
