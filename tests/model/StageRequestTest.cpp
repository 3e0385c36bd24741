#include "model/StageRequest.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using Stage::StageRequest;

TEST(StageRequest, IsEqualWhenEveryFieldIs) {
    const StageRequest request{"disk", "mount", 30};

    EXPECT_EQ(request, (StageRequest{"disk", "mount", 30}));
    EXPECT_NE(request, (StageRequest{"fan", "mount", 30}));
    EXPECT_NE(request, (StageRequest{"disk", "probe", 30}));
    EXPECT_NE(request, (StageRequest{"disk", "mount", 31}));
}

TEST(StageRequest, CarriesNothingByDefault) {
    EXPECT_EQ(StageRequest(), (StageRequest{"", "", 0.0}));
    EXPECT_TRUE(!StageRequest());
    EXPECT_TRUE(!(StageRequest{"", "", -0.0}));
}

TEST(StageRequest, AnyFieldMakesItCarrySomething) {
    EXPECT_FALSE(!(StageRequest{"disk", "", 0.0}));
    EXPECT_FALSE(!(StageRequest{"", "mount", 0.0}));
    EXPECT_FALSE(!(StageRequest{"", "", 1e-300}));
    EXPECT_FALSE(!(StageRequest{"", "", -1}));
    EXPECT_FALSE(!(StageRequest{"", "", std::nan("")}));
}

}  // namespace
