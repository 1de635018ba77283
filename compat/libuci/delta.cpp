// Pending changes: one tuple to a line, with a mark in front that says what to do; without one it sets. A line that is
// not well formed is passed over.

#include "uci_internal.h"

#include <cstring>

namespace {

// What a change is about, as far as it exists.
struct target {
    uci_section *section;
    uci_option *option;
};

target find_target(uci_package *package, const uci_ptr &tuple) {
    target found = {};
    if (uci_element *section = uci_find(&package->sections, tuple.section))
        found.section = uci_to_section(section);
    if (found.section && tuple.option) {
        if (uci_element *option = uci_find(&found.section->options, tuple.option))
            found.option = uci_to_option(option);
    }
    return found;
}

int set_section(uci_package *package, uci_section *section, const char *name, const char *type) {
    if (*type == '\0') {
        if (section)
            uci_free_section(section);
        return UCI_OK;
    }
    if (!uci_valid_type(type))
        return UCI_OK;
    return section ? uci_replace_text(&section->type, type) : uci_new_section(package, type, name, &section);
}

int add_section(uci_package *package, uci_section *section, const char *name, const char *type) {
    if (section || !uci_valid_type(type))
        return UCI_OK;
    const int error = uci_new_section(package, type, name, &section);
    if (error == UCI_OK)
        section->anonymous = true; // its name was generated when the change was recorded
    return error;
}

int rename_target(const target &found, const char *option, const char *name) {
    if (!uci_valid_name(name))
        return UCI_OK;
    if (found.option)
        return uci_replace_text(&found.option->e.name, name);
    if (!found.section || option)
        return UCI_OK;
    found.section->anonymous = false;
    return uci_replace_text(&found.section->e.name, name);
}

void remove_target(const target &found, const char *option) {
    if (found.option)
        uci_free_option(found.option);
    else if (found.section && !option)
        uci_free_section(found.section);
}

// The change of a whole section.
int change_section(uci_package *package, char mark, const uci_ptr &tuple, const target &found) {
    if (mark == '+')
        return add_section(package, found.section, tuple.section, tuple.value);
    return mark == '\0' ? set_section(package, found.section, tuple.section, tuple.value) : UCI_OK;
}

// The change of an option; its section has to be there.
int change_option(char mark, const uci_ptr &tuple, const target &found) {
    if (!found.section)
        return UCI_OK;
    if (mark == '|')
        return uci_append_item(found.section, tuple.option, tuple.value);
    if (mark == '~' && found.option)
        uci_remove_item(found.option, tuple.value);
    return mark == '\0' ? uci_set_option(found.section, tuple.option, tuple.value) : UCI_OK;
}

// Moving a section (^) is passed over: nothing that is looked up by name depends on the order.
int apply(uci_package *package, char mark, char *text) {
    uci_ptr tuple;
    if (uci_split_tuple(&tuple, text) != UCI_OK)
        return UCI_OK;
    if (!tuple.section || strcmp(tuple.package, package->e.name) != 0 || !uci_valid_name(tuple.section) ||
        (tuple.option && !uci_valid_name(tuple.option)))
        return UCI_OK;
    const target found = find_target(package, tuple);
    if (mark == '-')
        remove_target(found, tuple.option);
    if (mark == '-' || !tuple.value)
        return UCI_OK;
    if (mark == '@')
        return rename_target(found, tuple.option, tuple.value);
    return tuple.option ? change_option(mark, tuple, found) : change_section(package, mark, tuple, found);
}

} // namespace

int uci_apply_delta(uci_package *package, uci_text &text) {
    text.broken = false; // a NUL in one line holds up no other
    uci_command command;
    while (uci_next_change(text, command)) {
        const int error = apply(package, command.mark, command.word[0]);
        if (error != UCI_OK)
            return error;
    }
    return UCI_OK;
}
