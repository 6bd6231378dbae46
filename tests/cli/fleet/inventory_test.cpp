// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Inventory.h"

#include <gmock/gmock.h>

#include <fstream>
#include <string>
#include <vector>

#include "support/TempFolder.h"

namespace {

using Kemffdc::kLocalFile;
using Kemffdc::kUsage;
using Kemffdc::Outcome;
using Kemffdc::Config::Member;
using Kemffdc::Fleet::Faults;
using Kemffdc::Fleet::Host;
using Kemffdc::Fleet::HostsOf;
using Kemffdc::Fleet::Inventory;
using Kemffdc::Fleet::ReadInventory;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string CheckVia(const std::vector<std::string>& words) {
    const bool known = words.front() == "redfish" || words.front() == "ipmi";
    return known ? "" : ": \"" + words.front() + "\" is none of redfish and ipmi.";
}

class ReadInventoryTest : public testing::Test {
protected:
    Outcome Read(const std::string& name, const std::string& text) {
        path = folder.Path() + "/" + name;
        std::ofstream(path) << text;
        Faults faults;
        const Outcome outcome = ReadInventory(path, "/home/olga", members, inventory, faults);
        return outcome.Ok() ? faults.Told(path) : outcome;
    }

    // What is wrong, with "F" for the file's name.
    std::string WhyNot(const std::string& name, const std::string& text) {
        const Outcome outcome = Read(name, text);
        EXPECT_EQ(kUsage, outcome.code);
        std::string reason = outcome.reason;
        for (std::size_t at; (at = reason.find(path)) != std::string::npos;) {
            reason.replace(at, path.size(), "F");
        }
        return reason;
    }

    // "bmc1@10.0.0.1 [rack3] via=redfish port=8443 !lab"
    std::vector<std::string> Hosts() const {
        std::vector<std::string> texts;
        for (const Host& host : inventory.hosts) {
            std::string text = host.name + "@" + host.address;
            for (const std::string& group : host.groups) text += " [" + group + "]";
            for (const auto& [name, value] : host.settings) {
                text += " " + name + "=" + value.words.front();
            }
            texts.push_back(text + (host.credential.empty() ? "" : " !" + host.credential));
        }
        return texts;
    }

    const TempFolder folder;
    const std::vector<Member> members{{"via", false, false, "", CheckVia},
                                      {"port", false, false, "", nullptr},
                                      {"ca_file", true, false, "trust", nullptr},
                                      {"fingerprint", false, false, "trust", nullptr},
                                      {"export.uri", false, false, "", nullptr}};
    std::string path;
    Inventory inventory;
};

TEST_F(ReadInventoryTest, ASpreadsheetsRowsAreHosts) {
    EXPECT_EQ("", Read("rack.csv",
                       "\xEF\xBB\xBFname;address;via;port;group;credential\r\n"
                       "bmc1;10.0.0.1;redfish;8443;rack3 lab;lab\r\n"
                       "bmc2.example;;;;;\r\n")
                      .reason);

    EXPECT_THAT(Hosts(), ElementsAre("bmc1@10.0.0.1 [rack3] [lab] port=8443 via=redfish !lab",
                                     "bmc2.example@bmc2.example"));
    EXPECT_EQ(2, inventory.hosts[0].settings.at("via").line);
}

TEST_F(ReadInventoryTest, ARowCanBeARange) {
    EXPECT_EQ("", Read("rack.csv", "name,address\nbmc[01-03],10.0.0.[7-9]\n").reason);

    EXPECT_THAT(Hosts(), ElementsAre("bmc01@10.0.0.7", "bmc02@10.0.0.8", "bmc03@10.0.0.9"));
}

TEST_F(ReadInventoryTest, AnUnknownColumnIsToldAndPassedOver) {
    EXPECT_EQ("", Read("rack.csv", "name,Owner,vai\nbmc1,Olga,redfish\n").reason);

    EXPECT_THAT(Hosts(), ElementsAre("bmc1@bmc1"));
    EXPECT_THAT(inventory.notes,
                ElementsAre(path + ":1: column \"Owner\" is not known and is passed over.",
                            path + ":1: column \"vai\" is not known and is passed over. "
                                   "Did you mean via?"));
}

TEST_F(ReadInventoryTest, AllRowsAreCheckedBeforeAnythingStarts) {
    EXPECT_EQ(
        "F:2: via: \"redfihs\" is none of redfish and ipmi.\n"
        "F:4: name: \"bmc3\" stands in line 3 already.\n"
        "F:6: name: \"bmc[1-\" has a bracket without its partner.\n"
        "F:7: name: \"bmc[1-2]\" is 2 hosts, its address 3.\n"
        "F:8: 5 fields, and 3 columns.\n"
        "F:9: name: \"../x\" holds other bytes than letters, digits, \".\", \"-\", \"_\" and \":\".",
        WhyNot("rack.csv",
               "name,via,address\n"
               "bmc1,redfihs,\n"
               "bmc3,,\n"
               "bmc3,,10.0.0.3\n"
               "bmc5,,\n"
               "bmc[1-,,\n"
               "bmc[1-2],,10.0.0.[1-3]\n"
               "a,b,c,d,e\n"
               "../x,,\n"));
}

TEST_F(ReadInventoryTest, OfManyFaultsTheFirstAreToldAndTheOthersCounted) {
    std::string text = "name\n";
    for (int i = 0; i < 25; ++i) text += "bad name\n";

    EXPECT_THAT(WhyNot("rack.csv", text), HasSubstr("\nand 5 more."));
}

TEST_F(ReadInventoryTest, ATableNeedsNames) {
    EXPECT_EQ("F:1: there is no column \"name\".", WhyNot("rack.csv", "address\n"));
    EXPECT_EQ("F:1: column \"name\" stands there twice.", WhyNot("rack.csv", "name,name\n"));
    EXPECT_EQ("F:1: there is no host in it.", WhyNot("rack.csv", "name\n"));
    EXPECT_THAT(WhyNot("rack.csv", ""), HasSubstr("F:1: no row"));
    EXPECT_EQ("F:2: a quote that is never closed.", WhyNot("rack.csv", "name\n\"bmc1\n"));
}

TEST_F(ReadInventoryTest, GroupsShareMembers) {
    EXPECT_EQ("", Read("fleet.yaml",
                       "credentials: secrets.yaml\n"
                       "defaults: {via: redfish, credential: lab}\n"
                       "groups:\n"
                       "  rack3:\n"
                       "    port: 8443\n"
                       "    hosts: bmc[1-2]\n"
                       "  rack4:\n"
                       "    via: ipmi\n"
                       "    credential: four\n"
                       "    hosts:\n"
                       "      bmc7: {address: 10.0.0.7, port: 624, group: old spare}\n"
                       "      bmc8:\n"
                       "hosts: [lone.example]\n")
                      .reason);

    EXPECT_THAT(Hosts(), ElementsAre("bmc1@bmc1 [rack3] port=8443 via=redfish !lab",
                                     "bmc2@bmc2 [rack3] port=8443 via=redfish !lab",
                                     "bmc7@10.0.0.7 [rack4] [old] [spare] port=624 via=ipmi !four",
                                     "bmc8@bmc8 [rack4] via=ipmi !four",
                                     "lone.example@lone.example via=redfish !lab"));
    EXPECT_EQ(folder.Path() + "/secrets.yaml", inventory.credentials);
    EXPECT_EQ(5, inventory.hosts[0].settings.at("port").line);
}

TEST_F(ReadInventoryTest, WhatIsWrongInGroupsIsNamedWithItsLine) {
    const std::pair<const char*, const char*> rows[] = {
        {"grups: {}\n", "F:1: grups: unknown member. Did you mean groups?"},
        {"groups:\n  a: {vai: ipmi, hosts: x}\n",
         "F:2: groups.a.vai: unknown member. Did you mean via?"},
        {"groups:\n  a:\n    via: tcp\n",
         "F:3: groups.a.via: \"tcp\" is none of redfish and ipmi."},
        {"groups:\n  a: {hosts: {b: {password: x}}}\n", "a password does not belong in this file"},
        {"hosts: {b: {address: [x]}}\n", "F:1: hosts.b.address is one word."},
        {"hosts: [[a]]\n", "F:1: a name in hosts is one word."},
        {"hosts: [a, a]\n", "F:1: name: \"a\" stands in line 1 already."},
        {"- a\n", "F:1: The inventory holds no members"},
        {"hosts: [\n", "F:2: no YAML:"},
        {"", "F:1: there is no host in it."},
    };
    for (const auto& [text, said] : rows) {
        inventory = Inventory();
        EXPECT_THAT(WhyNot("fleet.yaml", text), HasSubstr(said)) << text;
    }
}

TEST_F(ReadInventoryTest, AllGroupsAndHostsAreCheckedBeforeAnythingStarts) {
    EXPECT_EQ(
        "F:2: groups.a.via: \"tcp\" is none of redfish and ipmi.\n"
        "F:3: groups.b.hosts.x.port is empty.\n"
        "F:4: name: \"y[\" has a bracket without its partner.",
        WhyNot("fleet.yaml",
               "groups:\n"
               "  a: {via: tcp, hosts: w}\n"
               "  b: {hosts: {x: {port: ''}, z: }}\n"
               "hosts: ['y[', q]\n"));
}

TEST_F(ReadInventoryTest, ARivalOfAHostTakesThePlaceOfItsGroups) {
    EXPECT_EQ("", Read("fleet.yaml",
                       "defaults: {ca_file: /ca}\n"
                       "hosts: {a: {fingerprint: AB}, b: }\n")
                      .reason);

    EXPECT_THAT(Hosts(), ElementsAre("a@a fingerprint=AB", "b@b ca_file=/ca"));
    EXPECT_THAT(WhyNot("rack.csv", "name,ca_file,fingerprint\nc,/ca,AB\n"),
                HasSubstr("F:2: The row: of ca_file and fingerprint only one can stand"));
}

TEST_F(ReadInventoryTest, PathsAreWholeOnesAndTheHomeFolderIsKnown) {
    EXPECT_EQ("", Read("rack.csv", "name,ca_file\na,~/ca.pem\nb,/ca.pem\n").reason);

    EXPECT_THAT(Hosts(), ElementsAre("a@a ca_file=/home/olga/ca.pem", "b@b ca_file=/ca.pem"));
    EXPECT_EQ("F:2: ca_file is no absolute path, and does not begin with ~/.",
              WhyNot("other.csv", "name,ca_file\nc,ca.pem\n"));
}

TEST_F(ReadInventoryTest, APasswordHasNoPlaceInASpreadsheet) {
    EXPECT_THAT(WhyNot("rack.csv", "name,BMC password\na,secret7\n"),
                testing::AllOf(HasSubstr("F:1: column \"BMC password\": a password does not"),
                               testing::Not(HasSubstr("secret7"))));
}

TEST_F(ReadInventoryTest, AFileThatIsNotThereIsOne) {
    Faults faults;
    const Outcome outcome =
        ReadInventory(folder.Path() + "/x.yaml", "", members, inventory, faults);

    EXPECT_EQ(kLocalFile, outcome.code);
    EXPECT_EQ("The inventory " + folder.Path() + "/x.yaml does not exist.", outcome.reason);
}

// What is wrong with it.
std::string WhyNoHosts(const std::string& expression) {
    Inventory inventory;
    Faults faults;
    HostsOf(expression, inventory, faults);
    return faults.Told("").reason;
}

TEST(HostsOf, AnExpressionOnTheCommandLineIsAnInventoryToo) {
    Inventory inventory;
    Faults faults;

    HostsOf("bmc[1-2],10.0.0.7", inventory, faults);

    std::vector<std::string> names;
    for (const Host& host : inventory.hosts) names.push_back(host.name + "@" + host.address);
    EXPECT_THAT(names, ElementsAre("bmc1@bmc1", "bmc2@bmc2", "10.0.0.7@10.0.0.7"));
    EXPECT_TRUE(faults.None());
    EXPECT_EQ("--hosts: \"9-1\" counts nothing.", WhyNoHosts("bmc[9-1]"));
    EXPECT_EQ("--hosts: \"-x\" begins with a dash or a dot.", WhyNoHosts("-x"));
}

}  // namespace
