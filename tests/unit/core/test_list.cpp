// The intrusive list.
#include "core/list.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace {

using links = std::vector<const kolt_list *>;

links forwards(const kolt_list &head) {
    links found;
    for (const kolt_list *link = head.next; link != &head && found.size() < 10; link = link->next)
        found.push_back(link);
    return found;
}

links backwards(const kolt_list &head) {
    links found;
    for (const kolt_list *link = head.prev; link != &head && found.size() < 10; link = link->prev)
        found.push_back(link);
    return found;
}

class List : public testing::Test {
protected:
    List() {
        kolt_list_init(&head);
    }
    void add_all() {
        kolt_list_add(&head, &first);
        kolt_list_add(&head, &second);
        kolt_list_add(&head, &third);
    }
    kolt_list head, first, second, third;
};

} // namespace

TEST_F(List, LinkIsTwoPointersNextThenPrev) {
    EXPECT_EQ(offsetof(kolt_list, next), 0U);
    EXPECT_EQ(offsetof(kolt_list, prev), sizeof(void *));
    EXPECT_EQ(sizeof(kolt_list), 2 * sizeof(void *));
}

TEST_F(List, EmptyHeadPointsAtItself) {
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
}

TEST_F(List, InitEmptiesAHeadThatHadLinks) {
    add_all();
    kolt_list_init(&head);
    EXPECT_EQ(forwards(head), links{});
    EXPECT_EQ(head.prev, &head);
}

TEST_F(List, OneLinkIsItsHeadsBothNeighbours) {
    kolt_list_add(&head, &first);
    EXPECT_EQ(head.next, &first);
    EXPECT_EQ(head.prev, &first);
    EXPECT_EQ(first.next, &head);
    EXPECT_EQ(first.prev, &head);
}

TEST_F(List, ListReadsNewestFirst) {
    add_all();
    EXPECT_EQ(forwards(head), (links{&third, &second, &first}));
    EXPECT_EQ(backwards(head), (links{&first, &second, &third}));
}

TEST_F(List, DeletedLinkHasBothPointersNull) {
    add_all();
    kolt_list_delete(&second);
    EXPECT_EQ(second.next, nullptr);
    EXPECT_EQ(second.prev, nullptr);
    EXPECT_EQ(forwards(head), (links{&third, &first}));
    EXPECT_EQ(backwards(head), (links{&first, &third}));
}

TEST_F(List, LinksAreDeletedAtBothEnds) {
    add_all();
    kolt_list_delete(&third);
    EXPECT_EQ(forwards(head), (links{&second, &first}));
    kolt_list_delete(&first);
    EXPECT_EQ(forwards(head), links{&second});
    EXPECT_EQ(backwards(head), links{&second});
}

TEST_F(List, DeletingTheOnlyLinkLeavesAnEmptyHead) {
    kolt_list_add(&head, &first);
    kolt_list_delete(&first);
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
}

TEST_F(List, DeletedLinkCanBeAddedAgain) {
    add_all();
    kolt_list_delete(&first);
    kolt_list_add(&head, &first);
    EXPECT_EQ(forwards(head), (links{&first, &third, &second}));
}
