// SPDX-License-Identifier: Apache-2.0
//
// sample_reports FOLDER HOSTS: writes the reports of a made-up run into the folder.
#include <cstdlib>
#include <iostream>
#include <string>

#include "SampleResults.h"
#include "cli/WholeFile.h"
#include "cli/fleet/ReportPage.h"
#include "cli/fleet/ResultsCsv.h"
#include "cli/fleet/ResultsJson.h"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const std::string folder = argv[1];
    SampleResults sample(std::atoi(argv[2]), folder);
    const Kemffdc::Fleet::Results& results = sample.Get();
    for (const auto& [name, text] :
         {std::pair<std::string, std::string>{"report.json", ReportJson(results)},
          {"report.csv", ReportCsv(results)},
          {"report.html", ReportPage(results, folder)}}) {
        const Kemffdc::Outcome outcome =
            Kemffdc::WriteWholeFile(folder + "/" + name, text, Kemffdc::kForAll);
        if (!outcome.Ok()) std::cerr << outcome.reason << "\n";
        if (!outcome.Ok()) return 1;
    }
    return 0;
}
