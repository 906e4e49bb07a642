# A fresh root of a release, for a script that sources this. Root only.

# make_root RELEASE FOLDER [MIRROR]: a release that is none of Debian's is Ubuntu's. debootstrap makes all of these alike, by
# the recipe of an early one, and knows the newer ones by no name of their own.
make_root() {
  local options=() origin=("${@:3}")
  if ! [[ $1 =~ ^(bookworm|trixie|forky|sid)$ ]]; then
    options=(--components=main,universe)
    origin=("${3:-http://archive.ubuntu.com/ubuntu}" gutsy)
    [[ -e /usr/share/keyrings/ubuntu-archive-keyring.gpg ]] ||
      echo "Ubuntu's keyring is not installed, so nobody checks who signed the first packages."
  fi
  debootstrap --variant=minbase "${options[@]}" "$1" "$2" "${origin[@]}" >"$2.log" 2>&1 || {
    tail -n 20 "$2.log" >&2
    return 1
  }
  rm -f "$2.log"
  chmod 755 "$2"  # it may belong to its maker alone, and other users must be able to enter it
  echo force-unsafe-io >"$2/etc/dpkg/dpkg.cfg.d/fresh-root"  # it is thrown away, so it need not survive a power failure
  mount -t proc proc "$2/proc"
  mkdir -p "$2/dev/shm"
  mount -t tmpfs tmpfs "$2/dev/shm"
  mkdir -p "$2/dev/pts"
  mount -t devpts -o newinstance,ptmxmode=0666,mode=0620 devpts "$2/dev/pts"
  # No service starts in it by itself.
  printf '#!/bin/sh\nexit 101\n' >"$2/usr/sbin/policy-rc.d"
  chmod 755 "$2/usr/sbin/policy-rc.d"
}

# in_root FOLDER COMMAND...
in_root() {
  local root=$1
  shift
  chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"
}

# remove_root FOLDER: ends everything that still runs in it and removes it.
remove_root() {
  local process
  for process in /proc/[0-9]*; do
    if [[ $(readlink "$process/root" 2>/dev/null) == "$1" ]]; then
      kill -KILL "${process#/proc/}" 2>/dev/null || true
    fi
  done
  for mounted in dev/pts dev/shm proc; do
    while mountpoint -q "$1/$mounted"; do
      umount "$1/$mounted" 2>/dev/null || sleep 0.2
    done
  done
  rm -rf --one-file-system "$1"
}
