// What an interface's driver says about itself.
#pragma once

#include <cstdint>
#include <linux/ethtool.h>
#include <span>
#include <string_view>

using ethtool_name = char[ETH_GSTRING_LEN];

// Stores whether a feature of the interface is switched on; false for one that its kernel does not have. Returns 0 or
// an errno: ENODEV when there is no such interface, EOPNOTSUPP when it has no features.
[[nodiscard]] int ethtool_feature(const char *ifname, std::string_view feature, bool *on);

// The same from the names of all features and the blocks of 32 of them.
[[nodiscard]] bool is_feature_on(std::string_view feature, std::span<const ethtool_name> names,
                                 std::span<const ethtool_get_features_block> blocks);
