/*
 * Reader of the node's configuration: packages (files) of sections of options, with the pending changes of a second
 * directory applied on top. A context owns all it has loaded; pointers into it end with uci_free_context().
 */
#ifndef UCI_H
#define UCI_H

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    UCI_OK = 0,
    UCI_ERR_MEM,
    UCI_ERR_INVAL,
    UCI_ERR_NOTFOUND,
    UCI_ERR_IO,
    UCI_ERR_PARSE,
    UCI_ERR_DUPLICATE,
    UCI_ERR_UNKNOWN,
    UCI_ERR_LAST
};

enum uci_type {
    UCI_TYPE_UNSPEC = 0,
    UCI_TYPE_DELTA = 1,
    UCI_TYPE_PACKAGE = 2,
    UCI_TYPE_SECTION = 3,
    UCI_TYPE_OPTION = 4,
    UCI_TYPE_PATH = 5,
    UCI_TYPE_BACKEND = 6,
    UCI_TYPE_ITEM = 7,
    UCI_TYPE_HOOK = 8
};

enum uci_option_type { UCI_TYPE_STRING = 0, UCI_TYPE_LIST = 1 };

struct uci_list {
    struct uci_list *next;
    struct uci_list *prev;
};

/* What packages, sections, options and list items begin with. */
struct uci_element {
    struct uci_list list;
    enum uci_type type;
    char *name; /* of a list item: its value */
};

struct uci_context {
    struct uci_list root; /* loaded packages */
    char *confdir;
    char *savedir;
};

struct uci_package {
    struct uci_element e;
    struct uci_list sections;
    struct uci_context *ctx;
    int n_section;  /* sections created so far */
    int n_elements; /* sections, options and list items at present */
};

struct uci_section {
    struct uci_element e;
    struct uci_list options;
    struct uci_package *package;
    bool anonymous;
    char *type;
};

struct uci_option {
    struct uci_element e;
    struct uci_section *section;
    enum uci_option_type type;
    union {
        struct uci_list values;
        char *string;
    } v;
};

/* What a lookup asked for, and what it found. */
struct uci_ptr {
    enum uci_type target;
    enum {
        UCI_LOOKUP_DONE = (1 << 0),
        UCI_LOOKUP_COMPLETE = (1 << 1), /* all that was named exists */
        UCI_LOOKUP_EXTENDED = (1 << 2)
    } flags;

    struct uci_package *p;
    struct uci_section *s;
    struct uci_option *o;
    struct uci_element *last; /* the innermost element found */

    const char *package;
    const char *section;
    const char *option;
    const char *value;
};

#define uci_list_to_element(ptr) ((struct uci_element *)(void *)((char *)(ptr)-offsetof(struct uci_element, list)))
#define uci_foreach_element(head, e)                                                                                   \
    for (e = uci_list_to_element((head)->next); &e->list != (head); e = uci_list_to_element(e->list.next))

static inline struct uci_section *uci_to_section(struct uci_element *e) {
    return (struct uci_section *)(void *)e;
}

static inline struct uci_option *uci_to_option(struct uci_element *e) {
    return (struct uci_option *)(void *)e;
}

/* A context that reads /etc/config and /tmp/.uci, or null without memory. */
struct uci_context *uci_alloc_context(void);

/* Releases the context and all that was found through it. Null is allowed. */
void uci_free_context(struct uci_context *ctx);

/* Sets the directory of the packages, or of their pending changes, for packages loaded later. Returns 0 or an error. */
int uci_set_confdir(struct uci_context *ctx, const char *dir);
int uci_set_savedir(struct uci_context *ctx, const char *dir);

/*
 * Looks up `str`, which is PACKAGE, PACKAGE.SECTION or PACKAGE.SECTION.OPTION, loading the package when it is not yet
 * loaded. With `extended`, SECTION may be @TYPE[INDEX]. `str` is cut up and must live as long as the names in `ptr`. A
 * missing section or option is no error: `ptr->last` is then the package or the section, and the flag COMPLETE is
 * not set. Returns 0, or UCI_ERR_NOTFOUND without the package, UCI_ERR_PARSE for a text or a file that is not well
 * formed, or another error.
 */
int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended);

#ifdef __cplusplus
}
#endif

#endif
