// Packages, sections, options and list items in memory.

#include "uci_internal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void list_append(uci_list *head, uci_list *link) {
    link->next = head;
    link->prev = head->prev;
    head->prev->next = link;
    head->prev = link;
}

void list_remove(uci_list *link) {
    link->next->prev = link->prev;
    link->prev->next = link->next;
}

// A zeroed record of `size` bytes that begins with an element of that type and name; null without memory.
uci_element *new_element(size_t size, uci_type type, const char *name) {
    auto *element = static_cast<uci_element *>(calloc(1, size));
    if (!element)
        return nullptr;
    element->type = type;
    element->name = strdup(name);
    if (element->name)
        return element;
    free(element);
    return nullptr;
}

// Chains a new element of a package and counts it. Without room it is released.
int adopt(uci_package *package, uci_list *head, uci_element *element) {
    if (!element)
        return UCI_ERR_MEM;
    if (package->n_elements >= UCI_MAX_ELEMENTS) {
        free(element->name);
        free(element);
        return UCI_ERR_MEM;
    }
    package->n_elements++;
    list_append(head, &element->list);
    return UCI_OK;
}

void release(uci_package *package, uci_element *element) {
    package->n_elements--;
    list_remove(&element->list);
    free(element->name);
    free(element);
}

void free_items(uci_option *option) {
    while (!uci_list_empty(&option->v.values))
        release(option->section->package, uci_list_to_element(option->v.values.next));
}

int append_to(uci_option *option, const char *value) {
    return adopt(option->section->package, &option->v.values, new_element(sizeof(uci_element), UCI_TYPE_ITEM, value));
}

// A new option without value, a list.
int new_list(uci_section *section, const char *name, uci_option **option) {
    uci_element *element = new_element(sizeof(uci_option), UCI_TYPE_OPTION, name);
    const int error = adopt(section->package, &section->options, element);
    if (error != UCI_OK)
        return error;
    *option = uci_to_option(element);
    (*option)->section = section;
    (*option)->type = UCI_TYPE_LIST;
    uci_list_init(&(*option)->v.values);
    return UCI_OK;
}

// Makes the list of one item out of a single value.
int turn_into_list(uci_option *option) {
    char *value = option->v.string;
    uci_list_init(&option->v.values);
    const int error = append_to(option, value);
    if (error != UCI_OK) {
        option->v.string = value;
        return error;
    }
    option->type = UCI_TYPE_LIST;
    free(value);
    return UCI_OK;
}

} // namespace

void uci_list_init(uci_list *list) {
    list->next = list;
    list->prev = list;
}

uci_element *uci_find(uci_list *list, const char *name) {
    uci_element *element;
    uci_foreach_element(list, element) {
        if (strcmp(element->name, name) == 0)
            return element;
    }
    return nullptr;
}

int uci_replace_text(char **text, const char *value) {
    char *copy = strdup(value);
    if (!copy)
        return UCI_ERR_MEM;
    free(*text);
    *text = copy;
    return UCI_OK;
}

int uci_new_package(uci_context *ctx, const char *name, uci_package **package) {
    uci_element *element = new_element(sizeof(uci_package), UCI_TYPE_PACKAGE, name);
    if (!element)
        return UCI_ERR_MEM;
    *package = reinterpret_cast<uci_package *>(element);
    (*package)->ctx = ctx;
    uci_list_init(&(*package)->sections);
    list_append(&ctx->root, &element->list);
    return UCI_OK;
}

void uci_free_package(uci_package *package) {
    while (!uci_list_empty(&package->sections))
        uci_free_section(uci_to_section(uci_list_to_element(package->sections.next)));
    list_remove(&package->e.list);
    free(package->e.name);
    free(package);
}

int uci_new_section(uci_package *package, const char *type, const char *name, uci_section **section) {
    std::array<char, 16> generated;
    (void)snprintf(generated.data(), generated.size(), "cfg%06x", static_cast<unsigned>(++package->n_section));
    uci_element *element = new_element(sizeof(uci_section), UCI_TYPE_SECTION, name ? name : generated.data());
    const int error = adopt(package, &package->sections, element);
    if (error != UCI_OK)
        return error;
    *section = uci_to_section(element);
    (*section)->package = package;
    (*section)->anonymous = !name;
    uci_list_init(&(*section)->options);
    const int typed = uci_replace_text(&(*section)->type, type);
    if (typed != UCI_OK)
        uci_free_section(*section);
    return typed;
}

void uci_free_section(uci_section *section) {
    while (!uci_list_empty(&section->options))
        uci_free_option(uci_to_option(uci_list_to_element(section->options.next)));
    free(section->type);
    release(section->package, &section->e);
}

int uci_set_option(uci_section *section, const char *name, const char *value) {
    uci_element *element = uci_find(&section->options, name);
    uci_option *option = element ? uci_to_option(element) : nullptr;
    if (*value == '\0') {
        if (option)
            uci_free_option(option);
        return UCI_OK;
    }
    char *copy = strdup(value);
    if (!copy)
        return UCI_ERR_MEM;
    const int error = option ? UCI_OK : new_list(section, name, &option);
    if (error != UCI_OK) {
        free(copy);
        return error;
    }
    if (option->type == UCI_TYPE_LIST)
        free_items(option);
    else
        free(option->v.string);
    option->type = UCI_TYPE_STRING;
    option->v.string = copy;
    return UCI_OK;
}

int uci_append_item(uci_section *section, const char *name, const char *value) {
    uci_element *element = uci_find(&section->options, name);
    uci_option *option = element ? uci_to_option(element) : nullptr;
    int error = UCI_OK;
    if (!option)
        error = new_list(section, name, &option);
    else if (option->type == UCI_TYPE_STRING)
        error = turn_into_list(option);
    return error == UCI_OK ? append_to(option, value) : error;
}

void uci_remove_item(uci_option *option, const char *value) {
    if (option->type != UCI_TYPE_LIST)
        return;
    while (uci_element *item = uci_find(&option->v.values, value))
        release(option->section->package, item);
    if (uci_list_empty(&option->v.values))
        uci_free_option(option);
}

void uci_free_option(uci_option *option) {
    if (option->type == UCI_TYPE_LIST)
        free_items(option);
    else
        free(option->v.string);
    release(option->section->package, &option->e);
}
