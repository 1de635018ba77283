// Rows of a table of cases, for parametrised tests.
#pragma once

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>

// A struct with a `name`, which is how the row is printed and how its test is called.
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
template <class Row, class Fixture = testing::Test>
class table_test : public Fixture, public testing::WithParamInterface<named_row<Row>> {
protected:
    static const Row &GetParam() {
        return testing::WithParamInterface<named_row<Row>>::GetParam().row;
    }
};
