// Memory that is kept from period to period.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>

// Memory of trivial elements that only ever grows. Its content does not outlive a growth.
template <class T> struct kolt_growing_array {
    T *elements = nullptr;
    size_t capacity = 0;

    kolt_growing_array() = default;
    kolt_growing_array(const kolt_growing_array &) = delete;
    kolt_growing_array &operator=(const kolt_growing_array &) = delete;
    ~kolt_growing_array() {
        free(elements);
    }

    // Makes room for `count` elements; false without memory, which leaves what there was.
    [[nodiscard]] bool reserve(size_t count) {
        if (count <= capacity)
            return true;
        constexpr size_t SIZE = sizeof(T); // NOLINT(bugprone-sizeof-expression): pointers are elements like any other
        if (count > SIZE_MAX / SIZE)
            return false;
        void *memory = malloc(count * SIZE);
        if (memory == nullptr)
            return false;
        free(elements);
        elements = static_cast<T *>(memory);
        capacity = count;
        return true;
    }
};
