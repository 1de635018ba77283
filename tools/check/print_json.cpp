// The same as JSON. Names are given as text; what of them is no UTF-8 is written as \xNN.
#include "check/print.h"
#include "check/text.h"
#include "check/values.h"
#include "check/walk.h"
#include "core/config_settings.h"
#include "core/json.h"

namespace {

json_object *text_of(std::string_view text) {
    const std::string shown = check_printable(text);
    return json_object_new_string_len(shown.data(), static_cast<int>(shown.size()));
}

void add(json_object *object, const char *key, json_object *value) {
    (void)json_object_object_add(object, key, value);
}

json_object *value_of(const config_setting &row, int64_t value) {
    const bool is_flag = row.kind == CONFIG_FLAG || row.kind == CONFIG_NEGATED_FLAG;
    return is_flag ? json_object_new_boolean(value != 0) : json_object_new_int64(value);
}

json_object *setting_object(const check_setting &setting) {
    constexpr const char *ORIGINS[] = {"file", "default", "changed", "no-param"};
    json_object *object = json_object_new_object();
    add(object, "value", value_of(*setting.row, setting.value));
    add(object, "from", json_object_new_string(ORIGINS[setting.origin]));
    if (!setting.given.empty())
        add(object, "given", text_of(setting.given));
    return object;
}

json_object *settings_object(const std::vector<check_setting> &settings) {
    json_object *object = json_object_new_object();
    for (const check_setting &setting : settings)
        add(object, setting.row->key, setting_object(setting));
    return object;
}

json_object *findings_array(const check_report &report) {
    json_object *array = json_object_new_array();
    for (const check_finding &finding : report.findings) {
        json_object *object = json_object_new_object();
        add(object, "line", json_object_new_int64(static_cast<int64_t>(finding.line)));
        add(object, "column", json_object_new_int64(static_cast<int64_t>(finding.column)));
        add(object, "level", json_object_new_string(check_level_name(finding.level)));
        add(object, "code", json_object_new_string(finding.code));
        add(object, "text", text_of(finding.text));
        (void)json_object_array_add(array, object);
    }
    return array;
}

json_object *bridges_array(const config &record) {
    json_object *array = json_object_new_array();
    for (uint32_t i = 0; i < record.bridge_num; i++) {
        json_object *object = json_object_new_object();
        add(object, "name", text_of(check_field(record.bridges[i].name)));
        add(object, "loop_avoidance", json_object_new_boolean((record.bridges[i].flags & CONFIG_LOOP_AVOIDANCE) != 0));
        add(object, "path_selection", json_object_new_boolean((record.bridges[i].flags & CONFIG_PATH_SELECTION) != 0));
        (void)json_object_array_add(array, object);
    }
    return array;
}

json_object *port_settings_object(const check_report &report, uint32_t i) {
    json_object *object = settings_object(report.interfaces[i].settings);
    json_object *nonrelay = json_member(object, "nonrelay");
    if (nonrelay != nullptr && check_is_relay_overwritten(report.record, report.record.interfaces[i]))
        add(nonrelay, "overwritten", json_object_new_boolean(true));
    return object;
}

json_object *interfaces_array(const check_report &report) {
    json_object *array = json_object_new_array();
    for (uint32_t i = 0; i < report.record.interface_num; i++) {
        json_object *object = json_object_new_object();
        add(object, "name", text_of(check_field(report.record.interfaces[i].name)));
        add(object, "key", text_of(report.interfaces[i].key));
        add(object, "type", json_object_new_string(CONFIG_LINK_NAMES[report.record.interfaces[i].type]));
        add(object, "settings", port_settings_object(report, i));
        (void)json_object_array_add(array, object);
    }
    return array;
}

json_object *couples_array(const check_report &report) {
    json_object *array = json_object_new_array();
    for (uint32_t i = 0; i < report.record.couple_num; i++) {
        json_object *object = json_object_new_object();
        add(object, "lan", text_of(check_field(report.record.couples[i].lan)));
        add(object, "guest", text_of(check_field(report.record.couples[i].guest)));
        add(object, "key", text_of(report.couples[i].key));
        (void)json_object_array_add(array, object);
    }
    return array;
}

json_object *left_out_array(const check_report &report) {
    json_object *array = json_object_new_array();
    for (const check_left_out &entry : report.left_out) {
        json_object *object = json_object_new_object();
        add(object, "section", json_object_new_string(entry.section));
        add(object, "key", text_of(entry.key));
        add(object, "reason", text_of(entry.reason));
        (void)json_object_array_add(array, object);
    }
    return array;
}

void print(FILE *out, json_object *object) {
    (void)fprintf(out, "%s\n",
                  json_object_to_json_string_ext(object, JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_NOSLASHESCAPE));
}

json_object *range_object(const config_range &range) {
    json_object *array = json_object_new_array();
    (void)json_object_array_add(array, json_object_new_int(range.lowest));
    (void)json_object_array_add(array, json_object_new_int(range.highest));
    return array;
}

json_object *link_names_array() {
    json_object *array = json_object_new_array();
    for (const char *name : CONFIG_LINK_NAMES)
        (void)json_object_array_add(array, json_object_new_string(name));
    return array;
}

json_object *row_object(const config_setting &row) {
    constexpr const char *SECTIONS[] = {"file", "bridge", "param", "interface", "couple"};
    constexpr const char *KINDS[] = {"flag", "flag", "number", "number", "number", "text", "link", "number"};
    const bool has_default = row.kind < CONFIG_TEXT;
    json_object *object = json_object_new_object();
    add(object, "section", json_object_new_string(SECTIONS[row.section]));
    add(object, "key", json_object_new_string(row.key));
    add(object, "member", json_object_new_string(row.place.member));
    add(object, "kind", json_object_new_string(KINDS[row.kind]));
    if (has_default)
        add(object, "default", value_of(row, row.fallback));
    if (std::string_view(KINDS[row.kind]) == "number")
        add(object, "range", range_object(row.sound));
    if (row.kind == CONFIG_LINK_NAME)
        add(object, "values", link_names_array());
    add(object, "unit", json_object_new_string(row.unit));
    add(object, "read", json_object_new_boolean(row.is_read));
    add(object, "meaning", json_object_new_string(row.meaning));
    return object;
}

} // namespace

void check_print_json(FILE *out, std::string_view file, const check_report &report) {
    const json_ptr object(json_object_new_object());
    add(object.get(), "file", text_of(file));
    add(object.get(), "starts", json_object_new_boolean(report.starts));
    add(object.get(), "enabled", json_object_new_boolean(report.record.enable != 0));
    add(object.get(), "findings", findings_array(report));
    add(object.get(), "bridges", bridges_array(report.record));
    add(object.get(), "param", settings_object(report.param));
    add(object.get(), "interfaces", interfaces_array(report));
    add(object.get(), "couples", couples_array(report));
    add(object.get(), "left_out", left_out_array(report));
    print(out, object.get());
}

void check_print_settings(FILE *out) {
    const json_ptr array(json_object_new_array());
    for (const config_setting &row : CONFIG_SETTINGS)
        (void)json_object_array_add(array.get(), row_object(row));
    print(out, array.get());
}
