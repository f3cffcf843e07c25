// Out-of-line members of the portable stand-ins for framework types.
#include <base/tools/KDefs.h>

CObject::~CObject() {}
