// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_REDFISHTEST_H
#define VARNEX_TESTS_REDFISHTEST_H

#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "fakes/FakeClock.h"
#include "fakes/FakeCurl.h"
#include "fakes/FakeFiles.h"
#include "fakes/FakeLog.h"
#include "module/kvs/ffdc/ffdcredfish_impl.h"

// A Redfish channel between a scripted libcurl and a scripted platform.
class RedfishTest : public testing::Test {
protected:
    static constexpr char kBase[] = "https://10.0.0.5:443";

    RedfishTest() {
        conn.host = "10.0.0.5";
        conn.userid = "admin";
        conn.password = "secret";
        conn.port = 443;
    }

    // A channel whose BMC told this version when it was made. The log starts afterwards.
    Varnex::KEMFfdcRedfishImpl& ChannelFor(
        const std::string& version, Varnex::BMCLogOption option = Varnex::BMCLOG_PROCESSOR_DUMP) {
        web.Answer(200, "{\"RedfishVersion\":\"" + version + "\"}");
        made = std::make_unique<Varnex::KEMFfdcRedfishImpl>(conn, uri, option, true);
        log.Clear();
        return *made;
    }

    Varnex::KEMFfdcRedfishImpl& Channel() { return ChannelFor("1.15.0"); }

    // A channel with an accepted export, whose task has this Id.
    Varnex::KEMFfdcRedfishImpl& ChannelWithTask(const std::string& id = "42") {
        Varnex::KEMFfdcRedfishImpl& channel = Channel();
        web.Answer(202, "{\"Id\":\"" + id + "\"}");
        EXPECT_EQ(0, channel.Apply());
        log.Clear();
        return channel;
    }

    const fakes::WebRequest& LastRequest() const { return web.Requests().back(); }
    std::size_t RequestCount() const { return web.Requests().size(); }

    fakes::FakeLog log;
    fakes::FakeClock clock;
    fakes::FakeCurl web;
    fakes::FakeFiles files;
    Varnex::VarnexConnection::ConnectionInfo conn;
    Varnex::KEMFfdcUploadingUri uri;
    std::unique_ptr<Varnex::KEMFfdcRedfishImpl> made;
};

#endif
