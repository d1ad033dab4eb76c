#pragma once
// The process-wide executor set with halvora::sio::setDefaultExecutor, read by the managers.

#include "sio/value.h"

namespace halvora::sio::detail {

// The executor last set; empty when none was.
Executor defaultExecutor();

}  // namespace halvora::sio::detail
