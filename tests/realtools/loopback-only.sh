#!/usr/bin/env bash
# Runs a command in a network namespace of its own whose only interface is the loopback one,
# so nothing the command starts can reach another machine, whatever it was configured to do.
# Exits 77 (a skip for CTest) when this system does not let us make the namespace.
#
#   tests/realtools/loopback-only.sh PYTHON3 COMMAND [ARG...]
#
# PYTHON3 brings the loopback interface up (iproute2 is not among our packages).
set -euo pipefail

[ $# -ge 2 ] || { sed -n '6p' "$0" | sed 's/^# *//' >&2; exit 2; }
python=$1
shift

if [ "${_TARVEL_LOOPBACK_ONLY:-}" != 1 ]; then
    # Where the network namespace alone can be made (root), nothing else changes: in a user
    # namespace of its own a terminal cannot give its pty to the tty group, and xterm gives up.
    # --map-root-user lets an ordinary user configure the namespace it made.
    namespace=(unshare --net)
    if ! "${namespace[@]}" true 2>/dev/null; then
        namespace=(unshare --net --map-root-user)
        if ! error=$("${namespace[@]}" true 2>&1); then
            echo "loopback-only: skipped, no network namespace could be made: $error" >&2
            exit 77
        fi
    fi
    _TARVEL_LOOPBACK_ONLY=1 exec "${namespace[@]}" "$0" "$python" "$@"
fi
unset _TARVEL_LOOPBACK_ONLY

"$python" - <<'PYTHON'
import fcntl, socket, struct
SIOCGIFFLAGS, SIOCSIFFLAGS, IFF_UP = 0x8913, 0x8914, 0x1
with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
    flags = struct.unpack("16sh", fcntl.ioctl(s, SIOCGIFFLAGS, struct.pack("16sh", b"lo", 0)))[1]
    fcntl.ioctl(s, SIOCSIFFLAGS, struct.pack("16sh", b"lo", flags | IFF_UP))
PYTHON
exec "$@"
