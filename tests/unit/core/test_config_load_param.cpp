// The tuning parameters.
#include "config_file.h"

#include <functional>

namespace {

using reader = std::function<int64_t(const config_param &)>;

template <class Member> reader member(Member config_param::*pointer) {
    return [pointer](const config_param &param) { return static_cast<int64_t>(param.*pointer); };
}

struct param_row {
    std::string name;
    std::string key;
    std::string value; // JSON, empty for a missing key
    reader read;
    int64_t expected;
};

class Param : public testing::TestWithParam<param_row> {};

struct value_row {
    const char *name;
    const char *value;
    int64_t expected;
};

// One row for each value of one key.
void add_rows(std::vector<param_row> *rows, const std::string &key, const reader &read,
              std::initializer_list<value_row> values) {
    for (const value_row &value : values)
        rows->push_back({key + "_" + value.name, key, value.value, read, value.expected});
}

void add_percents(std::vector<param_row> *rows) {
    const std::tuple<const char *, reader, int64_t> keys[] = {
        {"high_threshold", member(&config_param::high_threshold), 70},
        {"delta_threshold", member(&config_param::delta_threshold), 10},
        {"reserved_ratio", member(&config_param::reserved_ratio), 0},
        {"adjusted_ratio", member(&config_param::adjusted_ratio), 50},
    };
    for (const auto &[key, read, fallback] : keys)
        add_rows(rows, key, read,
                 {{"Missing", "", fallback},
                  {"Null", "null", fallback},
                  {"BelowZero", "-1", 0},
                  {"Zero", "0", 0},
                  {"One", "1", 1},
                  {"Hundred", "100", 100},
                  {"Above", "101", 100},
                  {"Wrapping", "256", 100},
                  {"Huge", "99999999999999999999", 100},
                  {"DigitsAsText", "\"42\"", 42},
                  {"OtherText", "\"x\"", 0}});
}

void add_thousands(std::vector<param_row> *rows) {
    const std::tuple<const char *, reader, int64_t> keys[] = {
        {"idle_threshold", member(&config_param::idle_threshold), 10},
        {"activate_pkts", member(&config_param::activate_pkts), 1},
    };
    for (const auto &[key, read, fallback] : keys)
        add_rows(rows, key, read,
                 {{"Missing", "", fallback},
                  {"BelowZero", "-1", 0},
                  {"Zero", "0", 0},
                  {"Below", "999", 999},
                  {"Thousand", "1000", 1000},
                  {"Above", "1001", 1000}});
}

void add_flags(std::vector<param_row> *rows) {
    const std::tuple<const char *, reader, int64_t> keys[] = {
        {"wlan_enable", member(&config_param::wlan_enable), 0},
        {"plc_enable", member(&config_param::plc_enable), 0},
        {"estimate_ack_enable", member(&config_param::estimate_ack_enable), 0},
        {"cpu_limit", member(&config_param::cpu_limit), 0},
        {"wifi_rate_check", member(&config_param::wifi_rate_check), 1},
    };
    for (const auto &[key, read, fallback] : keys)
        add_rows(rows, key, read,
                 {{"Missing", "", fallback},
                  {"True", "true", 1},
                  {"False", "false", 0},
                  {"Zero", "0", 0},
                  {"Big", "256", 1},
                  {"Negative", "-1", 1},
                  {"EmptyText", "\"\"", 0},
                  {"Text", "\"false\"", 1}});
}

void add_truncated(std::vector<param_row> *rows) {
    const std::tuple<const char *, reader, int64_t> bytes[] = {
        {"plc_rate_ratio", member(&config_param::plc_rate_ratio), 100},
        {"cpu_threshold", member(&config_param::cpu_threshold), 0},
        {"abn_threshold", member(&config_param::abn_threshold), 0},
    };
    for (const auto &[key, read, fallback] : bytes)
        add_rows(rows, key, read,
                 {{"Missing", "", fallback},
                  {"Highest", "255", 255},
                  {"Wraps", "256", 0},
                  {"WrapsFurther", "300", 44},
                  {"Negative", "-1", 255}});
    const std::tuple<const char *, reader, int64_t> words[] = {
        {"rate_threshold", member(&config_param::rate_threshold), 0},
        {"rate_abnormal_threshold", member(&config_param::rate_abnormal_threshold), 13},
    };
    for (const auto &[key, read, fallback] : words)
        add_rows(rows, key, read,
                 {{"Missing", "", fallback},
                  {"Highest", "65535", 65535},
                  {"Wraps", "65536", 0},
                  {"WrapsFurther", "65537", 1},
                  {"Negative", "-1", 65535}});
}

void add_vlan_ids(std::vector<param_row> *rows) {
    const std::pair<const char *, reader> keys[] = {
        {"eth_vlan_id", member(&config_param::eth_vlan_id)},
        {"iptv_vlan_id", member(&config_param::iptv_vlan_id)},
        {"iptv_vlan_backhaul_id", member(&config_param::iptv_vlan_backhaul_id)},
        {"plc_vlan_backhaul_id", member(&config_param::plc_vlan_backhaul_id)},
        {"plc_vlan_guest_id", member(&config_param::plc_vlan_guest_id)},
        {"plc_vlan_iptv_id", member(&config_param::plc_vlan_iptv_id)},
    };
    for (const auto &[key, read] : keys)
        add_rows(rows, key, read,
                 {{"Missing", "", 0},
                  {"BelowZero", "-1", 0},
                  {"One", "1", 1},
                  {"Below", "4093", 4093},
                  {"Highest", "4094", 4094},
                  {"Above", "4095", 4094}});
}

std::vector<param_row> all_rows() {
    std::vector<param_row> rows;
    add_percents(&rows);
    add_thousands(&rows);
    add_flags(&rows);
    add_truncated(&rows);
    add_vlan_ids(&rows);
    add_rows(&rows, "period", member(&config_param::period),
             {{"Missing", "", 0},
              {"Zero", "0", 0},
              {"Five", "5", 5000},
              {"Text", "\"7\"", 7000},
              {"HighestThatFits", "4294967", 4294967000},
              {"Wraps", "4294968", 704},        // 4294968000 - 2^32
              {"Negative", "-1", 4294966296}}); // 2^32 - 1000
    add_rows(&rows, "adjusted_streams", member(&config_param::adjusted_streams),
             {{"Missing", "", 1},
              {"BelowZero", "-1", 0},
              {"Zero", "0", 0},
              {"HighestByte", "255", 255},
              {"Wraps", "256", 0},
              {"ThreeHundred", "300", 44},
              {"Thousand", "1000", 232},
              {"ClampedThenWrapped", "2000", 232}});
    add_rows(&rows, "backhual_prefered", member(&config_param::backhual_prefered),
             {{"Missing", "", 0}, {"BelowZero", "-1", 0}, {"Three", "3", 3}, {"Highest", "4", 4}, {"Above", "5", 4}});
    add_rows(&rows, "low_threshold", member(&config_param::low_threshold), {{"IsNeverRead", "9", 0}});
    add_rows(&rows, "bcast_port_plc", member(&config_param::bcast_port_plc), {{"IsNeverRead", "1", 0}});
    return rows;
}

class ParamSection : public testing::Test {};

// Of the process, before any test ran.
const uint32_t interval_at_start = config_get_timer_interval();
const uint8_t compensation_at_start = config_get_util_compensation();

} // namespace

TEST_P(Param, ParameterIsReadWithItsConversionDefaultAndBounds) {
    const param_row &row = GetParam();
    const std::string pair = row.value.empty() ? "" : "\"" + row.key + "\": " + row.value;
    EXPECT_EQ(row.read(loaded(R"({"param": {)" + pair + "}}")->param), row.expected);
}

INSTANTIATE_TEST_SUITE_P(Keys, Param, testing::ValuesIn(all_rows()), [](const auto &row) { return row.param.name; });

TEST_F(ParamSection, AbsentSectionLeavesEverythingZeroInSpiteOfTheDefaults) {
    const auto record = loaded(R"({"enable": true})");
    EXPECT_EQ(record->param.wifi_rate_check, 0);
    EXPECT_EQ(record->param.high_threshold, 0);
    EXPECT_EQ(record->param.plc_rate_ratio, 0);
    EXPECT_EQ(record->param.period, 0U);
    EXPECT_EQ(record->param.activate_pkts, 0);
    EXPECT_EQ(record->param.rate_abnormal_threshold, 0);
    EXPECT_EQ(record->param.adjusted_ratio, 0);
}

TEST_F(ParamSection, AbsentSectionLeavesTheBlockAsItWas) {
    config record;
    record.param.idle_threshold = 77;
    load_text(&record, "{}");
    EXPECT_EQ(record.param.idle_threshold, 77);
}

TEST_F(ParamSection, PresentSectionZeroesTheWholeBlockFirst) {
    config record;
    record.param.low_threshold = 9;
    record.param.bcast_port_plc = 1;
    record.param.eth_vlan_id = 12;
    load_text(&record, R"({"param": {}})");
    EXPECT_EQ(record.param.low_threshold, 0);
    EXPECT_EQ(record.param.bcast_port_plc, 0);
    EXPECT_EQ(record.param.eth_vlan_id, 0);
}

TEST_F(ParamSection, TimerIntervalIsThePeriodInSeconds) {
    (void)loaded(R"({"param": {"period": 5}})");
    EXPECT_EQ(config_get_timer_interval(), 5U);
    (void)loaded(R"({"param": {"period": 4294968}})"); // 704 ms
    EXPECT_EQ(config_get_timer_interval(), 0U);
    (void)loaded(R"({"param": {"period": -1}})"); // 4294966296 ms
    EXPECT_EQ(config_get_timer_interval(), 4294966U);
    (void)loaded(R"({"param": {}})");
    EXPECT_EQ(config_get_timer_interval(), 0U);
}

TEST_F(ParamSection, UtilCompensationIsABoolean) {
    (void)loaded(R"({"param": {"util_compensation": true}})");
    EXPECT_EQ(config_get_util_compensation(), 1);
    (void)loaded(R"({"param": {"util_compensation": 256}})");
    EXPECT_EQ(config_get_util_compensation(), 1);
    (void)loaded(R"({"param": {}})");
    EXPECT_EQ(config_get_util_compensation(), 0);
}

TEST_F(ParamSection, GettersStayZeroWhenTheFileHasNoParam) {
    EXPECT_EQ(interval_at_start, 0U);
    EXPECT_EQ(compensation_at_start, 0);
    const uint32_t interval = config_get_timer_interval();
    const uint8_t compensation = config_get_util_compensation();
    (void)loaded(R"({"enable": true, "period": 9, "util_compensation": true})");
    EXPECT_EQ(config_get_timer_interval(), interval);
    EXPECT_EQ(config_get_util_compensation(), compensation);
}
