// Finding modules by their id and by their links.
#include "core/module.h"

#include <gtest/gtest.h>

namespace {

class ModuleRegistry : public testing::Test {
protected:
    ModuleRegistry() {
        kolt_list_init(&modules);
        loop_avoidance.id = 0;
        path_selection.id = 1;
    }
    // As the start-up does: loop avoidance is built first.
    void add_both() {
        kolt_list_add(&modules, &loop_avoidance.list);
        kolt_list_add(&modules, &path_selection.list);
    }
    kolt_list modules;
    kolt_module loop_avoidance, path_selection;
};

} // namespace

TEST_F(ModuleRegistry, IdsArePinned) {
    EXPECT_EQ(KOLT_MODULE_LOOP_AVOIDANCE, 0U);
    EXPECT_EQ(KOLT_MODULE_PATH_SELECTION, 1U);
}

TEST_F(ModuleRegistry, CommonMembersStandInOrder) {
    EXPECT_EQ(offsetof(kolt_module, list), 0U);
    EXPECT_LT(offsetof(kolt_module, list), offsetof(kolt_module, name));
    EXPECT_LT(offsetof(kolt_module, name), offsetof(kolt_module, id));
    EXPECT_LT(offsetof(kolt_module, id), offsetof(kolt_module, free));
    EXPECT_LT(offsetof(kolt_module, free), offsetof(kolt_module, sub));
    EXPECT_LT(offsetof(kolt_module, sub), offsetof(kolt_module, event_cb));
}

TEST_F(ModuleRegistry, ListReadsPathSelectionThenLoopAvoidance) {
    add_both();
    EXPECT_EQ(kolt_module_of_list(modules.next), &path_selection);
    EXPECT_EQ(kolt_module_of_list(modules.next->next), &loop_avoidance);
    EXPECT_EQ(modules.next->next->next, &modules);
}

TEST_F(ModuleRegistry, RecordIsFoundByItsId) {
    add_both();
    EXPECT_EQ(kolt_get_mod_contex(&modules, 1), &path_selection);
    EXPECT_EQ(kolt_get_mod_contex(&modules, 0), &loop_avoidance);
}

TEST_F(ModuleRegistry, AnyOtherIdIsNull) {
    add_both();
    for (const uint32_t id : {2U, 3U, 0x7FFFFFFFU, 0xFFFFFFFFU})
        EXPECT_EQ(kolt_get_mod_contex(&modules, id), nullptr) << id;
}

TEST_F(ModuleRegistry, EmptyListHasNoRecord) {
    EXPECT_EQ(kolt_get_mod_contex(&modules, 0), nullptr);
}

TEST_F(ModuleRegistry, FirstFromTheHeadWinsAmongEqualIds) {
    path_selection.id = 0;
    add_both();
    EXPECT_EQ(kolt_get_mod_contex(&modules, 0), &path_selection);
}

TEST_F(ModuleRegistry, DeletedRecordIsNotFound) {
    add_both();
    kolt_list_delete(&path_selection.list);
    EXPECT_EQ(kolt_get_mod_contex(&modules, 1), nullptr);
    EXPECT_EQ(kolt_get_mod_contex(&modules, 0), &loop_avoidance);
}

TEST_F(ModuleRegistry, RecordIsRecoveredFromItsSubscriberLink) {
    EXPECT_EQ(kolt_module_of_sub(&path_selection.sub), &path_selection);
}
