// The library's one exception for heap exhaustion.
#ifndef KELVOR_KEXCEPTION_H
#define KELVOR_KEXCEPTION_H

#include <base/tools/KDefs.h>

// Thrown when the C heap refuses a block; names the allocation site.
class KELVOR_API CKMemoryException {
public:
  CKMemoryException(const char* szFile, unsigned nLine);
  CKMemoryException(const CKMemoryException& e) = default;
  CKMemoryException& operator=(const CKMemoryException& e) = default;

  const char* m_szFile;
  unsigned m_nLine;
};

#endif  // KELVOR_KEXCEPTION_H
