// The platform layer: every operating-system service the library uses sits
// behind the area headers included here, each with its POSIX implementation
// beside it (KPlatform<Area>Posix.cpp); a Windows build supplies the Win32
// ones. No other source file includes an OS header.
#ifndef KELVOR_KPLATFORM_H
#define KELVOR_KPLATFORM_H

#include "platform/KPlatformEnv.h"
#include "platform/KPlatformFile.h"
#include "platform/KPlatformMemory.h"
#include "platform/KPlatformRandom.h"
#include "platform/KPlatformSocket.h"
#include "platform/KPlatformThread.h"
#include "platform/KPlatformTime.h"

#endif  // KELVOR_KPLATFORM_H
