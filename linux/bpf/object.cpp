// Carries the compiled traffic control programs as bytes of this program.
#include "bpf/object.h"

asm(".pushsection .rodata.kolt_bpf_object, \"a\"\n"
    ".balign 8\n"
    ".hidden KOLT_BPF_OBJECT_BEGIN\n"
    ".hidden KOLT_BPF_OBJECT_END\n"
    ".globl KOLT_BPF_OBJECT_BEGIN\n"
    ".globl KOLT_BPF_OBJECT_END\n"
    "KOLT_BPF_OBJECT_BEGIN:\n"
    ".incbin \"" KOLT_BPF_OBJECT_FILE "\"\n"
    "KOLT_BPF_OBJECT_END:\n"
    ".popsection\n");

extern "C" const std::byte KOLT_BPF_OBJECT_BEGIN[];
extern "C" const std::byte KOLT_BPF_OBJECT_END[];

std::span<const std::byte> kolt_bpf_object() {
    return {KOLT_BPF_OBJECT_BEGIN, KOLT_BPF_OBJECT_END};
}
