// Carries the compiled traffic control programs as bytes of this program.
#include "bpf/object.h"

asm(".pushsection .rodata.kolt_bpf_object, \"a\"\n"
    ".balign 8\n"
    ".hidden kolt_bpf_object_begin\n"
    ".hidden kolt_bpf_object_end\n"
    ".globl kolt_bpf_object_begin\n"
    ".globl kolt_bpf_object_end\n"
    "kolt_bpf_object_begin:\n"
    ".incbin \"" KOLT_BPF_OBJECT_FILE "\"\n"
    "kolt_bpf_object_end:\n"
    ".popsection\n");

extern "C" const std::byte kolt_bpf_object_begin[];
extern "C" const std::byte kolt_bpf_object_end[];

std::span<const std::byte> kolt_bpf_object() {
    return {kolt_bpf_object_begin, kolt_bpf_object_end};
}
