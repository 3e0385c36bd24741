#include "host/history/GraphLayout.h"

#include <algorithm>
#include <numeric>

namespace Host {

namespace {

constexpr double nodeGap = 12.0;
constexpr double laneGap = 6.0;  // beside what only passes through a layer
constexpr double layerGap = 56.0;
constexpr double widestRow = 1100.0;
// Edges that cross layers are led around the nodes there, unless that were too many places.
constexpr std::size_t mostLanes = 20'000;
constexpr int sweeps = 6;

using Pair = std::pair<std::size_t, std::size_t>;

class Layout {
  public:
    Layout(const std::vector<LayoutNode>& nodes, const std::vector<Pair>& edges)
        : given_(nodes), edges_(edges), out_(nodes.size()), connected_(nodes.size()) {
        for (std::size_t e = 0; e < edges.size(); ++e) {
            const auto [from, to] = edges[e];
            connected_[from] = connected_[to] = true;
            if (from != to) out_[from].push_back(e);
        }
        back_.resize(edges.size());
        findBackEdges();
        findLayers();
        placeItems();
        for (int sweep = 0; sweep < sweeps; ++sweep) order(sweep % 2 == 0);
        findColumns();
        findRows();
    }

    GraphLayout made() const {
        GraphLayout made;
        made.nodes.resize(given_.size());
        made.width = layerX_.empty() ? 0.0 : layerX_.back() - layerGap;
        double top = 0.0;
        double bottom = 0.0;
        for (std::size_t i = 0; i < items_.size(); ++i) {
            top = std::min(top, y_[i]);
            bottom = std::max(bottom, y_[i] + items_[i].height);
        }
        for (std::size_t i = 0; i < given_.size(); ++i)
            if (connected_[i]) made.nodes[i] = {layerX_[items_[i].layer], y_[i] - top};
        made.height = bottom - top;
        made.edges.reserve(edges_.size());
        for (std::size_t e = 0; e < edges_.size(); ++e) {
            GraphLayout::Edge& edge = made.edges.emplace_back();
            edge.back = back_[e];
            if (edges_[e].first == edges_[e].second) continue;
            const auto [from, to] = forward(e);
            edge.points.push_back({layerX_[items_[from].layer] + given_[from].width,
                                   y_[from] - top + given_[from].height / 2.0});
            for (const std::size_t lane : lanes_[e]) {
                const double x = layerX_[items_[lane].layer];
                const double y = y_[lane] - top + items_[lane].height / 2.0;
                edge.points.push_back({x, y});
                edge.points.push_back({x + layerWidth_[items_[lane].layer], y});
            }
            edge.points.push_back(
                {layerX_[items_[to].layer], y_[to] - top + given_[to].height / 2.0});
            if (back_[e]) std::reverse(edge.points.begin(), edge.points.end());
        }
        placeLoners(made);
        return made;
    }

  private:
    struct Item {  // a node, or the place where an edge passes through a layer
        std::size_t layer = 0;
        double height = 0.0;
        bool lane = false;
        std::vector<std::size_t> before{};  // items of the layer before that it is linked with
        std::vector<std::size_t> behind{};
    };

    // As it runs in the layers.
    Pair forward(std::size_t e) const {
        return back_[e] ? Pair{edges_[e].second, edges_[e].first} : edges_[e];
    }

    void findBackEdges() {
        enum : char { fresh, open, done };
        std::vector<char> state(given_.size(), fresh);
        std::vector<Pair> stack;  // node, and which of its edges is next
        for (std::size_t root = 0; root < given_.size(); ++root) {
            if (state[root] != fresh) continue;
            stack.emplace_back(root, 0);
            state[root] = open;
            while (!stack.empty()) {
                auto& [node, next] = stack.back();
                if (next == out_[node].size()) {
                    state[node] = done;
                    stack.pop_back();
                    continue;
                }
                const std::size_t e = out_[node][next++];
                const std::size_t to = edges_[e].second;
                if (state[to] == open) back_[e] = true;
                if (state[to] != fresh) continue;
                state[to] = open;
                stack.emplace_back(to, 0);
            }
        }
    }

    void findLayers() {
        items_.resize(given_.size());
        std::vector<std::vector<std::size_t>> next(given_.size());
        std::vector<std::size_t> waits(given_.size());
        for (std::size_t e = 0; e < edges_.size(); ++e) {
            if (edges_[e].first == edges_[e].second) continue;
            const auto [from, to] = forward(e);
            next[from].push_back(to);
            ++waits[to];
        }
        std::vector<std::size_t> ready;
        for (std::size_t i = 0; i < given_.size(); ++i)
            if (waits[i] == 0) ready.push_back(i);
        for (std::size_t at = 0; at < ready.size(); ++at)
            for (const std::size_t to : next[ready[at]]) {
                items_[to].layer = std::max(items_[to].layer, items_[ready[at]].layer + 1);
                if (--waits[to] == 0) ready.push_back(to);
            }
        // What nothing leads to stands right before the first that it leads to.
        std::vector<bool> led(given_.size());
        for (const auto& behind : next)
            for (const std::size_t to : behind) led[to] = true;
        for (std::size_t i = 0; i < given_.size(); ++i) {
            if (led[i] || next[i].empty()) continue;
            std::size_t first = items_[next[i].front()].layer;
            for (const std::size_t to : next[i]) first = std::min(first, items_[to].layer);
            items_[i].layer = first - 1;
        }
    }

    void placeItems() {
        std::size_t crossed = 0;
        for (std::size_t e = 0; e < edges_.size(); ++e)
            if (edges_[e].first != edges_[e].second) {
                const auto [from, to] = forward(e);
                crossed += items_[to].layer - items_[from].layer - 1;
            }
        const bool around = crossed <= mostLanes;
        lanes_.resize(edges_.size());
        for (std::size_t i = 0; i < given_.size(); ++i) items_[i].height = given_[i].height;
        for (std::size_t e = 0; e < edges_.size(); ++e) {
            if (edges_[e].first == edges_[e].second) continue;
            const auto [from, to] = forward(e);
            std::size_t last = from;
            for (std::size_t layer = items_[from].layer + 1; around && layer < items_[to].layer;
                 ++layer) {
                const std::size_t lane = items_.size();
                items_.push_back({layer, 2.0, true});
                link(last, lane);
                lanes_[e].push_back(lane);
                last = lane;
            }
            if (items_[last].layer + 1 == items_[to].layer) link(last, to);
        }
        std::size_t layers = 0;
        for (std::size_t i = 0; i < items_.size(); ++i)
            if (i >= given_.size() || connected_[i]) layers = std::max(layers, items_[i].layer + 1);
        layers_.resize(layers);
        for (std::size_t i = 0; i < items_.size(); ++i)
            if (i >= given_.size() || connected_[i]) layers_[items_[i].layer].push_back(i);
        place_.resize(items_.size());
        for (const auto& layer : layers_) number(layer);
    }

    void link(std::size_t before, std::size_t behind) {
        items_[before].behind.push_back(behind);
        items_[behind].before.push_back(before);
    }

    void number(const std::vector<std::size_t>& layer) {
        for (std::size_t i = 0; i < layer.size(); ++i) place_[layer[i]] = static_cast<double>(i);
    }

    // Each item goes to where its neighbours in the layer before (or behind) stand on average.
    void order(bool forwards) {
        std::vector<double> wanted(items_.size());
        for (std::size_t n = 0; n < layers_.size(); ++n) {
            std::vector<std::size_t>& layer = layers_[forwards ? n : layers_.size() - 1 - n];
            for (const std::size_t item : layer) {
                const auto& others = forwards ? items_[item].before : items_[item].behind;
                wanted[item] = others.empty() ? place_[item] : mean(others, place_);
            }
            std::stable_sort(layer.begin(), layer.end(),
                             [&](std::size_t a, std::size_t b) { return wanted[a] < wanted[b]; });
            number(layer);
        }
    }

    static double mean(const std::vector<std::size_t>& items, const std::vector<double>& of) {
        double sum = 0.0;
        for (const std::size_t item : items) sum += of[item];
        return sum / static_cast<double>(items.size());
    }

    void findColumns() {
        layerWidth_.resize(layers_.size());
        layerX_.resize(layers_.size() + 1);
        for (std::size_t n = 0; n < layers_.size(); ++n) {
            for (const std::size_t item : layers_[n])
                if (item < given_.size())
                    layerWidth_[n] = std::max(layerWidth_[n], given_[item].width);
            layerX_[n + 1] = layerX_[n] + layerWidth_[n] + layerGap;
        }
        if (layers_.empty()) layerX_.clear();
    }

    void findRows() {
        y_.resize(items_.size());
        for (const auto& layer : layers_) {
            double y = 0.0;
            for (const std::size_t item : layer) {
                y_[item] = y;
                y += items_[item].height + gap(item);
            }
        }
        for (int sweep = 0; sweep < sweeps; ++sweep)
            for (std::size_t n = 0; n < layers_.size(); ++n)
                settle(layers_[sweep % 2 == 0 ? n : layers_.size() - 1 - n], sweep % 2 == 0);
    }

    double gap(std::size_t item) const { return items_[item].lane ? laneGap : nodeGap; }
    double centre(std::size_t item) const { return y_[item] + items_[item].height / 2.0; }

    // As near as can be to where the neighbours' middles are, in the same order and without
    // touching: neighbours in the layer that want the same room share it around their mean.
    void settle(const std::vector<std::size_t>& layer, bool forwards) {
        struct Block {
            double sum;
            double count;
            std::size_t items;
        };
        std::vector<Block> blocks;
        std::vector<double> offsets(layer.size());
        double offset = 0.0;
        for (std::size_t i = 0; i < layer.size(); ++i) {
            const std::size_t item = layer[i];
            offsets[i] = offset;
            offset += items_[item].height + gap(item);
            const auto& others = forwards ? items_[item].before : items_[item].behind;
            double wanted = y_[item];
            if (!others.empty()) {
                wanted = 0.0;
                for (const std::size_t other : others) wanted += centre(other);
                wanted = wanted / static_cast<double>(others.size()) - items_[item].height / 2.0;
            }
            blocks.push_back({wanted - offsets[i], 1.0, 1});
            while (blocks.size() > 1) {
                const Block last = blocks.back();
                Block& before = blocks[blocks.size() - 2];
                if (before.sum / before.count <= last.sum / last.count) break;
                before.sum += last.sum;
                before.count += last.count;
                before.items += last.items;
                blocks.pop_back();
            }
        }
        std::size_t i = 0;
        for (const Block& block : blocks)
            for (std::size_t n = 0; n < block.items; ++n, ++i)
                y_[layer[i]] = block.sum / block.count + offsets[i];
    }

    void placeLoners(GraphLayout& made) const {
        double x = 0.0;
        double y = made.height > 0.0 ? made.height + 2.0 * nodeGap : 0.0;
        double rowHeight = 0.0;
        const double widest = std::max(made.width, widestRow);
        for (std::size_t i = 0; i < given_.size(); ++i) {
            if (connected_[i]) continue;
            if (x > 0.0 && x + given_[i].width > widest) {
                x = 0.0;
                y += rowHeight + nodeGap;
                rowHeight = 0.0;
            }
            made.nodes[i] = {x, y};
            x += given_[i].width + nodeGap;
            rowHeight = std::max(rowHeight, given_[i].height);
            made.width = std::max(made.width, x - nodeGap);
            made.height = y + rowHeight;
        }
    }

    const std::vector<LayoutNode>& given_;
    const std::vector<Pair>& edges_;
    std::vector<std::vector<std::size_t>> out_;
    std::vector<bool> connected_;
    std::vector<bool> back_;
    std::vector<Item> items_;  // the nodes come first
    std::vector<std::vector<std::size_t>> lanes_;
    std::vector<std::vector<std::size_t>> layers_;
    std::vector<double> place_;  // in its layer
    std::vector<double> layerWidth_;
    std::vector<double> layerX_;
    std::vector<double> y_;
};

}  // namespace

GraphLayout graphLayout(const std::vector<LayoutNode>& nodes, const std::vector<Pair>& edges) {
    return Layout(nodes, edges).made();
}

}  // namespace Host
