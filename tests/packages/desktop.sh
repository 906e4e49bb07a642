# The installed packages in a real file manager, within a fresh root: /packages/first is installed and used, upgraded to
# /packages/second, and removed while the file manager runs. $1 is the file manager's name.
set -euo pipefail

manager=$1
say() { printf '== packages: %s\n' "$*"; }

say "a desktop with $manager"
apt-get install -y -qq --no-install-recommends "$manager" xvfb xauth dbus dbus-x11 at-spi2-core python3-pyatspi \
  gir1.2-atspi-2.0 xdotool openbox adwaita-icon-theme librsvg2-common libglib2.0-bin >/dev/null
# The packages that the script installs and upgrades together, as a person would.
packages_in() { echo "/packages/$1"/keldane_*.deb "/packages/$1/keldane-$manager"_*.deb; }
# shellcheck disable=SC2046
apt-get install -y -qq --no-install-recommends $(packages_in first) >/dev/null

id guest >/dev/null 2>&1 || useradd --create-home guest
mkdir -p /tmp/.X11-unix
chmod 1777 /tmp/.X11-unix
coproc DESKTOP {
  runuser -u guest -- env HOME=/home/guest KELDANE_INSTALLED=1 KELDANE_BUILD=/nowhere PYTHONPATH=/packages/desktop \
    python3 -B -W ignore /packages/file_manager.py "$manager"
}
script=$DESKTOP_PID
answers=${DESKTOP[0]} words=${DESKTOP[1]}
expect() {
  local line=
  read -r line <&"$answers" || true
  if [[ $line != "$1" ]]; then
    echo "FAILED: \"$1\" was expected, and \"$line\" came" >&2
    exit 1
  fi
}
expect shown
say "upgrading under it"
# shellcheck disable=SC2046
apt-get install -y -qq --no-install-recommends $(packages_in second) >/dev/null
echo upgraded >&"$words"
expect "still there"
say "removing under it"
apt-get remove -y keldane >/dev/null
echo removed >&"$words"
expect "still there"
wait "$script"
say "$manager went on through both"
