// KvDebugHelp.h - everything a host of KvDebugHelp.dll includes.
#pragma once

#include "KvFrame.h"
#include "KvLogging.h"
#include "KvConfig.h"
#include "KvMemory.h"
#include "KvCallStack.h"
#include "KvCrash.h"
#include "KvCrashHandler.h"
#include "KvHangWatch.h"
#include "KvSelfCheck.h"
#include "KvUtil.h"
#include "KvCrashMail.h"
