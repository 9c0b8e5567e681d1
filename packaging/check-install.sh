#!/usr/bin/env bash
# Checks a tree that `cmake --install` laid out: every file the desktop and the
# package managers look for is in its place, the desktop entries and the AppStream
# metadata pass their validators without a remark, every icon an entry names is
# installed, and the metadata's newest release is the version the program reports.
#
#   packaging/check-install.sh PREFIX
#
# Prints one line per fault and exits non-zero when there is any.
set -euo pipefail
prefix=${1:?usage: check-install.sh PREFIX}
faults=0
fault() {
  echo "check-install: $*" >&2
  faults=$((faults + 1))
}

apps=$prefix/share/applications
icons=$prefix/share/icons/hicolor/scalable/apps
metainfo=$prefix/share/metainfo/com.qvn.quorvane.metainfo.xml
autostart=$prefix/etc/xdg/autostart/quorvane-tray.desktop
for file in bin/quorvane bin/quorvane-mcp bin/quorvane-tray \
  share/applications/quorvane.desktop share/applications/quorvane-tray.desktop \
  share/icons/hicolor/scalable/apps/quorvane.svg \
  share/icons/hicolor/scalable/apps/quorvane-attention.svg \
  share/metainfo/com.qvn.quorvane.metainfo.xml etc/xdg/autostart/quorvane-tray.desktop \
  lib/systemd/user/quorvane.service share/man/man1/quorvane.1.gz \
  share/man/man1/quorvane-mcp.1.gz share/man/man1/quorvane-tray.1.gz \
  share/bash-completion/completions/quorvane share/zsh/vendor-completions/_quorvane \
  share/fish/vendor_completions.d/quorvane.fish \
  share/doc/quorvane/copyright share/doc/quorvane/changelog.gz; do
  [ -f "$prefix/$file" ] || fault "$file is missing"
done

# The validators print warnings and hints but exit 0 for some of them: any
# output at all is a fault.
for entry in "$apps"/quorvane*.desktop "$autostart"; do
  [ -f "$entry" ] || continue
  remarks=$(desktop-file-validate "$entry" 2>&1) || true
  [ -z "$remarks" ] || fault "desktop-file-validate: $remarks"
  icon=$(sed -n 's/^Icon=//p' "$entry")
  [ -f "$icons/$icon.svg" ] || fault "$entry names icon '$icon', which is not installed"
done
if [ -f "$autostart" ] && ! grep -qx 'X-GNOME-Autostart-enabled=true' "$autostart"; then
  fault "$autostart does not start the tray at login"
fi
if [ -f "$metainfo" ]; then
  if ! remarks=$(appstreamcli validate --no-net --pedantic "$metainfo" 2>&1) ||
    ! grep -q '^✔ Validation was successful\.$' <<<"$remarks" ||
    [ "$(wc -l <<<"$remarks")" -ne 1 ]; then
    fault "appstreamcli validate: $remarks"
  fi
  launchable=$(sed -n 's:.*<launchable type="desktop-id">\(.*\)</launchable>.*:\1:p' "$metainfo")
  [ -f "$apps/$launchable" ] || fault "the metadata launches '$launchable', which is not installed"
  release=$(sed -n 's:.*<release version="\([^"]*\)".*:\1:p' "$metainfo" | head -n 1)
fi
# The software centre and `apt changelog` show these versions: they must be the
# one the program reports.
if [ -x "$prefix/bin/quorvane" ]; then
  version=$("$prefix/bin/quorvane" --version)
  [ "${version##* }" = "${release:-}" ] ||
    fault "the newest release in the metadata is '${release:-}', the program says '$version'"
  logged=$(zcat "$prefix/share/doc/quorvane/changelog.gz" 2>/dev/null |
    sed -n '1s/^quorvane (\([^)]*\)).*/\1/p') || true
  [ "${version##* }" = "$logged" ] ||
    fault "the changelog's newest entry is '$logged', the program says '$version'"
fi
# dpkg and apt read who made the newest entry, and when, from its trailer line.
trailer=$(zcat "$prefix/share/doc/quorvane/changelog.gz" 2>/dev/null | grep -m 1 '^ -- ') || true
if [ -n "$trailer" ] && ! grep -Eq '^ -- [^<]*[^ <] <[^>@]+@[^>]+>  [A-Z][a-z]{2}, ' <<<"$trailer"; then
  fault "the changelog's newest entry does not name its maintainer and date: '$trailer'"
fi
[ "$faults" -eq 0 ]
