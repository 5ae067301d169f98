#!/bin/bash
# The command line of velpatch-kit from end to end: results, exit codes, and what goes to standard
# output and what to standard error.
# Runs under Wine too
set -eu
build=$(cd "${1:-build/release}" && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
trap 'echo "kit-cli: stopped in line $LINENO"' ERR
cd "$folder"
export TMPDIR="$folder"

# kit WANTED-EXIT-CODE ARGUMENTS...: leaves "out" and "err"; paths are relative, so that they mean
# the same under Wine.
kit() {
    local wanted=$1 code=0
    shift
    # shellcheck disable=SC2086
    timeout 120 ${VELPATCH_RUN:-} "$build/bin/velpatch-kit${VELPATCH_EXE:-}" "$@" \
        >out.raw 2>err.raw </dev/null || code=$?
    tr -d '\r' <out.raw >out
    tr -d '\r' <err.raw | grep -v '^wine: ' >err || true # Wine has words of its own
    if [ "$code" != "$wanted" ]; then
        echo "velpatch-kit $*: exit code $code, wanted $wanted"
        cat err
        exit 1
    fi
}
fail() {
    echo "$*"
    echo "--- standard output"; cat out
    echo "--- standard error"; cat err
    exit 1
}
says() { grep -q -- "$1" err || fail "standard error lacks '$1'"; }
gives() { grep -q -- "$1" out || fail "standard output lacks '$1'"; }
silent() { [ ! -s "$1" ] || fail "$1 should be empty"; }
same() { diff -r "$1" "$2" >/dev/null || fail "$1 and $2 differ"; }

# Help and usage.
kit 0 --help
gives Examples
gives "velpatch-kit make game-1.0"
silent err
kit 0 --version
gives '^velpatch-kit [0-9]'
kit 2
kit 2 frobnicate
kit 2 make one
kit 2 make --full one two three
kit 2 make missing-old missing-new patch
says missing-old
silent out

# Two builds.
mkdir -p old/bin old/levels new/bin new/maps/empty
seq 1 20000 >old/bin/program
{ seq 1 9000; echo inserted; seq 9001 20000; } >new/bin/program
seq 5 5000 >old/levels/one
cp old/levels/one new/maps/one
echo readme >old/readme
echo readme, changed >new/readme
cp -r old target

kit 0 make old new patch
gives '^control	.*patch-control.txt$'
gives '^edits	[1-9]'
gives '^moves	1$'
says self-check
[ "$(wc -c <patch/patch-data.bin)" -lt 1000 ] || fail "the patch is too large"
[ "$(find patch | wc -l)" = 3 ] || fail "something is left beside the patch"
kit 0 apply patch/patch-control.txt target
gives '^log	.*velpatch-log.txt$'
# Which of the task's texts show depends on its speed, but none may be missing.
! grep -q velpatch_task err || fail "a text is missing"
says Done
same new target
# A second time: the sources are gone, so the checks say no, and nothing changes.
kit 1 apply patch/patch-control.txt target
same new target

# Options that may be given again leave what follows them alone.
kit 0 make --ignore '*.bak' old new patch
if [ -z "${VELPATCH_RUN:-}" ]; then
    code=0
    "$build/bin/velpatch-kit" -q inspect patch/patch-control.txt --json >/dev/full 2>err || code=$?
    [ "$code" = 1 ] || fail "results that are lost gave exit code $code"
fi

# What the patch does, and whether the target is as it should be before and after.
kit 0 inspect patch/patch-control.txt patch/patch-data.bin
gives '^download-bytes	[1-9]'
says 'Every record'
kit 0 inspect patch/patch-control.txt --json --quiet
gives '"command": "edit-file"'
silent err
kit 0 verify patch/patch-control.txt old
kit 0 verify --after patch/patch-control.txt new --workers 2
kit 1 verify --after patch/patch-control.txt old
gives '^wrong	readme	'
kit 2 verify patch/patch-control.txt missing-folder
kit 0 split patch/patch-data.bin discs --size 100
kit 0 join discs joined --control patch/patch-control.txt
cmp -s joined patch/patch-data.bin || fail "the joined file differs"
kit 0 inspect patch/patch-control.txt discs
kit 2 split patch/patch-data.bin discs --size 5X
kit 2 join discs discs/patch-1.bin
kit 2 join missing-folder unmade
kit 2 inspect patch/patch-control.txt missing.bin
head -c 40 patch/patch-data.bin >discs/patch-2.bin
kit 1 join discs unmade
kit 1 inspect patch/patch-control.txt discs
[ ! -e unmade ] || fail "half a file was left"
mkdir config
kit 1 check-config config
gives '^error	0	patch-config.txt	'

# Quiet: no words at all when all is well, log lines only when asked for, never as data.
cp -r old quiet
kit 0 --quiet apply patch/patch-control.txt quiet --data patch/patch-data.bin
silent err
kit 0 -v make old new patch --no-check
grep -q 'ApplyDiffFromStream\|cmd:' out && fail "log lines on standard output"
rm -rf quiet
cp -r old quiet
kit 0 apply -v patch/patch-control.txt quiet
says 'cmd:2 '
grep -q 'cmd:2 ' out && fail "log lines on standard output"

# From nothing.
kit 0 make --full new full --quiet
kit 0 apply full/patch-control.txt deep/inside/target
same new deep/inside/target

# And away again, but not without a word.
kit 2 uninstall deep/inside/target
says 'say --yes'
same new deep/inside/target
# With it go the shortcuts on its list, and nothing that a link in it leads to.
mkdir beside
touch menu.lnk beside/dear
entry=$folder/menu.lnk
printf '\0\0\0\0%b%s' "\\0$(printf %o ${#entry})" "$entry" >deep/inside/target/uninstall.dat
# Wine shows a link of this system as a plain folder.
[ -n "${VELPATCH_RUN:-}" ] || ln -s ../../../beside deep/inside/target/out
kit 0 uninstall --yes deep/inside/target
says 'The game is gone'
[ ! -e deep/inside/target ] || fail "the game is still there"
[ ! -e menu.lnk ] || fail "the shortcut is still there"
[ -e beside/dear ] || fail "a link was followed"
[ -d deep/inside ] || fail "too much went"
kit 2 uninstall --yes deep/inside/target
kit 2 uninstall --yes /

# One file.
kit 0 diff old/bin/program new/bin/program program.diff
gives '^diff-bytes	[0-9]'
kit 0 patch old/bin/program program.diff again
cmp -s again new/bin/program || fail "the patched file differs"
printf '\011' >bad.diff
kit 1 patch old/bin/program bad.diff unmade
says 'unknown command: 9'
[ ! -e unmade ] || fail "half a file was left"
kit 2 diff missing new/bin/program x.diff
says missing

# Control files that are no use are refused before anything starts.
cp -r old before
echo 'velpatch-version 1' >empty.txt
echo 'velpatch-version 2' >newer.txt
for control in missing.txt empty.txt newer.txt old; do
    kit 2 apply "$control" before --data patch/patch-data.bin
    silent out
done
cp patch/patch-control.txt alone.txt
kit 2 apply alone.txt before
says -- '--data'
same old before

# A data file that isn't the one; a prompt that nobody answers.
head -c 100 /dev/zero >wrong.bin
kit 1 apply patch/patch-control.txt before --data wrong.bin
same old before
if [ -z "${VELPATCH_RUN:-}" ]; then
    rm -rf old new before
    mkdir old new
    echo tool | tee old/tool >new/tool
    cp -r old before
    chmod 755 new/tool
    kit 0 make old new modes --no-check
    sed 's/posix:0755/posix:99/' modes/patch-control.txt >bad-mode.txt
    kit 1 apply bad-mode.txt before --data modes/patch-data.bin
    same old before
    # Promised retries go on until Ctrl-C, which lets the task roll back.
    : >err # of the run before, which would be taken for this one's
    "$build/bin/velpatch-kit" apply bad-mode.txt before --data modes/patch-data.bin \
        --answer retry >out 2>err </dev/null &
    child=$!
    for _ in $(seq 100); do
        grep -q 99 err && break
        sleep 0.1
    done
    kill -INT "$child"
    code=0
    wait "$child" || code=$?
    [ "$code" = 130 ] || fail "Ctrl-C gave exit code $code"
    same old before
fi
echo "velpatch-kit: good"
