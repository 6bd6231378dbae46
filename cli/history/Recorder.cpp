// SPDX-License-Identifier: Apache-2.0
#include "cli/history/Recorder.h"

#include <exception>

#include "cli/terminal/LockSoon.h"

namespace Kemffdc::History {
namespace {

std::string LastComponent(const std::string& path) { return path.substr(path.rfind('/') + 1); }

Bmc BmcOf(const BmcFacts& facts) {
    Bmc bmc;
    bmc.address = facts.address;
    bmc.serviceVersion = facts.serviceVersion;
    bmc.vendor = facts.vendor;
    bmc.product = facts.product;
    bmc.model = facts.model;
    bmc.firmware = facts.firmware;
    bmc.serial = facts.serial;
    bmc.uuid = facts.uuid;
    if (facts.certificate) bmc.certificate = facts.certificate->sha256;
    bmc.hostKey = facts.hostKey;
    return bmc;
}

}  // namespace

Recorder::~Recorder() {
    if (m_run != 0) Varnex::RemoveTransferWatcher(this);
}

void Recorder::Begin(const std::string& stateFolder, const RunRow& run) {
    {
        const std::lock_guard<std::mutex> hold(m_lock);
        try {
            m_store = std::make_unique<Store>(stateFolder, &m_hurry);
            m_run = m_store->BeginRun(run);
            m_fleet = run.fleet;
            m_fleetNumber = run.fleetNumber;
            if (m_fleet != 0) m_journal = std::make_unique<FleetJournal>(*m_store);
        } catch (const std::exception& failure) {
            m_broken = true;
            m_trouble = failure.what();
        }
    }
    if (m_run != 0) Varnex::AddTransferWatcher(this);
}

// Does `work` where the history can be written.
template <class Work>
void Recorder::Write(const Work& work) noexcept {
    const std::lock_guard<std::mutex> hold(m_lock);
    if (m_run == 0 || m_broken) return;
    try {
        work();
    } catch (const std::exception& failure) {
        m_broken = true;
        m_trouble = failure.what();
    }
}

void Recorder::End(const RunRecord& record) {
    const std::unique_lock<std::mutex> hold = LockSoon(m_lock);
    if (!hold.owns_lock() || m_run == 0) return;
    try {
        // Also after trouble, which may be over: how a run ended is worth another try.
        m_store->EndRun(m_run, record.outcome.code, OutcomeName(record), record.outcome.reason);
        EndInFleet(record);
    } catch (const std::exception& failure) {
        if (!m_broken) m_trouble = failure.what();
        m_broken = true;
    }
}

void Recorder::EndInFleet(const RunRecord& record) {
    if (!m_journal) return;
    const Outcome& outcome = record.outcome;
    const bool stopped = outcome.code == kInterrupted;
    const HostState end = stopped ? HostState::kStopped : HostState::kFailed;
    m_journal->EndHost(m_fleet, m_fleetNumber, outcome.Ok() ? HostState::kDone : end, outcome.code,
                       OutcomeName(record), outcome.reason);
}

std::string Recorder::TakeTrouble() {
    const std::unique_lock<std::mutex> hold = LockSoon(m_lock);
    return hold.owns_lock() ? std::exchange(m_trouble, "") : "";
}

void Recorder::WayChosen(const std::string& channel, std::uint16_t port) {
    Write([&] { m_store->SetWay(m_run, channel, port); });
}

void Recorder::OperationChosen(const std::string& operation, const std::string& /*why*/) {
    Write([&] { m_store->SetOperation(m_run, operation); });
}

void Recorder::StepBegun(const std::string& name) {
    Write([&] { m_store->BeginStep(m_run, name); });
}

void Recorder::StepEnded(const Step& step) {
    Write([&] { m_store->EndStep(m_run, step.code, step.seconds, step.detail); });
}

void Recorder::FactsChanged(const BmcFacts& facts) {
    Write([&] { m_store->SetBmc(m_run, BmcOf(facts)); });
}

void Recorder::TaskChanged(const Task& task) {
    Write([&] {
        const bool isNews =
            task.uri != m_task.uri || task.state != m_task.state || task.percent != m_task.percent;
        if (!isNews) return;
        m_store->SetTask(m_run, task.uri, task.state, task.percent);
        m_task = task;
    });
}

void Recorder::SetSeveral() {
    m_several = true;
    Write([&] { m_store->SetSeveral(m_run); });
}

void Recorder::SetBmcPath(const std::string& path) {
    Write([&] {
        m_bmcPath = path;
        m_store->SetBmcPath(m_run, path);
    });
}

void Recorder::Started(const std::string& localPath) {
    Write([&] {
        const std::string& known = m_bmcPath.empty() ? localPath : m_bmcPath;
        m_files[localPath] = {m_store->BeginArchive(m_run, LastComponent(known)), ""};
    });
}

void Recorder::PartBegun(const Varnex::PartialFile& part) {
    Write([&] {
        const auto file = m_files.find(part.localPath);
        if (file == m_files.end()) return;
        m_store->SetPartial(file->second.id, part.localPath + Varnex::kPartSuffix, part.validator,
                            part.expected);
    });
}

void Recorder::Completed(const Varnex::TransferResult& result) {
    Write([&] {
        const auto file = m_files.find(result.localPath);
        if (file != m_files.end()) file->second.sha256 = result.sha256;
    });
}

void Recorder::Ended(const std::string& localPath, const std::error_code& error) {
    if (!error) return;
    Write([&] {
        const auto file = m_files.find(localPath);
        if (file == m_files.end()) return;
        m_store->FailArchive(file->second.id, error.message());
        m_files.erase(file);
    });
}

void Recorder::DeliveryChanged(const Delivery& delivery) {
    Write([&] {
        for (const DeliveredFile& file : delivery.files) Deliver(file);
        if (m_journal) DeliverToFleet(delivery);
    });
}

void Recorder::MilestoneReached(Milestone milestone, const std::string& detail) {
    Write([&] {
        const auto state = HostStateNamed(NameOf(milestone));
        if (m_journal && state) m_journal->SetState(m_fleet, m_fleetNumber, *state, detail);
    });
}

void Recorder::DeliverToFleet(const Delivery& delivery) {
    if (!delivery.exportUri.empty()) {
        m_journal->SetExported(m_fleet, m_fleetNumber, delivery.exportUri);
    }
    if (delivery.path.empty()) return;
    m_journal->SetArchive(m_fleet, m_fleetNumber, delivery.path, delivery.size, delivery.sha256);
}

void Recorder::Deliver(const DeliveredFile& file) {
    ArchiveRow archive;
    archive.path = file.path;
    archive.size = file.size;
    archive.sha256 = file.sha256;
    archive.whole = file.whole;
    archive.detail = file.damage;
    m_store->Deliver(RowOf(file), archive);
}

// The row that was begun when the file began to come. It may have another name now; of two files
// with the same content the one with the same name is meant.
Id Recorder::RowOf(const DeliveredFile& file) {
    auto found = m_files.end();
    for (auto one = m_files.begin(); one != m_files.end(); ++one) {
        if (one->second.sha256 != file.sha256) continue;
        const bool sameName = LastComponent(one->first) == LastComponent(file.path);
        if (found == m_files.end() || sameName) found = one;
    }
    if (found == m_files.end()) return m_store->BeginArchive(m_run, LastComponent(file.path));
    const Id id = found->second.id;
    m_files.erase(found);
    return id;
}

}  // namespace Kemffdc::History
