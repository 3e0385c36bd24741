#include "host/plan/Sarif.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/JsonDocument.h"
#include "host/plan/Check.h"

namespace Host {
namespace {

using testing::HasSubstr;
using testing::Not;

std::vector<Diagnostic> some() {
    return {{Diagnostic::Severity::error,
             "plans/boot 1.yaml",
             {7, 12},
             "cycle",
             "text with \"quotes\"",
             {{{9, 3}, "one"}, {{}, "two"}}},
            {Diagnostic::Severity::warning, "b.yaml", {}, "of-the-reader", "whole file", {}},
            {Diagnostic::Severity::note, "b.yaml", {3, 0}, "of-the-reader", "a line", {}}};
}

// The member at the end of that path of keys and indexes.
const Json& at(const Json& value, const std::vector<std::string>& path) {
    static const Json absent;
    const Json* now = &value;
    for (const std::string& step : path) {
        if (const Json::Array* const array = now->array())
            now = std::stoul(step) < array->size() ? &(*array)[std::stoul(step)] : nullptr;
        else
            now = now->member(step);
        if (now == nullptr) return absent;
    }
    return *now;
}

TEST(Sarif, HasTheShapeOfVersion210) {
    const Json log = parseJson(jsonDocument(sarif(some())));

    EXPECT_EQ(at(log, {"version"}), Json("2.1.0"));
    EXPECT_THAT(*at(log, {"$schema"}).string(), HasSubstr("sarif-2.1.0"));
    ASSERT_EQ(at(log, {"runs"}).array()->size(), 1u);
    const Json& driver = at(log, {"runs", "0", "tool", "driver"});
    EXPECT_EQ(at(driver, {"name"}), Json("stagemgr"));
    ASSERT_EQ(at(driver, {"rules"}).array()->size(), checkRules().size() + 1);
    for (const Json& rule : *at(driver, {"rules"}).array()) {
        ASSERT_NE(rule.member("id"), nullptr);
        EXPECT_FALSE(rule.member("id")->string()->empty());
    }
    EXPECT_EQ(at(log, {"runs", "0", "columnKind"}), Json("unicodeCodePoints"));
}

TEST(Sarif, AResultHasRuleLevelMessageAndPlaces) {
    const Json log = parseJson(jsonDocument(sarif(some())));
    const Json& results = at(log, {"runs", "0", "results"});
    const Json& rules = at(log, {"runs", "0", "tool", "driver", "rules"});

    ASSERT_EQ(results.array()->size(), 3u);
    for (const Json& result : *results.array()) {
        const auto index = static_cast<std::size_t>(*at(result, {"ruleIndex"}).number());
        EXPECT_EQ(at(result, {"ruleId"}), at(rules, {std::to_string(index), "id"}));
    }
    const Json& cycle = (*results.array())[0];
    EXPECT_EQ(at(cycle, {"ruleId"}), Json("cycle"));
    EXPECT_EQ(at(cycle, {"level"}), Json("error"));
    EXPECT_EQ(at(cycle, {"message", "text"}), Json("text with \"quotes\""));
    const Json& place = at(cycle, {"locations", "0", "physicalLocation"});
    EXPECT_EQ(at(place, {"artifactLocation", "uri"}), Json("plans/boot%201.yaml"));
    EXPECT_EQ(at(place, {"region", "startLine"}), Json(7.0));
    EXPECT_EQ(at(place, {"region", "startColumn"}), Json(12.0));
    const Json& related = at(cycle, {"relatedLocations"});
    ASSERT_EQ(related.array()->size(), 2u);
    EXPECT_EQ(at(related, {"0", "id"}), Json(1.0));
    EXPECT_EQ(at(related, {"0", "physicalLocation", "region", "startLine"}), Json(9.0));
    EXPECT_EQ(at(related, {"1", "message", "text"}), Json("two"));
    EXPECT_EQ(at(results, {"1", "level"}), Json("warning"));
    EXPECT_EQ(at(results, {"2", "level"}), Json("note"));
}

TEST(Sarif, WhatHasNoPlaceHasNoRegion) {
    const Json results = at(sarif(some()), {"runs", "0", "results"});

    EXPECT_TRUE(at(results, {"1", "locations", "0", "physicalLocation", "region"}).null());
    const Json& line = at(results, {"2", "locations", "0", "physicalLocation", "region"});
    EXPECT_EQ(at(line, {"startLine"}), Json(3.0));
    EXPECT_TRUE(at(line, {"startColumn"}).null());
    EXPECT_TRUE(at(results, {"0", "relatedLocations", "1", "physicalLocation", "region"}).null());
}

TEST(Sarif, NothingFoundIsARunWithoutResults) {
    const Json log = sarif({});

    ASSERT_NE(at(log, {"runs", "0", "results"}).array(), nullptr);
    EXPECT_TRUE(at(log, {"runs", "0", "results"}).array()->empty());
}

TEST(Sarif, CountsAreWholeNumbers) {
    EXPECT_THAT(jsonDocument(sarif(some())), HasSubstr("\"startLine\": 7,"));
    EXPECT_THAT(jsonDocument(sarif(some())), Not(HasSubstr(".0,")));
}

TEST(Sarif, FileNamesBecomeUris) {
    EXPECT_EQ(fileUri("a/b-c_d.yaml"), "a/b-c_d.yaml");
    EXPECT_EQ(fileUri("/etc/x y.yaml"), "file:///etc/x%20y.yaml");
    EXPECT_EQ(fileUri("c:\\x#1?.yaml"), "c%3A%5Cx%231%3F.yaml");
    EXPECT_EQ(fileUri("<stdin>"), "%3Cstdin%3E");
    EXPECT_EQ(fileUri("\xff%"), "%FF%25");
    EXPECT_EQ(fileUri("\xc3\xa9"), "%C3%A9");
}

}  // namespace
}  // namespace Host
