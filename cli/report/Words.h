// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REPORT_WORDS_H
#define KEMFFDC_REPORT_WORDS_H

#include <iosfwd>

#include "cli/report/RunRecord.h"

namespace Kemffdc {

// What a run has brought, for people: nothing where it has brought nothing.
void WriteWords(const RunRecord& record, std::ostream& out);

// Why a run did not end well, with its exit code; nothing where it did.
void WriteReason(const Outcome& outcome, std::ostream& err);

}  // namespace Kemffdc

#endif
