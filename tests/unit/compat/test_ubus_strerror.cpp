// The texts of status codes.
#include "c_headers.h"

#include <climits>
#include <gtest/gtest.h>

namespace {

struct Row {
    int code;
    const char *text;
    friend void PrintTo(const Row &row, std::ostream *out) {
        *out << row.text;
    }
};

class UbusStrerror : public ::testing::TestWithParam<Row> {};

TEST_P(UbusStrerror, NamesTheStatus) {
    EXPECT_STREQ(ubus_strerror(GetParam().code), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(, UbusStrerror,
                         ::testing::Values(Row{0, "Success"}, Row{1, "Invalid command"}, Row{2, "Invalid argument"},
                                           Row{3, "Method not found"}, Row{4, "Not found"}, Row{5, "No response"},
                                           Row{6, "Permission denied"}, Row{7, "Request timed out"},
                                           Row{8, "Operation not supported"}, Row{9, "Unknown error"},
                                           Row{10, "Connection failed"}, Row{11, "Out of memory"},
                                           Row{12, "Parsing message data failed"}, Row{13, "System error"},
                                           Row{14, "Unknown error: 14"}, Row{-1, "Unknown error: -1"},
                                           Row{INT_MIN, "Unknown error: -2147483648"}),
                         [](const auto &param) { return "Row" + std::to_string(param.index); });

} // namespace
