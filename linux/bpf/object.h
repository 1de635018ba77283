// The compiled traffic control programs.
#pragma once

#include <cstddef>
#include <span>

[[nodiscard]] std::span<const std::byte> kolt_bpf_object();
