#include "check/values.h"

#include "check/text.h"
#include "core/config_load.h"
#include "core/json.h"

#include <algorithm>
#include <cstring>

namespace {

bool is_flag(const config_setting &row) {
    return row.kind == CONFIG_FLAG || row.kind == CONFIG_NEGATED_FLAG;
}

std::string number_text(int64_t value) {
    return std::to_string(value);
}

std::string range_text(const config_range &range) {
    return number_text(range.lowest) + (range.lowest == range.highest ? "" : " to " + number_text(range.highest));
}

// What the record has, turned back into what the file would say.
uint32_t value_in_record(const void *record, const config_setting &row) {
    if (row.place.width == 0)
        return row.section == CONFIG_TOP ? static_cast<const config *>(record)->enable : config_get_util_compensation();
    uint32_t value = 0;
    uint16_t half = 0;
    const auto *at = static_cast<const uint8_t *>(record) + row.place.offset;
    if (row.place.width == sizeof half) {
        memcpy(&half, at, sizeof half);
        return half;
    }
    if (row.place.width == 1)
        return row.kind == CONFIG_NEGATED_FLAG ? *at ^ 1U : *at;
    memcpy(&value, at, sizeof value);
    return row.kind == CONFIG_SECONDS ? value / 1000U : value;
}

// Whether the daemon has the very number that the file says.
bool is_number(json_object *given, uint32_t value) {
    if (json_object_is_type(given, json_type_double)) {
        const double number = json_object_get_double(given);
        return number <= value && number >= value;
    }
    return json_object_get_int64(given) == int64_t{value};
}

// The loader's own steps, in its order: what a number becomes in 32 bits, then the clamp and the cut of its kind.
std::string why_changed(const config_setting &row, json_object *given, uint32_t value) {
    const int64_t number = json_object_get_int64(given);
    if (number == int64_t{value})
        return "only whole numbers are taken";
    const int32_t read = json_object_get_int(given);
    const int32_t clamped = std::clamp(read, row.clamp.lowest, row.clamp.highest);
    const std::string read_as = read != number ? "it is read as " + number_text(read) + ", and of that " : "";
    const std::string its = read_as.empty() ? "its" : "the";
    if (row.kind == CONFIG_NUMBER_CUT_FIRST)
        return read_as + "only " + its + " last 8 bits are kept, and of those " + range_text(row.clamp);
    if (row.kind == CONFIG_SECONDS)
        return (read_as.empty() ? "it" : "it is read as " + number_text(read) + ", which") +
               " is counted in 32 bits, in milliseconds";
    const std::string bits = " last " + std::to_string(row.place.width * 8) + " bits are kept";
    if (clamped == read)
        return read_as + "only " + its + bits;
    return "only " + range_text(row.clamp) + " is taken" +
           (static_cast<uint32_t>(clamped) == value ? "" : ", and of " + number_text(clamped) + " only the" + bits);
}

void add(const check_section &section, size_t at, check_level level, const char *code, std::string text) {
    section.findings->push_back({at, level, code, std::move(text), 0, 0});
}

// The value's own text, shortened where it is long.
std::string given_text(const check_section &section, const check_value &value) {
    constexpr size_t LONGEST = 60;
    const std::string_view raw = section.text.substr(value.begin, value.end - value.begin);
    return raw.size() > LONGEST ? check_printable(raw.substr(0, LONGEST)) + "..." : check_printable(raw);
}

bool has_wanted_type(const config_setting &row, json_object *given) {
    if (is_flag(row))
        return json_object_is_type(given, json_type_boolean);
    if (row.kind == CONFIG_TEXT || row.kind == CONFIG_LINK_NAME)
        return json_object_is_type(given, json_type_string);
    return json_object_is_type(given, json_type_int) || json_object_is_type(given, json_type_double);
}

const char *wanted_type(const config_setting &row) {
    if (is_flag(row))
        return "true or false";
    return row.kind == CONFIG_TEXT || row.kind == CONFIG_LINK_NAME ? "a text" : "a number";
}

std::string on_or_off(bool value) {
    return value ? "on" : "off";
}

// What a value that no record keeps as it is reads as.
std::string text_read_as(const config_setting &row, json_object *given) {
    if (is_flag(row))
        return on_or_off(json_object_get_boolean(given) != 0);
    if (row.kind == CONFIG_SELECTOR)
        return number_text(json_object_get_int(given));
    return check_quoted(json_object_get_string(given));
}

// What is to be said about a value of another type than wanted.
void check_type(const check_section &section, const config_setting &row, const check_member &place,
                const std::string &read_as) {
    add(section, place.value.begin, CHECK_WARNING, "wrong-type",
        check_quoted(row.key) + " should be " + wanted_type(row) + "; " + given_text(section, place.value) +
            " is read as " + read_as);
}

void check_null(const check_section &section, const config_setting &row, const check_member &place) {
    add(section, place.value.begin, CHECK_WARNING, "null-value",
        check_quoted(row.key) + ": null is read as if the key were missing");
}

void check_missing(const check_section &section, const check_setting &setting) {
    const config_setting &row = *setting.row;
    if (is_flag(row) || row.fallback >= row.sound.lowest)
        return;
    add(section, section.at, CHECK_WARNING, "missing-setting",
        check_quoted(row.key) + " is missing, the daemon runs with " + number_text(setting.value) + ": " + row.meaning);
}

void check_number(const check_section &section, const check_setting &setting, const check_member &place,
                  json_object *given) {
    const config_setting &row = *setting.row;
    const std::string is = check_quoted(row.key) + ": " + setting.given;
    if (setting.origin == CHECK_CHANGED)
        add(section, place.value.begin, CHECK_WARNING, "changed-value",
            is + " becomes " + number_text(setting.value) + ", " + why_changed(row, given, setting.value));
    else if (setting.value < static_cast<uint32_t>(row.sound.lowest) ||
             setting.value > static_cast<uint32_t>(row.sound.highest))
        add(section, place.value.begin, CHECK_WARNING, "unsound-value",
            is + " is kept, but should be " + range_text(row.sound) + ": " + row.meaning);
}

void check_is_read(const check_section &section, const config_setting &row, const check_member &place) {
    if (!row.is_read)
        add(section, place.at, CHECK_NOTE, "unread-key", check_quoted(row.key) + " has no effect: nothing reads it");
}

void check_selector(const check_section &section, const config_setting &row, const check_member &place,
                    json_object *given) {
    const int32_t number = json_object_get_int(given);
    const std::string is = check_quoted(row.key) + ": " + given_text(section, place.value);
    if (number < row.sound.lowest || number > row.sound.highest)
        add(section, place.value.begin, CHECK_WARNING, "unsound-value",
            is + " is not one of " + range_text(row.sound) + ": " + row.meaning);
    else if (!is_number(given, static_cast<uint32_t>(number)))
        add(section, place.value.begin, CHECK_WARNING, "changed-value",
            is + " becomes " + number_text(number) + ", only whole numbers are taken");
}

} // namespace

check_setting check_read_setting(const check_section &section, const config_setting &row) {
    check_setting setting = {&row, value_in_record(section.record, row), CHECK_DEFAULT, {}};
    if (section.object == nullptr) {
        setting.origin = CHECK_NO_SECTION;
        return setting;
    }
    const check_member *place = section.places != nullptr ? section.places->find(row.key) : nullptr;
    if (place == nullptr) {
        check_missing(section, setting);
        return setting;
    }
    check_is_read(section, row, *place);
    setting.given = given_text(section, place->value);
    json_object *given = json_member(section.object, row.key);
    if (given == nullptr) {
        check_null(section, row, *place);
        return setting;
    }
    if (!has_wanted_type(row, given)) {
        setting.origin = CHECK_CHANGED;
        check_type(section, row, *place, check_value_text(setting));
        return setting;
    }
    setting.origin = is_flag(row) || is_number(given, setting.value) ? CHECK_FROM_FILE : CHECK_CHANGED;
    if (!is_flag(row))
        check_number(section, setting, *place, given);
    return setting;
}

void check_other_setting(const check_section &section, const config_setting &row) {
    const check_member *place = section.places != nullptr ? section.places->find(row.key) : nullptr;
    if (place == nullptr)
        return;
    json_object *given = json_member(section.object, row.key);
    if (given == nullptr) {
        check_null(section, row, *place);
        return;
    }
    if (!has_wanted_type(row, given))
        check_type(section, row, *place, text_read_as(row, given));
    else if (row.kind == CONFIG_SELECTOR)
        check_selector(section, row, *place, given);
}

std::string check_value_text(const check_setting &setting) {
    if (is_flag(*setting.row))
        return on_or_off(setting.value != 0);
    return number_text(setting.value);
}

bool check_is_relay_overwritten(const config &record, const config_interface &port) {
    const bool is_wired = port.type == KOLT_LINK_ETHERNET || port.type == KOLT_LINK_PLC;
    return is_wired && std::any_of(record.bridges, record.bridges + record.bridge_num, [](const config_bridge &bridge) {
               return (bridge.flags & CONFIG_LOOP_AVOIDANCE) != 0;
           });
}
