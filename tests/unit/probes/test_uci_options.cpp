// Reading and comparing options.
#include "probe_test.h"

#include "core/config.h"
#include "probes/uci_options.h"

#include <cstring>
#include <syslog.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char PACKAGE[] = "/etc/config/tolmux";
constexpr char CHANGES[] = "/var/state/tolmux";

log_line error(const std::string &text) {
    return {LOG_ERR, "uci_get_value", "Error: " + text};
}

// The value buffer that callers give, and proof that nothing behind it was written.
struct value_buffer {
    char bytes[UCI_VALUE_SIZE + 8];
    value_buffer() {
        memset(bytes, '~', sizeof bytes);
    }
    [[nodiscard]] std::string behind() const {
        return {bytes + UCI_VALUE_SIZE, 8};
    }
};

class Uci : public probe {
protected:
    void SetUp() override {
        remove_file(PACKAGE);
        remove_file(CHANGES);
    }

    static int get(const char *tuple, value_buffer *value) {
        std::string copy = tuple;
        return uci_get_value(copy.data(), value->bytes);
    }

    static void write_options(const std::string &options) {
        write_file(PACKAGE, "config tolmux 'tolmux'\n" + options);
    }
};

struct value_row {
    const char *name;
    const char *tuple;
    const char *value;
};

class UciValue : public probe_rows<value_row> {};

TEST_P(UciValue, OptionIsCopiedWhenItIsThere) {
    remove_file(CHANGES);
    write_file(PACKAGE, "config tolmux 'tolmux'\n"
                        "\toption single 'one two'\n"
                        "\toption double \"three\"\n"
                        "\toption bare four\n"
                        "\toption digits '0123456789abcdef0123456'\n"
                        "\nconfig port\n\toption name 'first'\n"
                        "\nconfig port\n\toption name 'last'\n");
    const at_log_level dump(3);
    std::string tuple = GetParam().tuple;
    value_buffer value;
    EXPECT_EQ(uci_get_value(tuple.data(), value.bytes), 1);
    EXPECT_STREQ(value.bytes, GetParam().value);
    EXPECT_THAT(logged(), ElementsAre(log_line{LOG_DEBUG, "uci_get_value",
                                               std::string("Dump: Success to get  option value ") + GetParam().tuple +
                                                   " = " + GetParam().value + " "}));
}

INSTANTIATE_TEST_SUITE_P(UciOptions, UciValue,
                         testing::Values(value_row{"SingleQuotes", "tolmux.tolmux.single", "one two"},
                                         value_row{"DoubleQuotes", "tolmux.tolmux.double", "three"},
                                         value_row{"Bare", "tolmux.tolmux.bare", "four"},
                                         value_row{"OfTwentyThreeCharacters", "tolmux.tolmux.digits",
                                                   "0123456789abcdef0123456"},
                                         value_row{"ExtendedSyntaxFirst", "tolmux.@port[0].name", "first"},
                                         value_row{"ExtendedSyntaxFromTheEnd", "tolmux.@port[-1].name", "last"},
                                         value_row{"ExtendedSyntaxOfANamedSection", "tolmux.@tolmux[0].bare", "four"}),
                         row_name<value_row>);

TEST_F(Uci, SuccessIsSilentBelowDumpLevel) {
    write_options("\toption a '1'\n");
    const at_log_level debug(2);
    value_buffer value;
    EXPECT_EQ(get("tolmux.tolmux.a", &value), 1);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Uci, ChangesInTheSaveFolderCount) {
    write_options("\toption eth_HasNeigh '1'\n");
    write_file(CHANGES, "tolmux.tolmux.eth_HasNeigh='3'\n");
    value_buffer value;
    EXPECT_EQ(get("tolmux.tolmux.eth_HasNeigh", &value), 1);
    EXPECT_STREQ(value.bytes, "3");
}

TEST_F(Uci, ValueIsReadAfreshOnEveryCall) {
    value_buffer value;
    write_options("\toption a 'old'\n");
    EXPECT_EQ(get("tolmux.tolmux.a", &value), 1);
    write_options("\toption a 'newer'\n");
    EXPECT_EQ(get("tolmux.tolmux.a", &value), 1);
    EXPECT_STREQ(value.bytes, "newer");
}

TEST_F(Uci, ValuesLongerThanTheBufferAreCutWithinIt) {
    for (const size_t length : {size_t{24}, size_t{25}, size_t{200}, size_t{3000}}) {
        write_options("\toption a '" + std::string(length, 'v') + "'\n");
        value_buffer value;
        EXPECT_EQ(get("tolmux.tolmux.a", &value), 1) << length;
        EXPECT_EQ(value.behind(), "~~~~~~~~") << length;
        EXPECT_EQ(std::string(value.bytes, 23), std::string(23, 'v')) << length;
    }
}

TEST_F(Uci, NullArgumentsAreNamed) {
    char tuple[] = "tolmux.tolmux.a";
    value_buffer value;
    EXPECT_EQ(uci_get_value(nullptr, value.bytes), 0);
    EXPECT_EQ(uci_get_value(tuple, nullptr), 0);
    EXPECT_EQ(uci_get_value(nullptr, nullptr), 0);
    const log_line message = error("pUciTupleStr or pValue is null");
    EXPECT_THAT(logged(), ElementsAre(message, message, message));
}

TEST_F(Uci, MissingPackageIsNamedWithItsTuple) {
    value_buffer value;
    EXPECT_EQ(get("tolmux.tolmux.TrafficPlcRoot", &value), 0);
    EXPECT_THAT(logged(), ElementsAre(error("fail to get ptr tolmux.tolmux.TrafficPlcRoot ")));
}

TEST_F(Uci, BrokenPackageIsNamedWithItsTuple) {
    write_file(PACKAGE, "config tolmux 'tolmux\n\toption a '1'\n");
    value_buffer value;
    EXPECT_EQ(get("tolmux.tolmux.a", &value), 0);
    EXPECT_THAT(logged(), ElementsAre(error("fail to get ptr tolmux.tolmux.a ")));
}

TEST_F(Uci, TuplesThatAreNoneAreNamed) {
    write_options("\toption a '1'\n");
    value_buffer value;
    EXPECT_EQ(get("", &value), 0);
    EXPECT_EQ(get("tolmux.tolmux.a.b", &value), 0);
    EXPECT_THAT(logged(), ElementsAre(error("fail to get ptr  "), error("fail to get ptr tolmux.tolmux.a.b ")));
}

struct element_row {
    const char *name;
    const char *tuple;
    const char *message;
};

class UciElement : public probe_rows<element_row> {};

TEST_P(UciElement, ElementThatIsNoStringOptionIsNamedByItsType) {
    remove_file(CHANGES);
    write_file(PACKAGE, "config tolmux 'tolmux'\n\toption a '1'\n\tlist many 'x'\n\tlist many 'y'\n");
    std::string tuple = GetParam().tuple;
    value_buffer value;
    EXPECT_EQ(uci_get_value(tuple.data(), value.bytes), 0);
    EXPECT_THAT(logged(), ElementsAre(error(GetParam().message)));
    EXPECT_EQ(value.bytes[0], '~') << "the value was written";
}

INSTANTIATE_TEST_SUITE_P(
    UciOptions, UciElement,
    testing::Values(element_row{"Package", "tolmux", "element type is not option:2"},
                    element_row{"Section", "tolmux.tolmux", "element type is not option:3"},
                    element_row{"MissingOption", "tolmux.tolmux.b", "element type is not option:3"},
                    element_row{"MissingSection", "tolmux.other.a", "element type is not option:2"},
                    element_row{"List", "tolmux.tolmux.many", "option type is not string:1"}),
    row_name<element_row>);

TEST_F(Uci, NothingIsFoundWithoutADescriptor) {
    write_options("\toption a '1'\n");
    value_buffer value;
    {
        const no_descriptors none;
        EXPECT_EQ(get("tolmux.tolmux.a", &value), 0);
    }
    EXPECT_THAT(logged(), ElementsAre(error("fail to get ptr tolmux.tolmux.a ")));
}

struct check_row {
    const char *name;
    const char *options;
    const char *expected;
    int result;
};

class UciCheck : public probe_rows<check_row> {};

TEST_P(UciCheck, CheckComparesTheOptionWithTheExpectedValue) {
    remove_file(CHANGES);
    write_file(PACKAGE, std::string("config tolmux 'tolmux'\n") + GetParam().options);
    EXPECT_EQ(uci_check_value("tolmux.tolmux.a", GetParam().expected), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    UciOptions, UciCheck,
    testing::Values(
        check_row{"Equal", "\toption a '1'\n", "1", 1}, check_row{"Other", "\toption a '0'\n", "1", 0},
        check_row{"Longer", "\toption a '11'\n", "1", 0}, check_row{"Shorter", "\toption a '1'\n", "11", 0},
        check_row{"OtherCase", "\toption a 'On'\n", "on", 0},
        check_row{"TwentyThreeCharacters", "\toption a '0123456789abcdef0123456'\n", "0123456789abcdef0123456", 1},
        check_row{"LastOfTwentyThreeDiffers", "\toption a '0123456789abcdef0123456'\n", "0123456789abcdef0123457", 0},
        check_row{"Missing", "\toption b '1'\n", "1", 0}, check_row{"MissingIsNotEmpty", "\toption b '1'\n", "", 0},
        check_row{"List", "\tlist a '1'\n", "1", 0}),
    row_name<check_row>);

TEST_F(Uci, CheckOfNullArgumentsIsSilentlyFalse) {
    write_options("\toption a '1'\n");
    EXPECT_EQ(uci_check_value(nullptr, "1"), 0);
    EXPECT_EQ(uci_check_value("tolmux.tolmux.a", nullptr), 0);
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Uci, CheckLeavesTheTupleAsItIs) {
    write_options("\toption a '1'\n");
    char tuple[] = "tolmux.tolmux.a";
    EXPECT_EQ(uci_check_value(tuple, "1"), 1);
    EXPECT_STREQ(tuple, "tolmux.tolmux.a");
}

TEST_F(Uci, CheckTakesTuplesOf63Characters) {
    const std::string option(63 - strlen("tolmux.tolmux."), 'o');
    write_options("\toption " + option + " '1'\n");
    EXPECT_EQ(uci_check_value(("tolmux.tolmux." + option).c_str(), "1"), 1);
}

TEST_F(Uci, CheckOfLongerTuplesIsBounded) {
    write_options("\toption a '1'\n");
    for (const size_t length : {size_t{64}, size_t{65}, size_t{500}}) {
        std::string tuple = "tolmux.tolmux.";
        tuple.resize(length, 'o');
        EXPECT_EQ(uci_check_value(tuple.c_str(), "1"), 0) << length;
    }
}

TEST_F(Uci, CheckOfLongValuesIsBounded) {
    write_options("\toption a '" + std::string(100, 'v') + "'\n");
    EXPECT_EQ(uci_check_value("tolmux.tolmux.a", "v"), 0);
    EXPECT_EQ(uci_check_value("tolmux.tolmux.a", std::string(23, 'w').c_str()), 0);
}

struct switch_row {
    const char *name;
    const char *option;
    int (*read)();
};

class UciSwitch : public probe_rows<switch_row> {};

TEST_P(UciSwitch, SwitchIsOnOnlyAtOne) {
    remove_file(CHANGES);
    remove_file(PACKAGE);
    const std::string tuple = std::string("tolmux.tolmux.") + GetParam().option;
    EXPECT_EQ(GetParam().read(), 0);
    EXPECT_THAT(logged(), ElementsAre(error("fail to get ptr " + tuple + " ")));
    const std::pair<const char *, int> values[] = {{"1", 1}, {"0", 0}, {"2", 0}, {"10", 0}, {"on", 0}};
    for (const auto &[value, expected] : values) {
        write_file(PACKAGE,
                   std::string("config tolmux 'tolmux'\n\toption ") + GetParam().option + " '" + value + "'\n");
        EXPECT_EQ(GetParam().read(), expected) << value;
    }
    write_file(PACKAGE, std::string("config other 'tolmuy'\n\toption ") + GetParam().option + " '1'\n");
    EXPECT_EQ(GetParam().read(), 0) << "another section";
}

INSTANTIATE_TEST_SUITE_P(UciOptions, UciSwitch,
                         testing::Values(switch_row{"PlcRoot", "TrafficPlcRoot", plc_is_root},
                                         switch_row{"EthernetTraffic", "TrafficEthActive", eth_traffic_is_active}),
                         row_name<switch_row>);

} // namespace
