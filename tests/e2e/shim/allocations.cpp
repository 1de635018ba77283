// Allocations, with a count of those that were not released yet.
#include "faults.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>

namespace {

bool sparing;

template <class Pointer> Pointer *counted(Pointer *block) {
    if (shared != nullptr && block != nullptr)
        shared->live++;
    return block;
}

void note_place(const void *caller) {
    Dl_info place{};
    if (dladdr(caller, &place) == 0)
        return;
    const char *file = place.dli_fname != nullptr ? place.dli_fname : "";
    const char *name = place.dli_sname != nullptr ? place.dli_sname : "";
    const char *base = strrchr(file, '/');
    (void)snprintf(shared->place, sizeof shared->place, "%s: %s", base != nullptr ? base + 1 : file, name);
}

bool allocation_fails(const void *caller) {
    if (sparing) {
        if (shared != nullptr)
            shared->spared++;
        return false;
    }
    if (!hit(ALLOCATION))
        return false;
    note_place(caller);
    errno = ENOMEM;
    return true;
}

// json-c up to 0.16 hands a member's name on without looking whether its copy was made, and crashes: nothing that its
// caller could prevent. This one call is spared, told by where it comes from.
bool is_unguarded_copy(const void *caller) {
    Dl_info place{};
    return dladdr(caller, &place) != 0 && place.dli_sname != nullptr &&
           strcmp(place.dli_sname, "json_tokener_parse_ex") == 0;
}

} // namespace

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void __libc_free(void *block);
}

INTERPOSED void *malloc(size_t size) {
    return allocation_fails(CALLER) ? nullptr : counted(__libc_malloc(size));
}

INTERPOSED void *calloc(size_t count, size_t size) {
    return allocation_fails(CALLER) ? nullptr : counted(__libc_calloc(count, size));
}

INTERPOSED void *realloc(void *block, size_t size) {
    if (allocation_fails(CALLER))
        return nullptr;
    void *moved = __libc_realloc(block, size);
    return block == nullptr ? counted(moved) : moved;
}

INTERPOSED void free(void *block) {
    if (shared != nullptr && block != nullptr)
        shared->live--;
    __libc_free(block);
}

INTERPOSED char *strdup(const char *text) {
    sparing = is_unguarded_copy(CALLER);
    const bool failed = allocation_fails(CALLER);
    sparing = false;
    const size_t size = strlen(text) + 1;
    void *copy = failed ? nullptr : counted(__libc_malloc(size));
    return copy != nullptr ? static_cast<char *>(memcpy(copy, text, size)) : nullptr;
}
