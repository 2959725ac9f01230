# Sourced by the scripts: folders made of Debian's packages for another processor, with a package database of their
# own. Needs no rights, and the machine's own database hears nothing of it.
# shellcheck shell=bash
. "$(dirname -- "${BASH_SOURCE[0]}")/setup.bash"

codename=$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")
readonly codename

giveUp() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# makeOnce NAME FUNCTION PACKAGE...: has FUNCTION make build/NAME, unless the same scripts have made it of the same
# packages before. FUNCTION fills $work/root; the rest of $work is its own, too, and goes afterwards.
makeOnce() {
    local folder=$project/build/$1 function=$2 lock
    shift 2
    mkdir -p "$project/build"
    exec {lock}>"$folder.lock"
    flock "$lock"
    if [[ -e $folder/recipe ]] && recipe "$@" | cmp -s - "$folder/recipe"; then
        return
    fi
    say "Making build/${folder##*/}"
    work=$(mktemp -d "$folder.XXXXXX")
    trap 'rm -rf -- "$work"' EXIT
    mkdir "$work/root"
    "$function"
    # Only what is whole gets the name.
    recipe "$@" >"$work/root/recipe"
    rm -rf -- "$folder"
    mv -- "$work/root" "$folder"
}

# What a finished folder was made of; made by other scripts or of other packages, it is made anew.
recipe() {
    sha256sum <"${BASH_SOURCE[0]}"
    sha256sum <"$0"
    printf '%s\n' "$codename" "$@"
}

# learnPackages ARCHITECTURE: makes the database in $work; downloads go to $work/packages.
learnPackages() {
    writeConfiguration "$1"
    writeSources "$1"
    apt-get -q -c "$work/apt.conf" update
}

# The machine's settings, such as proxies and keys, but for what would let it know.
writeConfiguration() {
    mkdir -p "$work"/{state/lists,cache,packages}/partial
    : >"$work/status"
    cat >"$work/apt.conf" <<CONFIGURATION
#clear APT::Architectures;
#clear APT::Update;
#clear DPkg;
APT::Architecture "$1";
APT::Architectures { "$1"; };
APT::Sandbox::User "";
Dir::State "$work/state";
Dir::State::status "$work/status";
Dir::Cache "$work/cache";
Dir::Cache::archives "$work/packages";
Dir::Etc::sourcelist "$work/sources.list";
Dir::Etc::sourceparts "/dev/null";
Dir::Etc::preferences "/dev/null";
Dir::Etc::preferencesparts "/dev/null";
CONFIGURATION
}

# The distribution's main suite and its updates, from where the machine itself gets them.
writeSources() {
    local suite site sites
    sites=$(apt-get --print-uris update | sed -nE "s|^'(.*/)dists/([^/]+)/InRelease'.*|\2 \1|p")
    for suite in "$codename" "$codename-updates"; do
        while read -r _ site; do
            # Only the list of packages: a desktop adds others, of icons and the like.
            printf 'deb [arch=%s lang=none target=Packages] %s %s main\n' "$1" "$site" "$suite"
        done < <(grep -m 1 "^$suite " <<<"$sites")
    done >"$work/sources.list"
    grep -q " $codename main$" "$work/sources.list" || giveUp "this machine has no source of $codename"
}

# Downloads these packages, and nothing that they depend on.
download() {
    (cd "$work/packages" && apt-get -q -c "$work/apt.conf" download "$@")
}

# Downloads these packages and all that they depend on.
downloadWhole() {
    apt-get -q -c "$work/apt.conf" install -y --no-install-recommends --download-only "$@"
}

# unpackInto FOLDER: unpacks what was downloaded, and clears it away.
unpackInto() {
    local package
    for package in "$work"/packages/*.deb; do
        dpkg-deb -x "$package" "$1"
        rm "$package"
    done
}
