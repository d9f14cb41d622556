#!/usr/bin/env bash
# Builds the Debian package from the build folder, as `make package` does, and checks it the
# way dpkg sees it: its name, its dependencies, its files, its desktop entry and AppStream file,
# and that the programs it carries run.
#
#   package.sh BUILD_DIR VERSION
set -euo pipefail
build=$(cd "${1:?build folder}" && pwd)
version=${2:?version}
work=$(mktemp -d "${TMPDIR:-/tmp}/tarvel-package.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

(cd "$build" && cpack --config CPackConfig.cmake -B "$work/out" >"$work/cpack.log") ||
    { cat "$work/cpack.log" >&2; fail "cpack failed"; }
deb=$work/out/tarvel_${version}_$(dpkg --print-architecture).deb
[ -f "$deb" ] || fail "no $(basename "$deb"); cpack made: $(ls "$work/out")"

[ "$(dpkg-deb -f "$deb" Package)" = tarvel ] || fail "wrong package name"
[ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || fail "wrong version"
[[ $(dpkg-deb -f "$deb" Description) != *";"* ]] || fail "a list separator in the description"
depends=$(dpkg-deb -f "$deb" Depends)
# Worked out from the binaries, plus what is loaded rather than linked.
# The speech module's libraries count too, though the application only loads it.
for needed in libqt6core6 libqt6widgets6 libqt6dbus6 libxcb1 qt6-qpa-plugins libsystemd0 libqt6multimedia6 \
    libpocketsphinx3 libhunspell hunspell-dictionary; do
    [[ $depends == *"$needed"* ]] || fail "Depends lacks $needed: $depends"
done
recommends=$(dpkg-deb -f "$deb" Recommends)
for wanted in notification-daemon pocketsphinx-en-us qt6-wayland; do
    [[ $recommends == *"$wanted"* ]] || fail "Recommends lacks $wanted: $recommends"
done

contents=$(dpkg-deb -c "$deb")
for file in ./usr/bin/tarvel ./usr/bin/tarvel-edit ./usr/share/applications/zq.tarvel.desktop \
    ./usr/share/dbus-1/services/zq.tarvel.service ./usr/share/metainfo/zq.tarvel.metainfo.xml \
    ./usr/share/icons/hicolor/scalable/apps/zq.tarvel.svg ./usr/share/icons/hicolor/symbolic/apps/zq.tarvel-symbolic.svg \
    ./usr/share/doc/tarvel/LICENSE; do
    grep -q " $file\$" <<<"$contents" || fail "the package lacks $file"
done

dpkg-deb -x "$deb" "$work/root"
grep -qx 'Exec=/usr/bin/tarvel' "$work/root/usr/share/dbus-1/services/zq.tarvel.service" ||
    fail "the packaged service file does not start /usr/bin/tarvel"
desktop-file-validate "$work/root/usr/share/applications/zq.tarvel.desktop"
# zq.tarvel is the application's fixed identifier on every platform, one part short of what
# AppStream likes to see.
appstreamcli validate --no-net --override=cid-desktopapp-is-not-rdns=info \
    "$work/root/usr/share/metainfo/zq.tarvel.metainfo.xml" >/dev/null
[ "$("$work/root/usr/bin/tarvel" --version)" = "tarvel $version" ] || fail "tarvel --version"
# The packaged tarvel finds its speech module where the package puts it.
speech=$(pkg-config --variable=datadir pocketsphinx)/test/data/goforward.raw
transcript=$("$work/root/usr/bin/tarvel" transcribe "$speech") || fail "the packaged tarvel cannot transcribe"
[ "$transcript" = "go forward ten meters" ] || fail "the packaged tarvel heard: $transcript"
[ "$("$work/root/usr/bin/tarvel-edit" --version)" = "tarvel-edit $version" ] || fail "tarvel-edit --version"
echo "ok: $(basename "$deb"), $(stat -c %s "$deb") bytes"
