#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// Memory of trivial elements that is kept for the next period and only ever grows. Its content does not outlive a
// growth. A plain record without a destructor, so that it can be a static object.
template <class T> struct kolt_growing_array {
    T *elements = nullptr;
    size_t capacity = 0;

    // Makes room for `count` elements; false without memory, which leaves what there was.
    [[nodiscard]] bool reserve(size_t count) {
        if (count <= capacity)
            return true;
        constexpr size_t size = sizeof(T); // NOLINT(bugprone-sizeof-expression): pointers are elements like any other
        if (count > SIZE_MAX / size)
            return false;
        void *memory = malloc(count * size);
        if (memory == nullptr)
            return false;
        free(elements);
        elements = static_cast<T *>(memory);
        capacity = count;
        return true;
    }
};
