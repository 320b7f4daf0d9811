// Finding anomalies in a history of lists.
//
// Transactions are the nodes of a graph. Its edges say who has to come first:
//   write-write  the one whose value stands before the other's in a list
//   write-read   the one that wrote the last value that the other has read
//   read-write   the one that has not read what the other appended next
// No serial order exists where the edges make a cycle, and what kinds of edges it
// takes tells which anomaly that is.

#include <algorithm>
#include <cstddef>
#include <deque>
#include <set>
#include <unordered_map>

#include "tests/histories/History.h"

namespace Kes::testing {

namespace {

using Node = std::size_t;
constexpr Node None = static_cast<Node>(-1);

// The place of a value in the history and in the stored lists.
struct Written {
    Node by = None;
    long list = 0;
    bool isLast = false;  // of those that the transaction appended to the list
};

class Checker {
public:
    Checker(const std::vector<Transaction>& transactions, const Lists& end)
        : history(transactions),
          stored(end),
          flow(transactions.size()),
          unseen(transactions.size()) {}

    std::vector<Finding> run(const Level& level) {
        noteWrites();
        checkOutcomes();
        checkReads();
        if (!findings.empty())
            return findings;  // the order of the writes is not to be trusted
        addEdges();
        checkTimes();
        checkFlow();
        checkSkews(Anomaly::TornSelection, true);
        if (!level.permits(Anomaly::ReadSkew))
            checkSkews(Anomaly::ReadSkew, false);
        if (!level.permits(Anomaly::WriteSkew) && findings.empty())
            checkCycles();
        return findings;
    }

private:
    void report(Anomaly anomaly, const std::string& text) {
        constexpr std::size_t Enough = 20;
        if (findings.size() < Enough)
            findings.push_back({anomaly, std::string(nameOf(anomaly)) + ": " + text});
    }

    // Long lists by their ends.
    std::string describe(Node node) const {
        const Transaction& each = history[node];
        std::string text =
            "[process " + std::to_string(each.process) + " at " + std::to_string(each.begun) + ":";
        for (const ListRead& read : each.reads)
            text += " " + std::to_string(read.list) + " up to " +
                    (read.seen.empty() ? "nothing" : std::to_string(read.seen.back())) + ",";
        for (const Append& append : each.appends)
            text += " " + std::to_string(append.value) + " to " + std::to_string(append.list) + ",";
        return text + "]";
    }

    void noteWrites() {
        for (Node node = 0; node < history.size(); ++node) {
            std::set<long> later;
            const auto& appends = history[node].appends;
            for (auto append = appends.rbegin(); append != appends.rend(); ++append)
                writes[append->value] = {node, append->list, later.insert(append->list).second};
        }
    }

    // What is stored is what was acknowledged, and perhaps what is not known.
    void checkOutcomes() {
        std::set<long> found;
        for (const auto& [list, values] : stored) {
            for (const long value : values) {
                const auto write = writes.find(value);
                if (!found.insert(value).second)
                    report(Anomaly::StoredRefusal, std::to_string(value) + " is stored twice");
                else if (write == writes.end())
                    report(Anomaly::StoredRefusal, std::to_string(value) + " was never appended");
                else if (history[write->second.by].outcome == Transaction::Refused)
                    report(Anomaly::StoredRefusal,
                           std::to_string(value) + " of " + describe(write->second.by));
            }
        }
        for (Node node = 0; node < history.size(); ++node) {
            const Transaction& each = history[node];
            std::size_t kept = 0;
            for (const Append& append : each.appends)
                kept += found.count(append.value);
            if (kept < each.appends.size() && each.outcome == Transaction::Done)
                report(Anomaly::LostCommit, describe(node));
            else if (kept > 0 && kept < each.appends.size())
                report(Anomaly::StoredRefusal, "a part of " + describe(node));
            isStored.push_back(kept > 0 ||
                               (each.appends.empty() && each.outcome == Transaction::Done));
        }
    }

    // What is read has to be the beginning of the list as it is in the end.
    void checkReads() {
        for (Node node = 0; node < history.size(); ++node) {
            if (!isStored[node])
                continue;
            for (const ListRead& read : history[node].reads)
                checkRead(node, read);
        }
    }

    void checkRead(Node node, const ListRead& read) {
        const Values& values = valuesOf(read.list);
        if (read.seen.size() > values.size() ||
            !std::equal(read.seen.begin(), read.seen.end(), values.begin())) {
            for (const long value : read.seen)
                if (std::find(values.begin(), values.end(), value) == values.end()) {
                    report(Anomaly::DirtyRead, std::to_string(value) + " by " + describe(node));
                    return;
                }
            report(Anomaly::LostUpdate, "an order that is not stored, by " + describe(node));
            return;
        }
        if (!read.seen.empty() && !writes[read.seen.back()].isLast)
            report(Anomaly::IntermediateRead,
                   std::to_string(read.seen.back()) + " by " + describe(node));
    }

    const Values& valuesOf(long list) const {
        static const Values empty;
        const auto found = stored.find(list);
        return found == stored.end() ? empty : found->second;
    }

    void addEdges() {
        for (const auto& [list, values] : stored)
            for (std::size_t i = 1; i < values.size(); ++i)
                addEdge(flow, writes[values[i - 1]].by, writes[values[i]].by);
        for (Node node = 0; node < history.size(); ++node) {
            if (!isStored[node])
                continue;
            for (const ListRead& read : history[node].reads) {
                const Values& values = valuesOf(read.list);
                if (!read.seen.empty())
                    addEdge(flow, writes[read.seen.back()].by, node);
                if (read.seen.size() < values.size())
                    addEdge(unseen, node, writes[values[read.seen.size()]].by);
            }
        }
    }

    using Edges = std::vector<std::vector<Node>>;

    static void addEdge(Edges& edges, Node from, Node to) {
        if (from != to)
            edges[from].push_back(to);
    }

    // A commit that was acknowledged before a transaction began is seen by it.
    void checkTimes() {
        for (Node node = 0; node < history.size(); ++node)
            for (const Node writer : unseen[node])
                if (history[writer].outcome == Transaction::Done &&
                    history[writer].ended < history[node].begun)
                    report(Anomaly::StaleRead,
                           describe(node) + " has not seen " + describe(writer) + ", " +
                               std::to_string(history[node].begun - history[writer].ended) +
                               " ns before");
    }

    // A topological order of the flow; what is left over lies on a cycle.
    void checkFlow() {
        std::vector<std::size_t> before(history.size());
        for (const auto& targets : flow)
            for (const Node target : targets)
                ++before[target];
        std::deque<Node> free;
        for (Node node = 0; node < history.size(); ++node)
            if (before[node] == 0)
                free.push_back(node);
        place.assign(history.size(), 0);
        std::size_t placed = 0;
        while (!free.empty()) {
            const Node node = free.front();
            free.pop_front();
            place[node] = ++placed;
            for (const Node target : flow[node])
                if (--before[target] == 0)
                    free.push_back(target);
        }
        if (placed < history.size())
            report(Anomaly::CircularFlow, cycleText(flow, before));
    }

    std::string cycleText(const Edges&, const std::vector<std::size_t>& before) const {
        std::string text;
        for (Node node = 0; node < history.size() && text.size() < 2000; ++node)
            if (before[node] > 0)
                text += describe(node) + " ";
        return text;
    }

    // A cycle with one read-write edge: a part of a commit was seen and a part was not.
    void checkSkews(Anomaly anomaly, bool ofSelections) {
        if (!findings.empty())
            return;
        for (Node node = 0; node < history.size(); ++node) {
            if (history[node].isSelection != ofSelections)
                continue;
            for (const Node writer : unseen[node])
                if (writer != node && reaches(writer, node)) {
                    report(anomaly, describe(node) + " has not seen " + describe(writer));
                    return;
                }
        }
    }

    bool reaches(Node from, Node to) {
        std::set<Node> visited{from};
        std::deque<Node> open{from};
        while (!open.empty()) {
            const Node node = open.front();
            open.pop_front();
            if (node == to)
                return true;
            for (const Node target : flow[node])
                if (place[target] <= place[to] && visited.insert(target).second)
                    open.push_back(target);
        }
        return false;
    }

    // Strongly connected components of all edges, by two walks in depth.
    void checkCycles() {
        Edges all = flow;
        Edges back(history.size());
        for (Node node = 0; node < history.size(); ++node)
            all[node].insert(all[node].end(), unseen[node].begin(), unseen[node].end());
        for (Node node = 0; node < history.size(); ++node)
            for (const Node target : all[node])
                back[target].push_back(node);
        std::vector<Node> order;
        std::vector<bool> visited(history.size());
        for (Node node = 0; node < history.size(); ++node)
            collect(all, node, visited, order);
        visited.assign(history.size(), false);
        for (auto node = order.rbegin(); node != order.rend(); ++node) {
            std::vector<Node> component;
            collect(back, *node, visited, component);
            if (component.size() > 1) {
                std::string text;
                for (std::size_t i = 0; i < component.size() && i < 6; ++i)
                    text += describe(component[i]) + " ";
                report(Anomaly::WriteSkew, text);
            }
        }
    }

    // Appends what is reached from the node, each behind all that it reaches.
    static void collect(const Edges& edges, Node first, std::vector<bool>& visited,
                        std::vector<Node>& order) {
        if (visited[first])
            return;
        visited[first] = true;
        std::vector<std::pair<Node, std::size_t>> path{{first, 0}};
        while (!path.empty()) {
            auto& [node, next] = path.back();
            if (next == edges[node].size()) {
                order.push_back(node);
                path.pop_back();
                continue;
            }
            const Node target = edges[node][next++];
            if (visited[target])
                continue;
            visited[target] = true;
            path.emplace_back(target, 0);
        }
    }

    const std::vector<Transaction>& history;
    const Lists& stored;
    std::unordered_map<long, Written> writes;  // by value
    std::vector<bool> isStored;                // it stands, as far as is known
    Edges flow;                                // write-write and write-read
    Edges unseen;                              // read-write
    std::vector<std::size_t> place;            // in the order of the flow
    std::vector<Finding> findings;
};

}  // namespace

std::vector<Finding> findAnomalies(const std::vector<Transaction>& history, const Lists& stored,
                                   const Level& level) {
    return Checker(history, stored).run(level);
}

}  // namespace Kes::testing
