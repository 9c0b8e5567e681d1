#!/usr/bin/env bash
# Installs what is missing, builds every Quorvane program, installs them with
# their manual, completions, desktop entries and icon, chooses the folders to
# scan, leaves the daemon running and opens the dashboard. Run it again after an
# update: what is already right stays as it is.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"

usage() {
  cat <<'EOF'
Usage: bash scripts/quickstart.sh [--system] [--no-open] [FOLDER...]

Builds Quorvane and installs quorvane, quorvane-mcp and quorvane-tray into
~/.local/bin (with --system, or when run as root: /usr/local/bin), with the manual
page, shell completions, desktop entries and icon. Then it adds FOLDER... as scan
folders: every Git repository under them is tracked with its last 90 days of
history. Without FOLDER it offers the usual code folders it finds (~/code, ~/src,
~/projects, ~/git, ~/work, ~/dev), or asks. It ends with the daemon running (as
a systemd user service when your service manager answers, else in the
background) and today's work shown, in the terminal and in the dashboard.

  --system   install under /usr/local for every user (through sudo)
  --no-open  do not open the dashboard at the end
EOF
}

system=0
open=1
folders=()
while [ $# -gt 0 ]; do
  case "$1" in
    --system) system=1 ;;
    --no-open) open=0 ;;
    -h | --help) usage; exit 0 ;;
    -*) echo "quickstart: unknown option $1 (see --help)" >&2; exit 2 ;;
    *) folders+=("$1") ;;
  esac
  shift
done
# Folders are read from where the command was typed, before anything changes folder.
for i in "${!folders[@]}"; do
  if [ ! -d "${folders[$i]}" ]; then
    echo "quickstart: ${folders[$i]} is not a folder" >&2
    exit 2
  fi
  folders[$i]="$(cd "${folders[$i]}" && pwd)"
done

# Root's login shell on Debian does not put ~/.local/bin on its PATH.
if [ "$(id -u)" -eq 0 ]; then
  system=1
fi
sudo_cmd=()
if [ "$system" -eq 1 ]; then
  prefix=/usr/local
  if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
  fi
else
  prefix="$HOME/.local"
fi
bindir="$prefix/bin"

step() { printf '\n==> %s\n' "$*"; }
# A step that fails says so, rather than ending the run without a word.
trap 'echo "quickstart: stopped: the command on line $LINENO of scripts/quickstart.sh failed (exit $?)" >&2' ERR
took() { printf '    (%d s)\n' "$((SECONDS - $1))"; }

step "Installing the Debian packages that building and running Quorvane needs"
bash "$root/scripts/setup.sh" programs

step "Building quorvane, quorvane-mcp and quorvane-tray in $root/build-release"
started=$SECONDS
configure_log="$(mktemp)"
trap 'rm -f "$configure_log"' EXIT
if ! (cd "$root" && cmake --preset release -DQUORVANE_TESTS=OFF >"$configure_log" 2>&1); then
  cat "$configure_log" >&2
  echo "quickstart: configuring the build failed: CMake's messages are above" >&2
  exit 1
fi
jobs=$(nproc 2>/dev/null || echo 2)
if [ ! -f "$root/build-release/bin/quorvane" ]; then
  echo "    The first build takes a few minutes ($jobs jobs at a time); the next ones only rebuild what changed."
fi
# Ninja prints one line per step, and the compiler's messages in full when one fails.
if ! (cd "$root" && cmake --build --preset release -j "$jobs"); then
  echo "quickstart: the build failed: the compiler's messages are above" >&2
  exit 1
fi
took "$started"

step "Installing into $prefix"
install_log="$(mktemp)"
trap 'rm -f "$configure_log" "$install_log"' EXIT
if ! "${sudo_cmd[@]}" cmake --install "$root/build-release" --prefix "$prefix" \
  >"$install_log" 2>&1; then
  cat "$install_log" >&2
  echo "quickstart: installing into $prefix failed" >&2
  exit 1
fi
changed=$(grep -c -- '-- Installing:' "$install_log" || true)
unchanged=$(grep -c -- '-- Up-to-date:' "$install_log" || true)
sed -n 's/^-- Installing: /    /p' "$install_log"
echo "    $changed files installed, $unchanged already up to date"
# The tray starts with the desktop session: the package puts its entry in
# /etc/xdg/autostart, a person's own install in ~/.config/autostart.
autostart="$prefix/etc/xdg/autostart/quorvane-tray.desktop"
if [ -f "$autostart" ]; then
  if [ "$system" -eq 1 ]; then
    target=/etc/xdg/autostart
  else
    target="${XDG_CONFIG_HOME:-$HOME/.config}/autostart"
  fi
  if ! cmp -s "$autostart" "$target/quorvane-tray.desktop"; then
    "${sudo_cmd[@]}" mkdir -p "$target"
    "${sudo_cmd[@]}" cp "$autostart" "$target/quorvane-tray.desktop"
    echo "    the tray starts at login: $target/quorvane-tray.desktop"
  fi
fi

quorvane="$bindir/quorvane"
# What a new login shell's PATH holds: Debian's ~/.profile adds ~/.local/bin once
# that folder exists.
login_path="$(env -i HOME="$HOME" USER="${USER:-$(id -un)}" SHELL=/bin/bash bash -lc 'printf %s "$PATH"' 2>/dev/null </dev/null || true)"
case ":$login_path:" in
  *":$bindir:"*)
    case ":$PATH:" in
      *":$bindir:"*) ;;
      *) echo "    $bindir is on the PATH of new terminals; in this one, run: export PATH=\"$bindir:\$PATH\"" ;;
    esac
    ;;
  *)
    echo "quickstart: warning: $bindir is not on your PATH, so typing quorvane will not find it." >&2
    echo "quickstart: add this line to ~/.profile (or your shell's startup file) and log in again:" >&2
    echo "    export PATH=\"$bindir:\$PATH\"" >&2
    ;;
esac

step "Choosing the folders to scan"
if [ ${#folders[@]} -eq 0 ]; then
  # A second run keeps the folders chosen the first time.
  already=$("$quorvane" folders list --json | { grep -o '"[^"]*"' || true; } | tr -d '"' | paste -sd ' ')
  if [ -n "${already// /}" ]; then
    echo "    scan folders already chosen: $already"
  else
    found=()
    for candidate in code src projects git work dev; do
      if [ -d "$HOME/$candidate" ]; then
        found+=("$HOME/$candidate")
      fi
    done
    for candidate in "${found[@]}"; do
      count=$(find "$candidate" -maxdepth 4 -name .git -prune -print 2>/dev/null | wc -l)
      if [ "$count" -eq 1 ]; then
        echo "    found $candidate (1 Git repository)"
      else
        echo "    found $candidate ($count Git repositories)"
      fi
    done
    if [ -t 0 ]; then
      if [ ${#found[@]} -gt 0 ]; then
        read -r -p "Track the repositories under these folders? Press Enter, or type other folders: " answer || answer=""
      else
        read -r -p "Which folders hold your Git repositories? (separate them with spaces; Enter for none): " answer || answer=""
      fi
      if [ -n "$answer" ]; then
        read -r -a typed <<<"$answer"
        found=()
        for folder in "${typed[@]}"; do
          folder="${folder/#\~/$HOME}"
          if [ -d "$folder" ]; then
            found+=("$(cd "$folder" && pwd)")
          else
            echo "    $folder is not a folder: left out" >&2
          fi
        done
      fi
    elif [ ${#found[@]} -gt 0 ]; then
      echo "    nobody at the terminal to ask: scanning these"
    fi
    folders=("${found[@]}")
    if [ ${#folders[@]} -eq 0 ]; then
      echo "    no folder chosen: add one later with 'quorvane folders add DIR', or in the dashboard"
    fi
  fi
fi
if [ ${#folders[@]} -gt 0 ]; then
  "$quorvane" folders add "${folders[@]}"
fi

step "Starting the daemon"
if command -v systemctl >/dev/null && systemctl --user show-environment >/dev/null 2>&1; then
  "$quorvane" service install --replace
else
  "$quorvane" service start
fi

step "Today"
# The first look tracks every repository found under the scan folders and reads
# its recent history; then it scans and shows the day.
"$quorvane" today

# In a desktop session the tray shows at once rather than from the next login.
if [ -n "${DBUS_SESSION_BUS_ADDRESS:-}" ] && [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] &&
  [ -x "$bindir/quorvane-tray" ] && ! pgrep -x -u "$(id -u)" quorvane-tray >/dev/null 2>&1; then
  setsid "$bindir/quorvane-tray" >/dev/null 2>&1 </dev/null &
  echo "    started the tray icon"
fi

if [ "$open" -eq 1 ]; then
  step "The dashboard"
  "$quorvane" open || echo "    open it later with: quorvane open"
fi
