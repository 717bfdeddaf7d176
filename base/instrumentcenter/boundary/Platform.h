#pragma once

// Everything in base/ reaches the platform's libraries through this room: what they have in common with any host's
// here, what has a faster way here than there in Hash.h, Log.h and Store.h. Built with PM_NAMED_PLATFORM_ONLY, the room
// keeps to the platform's named operations.

#include "platform/net/RPCEngine.h"
#include "platform/record/Records.h"
#include "platform/utils/Calendar.h"
#include "platform/utils/Hash.h"
#include "platform/utils/MarketRules.h"
