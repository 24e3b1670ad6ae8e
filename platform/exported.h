// The platform interface as its own sources see it: the names it declares are exported, all others
// stay hidden.
#ifndef PLATFORM_EXPORTED_H
#define PLATFORM_EXPORTED_H

#include <cstddef>
#include <cstdint>
#include <sys/select.h>
#include <sys/time.h>

#pragma GCC visibility push(default)
#include "platform/qelplatform.h"
#pragma GCC visibility pop

#endif
