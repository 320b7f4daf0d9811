// The nodes are walked depth first. `open` holds the nodes met whose set is not
// complete yet; a node's `lowest` is the earliest open node that it reaches. A
// node that reaches no earlier one than itself completes the set of all nodes
// that were opened since.

#include "packages/Circles.h"

#include <algorithm>
#include <utility>

namespace packages {

namespace {

class Walk {
public:
    explicit Walk(const std::vector<std::vector<std::size_t>>& graph)
        : edges(graph),
          order(graph.size()),
          lowest(graph.size()),
          isOpen(graph.size()) {}

    std::vector<std::vector<std::size_t>> run() {
        for (std::size_t node = 0; node < edges.size(); ++node)
            if (order[node] == 0)
                walkFrom(node);
        std::sort(circles.begin(), circles.end());
        return std::move(circles);
    }

private:
    struct Step {
        std::size_t node;
        std::size_t nextEdge;
    };

    void walkFrom(std::size_t root) {
        enter(root);
        while (!path.empty()) {
            Step& step = path.back();
            if (step.nextEdge == edges[step.node].size())
                leave();
            else
                follow(step.node, edges[step.node][step.nextEdge++]);
        }
    }

    void enter(std::size_t node) {
        order[node] = lowest[node] = ++entered;
        isOpen[node] = true;
        open.push_back(node);
        path.push_back({node, 0});
    }

    void follow(std::size_t from, std::size_t to) {
        if (to >= edges.size())
            return;
        if (order[to] == 0)
            enter(to);
        else if (isOpen[to])
            lowest[from] = std::min(lowest[from], order[to]);
    }

    void leave() {
        const std::size_t node = path.back().node;
        path.pop_back();
        if (!path.empty())
            lowest[path.back().node] = std::min(lowest[path.back().node], lowest[node]);
        if (lowest[node] == order[node])
            complete(node);
    }

    void complete(std::size_t first) {
        std::vector<std::size_t> members;
        std::size_t node = 0;
        do {
            node = open.back();
            open.pop_back();
            isOpen[node] = false;
            members.push_back(node);
        } while (node != first);
        if (members.size() < 2)
            return;
        std::sort(members.begin(), members.end());
        circles.push_back(std::move(members));
    }

    const std::vector<std::vector<std::size_t>>& edges;
    std::vector<std::size_t> order;  // of entering, from 1; 0 while not met
    std::vector<std::size_t> lowest;
    std::vector<bool> isOpen;
    std::vector<std::size_t> open;
    std::vector<Step> path;
    std::size_t entered = 0;
    std::vector<std::vector<std::size_t>> circles;
};

}  // namespace

std::vector<std::vector<std::size_t>> findCircles(
    const std::vector<std::vector<std::size_t>>& edges) {
    return Walk(edges).run();
}

}  // namespace packages
