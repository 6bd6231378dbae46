// SPDX-License-Identifier: Apache-2.0
// What the reading of an answer takes at most, whatever the answer is. Counts what is asked of the
// allocator, which is the same in every build; README.md has the figures of a whole process.
#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <pugixml.hpp>

#include "XmlReader.h"
#include "support.h"

using namespace Pegasus;

namespace {

std::atomic<std::size_t> g_held{0};
std::atomic<std::size_t> g_peak{0};

void* Allocate(std::size_t size) {
    void* block = std::malloc(size);
    if (block == nullptr) return nullptr;
    const std::size_t held = g_held += ::malloc_usable_size(block);
    std::size_t peak = g_peak;
    while (held > peak && !g_peak.compare_exchange_weak(peak, held)) {
    }
    return block;
}

void Release(void* block) {
    if (block == nullptr) return;
    g_held -= ::malloc_usable_size(block);
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
    void* block = Allocate(size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* block) noexcept { Release(block); }
void operator delete(void* block, std::size_t) noexcept { Release(block); }

namespace {

constexpr std::size_t kMiB = std::size_t{1024} * 1024;

struct Answer {
    const char* name;
    std::size_t size;  // MiB
    std::string before;
    std::string piece;  // "#" stands for its number
    std::string after;
    bool ofMethod = false;
};

// As many pieces as a document of its size holds.
std::string Filled(const Answer& answer) {
    const std::size_t size = answer.size * kMiB;
    const std::size_t number = answer.piece.find('#');
    const std::string before = answer.piece.substr(0, number);
    const std::string after = number == std::string::npos ? "" : answer.piece.substr(number + 1);
    std::string all = answer.before;
    all.reserve(size);
    for (int i = 0; all.size() + answer.piece.size() + answer.after.size() + 500 < size; ++i) {
        all += before;
        if (number != std::string::npos) all += std::to_string(i) + after;
    }
    return all + answer.after;
}

std::string Nested(int levels, std::string xml) {
    for (int i = 0; i < levels; ++i) {
        xml.insert(0, "<KEYBINDING NAME=\"k\"><VALUE.REFERENCE><INSTANCENAME CLASSNAME=\"A\">");
        xml += "</INSTANCENAME></VALUE.REFERENCE></KEYBINDING>";
    }
    return xml;
}

// Each of the size at which it takes most: just within the bounds, or the whole body.
std::vector<Answer> Answers() {
    const std::string start =
        "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"A\"/><INSTANCE CLASSNAME=\"A\">";
    const std::string end = "</INSTANCE></VALUE.NAMEDINSTANCE>";
    const std::string array = start + "<PROPERTY.ARRAY NAME=\"P\" TYPE=\"";
    const std::string arrayEnd = "</VALUE.ARRAY></PROPERTY.ARRAY>" + end;
    const std::string key = "<KEYBINDING NAME=\"k\"><KEYVALUE>\"</KEYVALUE></KEYBINDING>";
    const std::string nested = "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"A\">" +
                               Nested(12, key) +
                               "</INSTANCENAME><INSTANCE CLASSNAME=\"A\"/></VALUE.NAMEDINSTANCE>";
    return {
        {"instances", 16, "", start + end, ""},
        {"nested references as keys", 16, "", nested, ""},
        {"keys", 10, "<VALUE.NAMEDINSTANCE><INSTANCENAME CLASSNAME=\"A\">", key,
         "</INSTANCENAME><INSTANCE CLASSNAME=\"A\"/></VALUE.NAMEDINSTANCE>"},
        {"properties", 12, start, "<PROPERTY NAME=\"P#\" TYPE=\"string\"/>", end},
        {"properties with origins", 14, start,
         "<PROPERTY NAME=\"P#\" TYPE=\"string\" CLASSORIGIN=\"A\"/>", end},
        {"properties with qualifiers", 14, start,
         "<PROPERTY NAME=\"P#\" TYPE=\"string\"><QUALIFIER NAME=\"Q\" TYPE=\"string\"/></PROPERTY>",
         end},
        {"qualifiers", 12, start, "<QUALIFIER NAME=\"Q#\" TYPE=\"string\"/>", end},
        {"empty elements", 3, "", "<a/>", ""},
        {"attributes", 6, "<a ", "a='' ", "/>"},
        {"empty texts", 6, array + "string\"><VALUE.ARRAY>", "<VALUE/>", arrayEnd},
        {"empty times", 6, array + "datetime\"><VALUE.ARRAY>", "<VALUE/>", arrayEnd},
        {"reals", 6, array + "real64\"><VALUE.ARRAY>", "<VALUE>1</VALUE>", arrayEnd},
        {"an element with a long name", 16, "<", "a", "/>"},
        {"texts of half a mebibyte", 16, start,
         "<PROPERTY NAME=\"P#\" TYPE=\"string\"><VALUE>" + std::string(kMiB / 2, 'x') +
             "</VALUE></PROPERTY>",
         end},
        {"out-parameters", 10, "", "<PARAMVALUE NAME=\"a\"/>", "", true},
        {"references", 14, "<PARAMVALUE NAME=\"a\"><VALUE.REFARRAY>",
         "<VALUE.REFERENCE><CLASSNAME NAME=\"A\"/></VALUE.REFERENCE>",
         "</VALUE.REFARRAY></PARAMVALUE>", true},
        {"a long return value", 16, "<RETURNVALUE><VALUE>", "x", "</VALUE></RETURNVALUE>", true},
    };
}

std::string Read(std::string& document, bool ofMethod) {
    std::string outcome = "taken";
    const std::string thrown = Thrown([&] {
        if (ofMethod) {
            (void)Internal::ReadInvokeMethod(document, 1);
            return;
        }
        const auto answer = Internal::ReadEnumerateInstances(document, 1);
        for (Uint32 i = 0; i < answer.instances.size(); ++i) {  // as the channel does
            CIMInstance instance = answer.instances[i];
            const Uint32 place = instance.findProperty("P");
            if (place == PEG_NOT_FOUND) continue;
            const std::string text = Utf8(instance.getProperty(place).getValue().toString());
            EXPECT_LT(text.size(), 7 * kMiB);
        }
    });
    return thrown.empty() ? outcome : thrown;
}

// In MiB: the document and all that it takes to read it.
std::size_t PeakOf(const Answer& answer) {
    const std::string inside = Filled(answer);
    const std::size_t before = g_held;
    std::string document = answer.ofMethod ? MethodXml(inside) : EnumerationXml(inside);
    document.replace(document.find("@ID@"), 4, "1");
    g_peak = g_held.load();
    const std::string outcome = Read(document, answer.ofMethod);
    const std::size_t peak = (g_peak - before) / kMiB;
    std::printf("%s, %zu MiB: %zu MiB, %s\n", answer.name, answer.size, peak,
                outcome.substr(0, 120).c_str());
    return peak;
}

}  // namespace

TEST(PegasusMemory, NoAnswerTakesMoreThan140MiB) {
    pugi::set_memory_management_functions(Allocate, Release);
    for (const Answer& answer : Answers()) EXPECT_LT(PeakOf(answer), 140U) << answer.name;
}
