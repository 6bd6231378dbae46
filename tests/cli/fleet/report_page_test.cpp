// SPDX-License-Identifier: Apache-2.0
//
// What of report.html needs no browser.
#include "cli/fleet/ReportPage.h"

#include <gmock/gmock.h>
#include <openssl/sha.h>

#include "fleet/SampleResults.h"
#include "shared/Base64.h"

namespace {

using Kemffdc::Fleet::ReportPage;
using testing::HasSubstr;
using testing::Not;

// What stands between the two, the first time; fails where there is none.
std::string Between(const std::string& text, const std::string& begin, const std::string& end) {
    const std::size_t at = text.find(begin);
    EXPECT_NE(at, std::string::npos) << begin;
    if (at == std::string::npos) return "";
    return text.substr(at + begin.size(), text.find(end, at) - at - begin.size());
}

std::string Sum(const std::string& text) {
    std::string sum(SHA256_DIGEST_LENGTH, '\0');
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(),
           reinterpret_cast<unsigned char*>(&sum[0]));
    return "'sha256-" + shared::ToBase64(sum) + "'";
}

// The page without its script and style, which are the same in each.
std::string Content(SampleResults& sample, const std::string& folder = "/srv/ffdc/fleet-1") {
    const std::string page = ReportPage(sample.Get(), folder);
    return page.substr(page.find("</style>"), page.find("<script>") - page.find("</style>"));
}

TEST(FleetReportPage, ItsOwnStyleAndScriptAreAllThatIsLetIn) {
    SampleResults sample(3);
    const std::string page = ReportPage(sample.Get(), "/");
    const std::string policy = Between(page, "Content-Security-Policy\" content=\"", "\"");
    EXPECT_THAT(policy, HasSubstr("default-src 'none'; style-src " +
                                  Sum(Between(page, "<style>", "</style>")) + "; script-src " +
                                  Sum(Between(page, "<script>", "</script>")) + ";"));
}

TEST(FleetReportPage, NothingIsFetchedFromAnywhere) {
    SampleResults sample(40);
    sample.Get().hosts[0].bmc.model = "";  // its hostile words have a reference
    const std::string page = ReportPage(sample.Get(), "/");
    const std::string body = page.substr(page.find("<style>"));
    for (const char* reference : {" src=", "url(", "@import", "fetch(", "XMLHttp", "http"}) {
        EXPECT_THAT(body, Not(HasSubstr(reference)));
    }
}

TEST(FleetReportPage, WhatABmcSaysIsAText) {
    SampleResults sample(3);
    auto& host = sample.Get().hosts[1];
    host.reason = SampleResults::kHostile;
    host.outcome = SampleResults::kHostile;
    host.group = "\" onmouseover=\"alert(1)";
    host.operation = SampleResults::kHostile;
    host.channel = "<b>\x01\x7F\xFF";
    const std::string content = Content(sample);
    EXPECT_THAT(content, Not(HasSubstr("<img")));
    EXPECT_THAT(content, HasSubstr("data-group=\"&quot; onmouseover=&quot;alert(1)\""));
    EXPECT_THAT(content, Not(HasSubstr("<b>\x01")));
    EXPECT_THAT(content, Not(HasSubstr("\xFF")));
    const std::string data = Between(content, "id=\"data\">", "</script>");
    EXPECT_EQ(data.find('<'), std::string::npos);
    EXPECT_EQ(data.back(), '}');
}

TEST(FleetReportPage, TheOperationStandsBesideItsChannel) {
    SampleResults sample(1);
    sample.Get().hosts[0].operation = "tree";
    EXPECT_THAT(Content(sample), HasSubstr("<td>redfish<small>tree</small></td>"));
    sample.Get().hosts[0].operation.clear();
    EXPECT_THAT(Content(sample), HasSubstr("<td>redfish</td>"));
}

TEST(FleetReportPage, PlacesToFillAreNotLookedForInWhatIsFilledIn) {
    SampleResults sample(3);
    sample.Get().hosts[0].bmc.model = "{{data}}{{nothing}}";
    EXPECT_THAT(Content(sample), HasSubstr(">Tavrin {{data}}{{nothing}}</td>"));
}

TEST(FleetReportPage, LinksStartWhereThePageLies) {
    SampleResults sample(1);
    auto& host = sample.Get().hosts[0];
    host.archive = "/srv/ffdc/fleet-1/bmc 1/a#b?.tgz";
    EXPECT_THAT(Content(sample), HasSubstr("href=\"bmc%201/a%23b%3F.tgz\""));
    EXPECT_THAT(Content(sample, "/srv/reports"),
                HasSubstr("href=\"../ffdc/fleet-1/bmc%201/a%23b%3F.tgz\""));
}

TEST(FleetReportPage, ARemovedArchiveIsToldAndNotLinked) {
    SampleResults sample(1);
    sample.Get().hosts[0].removed = "2026-02-03T04:05:06Z";
    EXPECT_THAT(Content(sample), HasSubstr("removed 2026-02-03"));
    EXPECT_THAT(Content(sample), Not(HasSubstr("<a href=\"bmc0001")));
}

TEST(FleetReportPage, AnArchiveThatTheBmcSentElsewhereIsTold) {
    SampleResults sample(1);
    sample.Get().hosts[0].archive.clear();
    sample.Get().hosts[0].exportUri = "sftp://store.example/in/";
    EXPECT_THAT(Content(sample),
                HasSubstr("title=\"sftp://store.example/in/\">in the file store<"));
}

TEST(FleetReportPage, ARunThatWasKilledSaysHowToGoOn) {
    SampleResults sample(3);
    sample.Get().runs[0].ended = 0;
    EXPECT_THAT(Content(sample), HasSubstr("This run has ended without a word. kemffdc fleet "
                                           "resume 12 goes on with it."));
    sample.Get().runs[0].live = true;
    EXPECT_THAT(Content(sample), HasSubstr("This run is at work"));
}

TEST(FleetReportPage, ARunWithoutHostsIsAPageToo) {
    SampleResults sample(1);
    sample.Get().hosts.clear();
    EXPECT_THAT(Content(sample), HasSubstr("<h1>All 0 hosts collected</h1>"));
}

}  // namespace
