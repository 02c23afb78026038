#!/usr/bin/env bash
# check_install.sh BUILD_DIR CONSUMER_DIR: stages installs of BUILD_DIR in a temporary folder and checks
# what lands where: a plain install (plugin and tools), the user-plugin component (HOME's
# .mozilla/plugins) and the dev component, against which it builds and runs the consumer program
# twice: as a CMake project with find_package(Passway), and by hand with pkg-config's passway.pc.
set -euo pipefail
build=$1 consumer=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# A plain install under /usr: the plug-in in lib/mozilla/plugins literally, never a multiarch folder.
DESTDIR="$work/default" cmake --install "$build" --prefix /usr >/dev/null
(cd "$work/default" && find . -type f | sort) >"$work/default.list"
for file in ./usr/lib/mozilla/plugins/libtunvo_plugin.so ./usr/bin/passway-sign \
            ./usr/share/doc/passway-plugin/README.md ./usr/share/doc/passway-plugin/portal.md; do
    grep -qx "$file" "$work/default.list" || { echo "plain install lacks $file:"; cat "$work/default.list"; exit 1; }
done
if grep -E '\.a$|/include/|/cmake/|\.pc$' "$work/default.list"; then echo "plain install holds dev files"; exit 1; fi

HOME="$work/home" cmake --install "$build" --component user-plugin >/dev/null
[ -f "$work/home/.mozilla/plugins/libtunvo_plugin.so" ] || { echo "user-plugin: not in HOME/.mozilla/plugins"; exit 1; }

cmake --install "$build" --component dev --prefix "$work/prefix" >/dev/null
if [ -e "$work/prefix/lib/mozilla" ] || [ -e "$work/prefix/bin" ]; then
    echo "the dev component installed the plug-in or the tools:"; find "$work/prefix" -type f; exit 1
fi
for header in String list Encoding MD5 HMAC Signature ClientData DeviceInfo; do
    [ -f "$work/prefix/include/passway/$header" ] || { echo "missing header: include/passway/$header"; exit 1; }
done
if grep -rqs PasswayConfig.h "$work/prefix"; then
    echo "an installed file names the build's generated header:"; grep -rl PasswayConfig.h "$work/prefix"; exit 1
fi

echo "== find_package(Passway)"
cmake -S "$consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"

echo "== pkg-config passway"
pc_dir=$(dirname "$(find "$work/prefix" -name passway.pc)")
flags=$(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs passway)
echo "flags: $flags"
# shellcheck disable=SC2086  # the flags are words
${CXX:-c++} -std=c++17 -o "$work/by-pkg-config" "$consumer/main.cpp" $flags
"$work/by-pkg-config"
