// SPDX-License-Identifier: Apache-2.0
#include "cli/fleet/Plan.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <map>
#include <string>
#include <vector>

#include "cli/command_line.h"
#include "support/TempFolder.h"

namespace {

using Kemffdc::HeldSetting;
using Kemffdc::kLocalFile;
using Kemffdc::kUsage;
using Kemffdc::Outcome;
using Kemffdc::Parsed;
using Kemffdc::Fleet::Plan;
using Kemffdc::Fleet::PlannedHost;
using Kemffdc::Fleet::ShardOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A user with files, and `kemffdc fleet hosts` as it is typed.
class MakePlan : public testing::Test {
protected:
    MakePlan() {
        m_surroundings.userFile = m_folder / "user.conf";
        m_surroundings.home = m_folder.Path();
        m_surroundings.variable = [this](const char* name) -> const char* {
            const auto found = m_variables.find(name);
            return found == m_variables.end() ? nullptr : found->second.c_str();
        };
    }

    void Secret(const std::string& name, const std::string& text) {
        m_folder.Write(name, text);
        ASSERT_EQ(0, ::chmod((m_folder / name).c_str(), 0600));
    }

    Outcome Make(std::vector<std::string> words) {
        words.insert(words.begin(), {"fleet", "hosts"});
        const Parsed parsed = ::Parse(words, m_surroundings);
        EXPECT_TRUE(parsed.options.has_value()) << parsed.err;
        m_plan = Plan();
        return parsed.options ? Kemffdc::Fleet::MakePlan(*parsed.options, m_plan)
                              : Outcome{kUsage, parsed.err};
    }

    Outcome Table(const std::string& text, std::vector<std::string> words = {}) {
        m_folder.Write("rack.csv", text);
        words.insert(words.begin(), m_folder / "rack.csv");
        return Make(words);
    }

    // What is wrong, with "F" for the folder.
    std::string WhyNot(const std::string& text, const std::vector<std::string>& words = {}) {
        const Outcome outcome = Table(text, words);
        EXPECT_EQ(kUsage, outcome.code);
        return Short(outcome.reason);
    }

    std::string Short(std::string text) const {
        for (std::size_t at; (at = text.find(m_folder.Path())) != std::string::npos;) {
            text.replace(at, m_folder.Path().size(), "F");
        }
        return text;
    }

    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const PlannedHost& host : m_plan.hosts) names.push_back(host.name);
        return names;
    }

    // "8443 F/rack.csv:2 inventory"; of the host that is named first.
    std::string Held(const std::string& name, std::size_t host = 0) const {
        for (const HeldSetting& held : m_plan.hosts.at(host).held) {
            if (held.name != name) continue;
            const std::string section = held.setting.section;
            return held.value + " " + Short(held.setting.place) +
                   (section.empty() ? "" : " " + section) + (held.ignored ? " ignored" : "");
        }
        return "";
    }

    TempFolder m_folder;
    std::map<std::string, std::string> m_variables;
    Kemffdc::Surroundings m_surroundings;
    Plan m_plan;
};

TEST_F(MakePlan, AnInventoryStandsBetweenTheLineAndTheEnvironment) {
    m_folder.Write("user.conf",
                   "defaults: {via: ipmi, ca_file: /user, interval: 9}\n"
                   "hosts: {\"10.*\": {tries: 7}}\n");
    m_variables["VARNEX_CA_FILE"] = "/environment";

    EXPECT_EQ("", Table("name,address,via,port,ca_file,log\n"
                        "bmc1,10.0.0.1,redfish,8443,/table,mini\n"
                        "bmc2,10.0.0.2,redfish,,,mini\n",
                        {"--log", "full"})
                      .reason);

    EXPECT_EQ("redfish F/rack.csv:2", Held("via"));
    EXPECT_EQ("8443 F/rack.csv:2", Held("port"));
    EXPECT_EQ("/table F/rack.csv:2", Held("ca_file"));
    EXPECT_EQ("full --log", Held("log"));
    EXPECT_EQ("/environment VARNEX_CA_FILE", Held("ca_file", 1));
    EXPECT_EQ("443 ", Held("port", 1)) << "the channel's own";
    EXPECT_EQ("9 F/user.conf:1 defaults", Held("interval", 1));
    EXPECT_EQ("7 F/user.conf:2 10.*", Held("tries", 1));
}

TEST_F(MakePlan, GroupsSayWhereTheyStand) {
    m_folder.Write("fleet.yaml",
                   "defaults: {via: redfish}\n"
                   "groups:\n"
                   "  rack3:\n"
                   "    port: 8443\n"
                   "    hosts: {bmc1: {interval: 3}}\n");

    EXPECT_EQ("", Make({m_folder / "fleet.yaml"}).reason);

    EXPECT_EQ("redfish F/fleet.yaml:1 defaults", Held("via"));
    EXPECT_EQ("8443 F/fleet.yaml:4 groups.rack3", Held("port"));
    EXPECT_EQ("3 F/fleet.yaml:5 groups.rack3.hosts.bmc1", Held("interval"));
    EXPECT_THAT(m_plan.hosts[0].groups, ElementsAre("rack3"));
    EXPECT_EQ("F/fleet.yaml:5", Short(m_plan.hosts[0].place));
}

TEST_F(MakePlan, OfTheLineCountsForEachBmcWhatFitsIt) {
    EXPECT_EQ("", Table("name,via\nbmc1,redfish\nbmc2,ipmi\n", {"--cipher-suite", "3"}).reason);

    EXPECT_EQ(" --cipher-suite ignored", Held("cipher_suite", 0));
    EXPECT_EQ("3 --cipher-suite", Held("cipher_suite", 1));
    EXPECT_EQ("--cipher-suite is on the command line, and fits none of these BMCs.",
              WhyNot("name,via\nbmc1,redfish\n", {"--cipher-suite", "3"}));
}

TEST_F(MakePlan, AWorkerIsToldAllThatSomebodyHasSaidButSecretsAndFolders) {
    m_folder.Write("user.conf",
                   "defaults: {output: /ffdc, password_file: /secret, state_dir: /other, insecure: "
                   "true, wait: false}\n");

    EXPECT_EQ("", Table("name,address,via,user,export.uri,export.user\n"
                        "bmc1,10.0.0.1,redfish,--json,sftp://s/x,up\n",
                        {"--state-dir", "/state", "--deadline", "90m"})
                      .reason);

    EXPECT_THAT(
        m_plan.hosts[0].arguments,
        testing::UnorderedElementsAre("collect", "10.0.0.1", "--via=redfish", "--user=--json",
                                      "--export-uri=sftp://s/x", "--export-user=up", "--insecure",
                                      "--deadline=90m", "--state-dir=/state"));
    const Parsed worker = ::Parse(m_plan.hosts[0].arguments);
    ASSERT_TRUE(worker.options.has_value()) << worker.err;
    EXPECT_EQ("--json", worker.options->user);
    EXPECT_EQ(443, worker.options->port);
    EXPECT_EQ("sftp://s/x", worker.options->exportUri);
}

TEST_F(MakePlan, AnOperationIsAColumn) {
    EXPECT_EQ("",
              Table("name,via,operation\nbmc1,redfish,tree\nbmc2,,\nbmc3,ipmi,standard\n").reason);

    EXPECT_EQ("tree F/rack.csv:2", Held("operation"));
    EXPECT_THAT(m_plan.hosts[0].arguments, testing::Contains("--operation=tree"));
    EXPECT_THAT(m_plan.hosts[1].arguments,
                testing::Not(testing::Contains(HasSubstr("--operation"))));
    EXPECT_EQ(" F/rack.csv:4 ignored", Held("operation", 2)) << "another channel has none";
    EXPECT_THAT(m_plan.hosts[2].arguments,
                testing::Not(testing::Contains(HasSubstr("--operation"))));
}

TEST_F(MakePlan, AnOperationOfAGroupCountsForItsHosts) {
    m_folder.Write("fleet.yaml",
                   "defaults: {via: redfish, operation: standard, diagnostic_type: Manager}\n"
                   "groups: {bare: {operation: tree, hosts: bmc1}}\n"
                   "hosts: bmc2\n");

    EXPECT_EQ("", Make({m_folder / "fleet.yaml"}).reason);

    EXPECT_EQ("tree F/fleet.yaml:2 groups.bare", Held("operation"));
    EXPECT_EQ("standard F/fleet.yaml:1 defaults", Held("operation", 1));
    EXPECT_THAT(m_plan.hosts[1].arguments, testing::Contains("--diagnostic-type=Manager"));
    const Parsed worker = ::Parse(m_plan.hosts[0].arguments);
    EXPECT_TRUE(worker.options.has_value()) << worker.err;
}

TEST_F(MakePlan, WhatIsWrongWithAnOperationIsToldByItsRow) {
    EXPECT_EQ(
        "F/rack.csv:2: operation: \"standrd\" is none of auto, oem, standard and tree. Did you mean "
        "standard?\n"
        "F/rack.csv:3: --operation tree brings the data here; --export-uri goes with the OEM "
        "export alone.",
        WhyNot("name,via,operation,export.uri\n"
               "bmc1,redfish,standrd,\n"
               "bmc2,redfish,tree,sftp://s/x\n"
               "bmc3,redfish,standard,\n"));
}

TEST_F(MakePlan, AllIsCheckedAndToldLineByLine) {
    EXPECT_EQ(
        "F/rack.csv:2: via: \"redfihs\" is none of auto, redfish, cim, ipmi and kcs. Did you mean "
        "redfish?\n"
        "F/rack.csv:3: port: \"0\" is no number from 1 to 65535.\n"
        "F/rack.csv:4: --user must not hold a colon.\n"
        "F/rack.csv:6: address: \"BMC4\" is the BMC of \"bmc4\" in line 5.\n"
        "F/rack.csv:7: name: \"bmc4\" stands in line 5 already.",
        WhyNot("name,via,port,user,address\n"
               "bmc1,redfihs,,,\n"
               "bmc2,redfish,0,,\n"
               "bmc3,redfish,,a:b,\n"
               "bmc4,redfish,443,,\n"
               "bmc5,ipmi,,,BMC4\n"
               "bmc4,ipmi,,,x\n",
               {"--limit", "bmc4"}));
}

TEST_F(MakePlan, OneAddressWithTwoPortsOfTheirOwnIsTwoBmcs) {
    EXPECT_EQ(
        "",
        Table("name,address,via,port\na,10.0.0.1,redfish,8001\nb,10.0.0.1,redfish,8002\n").reason);

    EXPECT_THAT(Names(), ElementsAre("a", "b"));
    EXPECT_EQ("F/rack.csv:3: address: \"10.0.0.1\" is the BMC of \"a\" in line 2.",
              WhyNot("name,address,via\na,10.0.0.1,auto\nb,10.0.0.1,ipmi\n"));
    EXPECT_EQ("F/rack.csv:3: address: \"0:0::1\" is the BMC of \"a\" in line 2.",
              WhyNot("name,address,via\na,::1,redfish\nb,[0:0::1],redfish\n"));
}

TEST_F(MakePlan, WithoutAFileFaultsNameTheHost) {
    const Outcome outcome = Make({"--hosts", "bmc[1-2]", "--via", "redfish", "--user", "a:b"});

    EXPECT_EQ(kUsage, outcome.code);
    EXPECT_EQ("--user must not hold a colon.\n--user must not hold a colon.", outcome.reason);
}

TEST_F(MakePlan, ChoosesByGroupPatternAndShare) {
    const std::string table = "name,group\nbmc[001-010],a\nbmc[011-020],a b\nlab[1-5],b\nlone,\n";
    EXPECT_EQ(
        "", Table(table, {"-g", "b", "--limit", "bmc*,lone", "--exclude", "bmc[012-019]"}).reason);
    EXPECT_THAT(Names(), ElementsAre("bmc011", "bmc020"));
    EXPECT_EQ(26U, m_plan.all);

    std::vector<std::string> shared;
    for (const char* shard : {"1/3", "2/3", "3/3"}) {
        EXPECT_EQ("", Table(table, {"--shard", shard}).reason);
        for (const std::string& name : Names()) shared.push_back(name);
    }
    EXPECT_EQ("", Table(table).reason);
    EXPECT_THAT(shared, testing::UnorderedElementsAreArray(Names()));

    EXPECT_EQ("None of the 26 BMCs is chosen.", WhyNot(table, {"--limit", "x*"}));
    EXPECT_EQ("--group: \"c\" is none of a and b.", WhyNot(table, {"-g", "a,c"}));
    EXPECT_EQ("--group: there are no groups.", WhyNot("name\nx\n", {"-g", "a"}));
}

// As `printf %s bmc001 | sha256sum` has it.
TEST(ShardOf, GoesByTheNameAlone) {
    EXPECT_EQ(8, ShardOf("bmc001", 10));
    EXPECT_EQ(6, ShardOf("bmc002", 10));
    EXPECT_EQ(5, ShardOf("10.0.0.7", 7));
    EXPECT_EQ(1, ShardOf("whatever", 1));
}

TEST_F(MakePlan, ACredentialCountsBeforeItsRow) {
    Secret("accounts.yaml",
           "lab:\n"
           "  user: service\n"
           "  password_file: ~/lab\n"
           "  export: {user: up, password_command: [show, '{host}']}\n");
    const std::vector<std::string> words{"--credentials", m_folder / "accounts.yaml"};

    EXPECT_EQ("", Table("name,via,user,export.uri,credential\n"
                        "bmc1,redfish,other,sftp://s/x,lab\n"
                        "bmc2,redfish,,sftp://s/x,lab\n"
                        "bmc3,redfish,,,\n",
                        words)
                      .reason);

    EXPECT_EQ("service F/accounts.yaml:2 lab", Held("user"));
    const PlannedHost& host = m_plan.hosts[0];
    EXPECT_EQ("lab", host.credential);
    ASSERT_TRUE(host.password && host.exportPassword);
    EXPECT_EQ("F/lab", Short(host.password->file));
    EXPECT_THAT(host.exportPassword->command, ElementsAre("show", "bmc1"));
    EXPECT_EQ(host.login, m_plan.hosts[1].login);
    EXPECT_NE(host.login, m_plan.hosts[2].login);
    EXPECT_THAT(host.arguments, Contains("--user=service"));
    EXPECT_THAT(host.arguments, Each(Not(HasSubstr("lab"))));
    EXPECT_EQ("", m_plan.hosts[2].password->file) << "from the environment or a prompt";
}

TEST_F(MakePlan, ACredentialsPasswordTakesThePlaceOfTheRows) {
    Secret("accounts.yaml", "lab: {password_command: [show]}\n");

    EXPECT_EQ("", Table("name,via,password_file,credential\nbmc1,redfish,/row,lab\n",
                        {"--credentials", m_folder / "accounts.yaml"})
                      .reason);

    EXPECT_EQ("", m_plan.hosts[0].password->file);
    EXPECT_THAT(m_plan.hosts[0].password->command, ElementsAre("show"));
}

TEST_F(MakePlan, ACredentialThatIsNotThereIsToldWithItsPlace) {
    Secret("accounts.yaml", "lab: {user: service}\n");
    const std::string table = "name,credential\nbmc1,lba\n";

    EXPECT_EQ("F/rack.csv:2: credential: \"lba\" is not in F/accounts.yaml. Did you mean lab?",
              WhyNot(table, {"--credentials", m_folder / "accounts.yaml"}));
    EXPECT_EQ(
        "F/rack.csv:2: credential: there is no file of credentials to find \"lba\" in: name "
        "one with --credentials.",
        WhyNot(table));
}

TEST_F(MakePlan, UserAndPasswordOfTwoSourcesAreNotMixed) {
    Secret("accounts.yaml", "lab: {user: service, password_command: [show]}\n");
    for (const char* option : {"--user", "--password-file"}) {
        EXPECT_EQ("F/rack.csv:2: " + std::string(option) +
                      " is on the command line, and credential \"lab\" has its own. Leave out one "
                      "of them.",
                  WhyNot("name,credential\nbmc1,lab\n",
                         {"--credentials", m_folder / "accounts.yaml", option, "x"}));
    }
}

TEST_F(MakePlan, TheInventoryNamesItsCredentialsFromItsOwnFolder) {
    Secret("accounts.yaml", "lab: {user: service}\n");
    m_folder.Write("fleet.yaml",
                   "credentials: accounts.yaml\ndefaults: {credential: lab, via: redfish}\n"
                   "hosts: bmc[1-2]\n");

    EXPECT_EQ("", Make({m_folder / "fleet.yaml"}).reason);

    EXPECT_EQ("F/accounts.yaml", Short(m_plan.credentials));
    EXPECT_EQ("service F/accounts.yaml:1 lab", Held("user", 1));
}

TEST_F(MakePlan, ASpreadsheetRunsNoProgram) {
    EXPECT_EQ("", Table("name,password_command\nbmc1,rm\n").reason);

    EXPECT_THAT(m_plan.notes, ElementsAre(HasSubstr("\"password_command\" is not known")));
    EXPECT_THAT(m_plan.hosts[0].password->command, IsEmpty());
}

TEST(FleetOptions, WhatCannotBeMeantIsToldBeforeAnyFileIsRead) {
    const std::pair<std::vector<std::string>, const char*> rows[] = {
        {{"--hosts", "bmc[2-1]"}, "--hosts: \"2-1\" counts nothing."},
        {{"x.csv", "--limit", "bmc[1"}, "--limit: \"bmc[1\" has a bracket without its partner."},
        {{"x.csv", "--exclude", "a,,b"}, "--exclude: "},
        {{"x.csv", "--shard", "3/2"}, "--shard: \"3/2\" is no share like 2/10"},
        {{"x.csv", "--shard", "0/2"}, "--shard: \"0/2\" is no share"},
        {{"x.csv", "--shard", "x"}, "--shard: \"x\" is no share"},
        {{"x.csv", "--group", ","}, "--group names no group."},
        {{"x.csv", "--via", "pigeon"}, "--via: \"pigeon\" is none of auto, redfish"},
        {{"x.csv", "--port", "x"}, "--port: \"x\" is no number"},
        {{"x.csv", "--hosts", "a"}, "FILE and --hosts exclude each other"},
        {{}, "FILE is required: an inventory, or --hosts in its place."},
        {{"x.csv", "y.csv"}, "Too many arguments: kemffdc fleet hosts takes one FILE."},
        {{"x.csv", "--log-level", "4"}, "--log-level is an option of kemffdc collect"},
        {{"x.csv", "--limt", "a"}, "Unknown option: --limt. Did you mean --limit?"},
        {{"x.csv", "-g"}, "-g has no value"},
    };
    for (const auto& [words, said] : rows) {
        std::vector<std::string> typed{"fleet", "hosts"};
        typed.insert(typed.end(), words.begin(), words.end());
        const Parsed parsed = ::Parse(typed);
        EXPECT_EQ(kUsage, parsed.exitCode) << said;
        EXPECT_THAT(parsed.err, HasSubstr(said));
        EXPECT_THAT(parsed.err, HasSubstr("Try 'kemffdc fleet hosts --help'."));
    }
}

TEST(FleetCommands, ANearMissIsAskedAbout) {
    const std::pair<std::vector<std::string>, const char*> rows[] = {
        {{"fleet", "hsots", "x"}, "Unknown command: fleet hsots. Did you mean hosts?"},
        {{"flete", "hosts"}, "Unknown command: flete. Did you mean fleet?"},
        {{"fleet"}, "A command is missing: kemffdc fleet "},
        {{"fleet", "--json"}, "Options stand behind the command: kemffdc fleet "},
        {{"help", "fleet", "hsots"}, "No help on \"fleet hsots\"; there is some on "},
    };
    for (const auto& [words, said] : rows) {
        EXPECT_THAT(::Parse(words).err, HasSubstr(said));
        EXPECT_EQ(kUsage, ::Parse(words).exitCode) << said;
    }
}

}  // namespace
