#include "host/history/Graph.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "host/history/GraphLayout.h"
#include "host/session/RunSource.h"
#include "tests/host/HostileNames.h"
#include "tests/host/Plans.h"
#include "tests/host/Xml.h"

namespace Host {
namespace {

using Edges = std::vector<std::pair<std::size_t, std::size_t>>;

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::vector<LayoutNode> boxes(std::size_t number) {
    return std::vector<LayoutNode>(number, {60.0, 20.0});
}

bool someTouch(const GraphLayout& layout, const std::vector<LayoutNode>& nodes) {
    for (std::size_t a = 0; a < nodes.size(); ++a)
        for (std::size_t b = a + 1; b < nodes.size(); ++b)
            if (layout.nodes[a].x < layout.nodes[b].x + nodes[b].width &&
                layout.nodes[b].x < layout.nodes[a].x + nodes[a].width &&
                layout.nodes[a].y < layout.nodes[b].y + nodes[b].height &&
                layout.nodes[b].y < layout.nodes[a].y + nodes[a].height)
                return true;
    return false;
}

TEST(GraphLayout, EveryEdgeLeadsToTheRight) {
    const Edges edges{{0, 1}, {1, 2}, {0, 2}, {3, 2}, {2, 4}};

    const GraphLayout layout = graphLayout(boxes(6), edges);

    for (const auto& [from, to] : edges) EXPECT_LT(layout.nodes[from].x + 60, layout.nodes[to].x);
    for (const GraphLayout::Edge& edge : layout.edges) EXPECT_FALSE(edge.back);
    EXPECT_FALSE(someTouch(layout, boxes(6)));
    EXPECT_GT(layout.edges[2].points.size(), 2u);  // around what stands between
}

TEST(GraphLayout, TakesCircles) {
    const Edges edges{{0, 1}, {1, 2}, {2, 0}, {2, 3}, {3, 3}, {0, 1}};

    const GraphLayout layout = graphLayout(boxes(4), edges);

    EXPECT_EQ(std::count_if(layout.edges.begin(), layout.edges.end(),
                            [](const GraphLayout::Edge& edge) { return edge.back; }),
              1);
    EXPECT_TRUE(layout.edges[2].back);
    EXPECT_TRUE(layout.edges[4].points.empty());
    EXPECT_FALSE(someTouch(layout, boxes(4)));
}

TEST(GraphLayout, PutsWhatStandsAloneInRows) {
    const GraphLayout layout = graphLayout(boxes(300), {});

    EXPECT_FALSE(someTouch(layout, boxes(300)));
    EXPECT_LT(layout.width, 1200.0);
    EXPECT_LT(layout.height, 1000.0);
    EXPECT_EQ(graphLayout({}, {}).nodes.size(), 0u);
}

TEST(GraphLayout, TakesManyNodes) {
    Edges edges;
    for (std::size_t i = 1; i < 2000; ++i) {
        edges.emplace_back(i / 2, i);
        edges.emplace_back((i * 7919) % i, i);
    }

    const GraphLayout layout = graphLayout(boxes(2000), edges);

    EXPECT_FALSE(someTouch(layout, boxes(2000)));
    EXPECT_EQ(layout.edges.size(), edges.size());
}

std::vector<StageGraphOf> someGraphs() {
    Plan plan = planOf({stageClass(
        "boot", {stage("power", {}, {takes("psu", 1)}), stage("net", {"power"}, {takes("a", 1)}),
                 stage("web", {"net", "nowhere"}, {takes("b", 1)}),
                 stage("silent", {"power"}, {takes("c", 1)})})});
    plan.classes[0].stages[1].participants[0].critical = true;
    plan.classes[0].doNotStart = {{"silent", {}}};
    return graphsOf(planRun(plan));
}

TEST(Graph, KnowsCriticalMissingAndHeldStages) {
    const std::vector<StageGraphOf> graphs = someGraphs();

    ASSERT_EQ(graphs.size(), 1u);
    ASSERT_EQ(graphs[0].nodes.size(), 5u);
    EXPECT_TRUE(graphs[0].nodes[0].critical);  // since net is, and depends on it
    EXPECT_TRUE(graphs[0].nodes[1].critical);
    EXPECT_FALSE(graphs[0].nodes[2].critical);
    EXPECT_TRUE(graphs[0].nodes[3].held);
    EXPECT_EQ(graphs[0].nodes[4].name, "nowhere");
    EXPECT_TRUE(graphs[0].nodes[4].missing);
    EXPECT_EQ(graphs[0].edges, (Edges{{0, 1}, {1, 2}, {4, 2}, {0, 3}}));

    const std::string svg = graphSvg(graphs, "plan.yaml");
    EXPECT_EQ(xmlFault(svg), "");
    for (const char* const look : {"critical", "held", "missing", "node", "strong", "vain"})
        EXPECT_TRUE(holds(svg, std::string("class=\"") + look + "\"")) << look;
}

TEST(Graph, WritesDot) {
    EXPECT_EQ(graphDot(someGraphs()),
              "digraph stages {\n"
              "    rankdir=LR;\n"
              "    node [shape=box, style=rounded];\n"
              "    subgraph cluster_0 {\n"
              "        label=\"boot\";\n"
              "        c0s0 [label=\"power\", color=\"#d55e00\", penwidth=3];\n"
              "        c0s1 [label=\"net\", color=\"#d55e00\", penwidth=3];\n"
              "        c0s2 [label=\"web\"];\n"
              "        c0s3 [label=\"silent\", style=\"rounded,dotted\"];\n"
              "        c0s4 [label=\"nowhere\", style=\"rounded,dashed\"];\n"
              "        c0s0 -> c0s1;\n"
              "        c0s1 -> c0s2;\n"
              "        c0s4 -> c0s2 [style=dashed];\n"
              "        c0s0 -> c0s3;\n"
              "    }\n"
              "}\n");
}

TEST(Graph, WritesMermaid) {
    EXPECT_EQ(graphMermaid(someGraphs()),
              "flowchart LR\n"
              "    subgraph c0[\"boot\"]\n"
              "        c0s0[\"power\"]:::critical\n"
              "        c0s1[\"net\"]:::critical\n"
              "        c0s2[\"web\"]\n"
              "        c0s3[\"silent\"]:::held\n"
              "        c0s4[\"nowhere\"]:::missing\n"
              "        c0s0 --> c0s1\n"
              "        c0s1 --> c0s2\n"
              "        c0s4 -.-> c0s2\n"
              "        c0s0 --> c0s3\n"
              "    end\n"
              "    classDef critical stroke:#d55e00,stroke-width:3px\n"
              "    classDef held stroke-dasharray:6 2 1 2\n"
              "    classDef missing stroke-dasharray:3 3\n");
}

TEST(Graph, NoNameBreaksIt) {
    for (const HostileName& hostile : hostileNames()) {
        const StageGraphOf graph{hostile.name, {{hostile.name}, {"other"}}, {{0, 1}, {1, 0}}};

        EXPECT_EQ(xmlFault(graphSvg({graph}, hostile.name)), "") << hostile.what;
        const std::string dot = graphDot({graph});
        EXPECT_EQ(std::count(dot.begin(), dot.end(), '\n'), 11) << hostile.what;
        // Each quote that is not escaped begins or ends a text.
        std::size_t quotes = 0;
        for (std::size_t at = 0; at < dot.size(); ++at)
            if (dot[at] == '\\')
                ++at;
            else
                quotes += dot[at] == '"';
        EXPECT_EQ(quotes, 6u) << hostile.what;
        const std::string mermaid = graphMermaid({graph});
        EXPECT_EQ(std::count(mermaid.begin(), mermaid.end(), '"'), 6) << hostile.what;
        EXPECT_EQ(std::count(mermaid.begin(), mermaid.end(), '\n'), 10) << hostile.what;
    }
}

TEST(Graph, TellsTheSameToPrograms) {
    const Json document = graphJson(someGraphs());

    EXPECT_EQ(*document.member("schema"), Json("stagemgr.graph/1"));
    const Json& boot = document.member("classes")->array()->front();
    EXPECT_EQ(boot.member("stages")->array()->size(), 5u);
    EXPECT_EQ(*boot.member("dependencies")->array()->front().member("waitsFor"), Json("power"));
}

}  // namespace
}  // namespace Host
