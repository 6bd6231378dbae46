// SPDX-License-Identifier: Apache-2.0
//
// What the page on fleets and README show of a run is what one sees.
#include <gmock/gmock.h>

#include <fstream>
#include <sstream>
#include <string>

#include "cli/fleet/MadeScene.h"
#include "cli/fleet/Picture.h"
#include "cli/fleet/Summary.h"
#include "support/TempFolder.h"

namespace {

using namespace MadeScene;
using testing::HasSubstr;

std::string Page(const char* name = "docs/fleet.md") {
    std::ostringstream text;
    text << std::ifstream(std::string(VARNEX_ROOT "/") + name).rdbuf();
    return text.str();
}

TEST(FleetPage, ShowsTheTableAsItIs) {
    std::string table;
    for (const std::string& line : Table(Busy(), kBusyRate, {80, 12})) table += line + "\n";
    EXPECT_THAT(Page(), HasSubstr("\n" + table + "```\n"));
}

TEST(FleetPage, ShowsTheSummaryAsItIs) {
    Scene scene = RunOf(754);
    scene.live = false;
    scene.ended = true;
    AddMany(scene, 1, 400, HostState::kDone, 700, 1);
    for (std::size_t i = 0; i < scene.hosts.size(); ++i) {
        const std::size_t number = i + 1;
        SceneHost& host = scene.hosts[i];
        const bool refused =
            number == 3 || (number >= 17 && number <= 20) || (number >= 300 && number <= 335);
        const bool silent = number >= 100 && number <= 105;
        if (refused || silent) host.state = HostState::kFailed;
        host.outcome = refused ? "login-refused" : silent ? "unreachable" : "downloaded";
        if (host.state == HostState::kDone) host.bytes = 39543000;
    }
    const TempFolder folder;
    scene.folder = folder.Path();
    for (const char* name : {"/report.html", "/report.csv", "/report.json"}) {
        std::ofstream(folder.Path() + name) << "x";
    }
    std::ostringstream out;
    WriteSummary(scene, out);
    std::string summary = out.str();
    for (std::size_t at; (at = summary.find(folder.Path())) != std::string::npos;) {
        summary.replace(at, folder.Path().size(), "/srv/ffdc/run");
    }
    EXPECT_THAT(Page(), HasSubstr("```\n" + summary + "```\n"));
    EXPECT_THAT(Page("README.md"), HasSubstr("```\n" + summary + "```\n"));
}

}  // namespace
