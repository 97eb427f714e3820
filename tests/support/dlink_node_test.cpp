#include <gxftypes/support/dlink_node.h>

#include <type_traits>

#include <gtest/gtest.h>
#include <testing/bytes.h>

using namespace GxfTypes;

namespace {

struct Item {
    DLinkNode<Item> link{*this};
};

TEST(DLinkNode, IsUnlinkedAtFirst) {
    DLinkNodeBase const node;
    EXPECT_EQ(node.previous, nullptr);
    EXPECT_EQ(node.next, nullptr);
    EXPECT_EQ(sizeof(node), 2 * sizeof(void*));
}

TEST(DLinkNode, KnowsItsOwner) {
    Item item;
    EXPECT_EQ(item.link.owner, &item);
    EXPECT_EQ(item.link.previous, nullptr);
    EXPECT_EQ(item.link.next, nullptr);
    EXPECT_TRUE((std::is_base_of_v<DLinkNodeBase, DLinkNode<Item>>));
}

TEST(DLinkNode, LeadsToTheNextOwner) {
    Item first;
    Item second;
    first.link.next = &second.link;
    second.link.previous = &first.link;
    EXPECT_EQ(static_cast<DLinkNode<Item>*>(first.link.next)->owner, &second);
    EXPECT_EQ(static_cast<DLinkNode<Item>*>(second.link.previous)->owner, &first);
}

} // namespace
