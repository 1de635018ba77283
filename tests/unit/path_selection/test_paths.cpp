// Rows of the path table by interface index, and what the records hold at first.
#include "path_selection/paths.h"
#include "path_selection/paths_test.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PathByPort : public Paths {
protected:
    ps_path *row_of(uint32_t ifindex) {
        interface_cache interfaces;
        return path_selection_get_path_by_port(&interfaces, &rows_, ifindex);
    }
    ps_path_table rows_;
};

TEST_F(PathByPort, PathIsTheRowWithTheNameOfTheInterface) {
    const uint32_t index = add_interface("wlan1.1");
    rows_[2] = make_path(KOLT_LINK_2G, "wlan0.1", 100, 0);
    rows_[3] = make_path(KOLT_LINK_5G, "wlan1.1", 100, 0);
    EXPECT_EQ(row_of(index), &rows_[3]);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(PathByPort, PathIsTheFirstOfTwoRowsWithTheSameName) {
    const uint32_t index = add_interface("wlan1.1");
    rows_[2] = make_path(KOLT_LINK_2G, "wlan1.1", 100, 0);
    rows_[4] = make_path(KOLT_LINK_5G_2, "wlan1.1", 100, 0);
    EXPECT_EQ(row_of(index), &rows_[2]);
}

TEST_F(PathByPort, NoPathIsFoundWhenNoRowHasTheName) {
    const uint32_t index = add_interface("wlan1.1");
    rows_[3] = make_path(KOLT_LINK_5G, "wlan1.10", 100, 0);
    rows_[4] = make_path(KOLT_LINK_5G_2, "wlan1", 100, 0);
    EXPECT_EQ(row_of(index), nullptr);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(PathByPort, UnknownIndexIsAnError) {
    rows_[3] = make_path(KOLT_LINK_5G, "wlan1.1", 100, 0);
    EXPECT_EQ(row_of(54321), nullptr);
    EXPECT_EQ(row_of(0), nullptr);
    const log_line message{LOG_ERR, "path_selection_get_path_by_port", "Error: get interface name"};
    EXPECT_THAT(logged(), ElementsAre(message, message));
}

TEST_F(PathByPort, AbsentRowIsNeverThePathOfAnUnknownIndex) {
    EXPECT_EQ(row_of(54321), nullptr) << "all names are empty";
}

TEST_F(PathByPort, FieldWithoutATerminatorIsCompared) {
    const uint32_t index = add_interface("abcdefghijklmno");
    rows_[0] = make_path(KOLT_LINK_ETHERNET, "abcdefghijklmnop", 100, 0);
    memset(&rows_[0].path, 'x', sizeof rows_[0].path);
    EXPECT_EQ(row_of(index), nullptr) << "16 characters are not the first 15";
    rows_[1] = make_path(KOLT_LINK_PLC, "abcdefghijklmno", 100, 0);
    EXPECT_EQ(row_of(index), &rows_[1]);
}

TEST(PathHistory, NewHistoryIsAllZero) {
    const path_selection_context fresh;
    EXPECT_EQ(fresh.configuration, nullptr);
    EXPECT_EQ(fresh.hd_sample_index, 0);
    EXPECT_EQ(fresh.last_adjust_status, 1) << "the first overloaded period moves streams";
    ASSERT_EQ(fresh.histories.size(), 5U);
    for (const ps_path_history &history : fresh.histories) {
        EXPECT_EQ(history.ifindex, 0U);
        EXPECT_EQ(history.rx_tx_factor, 0);
        EXPECT_EQ(history.sample_index, 0);
        EXPECT_EQ(history.history_mark, 0);
        EXPECT_THAT(history.data_rate, ElementsAre(0U, 0U, 0U, 0U, 0U));
    }
}

TEST(PathHistory, HistoryHasTheWidthsOfItsFields) {
    const ps_path_history history;
    const ps_path row;
    EXPECT_EQ(sizeof history.rx_tx_factor, 1U);
    EXPECT_EQ(sizeof history.history_mark, 2U);
    EXPECT_EQ(std::size(history.samples), 15U);
    EXPECT_EQ(std::size(history.data_rate), 5U);
    EXPECT_EQ(std::size(path_selection_ctx.hd_sample_ring), 20U);
    EXPECT_EQ(sizeof row.name, 16U);
    EXPECT_EQ(sizeof row.rate, 2U);
    static_assert(std::is_same_v<decltype(row.quota), int16_t>);
    static_assert(std::is_same_v<decltype(row.util_adjustment), int8_t>);
}

} // namespace
