#!/usr/bin/env bash
# check_hardening.sh FORTIFY FILE...: fails when a binary lacks a hardening mark, read with readelf:
# position-independent (type DYN), BIND_NOW, a GNU_RELRO segment, a stack that is not executable, the
# stack protector's __stack_chk_fail among its imports and, when FORTIFY is 1, a fortified *_chk import.
# FORTIFY "off" means the build has PASSWAY_HARDEN off: exit 77, which CTest reports as skipped.
set -uo pipefail
fortify=$1
shift
if [ "$fortify" = off ]; then
    echo "PASSWAY_HARDEN is off in this build: nothing to check"
    exit 77
fi

failures=0
fail() { echo "$1: $2"; failures=$((failures + 1)); }

for file in "$@"; do
    header=$(readelf -hW "$file") || { fail "$file" "not readable as ELF"; continue; }
    dynamic=$(readelf -dW "$file")
    segments=$(readelf -lW "$file")
    imports=$(readelf --dyn-syms -W "$file" | awk '$7 == "UND" { sub(/@.*/, "", $8); print $8 }')

    grep -Eq 'Type: +DYN' <<<"$header" || fail "$file" "not position-independent (ELF type is not DYN)"
    grep -Eq '\(BIND_NOW\)|\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW' <<<"$dynamic" \
        || fail "$file" "no BIND_NOW: symbols are bound lazily (link with -z now)"
    grep -q 'GNU_RELRO' <<<"$segments" || fail "$file" "no GNU_RELRO segment (link with -z relro)"
    stack=$(grep 'GNU_STACK' <<<"$segments")
    if [ -z "$stack" ]; then
        fail "$file" "no GNU_STACK segment: the stack defaults to executable"
    elif grep -Eq 'RWE|E +0x' <<<"$stack"; then
        fail "$file" "executable stack: $stack"
    fi
    grep -qx '__stack_chk_fail' <<<"$imports" || fail "$file" "no __stack_chk_fail import: no stack protector"
    if [ "$fortify" = 1 ]; then
        checked=$(grep -E '^__.+_chk$' <<<"$imports" | grep -vx '__stack_chk_fail' | tr '\n' ' ')
        if [ -n "$checked" ]; then
            echo "$file: fortified calls: $checked"
        else
            fail "$file" "no fortified *_chk import: not built with _FORTIFY_SOURCE"
        fi
    fi
done
[ "$failures" -eq 0 ] && echo "all hardening marks present in $# binaries"
[ "$failures" -eq 0 ]
