#!/usr/bin/env bash
# check_hardening.sh FORTIFY FILE...: fails when a binary lacks a hardening mark, read with readelf:
# position-independent (type DYN), BIND_NOW, a GNU_RELRO segment, a stack that is not executable, the
# stack protector's __stack_chk_fail among its imports and, when FORTIFY is 1, a fortified *_chk import.
# FORTIFY "off" means the build has PASSWAY_HARDEN off: exit 77, which CTest reports as skipped.
set -uo pipefail
fortify=$1
shift
[ "$fortify" != off ] || { echo "PASSWAY_HARDEN is off in this build: nothing to check"; exit 77; }

failures=0
fail() { echo "$file: $1"; failures=$((failures + 1)); }

for file in "$@"; do
    header=$(readelf -hW "$file") || { fail "not readable as ELF"; continue; }
    segments=$(readelf -lW "$file")
    stack=$(grep 'GNU_STACK' <<<"$segments")
    imports=$(readelf --dyn-syms -W "$file" | awk '$7 == "UND" { sub(/@.*/, "", $8); print $8 }')
    checked=$(grep -E '^__.+_chk$' <<<"$imports" | grep -vx '__stack_chk_fail' | tr '\n' ' ')

    grep -Eq 'Type: +DYN' <<<"$header" || fail "not position-independent (ELF type is not DYN)"
    readelf -dW "$file" | grep -Eq '\(BIND_NOW\)|\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW' \
        || fail "no BIND_NOW: symbols are bound lazily (link with -z now)"
    grep -q 'GNU_RELRO' <<<"$segments" || fail "no GNU_RELRO segment (link with -z relro)"
    [ -n "$stack" ] || fail "no GNU_STACK segment: the stack defaults to executable"
    ! grep -Eq 'RWE|E +0x' <<<"$stack" || fail "executable stack: $stack"
    grep -qx '__stack_chk_fail' <<<"$imports" || fail "no __stack_chk_fail import: no stack protector"
    [ "$fortify" != 1 ] || [ -n "$checked" ] || fail "no fortified *_chk import: not built with _FORTIFY_SOURCE"
    [ -z "$checked" ] || echo "$file: fortified calls: $checked"
done
[ "$failures" -eq 0 ] && echo "all hardening marks present in $# binaries"
[ "$failures" -eq 0 ]
