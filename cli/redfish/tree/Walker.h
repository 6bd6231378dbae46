// SPDX-License-Identifier: Apache-2.0
#ifndef KEMFFDC_REDFISH_TREE_WALKER_H
#define KEMFFDC_REDFISH_TREE_WALKER_H

#include <boost/json.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "cli/archive/TreeManifest.h"
#include "cli/http/Transport.h"
#include "cli/redfish/tree/Paths.h"

namespace Kemffdc::Redfish::Tree {

// Where resources come from.
class Source {
public:
    virtual ~Source() = default;

    // One GET, and nothing else meanwhile. `path` may have a query.
    virtual Answer Get(const std::string& path) = 0;

    // Why nothing more is to be had of it, a whole sentence; empty: go on asking.
    virtual std::string Ended() const = 0;
};

// Where they go.
class Sink {
public:
    virtual ~Sink() = default;

    // A file, named as FileName() does. False: none is taken any more.
    virtual bool Take(const std::string& name, const std::string& content) = 0;
};

// What reading a tree may cost. docs/redfish-operations.md names the figures.
struct Bounds {
    std::uint64_t requests = 20000;
    std::uint64_t bytes = std::uint64_t{512} << 20;  // of answers
    int depth = 16;                                  // links from the service root on
    int pages = 1000;                                // of one collection
    std::size_t known = 100000;                      // resources that links have named
    std::chrono::seconds time{1800};
};

// A resource that could not be read, or a link that was not followed. Fit for display.
struct Unread {
    std::string path;   // or the link, as the BMC gave it
    long httpCode = 0;  // 0: no answer, or nobody has asked
    std::string reason;
};

// Reads a Redfish service from its root on, along its links, nearest first and entries of logs
// last, one request after the other. Each resource is asked for once. Collections are read to their
// last page; where the service offers it, their members come with them ($expand, DSP0266). Memory
// holds one answer and the names of resources.
class Walker {
public:
    // `stop` is asked before each request; may be empty.
    Walker(Source& source, Sink& sink, Service service, Bounds bounds = {},
           std::function<bool()> stop = nullptr);

    // Called after each answer.
    void OnProgress(std::function<void()> tell) { m_tell = std::move(tell); }

    // Until all is read, a bound is reached, or source or sink end.
    void Run();

    const Archives::TreeCounts& Counts() const { return m_counts; }
    std::size_t Waiting() const { return m_waiting.size() + m_entries.size(); }

    // The first thousand; Counts().unread counts all.
    const std::vector<Unread>& Trouble() const { return m_trouble; }

private:
    using Object = boost::json::object;
    struct Step {
        std::string path;
        int depth = 0;
    };
    struct Collection;  // while its pages are read

    std::optional<Step> Next();
    bool MustEnd();
    void Reach(const std::string& limit);

    void Visit(const Step& step);
    void NoteProtocol(const Object& root);
    void ReadMembers(Collection& collection);
    bool ReadExpanded(const Step& step);
    void ReadPages(Collection& collection);
    std::string NextPage(const Object& page, Collection& collection);
    void TakeMembers(Object& page, Collection& collection);
    void NoteMembers(const Object& page, Collection& collection);

    std::optional<Object> Fetch(const std::string& path, bool tells = true);
    void Store(const std::string& name, Object&& resource);
    void FollowLinks(const Object& resource, const Step& from);
    void FollowMember(const std::string& name, const boost::json::value& value, const Step& from);
    void FollowValue(const boost::json::value& value, const Step& from);
    void Learn(const std::string& link, const Step& from);
    bool Know(const std::string& path);
    void Fail(const std::string& path, long httpCode, const std::string& reason);

    Source& m_source;
    Sink& m_sink;
    const Service m_service;
    const Bounds m_bounds;
    const std::function<bool()> m_stop;
    std::function<void()> m_tell;
    const std::chrono::steady_clock::time_point m_end;

    std::deque<Step> m_waiting;
    std::deque<Step> m_entries;               // of logs
    std::unordered_set<std::string> m_known;  // paths, and links that lead nowhere
    std::string m_expand;                     // the query; empty: not offered
    int m_expandFailures = 0;
    bool m_sinkEnded = false;
    Archives::TreeCounts m_counts;
    std::vector<Unread> m_trouble;
};

}  // namespace Kemffdc::Redfish::Tree

#endif
