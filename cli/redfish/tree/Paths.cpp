// SPDX-License-Identifier: Apache-2.0
#include "cli/redfish/tree/Paths.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <vector>

#include "cli/redfish/Json.h"
#include "cli/redfish/Reference.h"

namespace Kemffdc::Redfish::Tree {
namespace {

constexpr char kBelow[] = "/redfish/";
constexpr std::size_t kLongest = 1024;      // bytes of a path
constexpr std::size_t kLongestPiece = 200;  // as file systems have them, with room for an ending

constexpr const char* kLeftOut[] = {
    "accountservice",
    "remoteaccountservice",
    "accounts",
    "roles",
    "sessionservice",
    "sessions",
    "certificateservice",
    "certificates",
    "securebootdatabases",
    "keyservice",
    "keys",
    "licenseservice",
    "licenses",
    "subscriptions",
    "registries",
    "jsonschemas",
};

// Of "#ManagerAccount.v1_9_0.ManagerAccount" or a collection of such.
constexpr const char* kLeftOutTypes[] = {
    "accountservice",
    "manageraccount",
    "role",
    "sessionservice",
    "session",
    "certificate",
    "key",
    "certificateservice",
    "keyservice",
    "license",
    "eventdestination",
    "messageregistryfile",
    "jsonschemafile",
    "messageregistry",
    "signature",
};

std::string LowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

template <std::size_t Count>
bool IsAnyOf(const std::string& word, const char* const (&words)[Count]) {
    return std::any_of(std::begin(words), std::end(words),
                       [&word](const char* one) { return word == one; });
}

std::vector<std::string> PiecesOf(const std::string& path) {
    std::vector<std::string> pieces;
    for (std::size_t at = 0; at <= path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        if (end > at) pieces.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return pieces;
}

std::string Escaped(unsigned char c) {
    std::array<char, 4> text{};
    (void)std::snprintf(text.data(), text.size(), "%%%02X", c);
    return text.data();
}

bool IsFileName(const std::string& piece) {
    constexpr char kEnding[] = ".json";
    const std::string lower = LowerCase(piece);
    const std::size_t at = lower.rfind(kEnding);
    return at != std::string::npos && at + std::strlen(kEnding) == lower.size();
}

std::string FolderName(const std::string& piece) {
    const bool dots = piece == "." || piece == "..";
    const std::size_t lastDot = IsFileName(piece) ? piece.rfind('.') : std::string::npos;
    std::string name;
    for (std::size_t at = 0; at < piece.size(); ++at) {
        const auto c = static_cast<unsigned char>(piece[at]);
        const bool plain = std::isalnum(c) != 0 || std::strchr("_+,=@()~.-%", c) != nullptr;
        name += plain && !dots && at != lastDot ? std::string(1, piece[at]) : Escaped(c);
    }
    return name;
}

}  // namespace

Target TargetOf(const std::string& link, const Service& service, bool query) {
    std::string path = link.substr(0, link.find('#'));
    if (path.find("//") != std::string::npos && path.compare(0, sizeof kBelow - 1, kBelow) != 0) {
        const Reference leads = Resolve(path, "/", service.endpoint, service.address);
        if (!leads.other.empty()) return {"", "leads to another host"};
        path = leads.Target();
    }
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    if (path == "/redfish/v1") path += "/";  // the one whose slash is part of its name
    if (path.size() > kLongest) return {"", "is longer than any resource's name"};
    if (!IsPlainPath(path)) return {"", "does not lead below /redfish/"};
    if (!query && path.find('?') != std::string::npos) return {"", "is no name of a resource"};
    const auto pieces = PiecesOf(path.substr(0, path.find('?')));
    const bool tooLong = std::any_of(pieces.begin(), pieces.end(), [](const std::string& piece) {
        return FolderName(piece).size() > kLongestPiece;
    });
    if (tooLong) return {"", "is longer than any resource's name"};
    return {path, ""};
}

bool IsLeftOut(const std::string& path) {
    const auto pieces = PiecesOf(path.substr(0, path.find('?')));
    return std::any_of(pieces.begin(), pieces.end(), [](const std::string& piece) {
        return IsAnyOf(LowerCase(piece), kLeftOut);
    });
}

bool IsLeftOutType(const std::string& type) {
    std::string name = LowerCase(type.substr(0, type.find('.')));
    name.erase(0, name.find_first_not_of('#'));
    constexpr char kCollection[] = "collection";
    const std::size_t end = name.rfind(kCollection);
    const bool many = end != std::string::npos && end + std::strlen(kCollection) == name.size();
    return IsAnyOf(many ? name.substr(0, end) : name, kLeftOutTypes);
}

std::string FileName(const std::string& path, int page) {
    std::string name;
    for (const std::string& piece : PiecesOf(path.substr(0, path.find('?')))) {
        name += FolderName(piece) + "/";
    }
    if (page == 1) return name + "index.json";
    std::array<char, 32> file{};
    (void)std::snprintf(file.data(), file.size(), "page-%05d.json", page);
    return name + file.data();
}

}  // namespace Kemffdc::Redfish::Tree
