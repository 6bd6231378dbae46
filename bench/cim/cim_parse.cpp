// SPDX-License-Identifier: Apache-2.0
//
// bench_cim_parse [PROPERTIES [ROUNDS]]: reads enumeration answers of PROPERTIES (10000) and twice
// as many, as one instance and as instances of ten. Prints a line for each: properties of an
// instance, milliseconds, those for twice as many, and the memory that reading takes at its peak
// for both, in multiples of the answer.
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>

#include "XmlReader.h"

namespace {

using Pegasus::Internal::EnumerateInstancesAnswer;
using Pegasus::Internal::ReadEnumerateInstances;

std::string Property(int number) {
    const std::string name = "Property" + std::to_string(number);
    if (number % 2 == 0) {
        return "<PROPERTY NAME=\"" + name + "\"  TYPE=\"uint16\">\n<VALUE>" +
               std::to_string(number % 65536) + "</VALUE>\n</PROPERTY>\n";
    }
    return "<PROPERTY NAME=\"" + name + "\"  TYPE=\"string\">\n<VALUE>value &quot;" +
           std::to_string(number) + "&quot; of some length</VALUE>\n</PROPERTY>\n";
}

std::string Answer(int properties, int perInstance) {
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\">\n"
        "<MESSAGE ID=\"1000\" PROTOCOLVERSION=\"1.0\">\n<SIMPLERSP>\n"
        "<IMETHODRESPONSE NAME=\"EnumerateInstances\">\n<IRETURNVALUE>\n";
    for (int at = 0; at < properties; at += perInstance) {
        xml +=
            "<VALUE.NAMEDINSTANCE>\n<INSTANCENAME CLASSNAME=\"ZOR_FFDCData\">\n"
            "<KEYBINDING NAME=\"InstanceID\">\n<KEYVALUE VALUETYPE=\"string\">ZOR:FFDC:" +
            std::to_string(at) +
            "</KEYVALUE>\n</KEYBINDING>\n</INSTANCENAME>\n"
            "<INSTANCE CLASSNAME=\"ZOR_FFDCData\" >\n";
        for (int i = 0; i < perInstance; ++i) xml += Property(at + i);
        xml += "</INSTANCE>\n</VALUE.NAMEDINSTANCE>\n";
    }
    return xml + "</IRETURNVALUE>\n</IMETHODRESPONSE>\n</SIMPLERSP>\n</MESSAGE>\n</CIM>\n";
}

// The processor's time, and of all rounds the shortest: other work on the machine must not count.
double Milliseconds(const std::string& answer, int rounds) {
    double best = 1e9;
    for (int i = 0; i < rounds; ++i) {
        ::malloc_trim(0);  // each round takes its memory from the system, as a first one does
        std::string document = answer;
        const std::clock_t start = std::clock();
        const EnumerateInstancesAnswer read = ReadEnumerateInstances(document, 1000);
        const double took = static_cast<double>(std::clock() - start) * 1000 / CLOCKS_PER_SEC;
        if (read.instances.size() == 0) std::abort();
        best = std::min(best, took);
    }
    return best;
}

long KibOf(const std::string& line) {
    std::ifstream status("/proc/self/status");
    for (std::string each; std::getline(status, each);) {
        if (each.rfind(line, 0) == 0) return std::atol(each.c_str() + line.size());
    }
    return 0;
}

// The peak above what the process had before, the answer itself included, in multiples of it. In a
// process of its own, so that nothing earlier counts.
double PeakMemory(const std::string& answer) {
    int ends[2];
    if (::pipe(ends) != 0) std::abort();
    const pid_t child = ::fork();
    if (child == 0) {
        ::malloc_trim(0);  // what is free already would hide what is taken
        const long before = KibOf("VmRSS:");
        std::ofstream("/proc/self/clear_refs") << "5";  // the peak starts anew
        std::string document = answer;
        const EnumerateInstancesAnswer read = ReadEnumerateInstances(document, 1000);
        const long kib = read.instances.size() == 0 ? -1 : KibOf("VmHWM:") - before;
        const bool told = ::write(ends[1], &kib, sizeof kib) == sizeof kib;
        ::_exit(told ? 0 : 1);
    }
    long kib = -1;
    const bool heard = ::read(ends[0], &kib, sizeof kib) == sizeof kib;
    ::close(ends[0]);
    ::close(ends[1]);
    ::waitpid(child, nullptr, 0);
    return heard ? static_cast<double>(kib) * 1024 / static_cast<double>(answer.size()) : -1;
}

void Measure(int properties, int perInstance, int perInstanceOfDouble, int rounds) {
    const std::string single = Answer(properties, perInstance);
    const std::string twice = Answer(2 * properties, perInstanceOfDouble);
    const double first = Milliseconds(single, rounds);
    const double second = Milliseconds(twice, rounds);
    std::printf("%d %.3f %.3f %.2f %.2f\n", perInstance, first, second, PeakMemory(single),
                PeakMemory(twice));
}

}  // namespace

int main(int argc, char** argv) {
    const int properties = argc > 1 ? std::atoi(argv[1]) : 10000;
    const int rounds = argc > 2 ? std::atoi(argv[2]) : 21;
    if (properties < 10 || properties % 10 != 0 || rounds < 1) {
        std::fprintf(stderr, "usage: bench_cim_parse [PROPERTIES, a multiple of 10 [ROUNDS]]\n");
        return 2;
    }
    Measure(properties, properties, 2 * properties, rounds);
    Measure(properties, 10, 10, rounds);
    return 0;
}
