// What the parts of the configuration reader share. Functions that return int return UCI_OK or an error code.
#pragma once

#include <uci.h>

#include <array>

// Bounds of what is read: bytes of a file, and sections, options and list items of a package.
constexpr size_t UCI_MAX_FILE = size_t{2} * 1024 * 1024;
constexpr int UCI_MAX_ELEMENTS = 8192;

// ---- names
// Letters, digits and underscores; in a package's name also hyphens.
[[nodiscard]] bool uci_valid_name(const char *name);
[[nodiscard]] bool uci_valid_package(const char *name);
// Printable characters without blanks.
[[nodiscard]] bool uci_valid_type(const char *type);

// ---- text
// Commands of a configuration text: words separated by blanks, one command to a line. Words may be quoted; a # outside
// quotes starts a comment, and a semicolon right behind a word ends what is read of the line.
struct uci_text {
    const char *pos;
    const char *end;
    char *words; // room for the words of one command: as much as the text takes, and two bytes; not owned
    bool broken; // it ends inside quotes, or contains a NUL
};

// The text in `content`, which has `len` bytes and room for len + 2 more.
[[nodiscard]] uci_text uci_text_of(char *content, size_t len);

struct uci_command {
    char mark;                  // of a change: what its line begins with, out of "-@+|~^"; else 0
    std::array<char *, 4> word; // unquoted; valid until the next command is read
    size_t count;               // how many words there were, also beyond the array
};

// Reads the next command that is not empty, or the next change with its mark. False at the end of the text, or when it
// is broken.
[[nodiscard]] bool uci_next_command(uci_text &text, uci_command &command);
[[nodiscard]] bool uci_next_change(uci_text &text, uci_command &command);

// ---- files
// Reads DIR/NAME as a whole into memory that the caller frees, with the room behind it that uci_text_of() asks for.
[[nodiscard]] int uci_read_file(const char *dir, const char *name, char **content, size_t *len);

// ---- tree
inline bool uci_list_empty(const uci_list *list) {
    return list->next == list;
}

void uci_list_init(uci_list *list);
[[nodiscard]] uci_element *uci_find(uci_list *list, const char *name);

// A package in the context's list, to be given up with uci_free_package().
[[nodiscard]] int uci_new_package(uci_context *ctx, const char *name, uci_package **package);
void uci_free_package(uci_package *package);

// A new section; without a name it is anonymous and gets one that says where it stands.
[[nodiscard]] int uci_new_section(uci_package *package, const char *type, const char *name, uci_section **section);
void uci_free_section(uci_section *section);

// Gives an option one value, or with an empty value removes it.
[[nodiscard]] int uci_set_option(uci_section *section, const char *name, const char *value);
// Appends to a list option; a single value that it had becomes the first item.
[[nodiscard]] int uci_append_item(uci_section *section, const char *name, const char *value);
// Removes the items that equal `value` from a list option, and the option with its last item.
void uci_remove_item(uci_option *option, const char *value);
void uci_free_option(uci_option *option);

// Replaces an owned text.
[[nodiscard]] int uci_replace_text(char **text, const char *value);

// ---- loading
// Parses the text of a package's file, or of the changes to it. Changes that do not apply are passed over.
[[nodiscard]] int uci_parse_config(uci_package *package, uci_text &text);
[[nodiscard]] int uci_apply_delta(uci_package *package, uci_text &text);

// Splits PACKAGE[.SECTION[.OPTION]][=VALUE] in place into the names of `ptr`. UCI_ERR_PARSE for more or empty parts.
[[nodiscard]] int uci_split_tuple(uci_ptr *ptr, char *text);
