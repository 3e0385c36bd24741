#include "model/StageInfo.h"

#include <gtest/gtest.h>

namespace {

using Stage::StageInfo;

TEST(StageInfo, IsEqualWhenClassAndStageAre) {
    EXPECT_EQ((StageInfo{"boot", "mount"}), (StageInfo{"boot", "mount"}));
    EXPECT_NE((StageInfo{"boot", "mount"}), (StageInfo{"net", "mount"}));
    EXPECT_NE((StageInfo{"boot", "mount"}), (StageInfo{"boot", "probe"}));
    EXPECT_NE((StageInfo{"ab", "c"}), (StageInfo{"a", "bc"}));
    EXPECT_EQ(StageInfo(), (StageInfo{"", ""}));
}

TEST(StageInfo, ClassAndStageHaveTheirPlacesInTheHash) {
    EXPECT_EQ((StageInfo{"boot", "mount"}).hash(), (StageInfo{"boot", "mount"}).hash());
    EXPECT_NE((StageInfo{"boot", "mount"}).hash(), (StageInfo{"mount", "boot"}).hash());
    EXPECT_NE((StageInfo{"boot", "mount"}).hash(), (StageInfo{"boot", "probe"}).hash());
    EXPECT_NE((StageInfo{"boot", "mount"}).hash(), (StageInfo{"net", "mount"}).hash());
}

}  // namespace
