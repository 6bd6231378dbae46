// SPDX-License-Identifier: Apache-2.0
//
// played_fleet FILE: shows a fleet run of 400 hosts, three minutes old, on this terminal. It does
// what the lines of a file, which may be a FIFO, tell it:
//
//   hosts FROM TO STATE BEGUN   they are in that state, and were begun at that second; -1: never
//   fail NUMBER REASON          that host fails
//   note SENTENCE
//   at SECOND                   it is that time, and the view is told so
//   end CODE
#include <csignal>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "cli/fleet/MadeScene.h"
#include "cli/fleet/View.h"

namespace {

using namespace MadeScene;
using Kemffdc::Fleet::Audience;

class Play {
public:
    Play() : m_audience(Kemffdc::Fleet::MakeAudience({true, false, false}, std::cout)) {
        AddMany(m_scene, 1, 400, HostState::kQueued);
        m_audience->Begun(m_scene);
    }

    // False after the last line.
    bool Follow(const std::string& line) {
        std::istringstream words(line);
        std::string verb;
        words >> verb;
        if (verb == "hosts") SetHosts(words);
        if (verb == "fail") Fail(words);
        if (verb == "note") m_audience->Noted(Rest(words));
        if (verb == "at") Tick(words);
        if (verb == "end") End(words);
        return verb != "end";
    }

private:
    static std::string Rest(std::istringstream& words) {
        std::string rest;
        std::getline(words >> std::ws, rest);
        return rest;
    }

    void SetHosts(std::istringstream& words) {
        std::size_t from = 0;
        std::size_t to = 0;
        std::string state;
        double begun = 0;
        words >> from >> to >> state >> begun;
        for (std::size_t i = from - 1; i < to; ++i) {
            SceneHost& host = m_scene.hosts.at(i);
            host.state = Kemffdc::History::HostStateNamed(state).value();
            host.since = m_scene.now;
            if (begun >= 0) host.begun = At(begun);
            if (host.state == HostState::kDone) host.outcome = "downloaded";
            m_audience->Changed(m_scene, i);
        }
    }

    void Fail(std::istringstream& words) {
        std::size_t number = 0;
        words >> number;
        SceneHost& host = m_scene.hosts.at(number - 1);
        host.state = HostState::kFailed;
        host.since = m_scene.now;
        host.outcome = "unreachable";
        host.reason = Rest(words);
        m_audience->Changed(m_scene, number - 1);
    }

    void Tick(std::istringstream& words) {
        double second = 0;
        words >> second;
        m_scene.now = At(second);
        m_audience->Tick(m_scene);
    }

    void End(std::istringstream& words) {
        int code = 0;
        words >> code;
        m_scene.live = false;
        m_scene.ended = true;
        m_audience->Ended(m_scene, code);
    }

    const std::unique_ptr<Audience> m_audience;
    Scene m_scene = RunOf(180);
};

}  // namespace

int main(int argc, char** argv) {
    (void)std::signal(SIGPIPE, SIG_IGN);
    if (argc != 2) return 2;
    Play play;
    std::ifstream lines(argv[1]);
    for (std::string line; std::getline(lines, line) && play.Follow(line);) {
    }
    return 0;
}
