# shellcheck shell=bash
# What the demonstrations share; read by them, with $root set.
kit=${VELPATCH_KIT:-$root/build/release/bin/velpatch-kit}
umask 022 # so that the trees can be compared with their permissions

step() { printf '\n== %s\n' "$*"; }
show() { printf '   %s\n' "$*"; }
# Runs the kit, showing the command as one would type it.
kit() {
    printf '   $ velpatch-kit'
    printf ' %q' "$@"
    printf '\n'
    "$kit" "$@"
}
size() { du -sb "$1" | awk '{ printf "%.1f MiB", $1 / 1048576 }'; }
count() { find "$1" -type f | wc -l; }
# Contents, names, empty folders and permissions of two trees.
listing() {
    (cd "$1" && find . -mindepth 1 -printf '%y %m %P\n' | LC_ALL=C sort &&
        find . -type f -print0 | LC_ALL=C sort -z | xargs -0 -r md5sum)
}
compare() {
    if ! cmp -s <(listing "$1") <(listing "$2"); then
        echo "The trees differ:" >&2
        diff <(listing "$1") <(listing "$2") | head -20 >&2
        exit 1
    fi
    show "identical: $(count "$2") files, contents, names, permissions and empty folders"
}

# program_for NAME: the player's program as it is shipped, in a folder of its own.
program_for() {
    mkdir "$1"
    cp "${VELPATCH:-$root/build/release/bin/velpatch}" "$1/velpatch"
    cp -a "$root/data" "$1/data"
}
has_display() { [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; }
# player FOLDER ARGUMENTS...: runs the program there. What it remembers, and its shortcuts, go to a
# home of its own below the work folder.
player() {
    local folder=$1
    shift
    printf '   $ velpatch'
    printf ' %q' "$@"
    printf '\n'
    mkdir -p "$work/home"
    XAUTHORITY="${XAUTHORITY:-${HOME:-}/.Xauthority}" HOME="$work/home" \
        XDG_DATA_HOME="$work/home/.local/share" "$folder/velpatch" "$@"
}
