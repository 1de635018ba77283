// Words and commands of configuration texts, and the names in them.

#include "uci_internal.h"

#include <cstring>

namespace {

bool is_alphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

bool ends_word(char c) {
    return is_blank(c) || c == '\n' || c == ';' || c == '#';
}

bool at_continuation(const uci_text &text) {
    return text.end - text.pos >= 2 && text.pos[0] == '\\' && text.pos[1] == '\n';
}

void skip_blanks(uci_text &text) {
    for (;;) {
        if (at_continuation(text))
            text.pos += 2;
        else if (text.pos < text.end && is_blank(*text.pos))
            text.pos++;
        else
            return;
    }
}

void skip_rest_of_line(uci_text &text) {
    while (text.pos < text.end && *text.pos != '\n')
        text.pos++;
}

// Copies what a backslash stands in front of; nothing when that is the end of the line.
void copy_escaped(uci_text &text, char *&out) {
    text.pos++;
    if (text.pos == text.end)
        return;
    if (*text.pos != '\n')
        *out++ = *text.pos;
    text.pos++;
}

// Copies up to the quote that closes the one at hand. Inside double quotes a backslash escapes.
void copy_quoted(uci_text &text, char *&out) {
    const char quote = *text.pos++;
    while (text.pos < text.end && *text.pos != quote) {
        if (quote == '"' && *text.pos == '\\')
            copy_escaped(text, out);
        else
            *out++ = *text.pos++;
    }
    if (text.pos == text.end)
        text.broken = true;
    else
        text.pos++;
}

void copy_word(uci_text &text, char *&out) {
    while (text.pos < text.end && !text.broken && !ends_word(*text.pos)) {
        if (*text.pos == '\'' || *text.pos == '"')
            copy_quoted(text, out);
        else if (*text.pos == '\\')
            copy_escaped(text, out);
        else
            *out++ = *text.pos++;
    }
    *out++ = '\0';
}

// Reads one word. A semicolon right behind it ends what is read of the line; one that stands where a word should begin
// is an empty word, and what follows it are more words.
void read_word(uci_text &text, char *&out) {
    const bool only_semicolon = *text.pos == ';';
    copy_word(text, out);
    if (only_semicolon)
        text.pos++;
    else if (!text.broken && text.pos < text.end && *text.pos == ';')
        skip_rest_of_line(text);
}

void read_command(uci_text &text, uci_command &command) {
    command = {};
    char *out = text.words;
    for (skip_blanks(text); text.pos < text.end && !text.broken; skip_blanks(text)) {
        if (*text.pos == '#')
            skip_rest_of_line(text);
        if (text.pos == text.end)
            return;
        if (*text.pos == '\n') {
            text.pos++;
            return;
        }
        char *word = out;
        read_word(text, out);
        if (command.count < command.word.size())
            command.word[command.count] = word;
        command.count++;
    }
}

bool valid(const char *name, bool (*allowed)(char)) {
    if (*name == '\0')
        return false;
    while (*name != '\0' && allowed(*name))
        name++;
    return *name == '\0';
}

} // namespace

bool uci_valid_name(const char *name) {
    return valid(name, [](char c) { return is_alphanumeric(c) || c == '_'; });
}

bool uci_valid_package(const char *name) {
    return valid(name, [](char c) { return is_alphanumeric(c) || c == '_' || c == '-'; });
}

bool uci_valid_type(const char *type) {
    return valid(type, [](char c) { return c > ' ' && c <= '~'; });
}

uci_text uci_text_of(char *content, size_t len) {
    return {content, content + len, content + len, memchr(content, '\0', len) != nullptr};
}

bool uci_next_command(uci_text &text, uci_command &command) {
    do {
        if (text.pos == text.end || text.broken)
            return false;
        read_command(text, command);
    } while (command.count == 0);
    return !text.broken;
}

// The mark is a character of the line, not of a word: in quotes or behind a blank it is none.
bool uci_next_change(uci_text &text, uci_command &command) {
    do {
        if (text.pos == text.end || text.broken)
            return false;
        const char mark = strchr("-@+|~^", *text.pos) ? *text.pos : '\0';
        if (mark != '\0')
            text.pos++;
        read_command(text, command);
        command.mark = mark;
    } while (command.count == 0);
    return !text.broken;
}

int uci_split_tuple(uci_ptr *ptr, char *text) {
    *ptr = {};
    if (char *value = strchr(text, '=')) {
        *value = '\0';
        ptr->value = value + 1;
    }
    ptr->package = strsep(&text, ".");
    ptr->section = strsep(&text, ".");
    ptr->option = strsep(&text, ".");
    ptr->target = ptr->option ? UCI_TYPE_OPTION : ptr->section ? UCI_TYPE_SECTION : UCI_TYPE_PACKAGE;
    const bool empty =
        *ptr->package == '\0' || (ptr->section && *ptr->section == '\0') || (ptr->option && *ptr->option == '\0');
    return text || empty ? UCI_ERR_PARSE : UCI_OK;
}
