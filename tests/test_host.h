// The reference host every unit test runs against, bound in-process to the
// module objects linked into the test binary.
#pragma once

#include "host/reference_host.h"

namespace testing_support {

/// The shared host (created before the first test, bound for the whole run).
host::ReferenceHost& Host();

/// Clears what earlier tests left in the console log and the dialog record.
void ResetHostRecords();

}  // namespace testing_support
