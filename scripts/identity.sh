#!/bin/sh
# Runs the identity cases (tests/identity) on two builds and compares their
# output byte for byte: reply datagrams, log lines, standard output, the
# `sqlite3 .dump` text of every database and every other file the daemon left
# in its root.
#   scripts/identity.sh HOST_BUILD OTHER_BUILD "LAUNCHER"
# The other build's program runs through LAUNCHER (e.g. qemu-mips -L ...).
# The first difference fails the run, printed with its file and line.
set -e
host=$1 other=$2 launcher=$3
[ -n "$host" ] && [ -n "$other" ] || { echo "usage: $0 HOST_BUILD OTHER_BUILD [LAUNCHER]" >&2; exit 2; }

# run BUILD LAUNCHER...: writes BUILD/identity/out, then the comparable text of
# each output file under BUILD/identity/cmp.
run() {
    dir=$1/identity
    bin=$1/tests/tallyd-identity
    shift
    rm -rf "$dir"
    mkdir -p "$dir"
    "$@" "$bin" "$dir/out" >"$dir/stdout.txt"
    mkdir -p "$dir/cmp"
    cp "$dir/stdout.txt" "$dir/cmp/"
    (cd "$dir/out" && find . -type f | sort) | while read -r f; do
        mkdir -p "$dir/cmp/$(dirname "$f")"
        case "$f" in
            *.db) sqlite3 "$dir/out/$f" .dump >"$dir/cmp/$f.dump" ;;
            *) cp "$dir/out/$f" "$dir/cmp/$f" ;;
        esac
    done
}

run "$host"
# shellcheck disable=SC2086
run "$other" $launcher

a=$host/identity/cmp
b=$other/identity/cmp
(cd "$a" && find . -type f | sort) >"$host/identity/files"
(cd "$b" && find . -type f | sort) >"$other/identity/files"
if ! cmp -s "$host/identity/files" "$other/identity/files"; then
    echo "identity: the builds wrote different files:" >&2
    diff "$host/identity/files" "$other/identity/files" >&2
    exit 1
fi

# The first line where two files differ (one past the end of the shorter).
first_diff() {
    awk -v other="$2" '(getline o < other) <= 0 || o != $0 { print NR; found = 1; exit }
                       END { if (!found) print NR + 1 }' "$1"
}

n=0
while read -r f; do
    n=$((n + 1))
    cmp -s "$a/$f" "$b/$f" && continue
    line=$(first_diff "$a/$f" "$b/$f")
    # printf, not echo: dash's echo would expand the "\n" of log texts.
    printf 'identity: %s differs at line %s\n' "${f#./}" "$line" >&2
    printf '  %s: %s\n' "$host" "$(sed -n "${line}p" "$a/$f")" >&2
    printf '  %s: %s\n' "$other" "$(sed -n "${line}p" "$b/$f")" >&2
    exit 1
done <"$host/identity/files"
rows=$(find "$a" -name '*.dump' -exec cat {} + | grep -c '^INSERT' || true)
echo "identity: $n files identical on both builds ($(wc -l <"$a/replies.txt") replies, $rows rows)"
