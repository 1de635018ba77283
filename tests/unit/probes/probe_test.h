// What every test of the probes stands on: fresh fakes and an empty log before, nothing left open or allocated after.
#pragma once

#include "support/fake_netlink.h"
#include "support/fake_platform.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

using mac_address = std::array<uint8_t, 6>;
using lines = std::vector<std::string>;

class probe : public testing::Test {
protected:
    void SetUp() override {
        platform = fake_platform{};
        reset_netlink();
        clear_log();
        descriptors_ = open_descriptors();
    }

    void TearDown() override {
        EXPECT_EQ(platform.live_buffers, 0);
        EXPECT_EQ(open_descriptors(), descriptors_);
    }

private:
    size_t descriptors_ = 0;
};

// A row of a table of cases: a struct with a `name`, which is how the row is printed and how its test is called.
template <class Row> struct named_row {
    Row row;
    named_row(Row content) : row(std::move(content)) {}
};

template <class Row> void PrintTo(const named_row<Row> &row, std::ostream *out) {
    *out << row.row.name;
}

template <class Row> std::string row_name(const testing::TestParamInfo<named_row<Row>> &info) {
    return info.param.row.name;
}

// A fixture for the rows of a table.
template <class Row, class Fixture = probe>
class probe_rows : public Fixture, public testing::WithParamInterface<named_row<Row>> {
protected:
    static const Row &GetParam() {
        return testing::WithParamInterface<named_row<Row>>::GetParam().row;
    }
};

// One JSON file's text and what is made of it.
struct file_row {
    const char *name;
    const char *text;
    uint32_t expected;
};

// A JSON object with some 40000 bytes of another key before `members`.
inline std::string long_object(const std::string &members) {
    return "{\"padding\": \"" + std::string(40000, 'x') + "\", " + members + "}";
}
