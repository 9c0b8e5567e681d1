#!/usr/bin/env bash
# Tries the README's first command the way a new user meets it: on a Debian 12
# system with nothing installed (debootstrap's minimal base, entered with chroot),
# as its root user, with a code folder holding one repository and nobody at the
# terminal. Then checks, from a new login shell, that `quorvane today` works, the
# daemon answers and `quorvane-mcp --version` works; that a second run changes
# nothing; and that a build error in its copy of the checkout is shown in full.
# Needs root (debootstrap, mount, chroot) and Debian's mirror; prints each stage's
# duration.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
source "$root/scripts/stages.sh"
stages_started=$SECONDS

if [ "$(id -u)" -ne 0 ]; then
  echo "fresh-debian: run as root: it builds a Debian system in a folder and enters it" >&2
  exit 2
fi
if ! command -v debootstrap >/dev/null; then
  DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends debootstrap
fi

work="$(mktemp -d "${TMPDIR:-/var/tmp}/quorvane-fresh.XXXXXX")"
system="$work/debian"
mounted=()
cleanup() {
  # The daemon the quick start left running is stopped before its system goes.
  if [ -x "$system/usr/local/bin/quorvane" ]; then
    inside quorvane service stop >/dev/null 2>&1 || true
  fi
  for ((i = ${#mounted[@]} - 1; i >= 0; i--)); do
    umount -l "${mounted[$i]}" 2>/dev/null || true
  done
  rm -rf "$work"
}
trap cleanup EXIT

# A command run inside, as a new login shell of root would run it.
inside() {
  chroot "$system" /usr/bin/env -i HOME=/root USER=root LANG=C.UTF-8 TERM=dumb \
    PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    bash -lc "$*" </dev/null
}

bootstrap() {
  debootstrap --variant=minbase bookworm "$system" http://deb.debian.org/debian >"$work/debootstrap.log"
}
stage "debootstrap Debian 12" bootstrap
mount -t proc proc "$system/proc" && mounted+=("$system/proc")
mount --bind /dev "$system/dev" && mounted+=("$system/dev")
cp /etc/resolv.conf "$system/etc/resolv.conf"

# The checkout as it stands, without build folders, and a code folder with one
# repository.
mkdir -p "$system/root/quorvane"
(cd "$root" && git ls-files -z -co --exclude-standard | tar --null -T - -c) |
  tar -x -C "$system/root/quorvane"
git init -q "$system/root/code/hello"
echo "hello" >"$system/root/code/hello/README"
git -C "$system/root/code/hello" add README
git -C "$system/root/code/hello" -c user.name=Person -c user.email=person@example.com \
  commit -q -m "Say hello"

# The README's first command, word for word.
command=$(sed -n '/^```sh$/{n;p;q}' "$root/README.md")
echo "the README's first command: $command"
run_quickstart() {
  inside "cd /root/quorvane && $command" 2>&1 | tee "$work/quickstart.log"
  return "${PIPESTATUS[0]}"
}
stage "first run" run_quickstart

check() {
  if "$@"; then echo "ok: ${*: -1}"; else echo "FAILED: ${*: -1}" >&2; exit 1; fi
}
grep_quiet() { grep -q -- "$1" "$2"; }
today() { inside "quorvane today --no-scan" && inside "quorvane repos list"; }
stage "quorvane today from a new login shell" today | tee "$work/today.log"
check grep_quiet /root/code/hello "$work/today.log"
inside "quorvane service status" | tee "$work/status.log"
check grep_quiet "daemon: running" "$work/status.log"
inside "quorvane-mcp --version"
inside "command -v quorvane-tray"
# Without a display the link is printed rather than opened.
check grep_quiet "http://127.0.0.1:.*to=today" "$work/quickstart.log"

stage "second run" run_quickstart
check grep_quiet "0 files installed" "$work/quickstart.log"
check grep_quiet "already running" "$work/quickstart.log"

# A build error put into this system's copy of the checkout: only that file is
# compiled again, and its message must reach the person.
main_cpp="$system/root/quorvane/src/cli/main.cpp"
cp "$main_cpp" "$work/main.cpp"
sed -i '1i #error a build error put here on purpose' "$main_cpp"
broken_build() {
  local status=0
  inside "cd /root/quorvane && $command" >"$work/broken.log" 2>&1 || status=$?
  cp "$work/main.cpp" "$main_cpp"
  if [ "$status" -eq 0 ]; then
    echo "the broken checkout built" >&2
    return 1
  fi
}
stage "a broken build" broken_build
check grep_quiet "a build error put here on purpose" "$work/broken.log"
check grep_quiet "the build failed" "$work/broken.log"
stage_total
