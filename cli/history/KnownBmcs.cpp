// SPDX-License-Identifier: Apache-2.0
#include "cli/history/KnownBmcs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "cli/Utc.h"
#include "cli/WholeFile.h"
#include "cli/history/BmcName.h"
#include "cli/history/FileLock.h"
#include "cli/history/StateFolder.h"
#include "shared/FileDescriptor.h"
#include "shared/HostName.h"

namespace Kemffdc::History {
namespace {

constexpr char kHeader[] =
    "# Certificates of BMCs that kemffdc trusts. A line each: HOST:PORT SHA256:FINGERPRINT\n";
constexpr char kMark[] = "SHA256:";
constexpr std::size_t kDigits = 64;
constexpr std::size_t kMaxBytes = std::size_t{16} << 20;
constexpr unsigned kMaxPort = 65535;

struct Line {
    std::string text;    // without its end
    std::string bmc;     // as SameBmc writes it; empty: a comment
    std::string sha256;  // as KnownBmc has it
};

std::string Why() { return std::string(std::strerror(errno)) + "."; }

bool StartsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

// "HOST:PORT" as SameBmc writes it; empty where it is not that.
std::string ReadBmc(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) return "";
    std::string host = text.substr(0, colon);
    const std::string port = text.substr(colon + 1);
    const bool digits = !port.empty() && port.size() <= 5 &&
                        port.find_first_not_of("0123456789") == std::string::npos;
    const bool bracketed = shared::IsInBrackets(host);
    host = shared::WithoutBrackets(host);
    if (!digits || (!bracketed && host.find_first_of(":[]") != std::string::npos)) return "";
    const unsigned long number = std::stoul(port);
    if (number == 0 || number > kMaxPort) return "";
    return SameBmc(host, static_cast<std::uint16_t>(number));
}

// False where the line is neither a comment nor a BMC and its fingerprint.
bool ReadLine(Line& line) {
    std::istringstream words(line.text);
    std::string bmc;
    std::string fingerprint;
    words >> bmc >> fingerprint;
    if (bmc.empty() || bmc.front() == '#') return true;
    line.bmc = ReadBmc(bmc);
    if (StartsWith(fingerprint, kMark)) line.sha256 = ReadFingerprint(fingerprint);
    return !line.bmc.empty() && !line.sha256.empty();
}

Outcome ReadText(const std::string& path, std::string& text) {
    struct stat found {};
    if (stat(path.c_str(), &found) != 0) {
        if (errno == ENOENT || errno == ENOTDIR) return {};
        return Failure(kLocalFile, "Cannot read " + path + ": " + Why());
    }
    if (!S_ISREG(found.st_mode)) return Failure(kLocalFile, path + " is not a file.");
    if (found.st_size > static_cast<off_t>(kMaxBytes)) {
        return Failure(kLocalFile, path + " is larger than 16 MiB.");
    }
    std::ifstream file(path, std::ios::binary);
    text.assign(std::istreambuf_iterator<char>(file), {});
    return file ? Outcome{} : Failure(kLocalFile, "Cannot read " + path + ": " + Why());
}

Outcome ReadLines(const std::string& path, std::vector<Line>& lines) {
    std::string text;
    if (Outcome outcome = ReadText(path, text); !outcome.Ok()) return outcome;
    std::istringstream stream(text);
    for (Line line; std::getline(stream, line.text);) {
        line.bmc.clear();
        line.sha256.clear();
        if (!ReadLine(line)) {
            return Failure(kLocalFile, path + ":" + std::to_string(lines.size() + 1) +
                                           ": HOST:PORT SHA256:FINGERPRINT is expected. Correct "
                                           "or remove this line.");
        }
        lines.push_back(line);
    }
    return {};
}

std::vector<KnownBmc> Of(const std::string& bmc, const std::vector<Line>& lines) {
    std::vector<KnownBmc> known;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].bmc == bmc) known.push_back({lines[i].sha256, static_cast<int>(i + 1)});
    }
    return known;
}

std::string NewLine(const std::string& bmc, const std::string& sha256) {
    return bmc + " " + kMark + sha256 + " first seen " + UtcNow() + "\n";
}

// Whole, or not at all.
bool WriteAtEnd(int file, const std::string& text) {
    const off_t before = lseek(file, 0, SEEK_END);
    if (before < 0) return false;
    const ssize_t written = write(file, text.data(), text.size());
    if (written == static_cast<ssize_t>(text.size())) return true;
    const int why = written < 0 ? errno : ENOSPC;
    if (written > 0) (void)!ftruncate(file, before);  // what else could be done?
    errno = why;
    return false;
}

Outcome Append(const std::string& path, const std::string& line) {
    std::string text;
    if (Outcome outcome = ReadText(path, text); !outcome.Ok()) return outcome;
    const bool unended = !text.empty() && text.back() != '\n';
    const std::string before = text.empty() ? kHeader : unended ? "\n" : "";
    const shared::FileDescriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    if (!file.IsOpen() || !WriteAtEnd(file.Get(), before + line)) {
        return Failure(kLocalFile, "Cannot write " + path + ": " + Why());
    }
    return {};
}

// Where the file system has no locks, the file is written without one.
Outcome LockFor(const std::string& path, FileLock& lock) {
    if (lock.Take(path + ".lock") != FileLock::State::kTaken) return {};
    return Failure(kLocalFile, path + " is being written by another process.");
}

Outcome CheckName(const std::string& host, std::uint16_t port) {
    if (ReadBmc(SameBmc(host, port)).empty() ||
        host.find_first_of(" \t\r\n") != std::string::npos) {
        return Failure(kLocalFile, "The host cannot be written into a list of known BMCs.");
    }
    return {};
}

}  // namespace

std::string ReadFingerprint(const std::string& text) {
    const std::string digits = StartsWith(text, kMark) ? text.substr(sizeof kMark - 1) : text;
    std::string plain;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        const bool between = digits[i] == ':' && plain.size() % 2 == 0 && !plain.empty() &&
                             i + 1 < digits.size() && digits[i - 1] != ':';
        if (between) continue;
        if (std::isxdigit(static_cast<unsigned char>(digits[i])) == 0) return "";
        plain.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(digits[i]))));
    }
    if (plain.size() != kDigits) return "";
    for (std::size_t at = 2; at < plain.size(); at += 3) plain.insert(at, 1, ':');
    return plain;
}

KnownBmcs::KnownBmcs(const std::string& stateFolder)
    : m_folder(stateFolder), m_path(stateFolder + "/known_bmcs") {}

Outcome KnownBmcs::Find(const std::string& host, std::uint16_t port,
                        std::vector<KnownBmc>& known) const {
    std::vector<Line> lines;
    Outcome outcome = ReadLines(m_path, lines);
    if (outcome.Ok()) known = Of(SameBmc(host, port), lines);
    return outcome;
}

Outcome KnownBmcs::Remember(const std::string& host, std::uint16_t port, const std::string& sha256,
                            std::vector<KnownBmc>& known) {
    FileLock lock;
    Outcome outcome = CheckName(host, port);
    if (outcome.Ok()) outcome = MakeStateFolder(m_folder);
    if (outcome.Ok()) outcome = LockFor(m_path, lock);
    if (outcome.Ok()) outcome = Find(host, port, known);
    if (!outcome.Ok() || !known.empty()) return outcome;
    outcome = Append(m_path, NewLine(SameBmc(host, port), sha256));
    return outcome.Ok() ? Find(host, port, known) : outcome;
}

Outcome KnownBmcs::Replace(const std::string& host, std::uint16_t port, const std::string& sha256) {
    FileLock lock;
    std::vector<Line> lines;
    Outcome outcome = CheckName(host, port);
    if (outcome.Ok()) outcome = MakeStateFolder(m_folder);
    if (outcome.Ok()) outcome = LockFor(m_path, lock);
    if (outcome.Ok()) outcome = ReadLines(m_path, lines);
    if (!outcome.Ok()) return outcome;
    const std::string bmc = SameBmc(host, port);
    std::string text = lines.empty() ? kHeader : "";
    for (const Line& line : lines) {
        if (line.bmc != bmc) text += line.text + "\n";
    }
    return WriteWholeFile(m_path, text + NewLine(bmc, sha256), kForOwner);
}

}  // namespace Kemffdc::History
