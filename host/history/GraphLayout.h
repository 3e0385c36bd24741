// Where the nodes of a directed graph stand in a picture, layer by layer from left to right.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace Host {

struct LayoutNode {
    double width;
    double height;
};

struct GraphLayout {
    struct Point {
        double x;
        double y;
    };
    struct Edge {
        // From the right side of the first node to the left side of the second, through whatever
        // gaps there are between; the other way round when it goes back.
        std::vector<Point> points;
        // It closes a circle: it leads against the layers.
        bool back;
    };

    std::vector<Point> nodes;  // left upper corners
    std::vector<Edge> edges;   // in the order of the given ones
    double width;
    double height;
};

// Edges are pairs of nodes' numbers, and may form circles, stand twice and lead to their own node
// (whose edge is left without points). The layers are as few as the longest path allows; nodes
// without edges stand in rows below. Takes about as long as sorting what is given and the layers
// that edges cross.
GraphLayout graphLayout(const std::vector<LayoutNode>& nodes,
                        const std::vector<std::pair<std::size_t, std::size_t>>& edges);

}  // namespace Host
