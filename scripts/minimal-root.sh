# Where a minimal Debian of this machine's release comes from, and how one that was made reaches the packages. Sourced.
KOLT_SUITE=bookworm

# Only Debian's own sources: others would need their keys.
sources() {
    apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        grep -E " $KOLT_SUITE(-updates|-security)? main\$" | sort -u
}

settings() {
    apt-config dump | grep -E '^Acquire::(https?::|ftp::|Check-|Retries|ForceIPv)' || true
}

# Sets `mirror`, and a proxy for those who do not ask apt for one.
find_mirror() {
    local proxy
    mirror=$(sources | awk -v suite="$KOLT_SUITE" '$2 == suite { print $1; exit }')
    [ -n "$mirror" ] || { echo "This machine's apt has no source of Debian's $KOLT_SUITE." >&2; exit 1; }
    proxy=$(settings | sed -nE 's/^Acquire::http::Proxy "(.*)";/\1/p')
    [ -z "$proxy" ] || export http_proxy=$proxy
}

# furnish ROOT: packages come from where this machine has its own from.
furnish() {
    sources | sed 's/^/deb /' >"$1/etc/apt/sources.list"
    settings >"$1/etc/apt/apt.conf.d/99machine"
    cp -a /etc/apt/auth.conf /etc/apt/auth.conf.d "$1/etc/apt" 2>/dev/null || true
    cp /etc/ssl/certs/ca-certificates.crt "$1/etc/ssl/certs/"
    cp -L /etc/resolv.conf /etc/hosts "$1/etc/"
}
