// A configuration directory, a save directory and a context that reads them.
#pragma once

#include "support.h"

#include <uci.h>

class UciTest : public ::testing::Test {
protected:
    UciTest() : ctx(uci_alloc_context()) {
        EXPECT_EQ(uci_set_confdir(ctx, dir.path("config").c_str()), UCI_OK);
        EXPECT_EQ(uci_set_savedir(ctx, dir.path("state").c_str()), UCI_OK);
    }
    ~UciTest() override {
        uci_free_context(ctx);
    }
    void config(const std::string &text, const std::string &package = "p") const {
        dir.write("config/" + package, text);
    }
    void delta(const std::string &text, const std::string &package = "p") const {
        dir.write("state/" + package, text);
    }
    int look_up(const std::string &text, bool extended = true) {
        tuple = text;
        return uci_lookup_ptr(ctx, &ptr, tuple.data(), extended);
    }
    // The value of a string option, "[a|b]" for a list, and otherwise what was found instead.
    std::string value(const std::string &text) {
        const int error = look_up(text);
        if (error != UCI_OK)
            return "error " + std::to_string(error);
        if (!ptr.o)
            return "type " + std::to_string(ptr.last->type);
        if (ptr.o->type == UCI_TYPE_STRING)
            return ptr.o->v.string;
        std::string items;
        uci_element *item;
        uci_foreach_element(&ptr.o->v.values, item) {
            items += items.empty() ? item->name : std::string("|") + item->name;
        }
        return "[" + items + "]";
    }
    TempDir dir;
    uci_context *ctx;
    uci_ptr ptr = {};
    std::string tuple;
};
