#include <gtest/gtest.h>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;

namespace {

TEST(MediaAgent, StandsOnTheSharedNullAgentWithoutARealOne) {
    MediaAgent const agent(nullptr);
    MediaAgent const another(nullptr);
    EXPECT_EQ(agent.properties(), &MediaAgent::s_nullAgent);
    EXPECT_EQ(another.properties(), &MediaAgent::s_nullAgent);
    EXPECT_EQ(agent.given(), nullptr);
}

TEST(MediaAgent, KeepsTheGivenProperties) {
    IGenericProperties<MediaAgentPropId> const properties;
    MediaAgent const agent(&properties);
    EXPECT_EQ(agent.properties(), &properties);
    EXPECT_EQ(agent.given(), &properties);
}

} // namespace
