// Circles in a graph of dependencies.

#pragma once

#include <cstddef>
#include <vector>

namespace packages {

/// The sets of nodes that all reach one another, without those of one node.
///
/// `edges[n]` lists the nodes that n points to; nodes beyond its end point to
/// none. Each set is in ascending order, and so are the sets by their first
/// nodes. Linear in nodes and edges, and no recursion: depth costs no stack.
std::vector<std::vector<std::size_t>> findCircles(
    const std::vector<std::vector<std::size_t>>& edges);

}  // namespace packages
