// Members of JSON objects.
#include "core/json.h"

#include <gtest/gtest.h>

namespace {

json_ptr parse(const char *text) {
    return json_ptr(json_tokener_parse(text));
}

} // namespace

TEST(JsonMember, MemberIsFoundByItsKey) {
    const json_ptr object = parse(R"({"a": 1, "b": "two"})");
    EXPECT_EQ(json_object_get_int(json_member(object.get(), "a")), 1);
    EXPECT_STREQ(json_member_text(object.get(), "b"), "two");
}

TEST(JsonMember, MissingKeyIsNull) {
    const json_ptr object = parse(R"({"a": 1})");
    EXPECT_EQ(json_member(object.get(), "b"), nullptr);
    EXPECT_EQ(json_member_text(object.get(), "b"), nullptr);
}

TEST(JsonMember, JsonNullIsAMissingKey) {
    const json_ptr object = parse(R"({"a": null})");
    EXPECT_EQ(json_member(object.get(), "a"), nullptr);
    EXPECT_EQ(json_member_text(object.get(), "a"), nullptr);
}

TEST(JsonMember, WhatIsNoObjectIsAnEmptyOne) {
    for (const char *text : {"[1, 2]", "5", "\"a\"", "true", "null"}) {
        const json_ptr value = parse(text);
        EXPECT_EQ(json_member(value.get(), "a"), nullptr) << text;
    }
}

TEST(JsonMember, TextOfAnotherTypeIsItsTextualForm) {
    const json_ptr object = parse(R"({"number": 12, "flag": true, "empty": ""})");
    EXPECT_STREQ(json_member_text(object.get(), "number"), "12");
    EXPECT_STREQ(json_member_text(object.get(), "flag"), "true");
    EXPECT_STREQ(json_member_text(object.get(), "empty"), "");
}
