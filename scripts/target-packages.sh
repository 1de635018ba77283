# Debian's packages for another machine, in a folder of their own: this machine's packages and their lists stay as they are.
# Sourced.

# target_triplet ARCH: the name that the compilers have for a machine by Debian's.
target_triplet() {
    dpkg-architecture -a "$1" -q DEB_HOST_GNU_TYPE 2>/dev/null
}

# target_packages ROOT ARCH PACKAGE...: unpacks packages for another machine into ROOT, unless they are there already.
target_packages() {
    local root=$1 arch=$2 state=$1.apt
    shift 2
    [ "$(cat "$state/unpacked" 2>/dev/null)" != "$*" ] || return 0
    mkdir -p "$root" "$state"/{lists/partial,cache/archives/partial,packages}
    : >"$state/status"
    cat >"$state/apt.conf" <<CONF
APT::Architecture "$arch";
APT::Architectures { "$arch"; };
Dir::State::lists "$state/lists";
Dir::State::status "$state/status";
Dir::Cache "$state/cache";
APT::Sandbox::User "root";
CONF
    APT_CONFIG=$state/apt.conf apt-get update -qq || echo "going on with the lists that could be had"
    (cd "$state/packages" && APT_CONFIG=$state/apt.conf apt-get download -qq "$@") || return
    local package
    for package in "$state/packages"/*.deb; do
        dpkg-deb --extract "$package" "$root" || return
    done
    echo "$*" >"$state/unpacked"
}
