// The text of a package's file: config, option and list commands.

#include "uci_internal.h"

#include <cstring>

namespace {

// Whether a command has more than `count` words. An empty one behind them ends what is looked at.
bool has_surplus(const uci_command &command, size_t count) {
    return command.count > count && command.word[count][0] != '\0';
}

// A section that is named again goes on; under another type it is a mistake.
int parse_section(uci_package *package, const uci_command &command, uci_section **section) {
    const char *type = command.word[1];
    const char *name = command.count > 2 && command.word[2][0] != '\0' ? command.word[2] : nullptr;
    if (command.count < 2 || has_surplus(command, 3) || !uci_valid_type(type) || (name && !uci_valid_name(name)))
        return UCI_ERR_PARSE;
    uci_element *known = name ? uci_find(&package->sections, name) : nullptr;
    if (!known)
        return uci_new_section(package, type, name, section);
    *section = uci_to_section(known);
    return strcmp((*section)->type, type) == 0 ? UCI_OK : UCI_ERR_PARSE;
}

int parse_option(uci_section *section, const uci_command &command, bool list) {
    if (!section || command.count < 2 || has_surplus(command, 3) || !uci_valid_name(command.word[1]))
        return UCI_ERR_PARSE;
    const char *value = command.count > 2 ? command.word[2] : "";
    if (list)
        return uci_append_item(section, command.word[1], value);
    // An empty value says nothing: it neither makes an option nor takes the place of what one has.
    return *value == '\0' ? int{UCI_OK} : uci_set_option(section, command.word[1], value);
}

int parse_command(uci_package *package, const uci_command &command, uci_section **section) {
    const char *verb = command.word[0];
    if (strcmp(verb, "config") == 0)
        return parse_section(package, command, section);
    if (strcmp(verb, "option") == 0)
        return parse_option(*section, command, false);
    if (strcmp(verb, "list") == 0)
        return parse_option(*section, command, true);
    // The file's name is the package's; a line that gives it one is for exports that hold several packages.
    const bool package_line = strcmp(verb, "package") == 0 && command.count >= 2 && !has_surplus(command, 2);
    return package_line ? UCI_OK : UCI_ERR_PARSE;
}

} // namespace

int uci_parse_config(uci_package *package, uci_text &text) {
    uci_section *section = nullptr;
    uci_command command;
    while (uci_next_command(text, command)) {
        const int error = parse_command(package, command, &section);
        if (error != UCI_OK)
            return error;
    }
    return text.broken ? UCI_ERR_PARSE : UCI_OK;
}
