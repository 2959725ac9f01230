// Builds that count coverage.
#pragma once

namespace test_support {

// Whether this is one: then each process has to end by itself, which is when it writes its
// counters.
bool countsCoverage();

}  // namespace test_support
