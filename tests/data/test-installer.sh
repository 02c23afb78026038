#!/bin/sh
# Test package: TEST ONLY. The plug-in runs it as the installer with "SUDO" or "SU" and the user's
# password on standard input. It installs the fake service and the version file under the test root and
# records what it was given, so that tests can check both. Set by the test, in the environment:
#   PASSWAY_TEST_ROOT  the test plug-in's install root     FAKE_SERVICE     the service program
#   INSTALLER_EXIT     exit code (default 0; "kill": ends by SIGKILL)   INSTALLER_SLEEP  seconds to wait first (default 0)
#   INSTALLER_IGNORE_TERM  when set, ignores SIGTERM and only waits
# Its pid goes to var/run/installer.pid once it is ready for signals (SIGTERM ignored when asked).
root="$PASSWAY_TEST_ROOT"
password=$(cat)
mkdir -p "$root/etc" "$root/var/run"
printf '%s\n%s\n' "$1" "$password" > "$root/var/run/installer.log"
if [ -n "$INSTALLER_IGNORE_TERM" ]; then
    trap '' TERM
    echo $$ > "$root/var/run/installer.pid"
    exec sleep "${INSTALLER_SLEEP:-0}"
fi
# Waits so that SIGTERM ends the wait at once (and takes the sleep with it).
trap 'kill $pause 2>/dev/null; exit 143' TERM
echo $$ > "$root/var/run/installer.pid"
sleep "${INSTALLER_SLEEP:-0}" &
pause=$!
wait $pause
cp "$FAKE_SERVICE" "$root/tunvo_x86_64" && chmod 4755 "$root/tunvo_x86_64"
printf '7135.2016.429.1' > "$root/etc/version.txt"
[ "$INSTALLER_EXIT" = kill ] && kill -KILL $$
exit "${INSTALLER_EXIT:-0}"
