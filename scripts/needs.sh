# What the commands in this folder need: Debian's packages beyond a base system, and folders to build in. Sourced.
export PATH # a shell that is started without one makes one up and keeps it to itself, and CMake looks for itself there
KOLT_BUILD_NEEDS=(g++ cmake ninja-build libjson-c-dev)
KOLT_NODE_NEEDS=(python3 iproute2 util-linux mount)
KOLT_SIM_NEEDS=(python3-numpy python3-jsonschema python3-rich libjs-dygraphs)
KOLT_TEST_NEEDS=(libgtest-dev libgmock-dev python3-pytest valgrind clang libclang-rt-14-dev clang-format clang-tidy
    binutils git chromium mandoc shellcheck systemd)
KOLT_FUZZ_NEEDS=(llvm)
KOLT_ANALYSIS_NEEDS=(cppcheck)
KOLT_MESH_NEEDS=(clang iperf3 libbpf-dev libmnl-dev)
KOLT_EMULATION_NEEDS=(binutils clang dpkg-dev iproute2 qemu-user-static util-linux)
KOLT_PACKAGE_NEEDS=("${KOLT_BUILD_NEEDS[@]}" clang debhelper dh-python dpkg-dev fakeroot git libbpf-dev libmnl-dev lintian llvm)

# need_own FOLDER...: ends the script with one line where this user cannot build in a folder, since another one has, most often
# root: a build tool would only say so after a page, and about some file of its own.
need_own() {
    local folder depth foreign
    for folder in "$@"; do
        depth=1
        until [ -e "$folder" ]; do
            folder=$(dirname "$folder")
            depth=0
        done
        foreign=$(find "$folder" -maxdepth "$depth" ! -writable -print -quit 2>/dev/null)
        [ -z "$foreign" ] || {
            echo "$foreign belongs to $(stat -c %U "$foreign"): $(id -un) cannot build here. Remove it, or use another clone." >&2
            exit 1
        }
    done
}
