// An allocator that refuses the allocation whose number $REFUSE_ALLOCATION tells, and says so.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

extern "C" {
// The C library's own.
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
}

namespace {

long left = -1; // before the one that is refused; -1 before the first call

bool refused(const char *caller) {
    if (left < 0) {
        const char *number = getenv("REFUSE_ALLOCATION");
        left = number != nullptr ? atol(number) : 0;
    }
    if (left == 0 || --left > 0)
        return false;
    (void)!write(STDERR_FILENO, caller, strlen(caller));
    errno = ENOMEM;
    return true;
}

} // namespace

extern "C" {

void *malloc(size_t size) noexcept {
    return refused("refused: malloc\n") ? nullptr : __libc_malloc(size);
}

void *calloc(size_t count, size_t size) noexcept {
    return refused("refused: calloc\n") ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *block, size_t size) noexcept {
    return refused("refused: realloc\n") ? nullptr : __libc_realloc(block, size);
}

char *strdup(const char *text) noexcept {
    if (refused("refused: strdup\n"))
        return nullptr;
    const size_t size = strlen(text) + 1;
    void *copy = __libc_malloc(size);
    return copy != nullptr ? static_cast<char *>(memcpy(copy, text, size)) : nullptr;
}
}
