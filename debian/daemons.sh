# What the maintainer scripts do with daemons that run, for users and for the computer as a whole. Those of users are
# asked through each user's own systemd; where there is none, through the program that keeps the daemon running.

# tell_users VERB: to the unit of every user whose systemd runs and has not masked it.
tell_users() {
  [ ! -d /run/systemd/system ] || deb-systemd-invoke --user "$1" keldaned.service >/dev/null || true
}

# processes_of PROGRAM: whatever runs it in this root, the file that was replaced included.
processes_of() {
  for process in /proc/[0-9]*; do
    case $(readlink "$process/exe" 2>/dev/null || true) in
      "$1" | "$1 (deleted)")
        [ ! "$process/root" -ef / ] || echo "${process#/proc/}"
        ;;
    esac
  done
}

# supervisors: those who keep a daemon running in a session without systemd.
supervisors() {
  for process in $(processes_of /usr/bin/keldanectl); do
    if tr '\0' ' ' <"/proc/$process/cmdline" 2>/dev/null | grep -q 'service supervise'; then
      echo "$process"
    fi
  done
}

# tell SIGNAL PROCESS...
tell() {
  signal=$1
  shift
  for process in "$@"; do
    kill -s "$signal" "$process" 2>/dev/null || true
  done
}
