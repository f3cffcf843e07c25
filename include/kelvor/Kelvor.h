// Kelvor umbrella header: every public header of the library.
#ifndef KELVOR_KELVOR_H
#define KELVOR_KELVOR_H

#include <base/tools/KDefs.h>
#include <base/tools/KException.h>
#include <base/tools/KString.h>
#include <base/tools/KDebug.h>
#include <base/tools/KTools.h>
#include <base/tools/KMessage.h>
#include <base/tools/KStr.h>
#include <base/tools/KMem.h>

#include <base/classes/list/KPile.h>
#include <base/classes/list/KPtrList.h>
#include <base/classes/list/KPtrListOwned.h>
#include <base/classes/list/KList.h>
#include <base/classes/hash/KHashList.h>
#include <base/classes/hash/KHashStringToPtr.h>
#include <base/classes/hash/KHashStringToString.h>
#include <base/tools/KListParamValue.h>
#include <lang/KLangList.h>

#include <base/tools/KGuid.h>
#include <base/tools/KSync.h>
#include <base/tools/KDateTime.h>
#include <base/tools/KLogFile.h>
#include <base/tools/KThread.h>
#include <base/tools/KFile.h>
#include <base/tools/KGZFile.h>
#include <base/tools/KByteStream.h>
#include <base/tools/KVariant.h>
#include <base/tools/KBlob.h>
#include <misc/KObj.h>

#include <base/tools/KXmlParser.h>
#include <base/tools/KXml.h>
#include <base/tools/KMd5.h>
#include <base/tools/KSha1.h>
#include <base/tools/KMath.h>
#include <base/tools/KSocket.h>
#include <base/tools/KHttpRequest.h>

#endif  // KELVOR_KELVOR_H
