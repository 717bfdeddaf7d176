#pragma once

// namespace utils, whole: text keys, calendar, log switch, market rules, singletons.

#include "platform/utils/Calendar.h"
#include "platform/utils/Hash.h"
#include "platform/utils/LogCenter.h"
#include "platform/utils/MarketRules.h"
#include "platform/utils/Singleton.h"
