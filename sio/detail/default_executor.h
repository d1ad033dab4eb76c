#pragma once
// The process-wide executor set with sio::setDefaultExecutor, read by the managers.

#include "sio/value.h"

namespace sio::detail {

// The executor last set; empty when none was.
Executor defaultExecutor();

}  // namespace sio::detail
