// Any bytes as a configuration that kolt-check judges: it must see in them what the daemon's parser and loader see.
#include "check/inspect.h"
#include "check/print.h"
#include "check/scan.h"
#include "check/text.h"
#include "core/config_load.h"
#include "core/json.h"
#include "core/log.h"
#include "core_log.h"

#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

extern "C" {
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
[[noreturn]] void __real_exit(int status);
[[noreturn]] void __wrap_exit(int status);
}

namespace {

using tokener_ptr = kolt_handle<json_tokener, json_tokener_free>;

jmp_buf fatal;
bool loading;

void require(bool condition) {
    if (!condition)
        abort();
}

json_ptr parse(std::string_view text) {
    const tokener_ptr tokener(json_tokener_new());
    return json_ptr(json_tokener_parse_ex(tokener.get(), text.data(), static_cast<int>(text.size())));
}

json_ptr parse_file(std::string_view text) {
    static const int file = memfd_create("config", MFD_CLOEXEC);
    require(ftruncate(file, 0) == 0 && pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    require(lseek(file, 0, SEEK_SET) == 0);
    return json_ptr(json_object_from_fd(file));
}

void compare(std::string_view text, const check_value &value, json_object *object);

void compare_members(std::string_view text, const check_value &value, json_object *object) {
    require(text[value.begin] == '{' && text[value.end - 1] == '}');
    size_t keys = 0;
    for (size_t i = 0; i < value.by_key.size(); i++) {
        const bool again = i > 0 && value.members[value.by_key[i]].key == value.members[value.by_key[i - 1]].key;
        keys += again ? 0 : 1;
    }
    require(keys == static_cast<size_t>(json_object_object_length(object)));
    json_object_object_foreach(object, key, member) {
        const check_member *place = value.find(key);
        require(place != nullptr && (text[place->at] == '"' || text[place->at] == '\''));
        compare(text, place->value, member);
    }
}

void compare(std::string_view text, const check_value &value, json_object *object) {
    require(value.begin < value.end && value.end <= text.size());
    const char first = text[value.begin];
    switch (json_object_get_type(object)) {
    case json_type_object:
        compare_members(text, value, object);
        break;
    case json_type_array:
        require(first == '[' && value.count == json_object_array_length(object));
        break;
    case json_type_string:
        require(first == '"' || first == '\'');
        break;
    case json_type_boolean:
        require(strchr("tTfF", first) != nullptr);
        break;
    case json_type_null:
        require(first == 'n' || first == 'N');
        break;
    default:
        require(strchr("-0123456789nNiI", first) != nullptr);
    }
}

// What the daemon makes of the text; false when it does not start.
bool load(config *record, std::string_view text) {
    static json_object *tree;
    tree = parse(text).release();
    if (tree == nullptr)
        return false;
    loading = true;
    const bool survived = setjmp(fatal) == 0;
    if (survived)
        config_load_tree(record, tree);
    loading = false;
    json_object_put(tree);
    return survived;
}

void compare_records(const config &mine, const config &theirs) {
    require(mine.enable == theirs.enable && mine.bridge_num == theirs.bridge_num);
    require(mine.interface_num == theirs.interface_num && mine.couple_num == theirs.couple_num);
    require(memcmp(mine.bridges, theirs.bridges, sizeof mine.bridges) == 0);
    for (uint32_t i = 0; i < mine.interface_num; i++)
        require(kolt_name_equal(mine.interfaces[i].name, theirs.interfaces[i].name));
    require(memcmp(mine.couples, theirs.couples, sizeof mine.couples) == 0);
}

void print(const check_report &report) {
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    check_print_findings(out, "file", report);
    check_print_values(out, report);
    check_print_json(out, "file", report);
    (void)fclose(out);
    for (std::string_view rest(text, size); !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        require(check_printable(line) == line);
        rest.remove_prefix(line.size() + 1);
    }
    free(text);
}

} // namespace

void __wrap_exit(int status) {
    if (!loading)
        __real_exit(status);
    require(status == EXIT_FAILURE);
    longjmp(fatal, 1);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const json_ptr tree = parse(text);
    require((tree != nullptr) == (parse_file(text) != nullptr));
    const auto scan = check_scan_object(text);
    const bool is_object = json_object_is_type(tree.get(), json_type_object);
    if (is_object && scan)
        compare(text, scan->root, tree.get());
    const auto report = check_inspect(text);
    const bool is_part = is_object && !scan; // only a zero byte makes the parser take a part for the whole
    require(!is_part || text.find('\0') != std::string_view::npos);
    require(check_is_read(*report) == (tree != nullptr && !is_part));
    auto record = std::make_unique<config>();
    require(is_part || report->starts == load(record.get(), text));
    if (report->starts)
        compare_records(report->record, *record);
    require(report->interfaces.size() == report->record.interface_num);
    require(report->couples.size() == report->record.couple_num);
    print(*report);
    return 0;
}
