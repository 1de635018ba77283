// Packages in memory: counting, limits, lists.
#include "uci_internal.h"

#include <gtest/gtest.h>

namespace {

class UciTree : public ::testing::Test {
protected:
    UciTree() : ctx(uci_alloc_context()) {
        EXPECT_EQ(uci_new_package(ctx, "p", &package), UCI_OK);
        EXPECT_EQ(uci_new_section(package, "type", "s", &section), UCI_OK);
    }
    ~UciTree() override {
        uci_free_context(ctx);
    }
    uci_option *option(const char *name) const {
        uci_element *element = uci_find(&section->options, name);
        return element ? uci_to_option(element) : nullptr;
    }
    uci_context *ctx;
    uci_package *package = nullptr;
    uci_section *section = nullptr;
};

TEST_F(UciTree, CountsWhatItHolds) {
    EXPECT_EQ(package->n_elements, 1);
    ASSERT_EQ(uci_set_option(section, "o", "1"), UCI_OK);
    ASSERT_EQ(uci_append_item(section, "l", "a"), UCI_OK);
    ASSERT_EQ(uci_append_item(section, "l", "b"), UCI_OK);
    EXPECT_EQ(package->n_elements, 5);
    ASSERT_EQ(uci_set_option(section, "l", "c"), UCI_OK);
    EXPECT_EQ(package->n_elements, 3);
    uci_free_section(section);
    EXPECT_EQ(package->n_elements, 0);
}

TEST_F(UciTree, GivesAnonymousSectionsNamesOfTheirOwn) {
    uci_section *one = nullptr;
    uci_section *two = nullptr;
    ASSERT_EQ(uci_new_section(package, "type", nullptr, &one), UCI_OK);
    ASSERT_EQ(uci_new_section(package, "type", nullptr, &two), UCI_OK);
    EXPECT_TRUE(one->anonymous);
    EXPECT_STRNE(one->e.name, two->e.name);
    EXPECT_TRUE(uci_valid_name(one->e.name));
}

TEST_F(UciTree, TurnsAValueIntoTheFirstItem) {
    ASSERT_EQ(uci_set_option(section, "o", "1"), UCI_OK);
    ASSERT_EQ(uci_append_item(section, "o", "2"), UCI_OK);
    ASSERT_TRUE(option("o"));
    EXPECT_EQ(option("o")->type, UCI_TYPE_LIST);
    EXPECT_STREQ(uci_list_to_element(option("o")->v.values.next)->name, "1");
}

TEST_F(UciTree, RemovesAllItemsOfAValue) {
    for (const char *value : {"a", "b", "a"})
        ASSERT_EQ(uci_append_item(section, "l", value), UCI_OK);
    uci_remove_item(option("l"), "a");
    ASSERT_TRUE(option("l"));
    EXPECT_STREQ(uci_list_to_element(option("l")->v.values.next)->name, "b");
    uci_remove_item(option("l"), "b");
    EXPECT_EQ(option("l"), nullptr);
}

TEST_F(UciTree, FullPackageTakesNoMoreButChangesStillWork) {
    ASSERT_EQ(uci_set_option(section, "o", "1"), UCI_OK);
    while (package->n_elements < UCI_MAX_ELEMENTS)
        ASSERT_EQ(uci_append_item(section, "l", "x"), UCI_OK);
    EXPECT_EQ(uci_append_item(section, "l", "x"), UCI_ERR_MEM);
    EXPECT_EQ(uci_set_option(section, "n", "1"), UCI_ERR_MEM);
    uci_section *more = nullptr;
    EXPECT_EQ(uci_new_section(package, "type", "more", &more), UCI_ERR_MEM);
    EXPECT_EQ(uci_set_option(section, "o", "2"), UCI_OK);
    EXPECT_STREQ(option("o")->v.string, "2");
    EXPECT_EQ(uci_append_item(section, "o", "3"), UCI_ERR_MEM);
    EXPECT_STREQ(option("o")->v.string, "2");
}

} // namespace
