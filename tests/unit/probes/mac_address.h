// MACs as the tests write them.
#pragma once

#include <array>
#include <cstdint>

using mac_address = std::array<uint8_t, 6>;

// A MAC that is told from others by a number.
inline mac_address numbered_mac(uint32_t number) {
    return {0x02, 0x4B, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}
