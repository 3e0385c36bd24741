#include "host/history/Graph.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "host/Utf8.h"
#include "host/history/GraphLayout.h"
#include "host/history/Svg.h"

namespace Host {

namespace {

using Node = StageGraphOf::Node;

StageGraphOf graphOf(const InstanceHistory& instance) {
    StageGraphOf graph;
    graph.stageClass = instance.stageClass;
    std::map<std::string_view, std::size_t> numbers;
    for (const StageHistory& stage : instance.stages) {
        numbers.emplace(stage.name, graph.nodes.size());
        graph.nodes.push_back(
            {stage.name, stage.outcome.critical, stage.outcome.heldByOperator, false});
    }
    for (std::size_t to = 0; to < instance.stages.size(); ++to)
        for (const std::string& name : instance.stages[to].dependencies) {
            const auto [number, missing] = numbers.emplace(name, graph.nodes.size());
            if (missing) graph.nodes.push_back({name, false, false, true});
            graph.edges.emplace_back(number->second, to);
        }
    return graph;
}

// --- SVG

constexpr double margin = 20.0;
constexpr double letters = 12.0;
constexpr double widestName = 240.0;
constexpr double nodeHeight = 26.0;

std::string graphStyle() {
    return fmt::format(
        R"(<style>
.node {{ fill: #f4f8fb; stroke: {blue}; stroke-width: 1.2; }}
.critical {{ fill: #fdebdc; stroke: {vermilion}; stroke-width: 3; }}
.held {{ fill: #eeeeee; stroke: {ink}; stroke-width: 1.2; stroke-dasharray: 6 2 1 2; }}
.missing {{ fill: #ffffff; stroke: {pale}; stroke-width: 1.2; stroke-dasharray: 3 3; }}
.edge {{ fill: none; stroke: #7a8a99; stroke-width: 1.2; }}
.strong {{ fill: none; stroke: {vermilion}; stroke-width: 1.8; }}
.vain {{ fill: none; stroke: {pale}; stroke-width: 1.2; stroke-dasharray: 3 3; }}
.circle {{ fill: none; stroke: #000000; stroke-width: 2; stroke-dasharray: 8 3; }}
</style>
<defs>
<marker id="arrow" viewBox="0 0 8 8" refX="7.5" refY="4" markerWidth="8" markerHeight="8" markerUnits="userSpaceOnUse" orient="auto"><path d="M0 0.5 L8 4 L0 7.5 Z" fill="#566573"/></marker>
</defs>
)",
        fmt::arg("blue", Ink::blue), fmt::arg("vermilion", Ink::vermilion),
        fmt::arg("ink", Ink::text), fmt::arg("pale", Ink::pale));
}

const char* nodeClass(const Node& node) {
    return node.missing ? "missing" : node.held ? "held" : node.critical ? "critical" : "node";
}
const char* nodeWords(std::string_view name) {
    if (name == "missing") return "no such stage";
    if (name == "held") return "on the do-not-start list";
    return name == "critical" ? "critical stage" : "stage";
}

std::string edgePath(const GraphLayout::Edge& edge, double x0, double y0) {
    const auto& points = edge.points;
    std::string path =
        fmt::format("M{} {}", svgNumber(points[0].x + x0), svgNumber(points[0].y + y0));
    for (std::size_t i = 1; i < points.size(); ++i) {
        const auto& a = points[i - 1];
        const auto& b = points[i];
        if (a.y == b.y) {
            path += fmt::format("L{} {}", svgNumber(b.x + x0), svgNumber(b.y + y0));
            continue;
        }
        const double middle = (a.x + b.x) / 2.0;
        path += fmt::format("C{} {} {} {} {} {}", svgNumber(middle + x0), svgNumber(a.y + y0),
                            svgNumber(middle + x0), svgNumber(b.y + y0), svgNumber(b.x + x0),
                            svgNumber(b.y + y0));
    }
    return path;
}

// --- DOT and Mermaid

// In double quotes a backslash begins an escape, and what looks like an entity of HTML is one.
std::string dotText(std::string_view name) {
    std::string text;
    for (const char c : printable(name)) {
        if (c == '&')
            text += "&amp;";
        else if (c == '"' || c == '\\')
            (text += '\\') += c;
        else
            text += c;
    }
    return '"' + text + '"';
}

// Letters and digits of any language stand for themselves, everything else by its number.
std::string mermaidText(std::string_view name) {
    std::string text;
    for (const char c : printable(name)) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = byte >= 0x80 || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') ||
                           (c >= 'A' && c <= 'Z') || c == ' ' || c == '-' || c == '_' || c == '.';
        if (plain)
            text += c;
        else
            text += fmt::format("#{};", static_cast<unsigned>(byte));
    }
    return text;
}

}  // namespace

std::vector<StageGraphOf> graphsOf(const RunHistory& run) {
    std::vector<StageGraphOf> graphs;
    std::set<std::string_view> met;
    for (const InstanceHistory& instance : run.instances)
        if (!instance.stages.empty() && met.insert(instance.stageClass).second)
            graphs.push_back(graphOf(instance));
    return graphs;
}

std::string graphSvg(const std::vector<StageGraphOf>& graphs, const std::string& title) {
    std::string body;
    std::set<std::string> used;
    bool circles = false;
    double width = 320.0;
    double y = 0.0;
    for (const StageGraphOf& graph : graphs) {
        std::vector<LayoutNode> sizes;
        for (const Node& node : graph.nodes)
            sizes.push_back({std::min(textWidth(printable(node.name), letters), widestName) + 20.0,
                             nodeHeight});
        const GraphLayout layout = graphLayout(sizes, graph.edges);
        body += fmt::format(
            "<text x=\"{}\" y=\"{}\" font-weight=\"bold\" font-size=\"13\">{}"
            "</text>\n",
            margin, svgNumber(y + 16.0), xmlText(fittingText(graph.stageClass, 600.0, 13.0)));
        y += 32.0;
        for (std::size_t e = 0; e < graph.edges.size(); ++e) {
            const auto [from, to] = graph.edges[e];
            const Node& source = graph.nodes[from];
            const Node& target = graph.nodes[to];
            const GraphLayout::Edge& edge = layout.edges[e];
            circles = circles || edge.back || from == to;
            const char* const kind = edge.back || from == to              ? "circle"
                                     : source.missing                     ? "vain"
                                     : source.critical && target.critical ? "strong"
                                                                          : "edge";
            std::string path;
            if (from == to) {
                const double right = margin + layout.nodes[to].x + sizes[to].width;
                const double top = y + layout.nodes[to].y;
                path = fmt::format("M{0} {1}C{2} {3} {4} {5} {6} {7}", svgNumber(right),
                                   svgNumber(top + 16.0), svgNumber(right + 30.0),
                                   svgNumber(top + 16.0), svgNumber(right - 10.0),
                                   svgNumber(top - 20.0), svgNumber(right - 12.0), svgNumber(top));
            } else {
                path = edgePath(edge, margin, y);
            }
            body += fmt::format(
                "<path class=\"{}\" d=\"{}\" marker-end=\"url(#arrow)\"><title>{} waits for {}"
                "</title></path>\n",
                kind, path, xmlText(target.name), xmlText(source.name));
        }
        for (std::size_t n = 0; n < graph.nodes.size(); ++n) {
            const Node& node = graph.nodes[n];
            const double left = margin + layout.nodes[n].x;
            const double top = y + layout.nodes[n].y;
            used.insert(nodeClass(node));
            body += fmt::format(
                "<g><title>{}: {}</title><rect class=\"{}\" x=\"{}\" y=\"{}\" width=\"{}\" "
                "height=\"{}\" rx=\"4\"/><text x=\"{}\" y=\"{}\" text-anchor=\"middle\"{}>{}"
                "</text></g>\n",
                xmlText(node.name), nodeWords(nodeClass(node)), nodeClass(node), svgNumber(left),
                svgNumber(top), svgNumber(sizes[n].width), svgNumber(nodeHeight),
                svgNumber(left + sizes[n].width / 2.0), svgNumber(top + 17.0),
                node.missing    ? " font-style=\"italic\""
                : node.critical ? " font-weight=\"600\""
                                : "",
                xmlText(fittingText(node.name, widestName, letters)));
        }
        width = std::max(width, layout.width + 2.0 * margin + 20.0);
        y += layout.height + 24.0;
    }
    if (graphs.empty()) {
        body += fmt::format("<text x=\"{}\" y=\"16\">There are no stages.</text>\n", margin);
        y += 24.0;
    }
    std::string head = fmt::format(
        "<text x=\"{}\" y=\"26\" font-size=\"16\" font-weight=\"bold\">"
        "{}</text>\n",
        margin, xmlText(fittingText(title, width - 2 * margin, 16.0)));
    double x = margin;
    double legendY = 50.0;
    const auto place = [&](double needed) {
        if (x > margin && x + needed > width - margin) x = margin, legendY += 20.0;
        const double at = x;
        x += needed;
        return at;
    };
    for (const char* const kind : {"node", "critical", "held", "missing"}) {
        if (!used.contains(kind)) continue;
        const double at = place(34.0 + textWidth(nodeWords(kind), letters) + 18.0);
        head += fmt::format(
            "<rect class=\"{}\" x=\"{}\" y=\"{}\" width=\"24\" height=\"12\" "
            "rx=\"3\"/><text x=\"{}\" y=\"{}\">{}</text>\n",
            kind, svgNumber(at), svgNumber(legendY - 10.0), svgNumber(at + 32.0),
            svgNumber(legendY), nodeWords(kind));
    }
    if (circles) {
        const double at = place(34.0 + textWidth("closes a circle", letters) + 18.0);
        head += fmt::format(
            "<path class=\"circle\" d=\"M{} {}h24\"/><text x=\"{}\" y=\"{}\">"
            "closes a circle</text>\n",
            svgNumber(at), svgNumber(legendY - 4.0), svgNumber(at + 32.0), svgNumber(legendY));
    }
    const double top = legendY + 20.0;
    return svgBegin(width, top + y, title) + graphStyle() + head +
           fmt::format("<g transform=\"translate(0 {})\">\n", svgNumber(top)) + body +
           "</g>\n</svg>\n";
}

std::string graphDot(const std::vector<StageGraphOf>& graphs) {
    std::string dot = "digraph stages {\n    rankdir=LR;\n    node [shape=box, style=rounded];\n";
    for (std::size_t g = 0; g < graphs.size(); ++g) {
        const StageGraphOf& graph = graphs[g];
        const auto id = [&](std::size_t node) { return fmt::format("c{}s{}", g, node); };
        dot += fmt::format("    subgraph cluster_{} {{\n        label={};\n", g,
                           dotText(graph.stageClass));
        for (std::size_t n = 0; n < graph.nodes.size(); ++n) {
            const Node& node = graph.nodes[n];
            const char* const look = node.missing    ? ", style=\"rounded,dashed\""
                                     : node.held     ? ", style=\"rounded,dotted\""
                                     : node.critical ? ", color=\"#d55e00\", penwidth=3"
                                                     : "";
            dot += fmt::format("        {} [label={}{}];\n", id(n), dotText(node.name), look);
        }
        for (const auto& [from, to] : graph.edges)
            dot += fmt::format("        {} -> {}{};\n", id(from), id(to),
                               graph.nodes[from].missing ? " [style=dashed]" : "");
        dot += "    }\n";
    }
    return dot + "}\n";
}

std::string graphMermaid(const std::vector<StageGraphOf>& graphs) {
    std::string text = "flowchart LR\n";
    for (std::size_t g = 0; g < graphs.size(); ++g) {
        const StageGraphOf& graph = graphs[g];
        const auto id = [&](std::size_t node) { return fmt::format("c{}s{}", g, node); };
        text += fmt::format("    subgraph c{}[\"{}\"]\n", g, mermaidText(graph.stageClass));
        for (std::size_t n = 0; n < graph.nodes.size(); ++n) {
            const Node& node = graph.nodes[n];
            const char* const look = node.missing    ? ":::missing"
                                     : node.held     ? ":::held"
                                     : node.critical ? ":::critical"
                                                     : "";
            text += fmt::format("        {}[\"{}\"]{}\n", id(n), mermaidText(node.name), look);
        }
        for (const auto& [from, to] : graph.edges)
            text += fmt::format("        {} {} {}\n", id(from),
                                graph.nodes[from].missing ? "-.->" : "-->", id(to));
        text += "    end\n";
    }
    return text +
           "    classDef critical stroke:#d55e00,stroke-width:3px\n"
           "    classDef held stroke-dasharray:6 2 1 2\n"
           "    classDef missing stroke-dasharray:3 3\n";
}

Json graphJson(const std::vector<StageGraphOf>& graphs) {
    Json::Array classes;
    for (const StageGraphOf& graph : graphs) {
        Json::Array stages;
        for (const Node& node : graph.nodes)
            stages.push_back(Json::Object{{"stage", node.name},
                                          {"critical", node.critical},
                                          {"doNotStart", node.held},
                                          {"exists", !node.missing}});
        Json::Array edges;
        for (const auto& [from, to] : graph.edges)
            edges.push_back(Json::Object{{"stage", graph.nodes[to].name},
                                         {"waitsFor", graph.nodes[from].name}});
        classes.push_back(Json::Object{{"class", graph.stageClass},
                                       {"stages", std::move(stages)},
                                       {"dependencies", std::move(edges)}});
    }
    return Json::Object{{"schema", "stagemgr.graph/1"}, {"classes", std::move(classes)}};
}

}  // namespace Host
