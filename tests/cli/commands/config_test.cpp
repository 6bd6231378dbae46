// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/Config.h"

#include <gmock/gmock.h>

#include <boost/json.hpp>
#include <sstream>

#include "cli/CommandLine.h"
#include "support/TempFolder.h"

namespace {

namespace json = boost::json;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class ShowConfig : public testing::Test {
protected:
    ShowConfig() {
        m_surroundings.userFile = m_folder / "kemffdc.conf";
        m_surroundings.systemFile = "/nonexistent/kemffdc.conf";
        m_surroundings.home = "/home/op";
        m_surroundings.variable = [this](const char* name) -> const char* {
            const auto found = m_variables.find(name);
            return found == m_variables.end() ? nullptr : found->second.c_str();
        };
        m_folder.Write("kemffdc.conf",
                       "defaults:\n"
                       "  via: ipmi\n"
                       "  node: 2\n"
                       "hosts:\n"
                       "  \"10.1.*\":\n"
                       "    cipher_suite: 3\n"
                       "    password_command: [pass, show, hunter2]\n");
    }

    int Do(const std::vector<std::string>& arguments) {
        std::vector<const char*> argv{"kemffdc", "config"};
        for (const std::string& argument : arguments) argv.push_back(argument.c_str());
        const auto parsed =
            Kemffdc::ParseOptions(static_cast<int>(argv.size()), argv.data(), m_surroundings);
        EXPECT_TRUE(parsed.options.has_value()) << parsed.err;
        m_out.str("");
        m_err.str("");
        return parsed.options ? Kemffdc::ShowConfig(*parsed.options, m_out, m_err) : -1;
    }

    std::string Place(int line) const {
        return m_surroundings.userFile + ":" + std::to_string(line);
    }

    TempFolder m_folder;
    std::map<std::string, std::string> m_variables;
    Kemffdc::Surroundings m_surroundings;
    std::ostringstream m_out;
    std::ostringstream m_err;
};

TEST_F(ShowConfig, TellsOfEachSettingWhatHoldsAndFromWhere) {
    m_variables["VARNEX_LOG_LEVEL"] = "3";
    EXPECT_EQ(Do({"10.1.2.3", "--deadline", "90m"}), 0);
    const std::string out = m_out.str();
    EXPECT_THAT(out, HasSubstr("File: " + m_surroundings.userFile + "\n"));
    EXPECT_THAT(out, HasSubstr("File: /nonexistent/kemffdc.conf (not there)\n"));
    EXPECT_THAT(out, ContainsRegex("via +ipmi +" + Place(2) + " \\(defaults\\)\n"));
    EXPECT_THAT(out, ContainsRegex("port +623 +default\n"));
    EXPECT_THAT(out, ContainsRegex("cipher_suite +3 +" + Place(6) + " \\(hosts \"10.1.\\*\"\\)\n"));
    EXPECT_THAT(out, ContainsRegex("password_command +pass ... +" + Place(7)));
    EXPECT_THAT(out, ContainsRegex("password_file +- +default\n"));
    EXPECT_THAT(out, ContainsRegex("deadline +90m +command line\n"));
    EXPECT_THAT(out, ContainsRegex("max_size +16G +default\n"));
    EXPECT_THAT(out, ContainsRegex("log_level +3 +environment, VARNEX_LOG_LEVEL\n"));
    EXPECT_THAT(out, ContainsRegex("Left out, as they do not fit here:\nnode +" + Place(3)));
    EXPECT_THAT(out, Not(HasSubstr("hunter2")));
    EXPECT_THAT(out, Not(HasSubstr("tries")));
    EXPECT_THAT(m_err.str(), IsEmpty());
}

TEST_F(ShowConfig, APasswordOfTheEnvironmentIsNotShown) {
    m_variables["KEMFFDC_PASSWORD"] = "hunter2";
    EXPECT_EQ(Do({"10.1.2.3"}), 0);
    EXPECT_THAT(m_out.str(),
                ContainsRegex("password_file +\\(set\\) +environment, KEMFFDC_PASSWORD\n"));
    EXPECT_THAT(m_out.str(), ContainsRegex("password_command +- +default\n"));
    EXPECT_THAT(m_out.str(), Not(HasSubstr("hunter2")));
}

TEST_F(ShowConfig, NeedsNoHost) {
    EXPECT_EQ(Do({}), 0);
    EXPECT_THAT(m_out.str(), ContainsRegex("cipher_suite +17 +default\n"));
}

TEST_F(ShowConfig, TellsWhatCollectWouldRefuse) {
    EXPECT_EQ(Do({"bmc", "--via", "cim"}), 2);
    EXPECT_THAT(m_out.str(), ContainsRegex("node +2 +" + Place(3)));
    EXPECT_EQ(m_err.str(),
              "kemffdc: collect would refuse this: --via cim needs --export-uri: the BMC uploads "
              "its archives by itself.\n");
}

TEST_F(ShowConfig, WithoutAChannelTellsWhatAllHave) {
    m_folder.Write("kemffdc.conf", "defaults: {deadline: 1h, user: x}\n");
    EXPECT_EQ(Do({"bmc"}), 0);
    EXPECT_THAT(m_out.str(), ContainsRegex("deadline +1h +" + Place(1)));
}

TEST_F(ShowConfig, AsJsonHoldsTheSame) {
    EXPECT_EQ(Do({"10.1.2.3", "--json"}), 0);
    const json::object object = json::parse(m_out.str()).as_object();
    EXPECT_EQ(object.at("schema"), 1);
    EXPECT_EQ(object.at("command"), "config");
    EXPECT_EQ(object.at("channel"), "ipmi");
    EXPECT_EQ(object.at("host"), "10.1.2.3");
    EXPECT_EQ(object.at("exit_code"), 0);
    EXPECT_EQ(object.at("reason"), nullptr);
    EXPECT_EQ(object.at("files").as_array().at(1).at("exists"), false);
    const json::value suite{{"name", "cipher_suite"},
                            {"value", "3"},
                            {"origin", "user-file"},
                            {"place", Place(6)},
                            {"section", "10.1.*"}};
    const json::value port{{"name", "port"},
                           {"value", "623"},
                           {"origin", "default"},
                           {"place", nullptr},
                           {"section", nullptr}};
    EXPECT_THAT(object.at("settings").as_array(), testing::Contains(suite));
    EXPECT_THAT(object.at("settings").as_array(), testing::Contains(port));
    const json::value node{
        {"name", "node"}, {"origin", "user-file"}, {"place", Place(3)}, {"section", "defaults"}};
    EXPECT_THAT(object.at("ignored").as_array(), testing::ElementsAre(node));
    EXPECT_EQ(m_out.str().back(), '\n');
}

}  // namespace
