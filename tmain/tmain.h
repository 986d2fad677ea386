#pragma once
/// Umbrella header: every public header of the library.
#include <tmain/Export.h>
#include <tmain/platform/Platform.h>
#include <tmain/foundation/IRefCount.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/foundation/LessStr.h>
#include <tmain/foundation/Type.h>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/foundation/Event.h>
#include <tmain/foundation/Timer.h>
#include <tmain/foundation/Thread.h>
#include <tmain/foundation/GenericThread.h>
#include <tmain/foundation/Singleton.h>
#include <tmain/foundation/Callback.h>
#include <tmain/foundation/Future.h>
#include <tmain/foundation/Logger.h>
