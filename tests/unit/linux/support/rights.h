// What a test takes from itself of what root may do.
#pragma once

#include <array>
#include <cstdint>

// Takes a capability out of the effective ones while it lives.
class without_capability {
public:
    explicit without_capability(unsigned capability);
    ~without_capability();
    without_capability(const without_capability &) = delete;
    without_capability &operator=(const without_capability &) = delete;

private:
    std::array<uint32_t, 2> effective_{};
};
