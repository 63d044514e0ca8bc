// The tests' name for the engine's forwarding database (see platform/db/forwarding_database.h).
#pragma once

#include "platform/db/forwarding_database.h"

namespace quorbex::test {
using db::internal::ForwardingDatabase;
}  // namespace quorbex::test
