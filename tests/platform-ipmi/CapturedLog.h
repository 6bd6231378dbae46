// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_PLATFORM_IPMI_CAPTUREDLOG_H
#define VARNEX_TESTS_PLATFORM_IPMI_CAPTUREDLOG_H

#include <mutex>
#include <string>
#include <vector>

#include "LogSink.h"

// Everything that is logged while the object lives, as "LEVEL SOURCE: TEXT".
class CapturedLog : private Varnex::LogSink {
public:
    CapturedLog() { Varnex::AddLogSink(this); }
    ~CapturedLog() override { Varnex::RemoveLogSink(this); }

    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    std::vector<std::string> Lines() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }

private:
    void Receive(const Varnex::LogRecord& record) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back(std::to_string(record.level) + " " + record.sourceFile + ": " +
                          record.text);
    }

    mutable std::mutex m_mutex;
    std::vector<std::string> m_lines;
};

#endif
