// SPDX-License-Identifier: Apache-2.0
#include "IpmiModule.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <mutex>

namespace {

constexpr char kNotAvailable[] = "IPMI is not available: the module ";

std::string ModulePath() {
    std::string module(VARNEX_IPMI_MODULE);
    if (module.front() == '/') return module;  // a static library knows no folder of its own
    Dl_info here{};
    if (dladdr(kNotAvailable, &here) == 0 || here.dli_fname == nullptr) return {};
    const std::unique_ptr<char, decltype(&std::free)> file(realpath(here.dli_fname, nullptr),
                                                           &std::free);
    if (!file) return {};
    const std::string library(file.get());
    return library.substr(0, library.rfind('/') + 1) + module;
}

// Found while the library is loaded: its own name may be relative, and the host may later change
// its current folder. Never destroyed: the last connect() may come late.
const auto& g_modulePath = *new std::string(ModulePath());

const varnex_ipmi_module* OpenModule(const std::string& path, std::string& why) {
    // An empty name would be the host itself.
    void* library = path.empty() ? nullptr : dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const char* reason = dlerror();
        why = kNotAvailable + path;
        why += access(path.c_str(), F_OK) == 0
                   ? " cannot be loaded; it needs the package libfreeipmi17: "
                   : " is missing; it is built with -DVARNEX_IPMI=ON from libfreeipmi-dev: ";
        why += reason != nullptr ? reason : "no reason given";
        return nullptr;
    }
    const auto entry =
        reinterpret_cast<varnex_ipmi_module_entry>(dlsym(library, VARNEX_IPMI_MODULE_ENTRY));
    if (entry != nullptr && entry()->version == VARNEX_IPMI_MODULE_VERSION) return entry();
    why = kNotAvailable + path + " is of another version than this library";
    dlclose(library);
    return nullptr;
}

}  // namespace

const varnex_ipmi_module* LoadIpmiModule(std::string& why) {
    static std::mutex mutex;
    static const varnex_ipmi_module* module = nullptr;
    const std::lock_guard<std::mutex> lock(mutex);
    if (module == nullptr) module = OpenModule(g_modulePath, why);
    return module;
}
