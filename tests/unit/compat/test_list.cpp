// The intrusive list.
#include "c_headers.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

struct Item {
    int value;
    list_head link;
};

std::vector<int> values(list_head *head) {
    std::vector<int> found;
    list_head *link;
    list_for_each(link, head) found.push_back(container_of(link, Item, link)->value);
    return found;
}

class List : public ::testing::Test {
protected:
    void SetUp() override {
        INIT_LIST_HEAD(&head);
    }
    list_head head = {};
    Item one = {1, {}};
    Item two = {2, {}};
    Item three = {3, {}};
};

TEST_F(List, IsEmptyWhenItsHeadPointsToItself) {
    EXPECT_TRUE(list_empty(&head));
    list_add(&one.link, &head);
    EXPECT_FALSE(list_empty(&head));
}

TEST_F(List, AddsInFront) {
    list_add(&one.link, &head);
    list_add(&two.link, &head);
    EXPECT_EQ(values(&head), (std::vector{2, 1}));
}

TEST_F(List, AddsAtTheEnd) {
    list_add_tail(&one.link, &head);
    list_add_tail(&two.link, &head);
    EXPECT_EQ(values(&head), (std::vector{1, 2}));
    EXPECT_EQ(list_first_entry(&head, Item, link)->value, 1);
}

TEST_F(List, DeletesFromTheMiddle) {
    for (Item *item : {&one, &two, &three})
        list_add_tail(&item->link, &head);
    list_del(&two.link);
    EXPECT_EQ(values(&head), (std::vector{1, 3}));
    list_del_init(&three.link);
    EXPECT_TRUE(list_empty(&three.link));
    EXPECT_EQ(values(&head), (std::vector{1}));
}

TEST_F(List, SafeWalkSurvivesTheDeletionOfWhereItStands) {
    for (Item *item : {&one, &two, &three})
        list_add_tail(&item->link, &head);
    list_head *link;
    list_head *next;
    list_for_each_safe(link, next, &head) list_del(link);
    EXPECT_TRUE(list_empty(&head));
}

} // namespace
