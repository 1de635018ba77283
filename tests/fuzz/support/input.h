// What every target does with its input.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

using bytes = std::span<const uint8_t>;

inline void require(bool holds) {
    if (!holds)
        abort();
}

// A block of its own, so that a byte behind it is out of bounds.
inline std::unique_ptr<uint8_t[]> copy_of(bytes content) {
    std::unique_ptr<uint8_t[]> copy(new uint8_t[content.size()]);
    std::copy(content.begin(), content.end(), copy.get());
    return copy;
}

// Reads an input piece by piece. It may end anywhere; what it lacks is zero.
struct fuzz_input {
    bytes left;

    bytes take(size_t count) {
        const bytes taken = left.first(std::min(count, left.size()));
        left = left.subspan(taken.size());
        return taken;
    }
    template <class Number> Number number() {
        Number value = 0;
        const bytes taken = take(sizeof value);
        if (!taken.empty())
            memcpy(&value, taken.data(), taken.size());
        return value;
    }
    uint8_t byte() {
        return number<uint8_t>();
    }
    // As many bytes as the 16 bits before them say.
    bytes part() {
        return take(number<uint16_t>());
    }
    // What stands before the next separator, of which there is none in text.
    bytes text() {
        constexpr uint8_t SEPARATOR = 0x1e;
        const auto length = static_cast<size_t>(std::find(left.begin(), left.end(), SEPARATOR) - left.begin());
        const bytes taken = take(length);
        (void)take(1);
        return taken;
    }
};
