#pragma once

#include <gmock/gmock.h>

#include <vector>

namespace fscanner {

/// What calls returned, in their order, for `testing::Each`: a failure names the place of the
/// call that is to blame.
using Results = std::vector<bool>;

}  // namespace fscanner
