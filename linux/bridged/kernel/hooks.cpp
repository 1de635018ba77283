// What both ways of standing on a hook have in common.
#include "kernel/hooks.h"

const char *kolt_program_name(kolt_direction direction) {
    return direction == kolt_direction::INGRESS ? "kolt_ingress" : "kolt_egress";
}
