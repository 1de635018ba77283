# The Debian packages that the commands in this folder need, beyond a base system.
KOLT_BUILD_NEEDS=(g++ cmake ninja-build libjson-c-dev)
KOLT_NODE_NEEDS=(python3 iproute2 util-linux mount)
KOLT_SIM_NEEDS=(python3-numpy python3-jsonschema python3-rich libjs-dygraphs)
KOLT_TEST_NEEDS=(libgtest-dev libgmock-dev python3-pytest valgrind clang libclang-rt-14-dev clang-format clang-tidy
    binutils git chromium mandoc shellcheck systemd)
KOLT_MESH_NEEDS=(clang iperf3 libbpf-dev libmnl-dev)
KOLT_PACKAGE_NEEDS=("${KOLT_BUILD_NEEDS[@]}" clang debhelper dh-python dpkg-dev fakeroot git libbpf-dev libmnl-dev lintian llvm)
