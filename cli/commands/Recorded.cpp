// SPDX-License-Identifier: Apache-2.0
#include "cli/commands/Recorded.h"

#include <algorithm>
#include <boost/json.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "cli/Archive.h"
#include "cli/report/Json.h"

namespace Kemffdc {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;

constexpr std::uintmax_t kMaxRecord = std::uintmax_t{16} << 20;  // bytes
constexpr std::size_t kMaxDigits = 18;

std::optional<json::object> ReadObject(const std::string& path) {
    std::error_code error;
    if (!fs::is_regular_file(path, error) || fs::file_size(path, error) > kMaxRecord) return {};
    std::ifstream file(path, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const json::value value = json::parse(text, error);
    if (error || !value.is_object()) return {};
    return value.as_object();
}

History::RunRow RunOf(const json::object& object) {
    History::RunRow run;
    run.id = NumberIn(object, "run", 0);
    run.command = TextIn(object, "command");
    run.toolVersion = TextIn(object, "version");
    run.channel = TextIn(object, "channel");
    run.host = TextIn(object, "host");
    run.port = static_cast<std::uint16_t>(NumberIn(object, "port", 0));
    run.user = TextIn(object, "user");
    run.logKind = TextIn(object, "log_kind");
    run.operation = TextIn(object, "operation");
    run.begunAt = TextIn(object, "started");
    run.endedAt = TextIn(object, "ended");
    run.exitCode = static_cast<int>(NumberIn(object, "exit_code", -1));
    run.outcome = TextIn(object, "outcome");
    run.reason = TextIn(object, "reason");
    run.bmcPath = TextIn(object, "remote_path");
    const json::value* bmc = object.if_contains("bmc");
    if (bmc == nullptr || !bmc->is_object()) return run;
    const json::object& facts = bmc->as_object();
    run.bmc.address = TextIn(object, "address");
    run.bmc.serviceVersion = TextIn(facts, "service_version");
    run.bmc.vendor = TextIn(facts, "vendor");
    run.bmc.product = TextIn(facts, "product");
    run.bmc.model = TextIn(facts, "model");
    run.bmc.firmware = TextIn(facts, "firmware");
    run.bmc.serial = TextIn(facts, "serial");
    run.bmc.uuid = TextIn(facts, "uuid");
    run.bmc.hostKey = TextIn(facts, "host_key");
    return run;
}

void AddFile(const json::object& object, const std::string& path,
             std::vector<History::ArchiveRow>& files) {
    History::ArchiveRow file;
    file.path = path;
    file.size = static_cast<std::uint64_t>(NumberIn(object, "size", 0));
    file.sha256 = TextIn(object, "sha256");
    if (!file.sha256.empty()) files.push_back(file);
}

// A single archive stands in the object itself, several in its list of files.
std::vector<History::ArchiveRow> FilesOf(const json::object& object, const std::string& path) {
    std::vector<History::ArchiveRow> files;
    AddFile(object, path, files);
    const json::value* list = object.if_contains("files");
    if (list == nullptr || !list->is_array()) return files;
    for (const json::value& one : list->as_array()) {
        if (!one.is_object()) continue;
        const fs::path name = fs::path(TextIn(one.as_object(), "path")).filename();
        if (!name.empty()) AddFile(one.as_object(), (fs::path(path) / name).string(), files);
    }
    return files;
}

}  // namespace

std::optional<Recorded> ReadRecord(const std::string& path) {
    const std::optional<json::object> object = ReadObject(RecordPath(path));
    if (!object || object->if_contains("schema") == nullptr) return {};
    return Recorded{RunOf(*object), FilesOf(*object, path)};
}

std::optional<Recorded> FindRecorded(const std::string& path, const std::string& stateFolder) {
    if (std::optional<Recorded> found = ReadRecord(path)) return found;
    if (!History::Store::Exists(stateFolder)) return {};
    const History::Store store(stateFolder);
    std::error_code ignored;
    const std::vector<History::ArchiveRow> files =
        store.ArchivesAt(fs::weakly_canonical(path, ignored).string());
    if (files.empty()) return {};
    const std::optional<History::RunRow> run = store.FindRun(files.front().run);
    if (!run) return {};
    return Recorded{*run, {files.front()}};
}

History::Id RunNumber(const std::string& text) {
    const bool digits = !text.empty() && text.size() <= kMaxDigits &&
                        text.find_first_not_of("0123456789") == std::string::npos;
    return digits ? std::stoll(text) : 0;
}

std::string StateOf(const History::RunRow& run, const History::Store* store) {
    if (!run.outcome.empty()) return run.outcome;
    return store != nullptr && store->IsLive(run.id) ? "running" : "killed";
}

json::object RunRowObject(const History::RunRow& run, const std::string& state) {
    const auto number = [](std::int64_t value) {
        return value == 0 ? json::value(nullptr) : json::value(value);
    };
    return {{"run", number(run.id)},
            {"command", TextOrNull(run.command)},
            {"version", TextOrNull(run.toolVersion)},
            {"continues", number(run.continues)},
            {"channel", TextOrNull(run.channel)},
            {"host", TextOrNull(run.host)},
            {"address", TextOrNull(run.bmc.address)},
            {"port", number(run.port)},
            {"user", TextOrNull(run.user)},
            {"started", TextOrNull(run.begunAt)},
            {"ended", TextOrNull(run.endedAt)},
            {"outcome", state},
            {"exit_code", run.exitCode < 0 ? json::value(nullptr) : json::value(run.exitCode)},
            {"reason", TextOrNull(run.reason)},
            {"log_kind", TextOrNull(run.logKind)},
            {"operation", TextOrNull(run.operation)},
            {"task_uri", TextOrNull(run.task)},
            {"task_state", TextOrNull(run.taskState)},
            {"remote_path", TextOrNull(run.bmcPath)},
            {"export_uri", TextOrNull(run.exportUri)},
            {"vendor", TextOrNull(run.bmc.vendor)},
            {"product", TextOrNull(run.bmc.product)},
            {"model", TextOrNull(run.bmc.model)},
            {"firmware", TextOrNull(run.bmc.firmware)},
            {"serial", TextOrNull(run.bmc.serial)},
            {"uuid", TextOrNull(run.bmc.uuid)},
            {"certificate", TextOrNull(run.bmc.certificate)},
            {"host_key", TextOrNull(run.bmc.hostKey)}};
}

json::object ArchiveRowObject(const History::ArchiveRow& archive) {
    const bool delivered = !archive.path.empty();
    return {{"name", TextOrNull(archive.name)},
            {"path", TextOrNull(archive.path)},
            {"size", delivered ? json::value(archive.size) : json::value(nullptr)},
            {"sha256", TextOrNull(archive.sha256)},
            {"readable", archive.whole ? json::value(*archive.whole) : json::value(nullptr)},
            {"reason", TextOrNull(archive.detail)},
            {"partial", TextOrNull(archive.partial)},
            {"removed", TextOrNull(archive.removedAt)}};
}

}  // namespace Kemffdc
