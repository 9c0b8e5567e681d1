#!/usr/bin/env bash
# Installs every Debian package that building, testing and packaging Quorvane
# needs: zsh, fish and groff check the completions and the manual page the build
# writes, desktop-file-utils and appstream validate the desktop entries and the
# software-centre metadata an install lays out, CPack finds the package's
# libraries with file and dpkg-shlibdeps, and lintian checks the package.
# With the argument "programs", only what building and running the programs needs;
# with "fuzz", that and what builds the fuzz targets.
# Safe to run again: when everything is installed already it changes nothing.
set -euo pipefail

# What building and running the programs needs (scripts/quickstart.sh asks for
# only these, with "programs"): the compiler and the libraries, git, which the
# program runs, and the certificates its HTTPS requests are checked against.
packages=(
  build-essential g++ cmake ninja-build pkg-config git ca-certificates
  nlohmann-json3-dev libcli11-dev libfmt-dev
  libcurl4-openssl-dev libsecret-1-dev libsystemd-dev uuid-dev libicu-dev
  libcpp-httplib-dev libssl-dev tzdata
)
case "${1:-}" in
  programs) ;;
  # The fuzz targets' build (bench/fuzz.sh): clang with libFuzzer and its sanitizers.
  fuzz) packages+=(clang-16 libclang-rt-16-dev) ;;
  # What the tests and the package need besides.
  *)
    packages+=(
      libgtest-dev libgmock-dev libbenchmark-dev util-linux
      dbus-daemon gnome-keyring libsecret-tools
      nodejs npm systemd chromium
      zsh fish groff-base file dpkg-dev
      desktop-file-utils appstream lintian
    )
    ;;
esac

# Names that installed packages provide: a Node.js from another archive (such as
# NodeSource's nodejs) provides npm itself and conflicts with Debian's npm, so
# asking apt for npm there would fail.
provided=$(dpkg-query -W -f='${db:Status-Abbrev}|${Provides}\n' 2>/dev/null |
  awk -F'|' '$1 ~ /^ii/ { print $2 }' | tr ',' '\n' |
  sed -E 's/^ +//; s/ *\(.*\)//; s/:any$//' | sort -u)

missing=()
for package in "${packages[@]}"; do
  if dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    continue
  fi
  if grep -qxF "$package" <<<"$provided"; then
    continue
  fi
  missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: every package is installed"
  exit 0
fi

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "setup: these Debian packages are missing: ${missing[*]}" >&2
    echo "setup: install them as root (apt-get install ...), or install sudo, then run this again" >&2
    exit 1
  fi
  sudo_cmd=(sudo)
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update
"${sudo_cmd[@]}" apt-get install -y --no-install-recommends "${missing[@]}"
