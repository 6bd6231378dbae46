// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PLATFORM_LOGLINES_H
#define VARNEX_TESTS_PLATFORM_LOGLINES_H

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "LogSink.h"

// Every record of the process, as "level source: text".
class LogLines : public Varnex::LogSink {
public:
    LogLines() { Varnex::AddLogSink(this); }
    ~LogLines() override { Varnex::RemoveLogSink(this); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    void Receive(const Varnex::LogRecord& record) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(std::to_string(record.level) + " " + record.sourceFile + ": " +
                          record.text);
    }

    std::vector<std::string> Take() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return std::exchange(m_lines, {});
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

#endif
