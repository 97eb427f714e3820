#include <gtest/gtest.h>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;

namespace {

TEST(Sgl, HoldsOneStretchOfBytes) {
    unsigned char bytes[4] = {};
    initSgl_t list(bytes, 4);
    simpleSgl_s& entry = list;
    EXPECT_EQ(entry.data, bytes);
    EXPECT_EQ(entry.length, 4U);

    list.set(bytes + 1, 2);
    EXPECT_EQ(entry.data, bytes + 1);
    EXPECT_EQ(entry.length, 2U);
}

} // namespace
