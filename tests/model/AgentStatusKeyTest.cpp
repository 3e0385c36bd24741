#include "model/AgentStatusKey.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>

namespace {

using Stage::AgentStatusKey;

TEST(AgentStatusKey, IsEqualWhenEveryFieldIs) {
    const AgentStatusKey key{"disk", "mount", "main"};

    EXPECT_EQ(key, (AgentStatusKey{"disk", "mount", "main"}));
    EXPECT_NE(key, (AgentStatusKey{"fan", "mount", "main"}));
    EXPECT_NE(key, (AgentStatusKey{"disk", "probe", "main"}));
    EXPECT_NE(key, (AgentStatusKey{"disk", "mount", "spare"})) << "completion is per instance";
}

TEST(AgentStatusKey, FieldsDoNotRunTogether) {
    EXPECT_NE((AgentStatusKey{"ab", "c", ""}), (AgentStatusKey{"a", "bc", ""}));
    EXPECT_NE((AgentStatusKey{"a", "", "b"}), (AgentStatusKey{"a", "b", ""}));
}

TEST(AgentStatusKey, EqualKeysHaveEqualHashes) {
    const std::string agent = "di";

    EXPECT_EQ((AgentStatusKey{"disk", "mount", "main"}).hash(),
              (AgentStatusKey{agent + "sk", "mount", "main"}).hash());
}

TEST(AgentStatusKey, EveryFieldAndItsPlaceCountInTheHash) {
    const std::set<std::uint32_t> hashes{
        AgentStatusKey{"a", "b", "c"}.hash(), AgentStatusKey{"a", "c", "b"}.hash(),
        AgentStatusKey{"b", "a", "c"}.hash(), AgentStatusKey{"b", "c", "a"}.hash(),
        AgentStatusKey{"c", "a", "b"}.hash(), AgentStatusKey{"c", "b", "a"}.hash(),
        AgentStatusKey{"a", "b", "d"}.hash(), AgentStatusKey{"a", "d", "c"}.hash(),
        AgentStatusKey{"d", "b", "c"}.hash()};

    EXPECT_EQ(hashes.size(), 9u);
}

TEST(AgentStatusKey, IsPrintable) {
    std::ostringstream out;

    out << AgentStatusKey{"disk", "mount", "main"};

    EXPECT_EQ(out.str(), "(agent: disk, stage: mount, instance: main)");
}

TEST(AgentStatusKey, IsEmptyByDefault) {
    EXPECT_EQ(AgentStatusKey(), (AgentStatusKey{"", "", ""}));
}

}  // namespace
