// SPDX-License-Identifier: Apache-2.0
#include "cli/report/Report.h"

#include <utility>

#include "LogSink.h"
#include "cli/Utc.h"
#include "cli/terminal/LockSoon.h"

namespace Kemffdc {
namespace {

using Guard = std::lock_guard<std::mutex>;

const char* NameOf(Command command) {
    switch (command) {
        case Command::kCheck:
            return "check";
        case Command::kResume:
            return "resume";
        default:
            return "collect";
    }
}

std::string Hidden(const std::string& text) { return Varnex::WithoutHiddenSecrets(text); }

Attempt Hidden(Attempt attempt) {
    attempt.outcome.reason = Hidden(attempt.outcome.reason);
    return attempt;
}

BmcFacts Hidden(BmcFacts facts) {
    for (std::string* text : {&facts.serviceVersion, &facts.product, &facts.vendor, &facts.model,
                              &facts.firmware, &facts.serial, &facts.uuid}) {
        *text = Hidden(*text);
    }
    for (std::string& note : facts.notes) note = Hidden(note);
    return facts;
}

Task Hidden(Task task) {
    for (std::string* text : {&task.uri, &task.state, &task.status}) *text = Hidden(*text);
    for (TaskMessage& message : task.messages) {
        for (std::string* text :
             {&message.id, &message.text, &message.severity, &message.resolution}) {
            *text = Hidden(*text);
        }
    }
    return task;
}

// The path on this machine is the operator's own.
Delivery Hidden(Delivery delivery) {
    delivery.exportUri = Hidden(delivery.exportUri);
    delivery.remotePath = Hidden(delivery.remotePath);
    for (DeliveredFile& file : delivery.files) file.damage = Hidden(file.damage);
    return delivery;
}

void SetTrustIn(std::optional<Certificate>& certificate, CertificateTrust trust) {
    if (!certificate) return;
    certificate->trust = trust;
    certificate->verified =
        trust == CertificateTrust::kFingerprint || trust == CertificateTrust::kKnown;
}

}  // namespace

Report::Report(const Options& options) {
    m_record.command = NameOf(options.command);
    m_record.channel = options.via;
    m_record.host = options.host;
    m_record.port = options.port;
    m_record.user = options.user;
    m_record.caFile = options.caFile;
    m_record.started = UtcNow();
}

void Report::SetWay(const std::string& channel, std::uint16_t port) {
    {
        const Guard hold(m_lock);
        m_record.channel = channel;
        m_record.port = port;
    }
    Tell(&ReportObserver::WayChosen, channel, port);
}

void Report::LeaveWayOpen() {
    const Guard hold(m_lock);
    m_record.channel.clear();
    m_record.port = 0;
    m_record.logKind.clear();
    m_record.operation.clear();
    m_record.operationReason.clear();
    m_record.part.reset();
}

void Report::SetPart(std::shared_ptr<const ChannelPart> part) {
    const Guard hold(m_lock);
    m_record.part = std::move(part);
}

void Report::SetNumber(std::int64_t number) {
    const Guard hold(m_lock);
    m_record.number = number;
}

void Report::SetLogKind(const std::string& kind) {
    const Guard hold(m_lock);
    m_record.logKind = kind;
}

void Report::SetOperation(const std::string& operation, const std::string& why) {
    const std::string hidden = Hidden(why);
    {
        const Guard hold(m_lock);
        m_record.operation = operation;
        m_record.operationReason = hidden;
    }
    Tell(&ReportObserver::OperationChosen, operation, hidden);
}

void Report::Begin() {
    RunRecord known;
    {
        const Guard hold(m_lock);
        known = m_record;
    }
    Tell(&ReportObserver::RunBegun, known);
}

void Report::AddAttempt(const Attempt& attempt) {
    const Attempt hidden = Hidden(attempt);
    {
        const Guard hold(m_lock);
        m_record.attempts.push_back(hidden);
    }
    Tell(&ReportObserver::AttemptEnded, hidden);
}

void Report::BeginStep(const std::string& name) {
    {
        const Guard hold(m_lock);
        m_open = name;
        m_openSince = std::chrono::steady_clock::now();
    }
    Tell(&ReportObserver::StepBegun, name);
}

void Report::EndStep(int code, const std::string& detail) {
    Step ended;
    {
        const Guard hold(m_lock);
        ended = CloseStep(code, Hidden(detail));
    }
    Tell(&ReportObserver::StepEnded, ended);
}

Step Report::CloseStep(int code, const std::string& detail) {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - m_openSince;
    m_record.steps.push_back({std::exchange(m_open, ""), code, time.count(), detail});
    return m_record.steps.back();
}

void Report::AddNote(const std::string& sentence) {
    BmcFacts facts;
    {
        const Guard hold(m_lock);
        m_notes.push_back(Hidden(sentence));
        m_record.facts.notes.push_back(m_notes.back());
        facts = m_record.facts;
    }
    Tell(&ReportObserver::FactsChanged, facts);
}

void Report::SetTrust(CertificateTrust trust) {
    const Guard hold(m_lock);
    m_trust = trust;
}

void Report::SetFacts(const BmcFacts& facts) {
    BmcFacts hidden = Hidden(facts);
    {
        const Guard hold(m_lock);
        hidden.notes.insert(hidden.notes.end(), m_notes.begin(), m_notes.end());
        if (m_trust != CertificateTrust::kNobody) SetTrustIn(hidden.certificate, m_trust);
        m_record.facts = hidden;
    }
    Tell(&ReportObserver::FactsChanged, hidden);
}

void Report::SetTask(const Task& task) {
    const Task hidden = Hidden(task);
    {
        const Guard hold(m_lock);
        m_record.task = hidden;
    }
    Tell(&ReportObserver::TaskChanged, hidden);
}

void Report::SetDelivery(const Delivery& delivery) {
    const Delivery hidden = Hidden(delivery);
    {
        const Guard hold(m_lock);
        m_record.delivery = hidden;
    }
    Tell(&ReportObserver::DeliveryChanged, hidden);
}

void Report::Reach(Milestone milestone, const std::string& detail) {
    {
        const Guard hold(m_lock);
        if (m_milestone == milestone) return;
        m_milestone = milestone;
    }
    Tell(&ReportObserver::MilestoneReached, milestone, Hidden(detail));
}

void Report::WantTurn() { Tell(&ReportObserver::TurnWanted); }

RunRecord Report::Now() {
    const Guard hold(m_lock);
    return m_record;
}

std::optional<RunRecord> Report::End(const Outcome& outcome) {
    const std::unique_lock<std::mutex> hold = LockSoon(m_lock);
    if (!hold.owns_lock()) return std::nullopt;
    if (!m_open.empty()) CloseStep(-1, "not ended");
    m_record.ended = UtcNow();
    m_record.outcome = outcome;
    m_record.outcome.reason = Hidden(outcome.reason);
    return m_record;
}

}  // namespace Kemffdc
