// Looking up a tuple, loading its package at need.

#include "uci_internal.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

using parser = int (*)(uci_package *, uci_text &);

int parse_file(uci_package *package, const char *dir, parser parse) {
    char *content = nullptr;
    size_t len = 0;
    int error = uci_read_file(dir, package->e.name, &content, &len);
    if (error != UCI_OK)
        return error;
    uci_text text = uci_text_of(content, len);
    error = parse(package, text);
    free(content);
    return error;
}

// The package with its pending changes. No file of changes is the ordinary case, and one that cannot be read leaves
// what the configuration says.
int load(uci_context *ctx, const char *name, uci_package **package) {
    if (!uci_valid_package(name))
        return UCI_ERR_INVAL;
    if (uci_element *known = uci_find(&ctx->root, name)) {
        *package = reinterpret_cast<uci_package *>(known);
        return UCI_OK;
    }
    int error = uci_new_package(ctx, name, package);
    if (error != UCI_OK)
        return error;
    error = parse_file(*package, ctx->confdir, uci_parse_config);
    if (error == UCI_OK) {
        (void)parse_file(*package, ctx->savedir, uci_apply_delta);
        return UCI_OK;
    }
    uci_free_package(*package);
    *package = nullptr;
    return error;
}

bool has_type(const uci_element *element, const char *type) {
    return *type == '\0' || strcmp(reinterpret_cast<const uci_section *>(element)->type, type) == 0;
}

// The section of that type with that index; a negative one counts from the end, and an empty type is any.
uci_section *find_by_index(uci_package *package, const char *type, long index) {
    uci_element *element;
    if (index < 0) {
        uci_foreach_element(&package->sections, element) {
            index += has_type(element, type) ? 1 : 0;
        }
    }
    uci_foreach_element(&package->sections, element) {
        if (has_type(element, type) && index-- == 0)
            return uci_to_section(element);
    }
    return nullptr;
}

// Takes @TYPE[INDEX] apart, in place.
int find_extended(uci_package *package, char *text, uci_section **section) {
    char *bracket = strchr(text, '[');
    if (text[0] != '@' || !bracket)
        return UCI_ERR_INVAL;
    char *end = nullptr;
    errno = 0;
    const long index = strtol(bracket + 1, &end, 10);
    if (end == bracket + 1 || strcmp(end, "]") != 0 || errno != 0 || index < INT_MIN || index > INT_MAX)
        return UCI_ERR_INVAL;
    *bracket = '\0';
    *section = find_by_index(package, text + 1, index);
    *bracket = '[';
    return UCI_OK;
}

int find_section(uci_ptr *ptr, bool extended) {
    if (uci_valid_name(ptr->section)) {
        uci_element *element = uci_find(&ptr->p->sections, ptr->section);
        ptr->s = element ? uci_to_section(element) : nullptr;
        return UCI_OK;
    }
    if (!extended)
        return UCI_ERR_INVAL;
    ptr->flags = static_cast<decltype(ptr->flags)>(ptr->flags | uci_ptr::UCI_LOOKUP_EXTENDED);
    const int error = find_extended(ptr->p, const_cast<char *>(ptr->section), &ptr->s);
    if (ptr->s)
        ptr->section = ptr->s->e.name;
    return error;
}

void find_option(uci_ptr *ptr) {
    if (uci_element *element = uci_find(&ptr->s->options, ptr->option))
        ptr->o = uci_to_option(element);
}

void finish(uci_ptr *ptr) {
    ptr->last = ptr->o ? &ptr->o->e : ptr->s ? &ptr->s->e : &ptr->p->e;
    const int complete = ptr->last->type == ptr->target ? uci_ptr::UCI_LOOKUP_COMPLETE : 0;
    ptr->flags = static_cast<decltype(ptr->flags)>(ptr->flags | uci_ptr::UCI_LOOKUP_DONE | complete);
}

} // namespace

int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended) {
    if (!ctx || !ptr || !str)
        return UCI_ERR_INVAL;
    int error = uci_split_tuple(ptr, str);
    if (error == UCI_OK && ptr->option && !uci_valid_name(ptr->option))
        error = UCI_ERR_PARSE;
    if (error == UCI_OK)
        error = load(ctx, ptr->package, &ptr->p);
    if (error == UCI_OK && ptr->section)
        error = find_section(ptr, extended);
    if (error != UCI_OK)
        return error;
    if (ptr->s && ptr->option)
        find_option(ptr);
    finish(ptr);
    return UCI_OK;
}
