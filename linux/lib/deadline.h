// Until when something may take.
#pragma once

#include <cstdint>
#include <ctime>

struct deadline {
    int64_t at_ms = 0; // on the monotonic clock

    static int64_t now_ms() {
        timespec now{};
        (void)clock_gettime(CLOCK_MONOTONIC, &now); // cannot fail with this clock
        return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
    }
    static deadline in_ms(int64_t duration) {
        return {now_ms() + duration};
    }
    // Milliseconds that are left, 0 when it has passed.
    [[nodiscard]] int left_ms() const {
        const int64_t left = at_ms - now_ms();
        return left > 0 ? static_cast<int>(left) : 0;
    }
};
