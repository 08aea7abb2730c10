# shellcheck shell=bash
# Windows programs on this system. Sourced, by verbs whose packages have the section windows.

# A Wine of the build's own: no display is needed, none of the user's settings are touched.
export WINEPREFIX=$PWD/build/wine WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml=' # neither is asked for
wine=$(PATH=$PATH:/usr/lib/wine command -v wine64)
wineserver=$(PATH=$PATH:/usr/lib/wine command -v wineserver)

# Starts it for as long as the verb runs: each program alone would start and end it.
start_wine() {
    mkdir -p "$WINEPREFIX"
    trap '"$wineserver" -k || true' EXIT
    "$wineserver" -p
    if [ ! -e "$WINEPREFIX/ready" ]; then
        run "$wine" wineboot -i
        # Top-level windows exist without a display too; in the next desktop, since this one has begun without.
        run "$wine" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f
        "$wineserver" -k
        "$wineserver" -w
        "$wineserver" -p
        touch "$WINEPREFIX/ready"
    fi
}
