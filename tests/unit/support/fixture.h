// What every test of the daemon's parts stands on: fresh fakes and an empty log before, nothing left open or allocated
// after.
#pragma once

#include "core/log.h"
#include "support/fake_netlink.h"
#include "support/fake_platform.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

using mac_address = std::array<uint8_t, 6>;
using lines = std::vector<std::string>;

inline lines operator+(lines first, const lines &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class fixture : public testing::Test {
protected:
    fixture() {
        platform = fake_platform{};
        reset_netlink();
        log_level = KOLT_LOG_INFO;
        clear_log();
        descriptors_ = open_descriptors();
    }
    // Runs when everything that a test holds is gone.
    ~fixture() override {
        reset_netlink();
        EXPECT_EQ(platform.live_buffers, 0);
        EXPECT_EQ(open_descriptors(), descriptors_ + kept_descriptors_);
        log_level = KOLT_LOG_INFO;
    }

    size_t kept_descriptors_ = 0; // that the code left open on purpose

private:
    size_t descriptors_ = 0;
};
