// Catches: a system without the toolkit (Wine, most Windows machines) on which a call crashes, hangs or
// succeeds.
#include "support/trace_recorder.h"
#include "tessel/platform/host.h"
#include "tessel/proxy/proxy_finder.h"
#include "tessel/soap/soap_client.h"

#include <gtest/gtest.h>

using kro::tessel::CTString;
using tessel_test::trace_recorder;

TEST(SoapToolkit, ThatIsNotInstalledFailsEveryCall) {
    kro::tessel::set_proxy_finder_factory([](IProxyFinderSink*) -> IProxyFinder* { return nullptr; });
    const trace_recorder trace;
    CLumSoapClient client;
    CTString texts[] = {TESSEL_W("http://127.0.0.1:9/"),
                        TESSEL_W(""),
                        TESSEL_W("ann"),
                        TESSEL_W("pw"),
                        TESSEL_W("app"),
                        TESSEL_W("1")};
    if (client.Call(texts[0], TESSEL_W("m"), TESSEL_W("u")) != 0 ||
        !trace_recorder::has(TESSEL_W(": Soap Error: 80040154"))) {
        GTEST_SKIP() << "the system has the toolkit";
    }
    EXPECT_EQ(client.CallService(texts[0], texts[1], texts[2], texts[3], texts[4], texts[5]), 0);
    EXPECT_EQ(trace_recorder::count(TESSEL_W("Debug: Soap Error: 80040154")), 3U);
    EXPECT_EQ(trace_recorder::count(TESSEL_W("Soap connection FAILED")), 3U);
    EXPECT_TRUE(client.getClientCfgMap().empty());
}
