// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Summary.h"

#include <gmock/gmock.h>

#include <fstream>
#include <sstream>
#include <string>

#include "cli/fleet/MadeScene.h"
#include "support/TempFolder.h"

namespace {

using namespace MadeScene;
using Kemffdc::Fleet::ReasonOf;
using Kemffdc::Fleet::ResumeCommand;
using Kemffdc::Fleet::WriteSummary;

std::string Summary(const Scene& scene) {
    std::ostringstream out;
    WriteSummary(scene, out);
    return out.str();
}

Scene Ended() {
    Scene scene = RunOf(754);
    scene.live = false;
    scene.ended = true;
    AddMany(scene, 1, 16, HostState::kDone, 700, 1);
    for (SceneHost& host : scene.hosts) {
        host.outcome = "downloaded";
        host.bytes = 37 << 20;
    }
    AddMany(scene, 17, 20, HostState::kFailed, 4, 1);
    for (std::size_t i = 16; i < 20; ++i) scene.hosts[i].outcome = "login-refused";
    Add(scene, "bmc021", HostState::kStopped);
    return scene;
}

TEST(Summary, FoldsTheHostsByReasonAndNamesTheNextCommand) {
    const TempFolder folder;
    Scene scene = Ended();
    scene.folder = folder.Path();
    for (const char* name : {"/report.html", "/report.json"}) {
        std::ofstream(folder.Path() + name) << "x";
    }
    EXPECT_EQ(Summary(scene),
              "Run 12 (collect): 16 of 21 hosts done in 12:34, 592.0 MiB.\n"
              "\n"
              "4 wrong password: bmc[017-020]\n"
              "    Correct user or password of these hosts before anything tries again: accounts "
              "lock after a few refusals.\n"
              "\n"
              "1 not tried: bmc021\n"
              "    The run has ended before these. kemffdc fleet resume tries them.\n"
              "\n"
              "Reports: " +
                  folder.Path() +
                  "/report.html\n"
                  "         " +
                  folder.Path() +
                  "/report.json\n"
                  "Next:    kemffdc fleet resume 12\n");
}

TEST(Summary, OfARunInWhichAllWentWellIsShort) {
    Scene scene = Ended();
    scene.hosts.resize(16);
    EXPECT_EQ(Summary(scene), "Run 12 (collect): 16 of 16 hosts done in 12:34, 592.0 MiB.\n");
}

TEST(ReasonOf, IsThereWhereHostsAreMissing) {
    const Scene scene = Ended();
    EXPECT_EQ(ReasonOf(scene, 20), "Only 16 of 21 hosts done.");
    EXPECT_EQ(ReasonOf(scene, 130), "Interrupted: 16 of 21 hosts done.");
    EXPECT_EQ(ReasonOf(scene, 8), "");
    EXPECT_EQ(ReasonOf(scene, 0), "");
}

TEST(ResumeCommand, IsThereWhereARunHasLeftHostsAndWorksNoMore) {
    Scene scene = Ended();
    EXPECT_EQ(ResumeCommand(scene), "kemffdc fleet resume 12");
    scene.ended = false;  // killed
    EXPECT_EQ(ResumeCommand(scene), "kemffdc fleet resume 12");
    scene.live = true;
    EXPECT_EQ(ResumeCommand(scene), "");
    scene = Ended();
    scene.hosts.resize(16);
    EXPECT_EQ(ResumeCommand(scene), "");
}

}  // namespace
