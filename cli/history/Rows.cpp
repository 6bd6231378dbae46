// SPDX-License-Identifier: Apache-2.0
#include "cli/history/Rows.h"

namespace Kemffdc::History {

const char kRunColumns[] =
    "id, command, tool_version, continues, channel, host, port, user, log_kind, export_uri, "
    "output, begun_at, ended_at, exit_code, outcome, reason, address, service_version, vendor, "
    "product, model, firmware, serial, uuid, certificate, host_key, task, task_state, bmc_path, "
    "fleet, fleet_number, operation, several";

RunRow ReadRun(const SQLite::Statement& statement) {
    Row row(statement);
    RunRow run;
    run.id = row.Number();
    run.command = row.Text();
    run.toolVersion = row.Text();
    run.continues = row.Number();
    run.channel = row.Text();
    run.host = row.Text();
    run.port = static_cast<std::uint16_t>(row.Int());
    run.user = row.Text();
    run.logKind = row.Text();
    run.exportUri = row.Text();
    run.output = row.Text();
    run.begunAt = row.Text();
    run.endedAt = row.Text();
    run.exitCode = row.Int(-1);
    run.outcome = row.Text();
    run.reason = row.Text();
    for (std::string* text :
         {&run.bmc.address, &run.bmc.serviceVersion, &run.bmc.vendor, &run.bmc.product,
          &run.bmc.model, &run.bmc.firmware, &run.bmc.serial, &run.bmc.uuid, &run.bmc.certificate,
          &run.bmc.hostKey, &run.task, &run.taskState, &run.bmcPath}) {
        *text = row.Text();
    }
    run.fleet = row.Number();
    run.fleetNumber = row.Int();
    run.operation = row.Text();
    run.several = row.Int() != 0;
    return run;
}

const char kArchiveColumns[] =
    "archives.id, archives.run, archives.name, archives.begun_at, archives.ended_at, partial, "
    "validator, expected, path, archives.size, archives.sha256, whole, detail, removed_at";

ArchiveRow ReadArchive(Row& row) {
    ArchiveRow archive;
    archive.id = row.Number();
    archive.run = row.Number();
    archive.name = row.Text();
    archive.begunAt = row.Text();
    archive.endedAt = row.Text();
    archive.partial = row.Text();
    archive.validator = row.Text();
    archive.expected = row.Bytes();
    archive.path = row.Text();
    archive.size = row.Bytes();
    archive.sha256 = row.Text();
    archive.whole = row.MaybeTrue();
    archive.detail = row.Text();
    archive.removedAt = row.Text();
    return archive;
}

}  // namespace Kemffdc::History
