// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/SceneJson.h"

#include <gmock/gmock.h>

#include <string>

#include "cli/fleet/MadeScene.h"
#include "cli/report/Json.h"

namespace {

using namespace MadeScene;
using Kemffdc::JsonText;
using Kemffdc::Fleet::SceneHostObject;
using Kemffdc::Fleet::SceneObject;
using testing::HasSubstr;

TEST(SceneHostObject, SaysAllThatIsSeenOfAHost) {
    Scene scene = RunOf(30);
    SceneHost& host = Add(scene, "bmc001", HostState::kTransferring, 20, 5);
    host.operation = "standard";
    host.percent = 85;
    host.message = "Dumping \x1b[2J.";
    host.bytes = 13002342;
    host.expected = 104857600;
    EXPECT_EQ(
        JsonText(SceneHostObject(host)),
        R"({"name":"bmc001","channel":"redfish","operation":"standard","state":"transferring",)"
        R"("since":"2023-11-14T22:13:40Z","begun":"2023-11-14T22:13:25Z","attempts":1,)"
        R"("percent":85,"message":"Dumping \\x1B[2J.","bytes":13002342,)"
        R"("expected":104857600,"outcome":null,"reason":null})");
}

TEST(SceneHostObject, KnowsNothingOfAHostThatNobodyHasBegunWith) {
    SceneHost host;
    host.name = "bmc001";
    host.channel.clear();
    EXPECT_EQ(
        JsonText(SceneHostObject(host)),
        R"({"name":"bmc001","channel":null,"operation":null,"state":"queued","since":null,)"
        R"("begun":null,"attempts":0,"percent":null,"message":null,"bytes":0,"expected":null,)"
        R"("outcome":null,"reason":null})");
}

TEST(SceneObject, CountsAndFolds) {
    Scene scene = RunOf(30);
    scene.live = false;
    scene.ended = true;
    Add(scene, "bmc001", HostState::kDone, 20, 5).outcome = "downloaded";
    Add(scene, "bmc002", HostState::kFailed, 20, 5).outcome = "unreachable";
    Add(scene, "bmc003", HostState::kFailed, 20, 5).outcome = "unreachable";
    EXPECT_THAT(
        JsonText(SceneObject(scene, 20)),
        HasSubstr(R"("command":"fleet collect","fleet":12,"folder":"/srv/ffdc/run",)"
                  R"("started":"2023-11-14T22:13:20Z","time":"2023-11-14T22:13:50Z",)"
                  R"("live":false,"exit_code":20,"reason":"Only 1 of 3 hosts done.",)"
                  R"("resume":"kemffdc fleet resume 12",)"
                  R"("states":{"queued":0,"starting":0,"reached":0,"exporting":0,"gathering":0,)"
                  R"("waiting":0,"transferring":0,"pausing":0,"done":1,"failed":2,"stopped":0},)"
                  R"("outcomes":[{"outcome":"unreachable","title":"no answer","count":2,)"
                  R"("hosts":"bmc[002-003]"},{"outcome":"downloaded","title":"downloaded",)"
                  R"("count":1,"hosts":"bmc001"}],"hosts":[{"name":"bmc001")"));
}

TEST(SceneObject, OfARunAtWorkHasNoExitCode) {
    const Scene scene = RunOf(30);
    EXPECT_THAT(JsonText(SceneObject(scene, -1)),
                HasSubstr(R"("live":true,"exit_code":null,"reason":null,"resume":null)"));
}

}  // namespace
