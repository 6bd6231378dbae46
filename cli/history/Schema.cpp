// SPDX-License-Identifier: Apache-2.0
#include "cli/history/Schema.h"

namespace Kemffdc::History {

const char* const kMigrations[kSchema] = {
    R"(
CREATE TABLE runs (
    id INTEGER PRIMARY KEY AUTOINCREMENT,  -- people know runs by it: never given twice
    command TEXT NOT NULL,
    tool_version TEXT NOT NULL,
    continues INTEGER REFERENCES runs(id),
    channel TEXT,
    host TEXT,
    port INTEGER,
    user TEXT,
    log_kind TEXT,
    export_uri TEXT,
    output TEXT,
    begun_at TEXT NOT NULL,  -- UTC, as all times
    ended_at TEXT,           -- null: it lives, or has ended without a word
    exit_code INTEGER,
    outcome TEXT,
    reason TEXT,
    address TEXT,
    service_version TEXT,
    vendor TEXT,
    product TEXT,
    model TEXT,
    firmware TEXT,
    serial TEXT,
    uuid TEXT,
    certificate TEXT,
    host_key TEXT,
    task TEXT,
    task_state TEXT,
    bmc_path TEXT
) STRICT;
CREATE INDEX runs_by_host ON runs(host);
CREATE INDEX runs_by_serial ON runs(serial);
CREATE TABLE steps (
    run INTEGER NOT NULL REFERENCES runs(id),
    number INTEGER NOT NULL,
    name TEXT NOT NULL,
    begun_at TEXT NOT NULL,
    ended_at TEXT,
    code INTEGER,
    seconds REAL,
    detail TEXT,
    PRIMARY KEY (run, number)
) STRICT, WITHOUT ROWID;
CREATE TABLE archives (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    run INTEGER NOT NULL REFERENCES runs(id),
    name TEXT,
    begun_at TEXT NOT NULL,
    ended_at TEXT,
    partial TEXT,
    validator TEXT,
    expected INTEGER,
    path TEXT,
    size INTEGER,
    sha256 TEXT,
    whole INTEGER,
    detail TEXT
) STRICT;
CREATE INDEX archives_by_run ON archives(run);
CREATE INDEX archives_by_path ON archives(path);
)",
    R"(
CREATE TABLE fleet_runs (
    id INTEGER PRIMARY KEY AUTOINCREMENT,  -- people know fleet runs by it: never given twice
    command TEXT NOT NULL,
    tool_version TEXT NOT NULL,
    inventory TEXT,
    shard TEXT,
    folder TEXT,
    credentials TEXT,  -- path of the file that names them
    settings TEXT,     -- JSON object
    begun_at TEXT NOT NULL,
    ended_at TEXT,     -- null: it lives, or has ended without a word
    exit_code INTEGER
) STRICT;
CREATE TABLE fleet_hosts (
    fleet INTEGER NOT NULL REFERENCES fleet_runs(id),
    number INTEGER NOT NULL,
    name TEXT NOT NULL,
    host TEXT NOT NULL,
    channel TEXT,
    host_group TEXT,
    credential TEXT,
    arguments TEXT,  -- JSON array
    state TEXT NOT NULL,
    changed_at REAL,  -- seconds since 1970
    attempts INTEGER NOT NULL DEFAULT 0,
    run INTEGER REFERENCES runs(id),  -- of the latest attempt
    exit_code INTEGER,
    outcome TEXT,
    reason TEXT,
    export_uri TEXT,
    archive TEXT,
    size INTEGER,
    sha256 TEXT,
    PRIMARY KEY (fleet, number)
) STRICT, WITHOUT ROWID;
CREATE TABLE fleet_states (
    id INTEGER PRIMARY KEY,
    fleet INTEGER NOT NULL REFERENCES fleet_runs(id),
    number INTEGER NOT NULL,
    at REAL NOT NULL,  -- seconds since 1970
    state TEXT NOT NULL,
    detail TEXT
) STRICT;
CREATE INDEX fleet_states_by_host ON fleet_states(fleet, number);
ALTER TABLE runs ADD COLUMN fleet INTEGER REFERENCES fleet_runs(id);
ALTER TABLE runs ADD COLUMN fleet_number INTEGER;
ALTER TABLE runs ADD COLUMN operation TEXT;
ALTER TABLE runs ADD COLUMN task_percent INTEGER;
ALTER TABLE runs ADD COLUMN several INTEGER;  -- it was to bring archives of several tasks
ALTER TABLE archives ADD COLUMN removed_at TEXT;  -- null: still to be there
CREATE INDEX runs_by_fleet ON runs(fleet, fleet_number) WHERE fleet IS NOT NULL;
)"};

}  // namespace Kemffdc::History
