#!/usr/bin/env bash
# Checks the Debian package that `make deb` built in BUILD_DIR:
#  1. its Depends (computed by dpkg-shlibdeps) resolve against this machine's
#     Debian archive (apt-get --simulate, as a fresh install would);
#  2. it installs with dpkg into a fresh, empty root, and the installed
#     `klipora --version` and `klipora status` run (with this machine's
#     libraries: the empty root has none, so its dependencies are forced);
#  3. the installed user unit passes `systemd-analyze verify`;
#  4. lintian reports no error (warnings are printed).
set -euo pipefail
build=${1:-build}
deb=$(ls -t "$build"/klipora_*_amd64.deb | head -n 1)
echo "test_deb: $deb"
dpkg-deb --field "$deb" Package Version Depends Recommends

echo "test_deb: resolving Depends against the archive"
apt-get install --simulate --no-install-recommends "./$deb" >"$build/deb-simulate.log" 2>&1 || {
  cat "$build/deb-simulate.log"; exit 1; }
grep -q '^Inst klipora\|klipora is already the newest' "$build/deb-simulate.log" || {
  cat "$build/deb-simulate.log"; exit 1; }

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
echo "test_deb: installing into the fresh root $root"
dpkg --root="$root" --force-depends --force-script-chrootless --log=/dev/null -i "$deb" >/dev/null
dpkg --root="$root" -L klipora
test -x "$root/usr/bin/klipora"
test -s "$root/usr/share/man/man1/klipora.1.gz"
test -s "$root/usr/share/bash-completion/completions/klipora"
test -s "$root/usr/share/zsh/vendor-completions/_klipora"
test -s "$root/usr/lib/systemd/user/klipora.service"

home=$(mktemp -d)
"$root/usr/bin/klipora" --version
HOME="$home" "$root/usr/bin/klipora" --home "$home/lib" status
rm -rf "$home"
man -l "$root/usr/share/man/man1/klipora.1.gz" 2>/dev/null | grep -q "klipora export" ||
  zcat "$root/usr/share/man/man1/klipora.1.gz" | grep -q 'klipora export'
bash -c "source '$root/usr/share/bash-completion/completions/klipora' && complete -p klipora" >/dev/null

# systemd-analyze cannot reach a user instance here, so the installed unit
# is verified as a file, pointed at the binary and manual page in the root.
echo "test_deb: systemd-analyze verify"
units=$(mktemp -d)
sed "s|/usr/bin/klipora|$root/usr/bin/klipora|" "$root/usr/lib/systemd/user/klipora.service" \
  >"$units/klipora.service"
MANPATH="$root/usr/share/man" systemd-analyze verify "$units/klipora.service"
rm -rf "$units"

echo "test_deb: lintian"
lintian --fail-on error --info "$deb"
echo "test_deb: ok"
