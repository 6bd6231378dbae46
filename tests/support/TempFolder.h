// SPDX-License-Identifier: Apache-2.0
#ifndef VARNEX_TESTS_SUPPORT_TEMPFOLDER_H
#define VARNEX_TESTS_SUPPORT_TEMPFOLDER_H

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "gtest/gtest.h"

// A folder that lives as long as the test.
class TempFolder {
public:
    TempFolder() {
        std::string pattern = testing::TempDir() + "varnex-XXXXXX";
        if (mkdtemp(&pattern[0]) == nullptr) ADD_FAILURE() << "no folder " << pattern;
        m_path = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& Path() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(*this / name, std::ios::binary) << content;
        return *this / name;
    }

    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_path)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::string m_path;
};

inline std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

// Permission bits; 0 where there is no such file.
inline unsigned Mode(const std::string& path) {
    struct stat found {};
    return ::lstat(path.c_str(), &found) == 0 ? found.st_mode & 07777U : 0;
}

inline bool Exists(const std::string& path) {
    struct stat found {};
    return ::lstat(path.c_str(), &found) == 0;
}

#endif
