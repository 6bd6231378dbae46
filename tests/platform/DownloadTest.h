// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PLATFORM_DOWNLOADTEST_H
#define VARNEX_TESTS_PLATFORM_DOWNLOADTEST_H

#include <chrono>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>

#include "LogLines.h"
#include "Transfer.h"
#include "file_client.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "support/TempFolder.h"

// The error as a log shows it: "category:value message"; empty where there is none.
inline std::string Text(const std::error_code& error) {
    if (!error) return "";
    std::ostringstream text;
    text << error << " " << error.message();
    return text.str();
}

// A watcher made of a function for Progress.
class Watcher : public Varnex::TransferWatcher {
public:
    using Call = std::function<bool(const Varnex::TransferProgress&)>;

    explicit Watcher(Call call) : m_call(std::move(call)) { Varnex::AddTransferWatcher(this); }
    ~Watcher() override { Varnex::RemoveTransferWatcher(this); }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    bool Progress(const Varnex::TransferProgress& progress) override { return m_call(progress); }

private:
    Call m_call;
};

// Downloads into a folder of the test's own.
class DownloadTest : public testing::Test {
protected:
    using NoOption = curlcpp::option_traits<void*, static_cast<CURLoption>(0)>;
    using Headers = curlcpp::option_traits<std::list<std::string>, CURLOPT_HTTPHEADER>;

    static void Environment(const char* name, const std::string& value) {
        setenv(name, value.c_str(), 1);
    }

    std::error_code Download(const Uri& uri) {
        return file_client::download(uri, target, NoOption(nullptr));
    }
    std::error_code Download(const Uri& uri, std::list<std::string> lines) {
        return file_client::download(uri, target, Headers(std::move(lines)));
    }

    // Neither the file nor anything half of it.
    void ExpectNothingLeft() const { EXPECT_THAT(folder.Names(), testing::IsEmpty()); }

    TempFolder folder;
    const std::string target = folder / "archive";
    const std::string part = folder / "archive.varnex-part";
};

class Stopwatch {
public:
    double Seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

#endif
