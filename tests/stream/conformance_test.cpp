#include "tests/support/StreamConformance.h"

#include "tests/stream/CrossingKinds.h"
#include "tests/stream/StreamKinds.h"

namespace {

INSTANTIATE_TEST_SUITE_P(AllKinds, StreamConformance, testing::ValuesIn(AllStreamKinds()),
                         [](const auto& kind) { return std::string(kind.param.name); });

INSTANTIATE_TEST_SUITE_P(Crossing, StreamConformance, testing::ValuesIn(CrossingStreamKinds()),
                         [](const auto& kind) { return std::string(kind.param.name); });

} // namespace
