// The HTTP service against a server that misbehaves byte by byte.
#include "os/inet_contract.h"
#include "os/inet_sync_contract.h"

namespace tessel_test {
namespace {

INSTANTIATE_TEST_SUITE_P(System, InetContract,
                         testing::Values(inet_under_test{"system", [] { return &os::inet(); }}));
INSTANTIATE_TEST_SUITE_P(System, InetSyncContract,
                         testing::Values(inet_under_test{"system", [] { return &os::inet(); }}));

}  // namespace
}  // namespace tessel_test
