// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <cstddef>
#include <type_traits>

#include "module/kvs/ffdc/ffdc_common.h"
#include "varnex/KEMFfdc.h"

using testing::ElementsAreArray;
using Varnex::VarnexConnection::ConnectionInfo;

// Hosts fill the descriptors in by name and, older ones, by position.
TEST(ConnectionInfo, FieldsAreInTheirOrderWithTheirTypes) {
    ConnectionInfo info{"bmc.example", "admin", "secret", 443, 2, 17, 1, 3, 1, 9};

    EXPECT_EQ("bmc.example", info.host);
    EXPECT_EQ("admin", info.userid);
    EXPECT_EQ("secret", info.password);
    EXPECT_EQ(443, info.port);
    EXPECT_EQ(2, info.node);
    EXPECT_EQ(17, info.ciphersuite);
    EXPECT_EQ(1, info.connection_type);
    EXPECT_EQ(3, info.connection_case);
    EXPECT_EQ(1, info.connection_ipversion);
    EXPECT_EQ(9, info.connection_reserved);
    static_assert(std::is_same<decltype(info.port), std::uint16_t>::value, "");
    static_assert(std::is_same<decltype(info.node), std::uint16_t>::value, "");
    static_assert(std::is_same<decltype(info.ciphersuite), std::uint16_t>::value, "");
    static_assert(std::is_same<decltype(info.connection_reserved), std::int32_t>::value, "");
}

TEST(KEMFfdcUploadingUri, FieldsAreInTheirOrder) {
    const Varnex::KEMFfdcUploadingUri uri{"sftp://10.0.0.9/in", "store", "secret"};

    EXPECT_EQ("sftp://10.0.0.9/in", uri.filestore_uri_);
    EXPECT_EQ("store", uri.filestore_user_);
    EXPECT_EQ("secret", uri.filestore_password_);
}

TEST(BMCLogOption, IsA32BitEnumerationThatTakesAnyValue) {
    static_assert(
        std::is_same<std::underlying_type<Varnex::BMCLogOption>::type, std::int32_t>::value, "");
    EXPECT_EQ(0, Varnex::BMCLOG_PROCESSOR_DUMP);
    EXPECT_EQ(1, Varnex::BMCLOG_MINI_LOG);
    EXPECT_EQ(2, static_cast<Varnex::BMCLogOption>(2));
}

TEST(EmptyLogMessageCallBack, DoesNothingThroughTheInterface) {
    const std::unique_ptr<Varnex::LogMessageCallBack> callBack(new Varnex::EmptyLogMessageCallBack);

    callBack->LogMessage("In progress");
    callBack->LogMessage(".");
}

TEST(CommonHeader, HoldsTheTwoTables) {
    EXPECT_THAT(Varnex::kJobPropertyNames,
                ElementsAreArray({"ConCreteJob State", "Percent Complete", "Completion State",
                                  "Completion Record"}));
    EXPECT_THAT(Varnex::kBmcKinds, ElementsAreArray({"KEM1", "KEM2", "KTC", "AMI"}));
}
