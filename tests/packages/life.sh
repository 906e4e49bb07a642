# The life of the packages, from installation to removal, within a fresh root: /packages/first is installed and used, upgraded
# to /packages/second, and removed.
set -euo pipefail

say() { printf '== packages: %s\n' "$*"; }
fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}
# eventually COMMAND...: repeats the command for up to two minutes until it succeeds.
eventually() {
  for _ in $(seq 600); do
    "$@" >/dev/null 2>&1 && return 0
    sleep 0.2
  done
  fail "\"$*\" did not come about."
}

# processes_with WORDS: the processes whose command line contains the words, except this shell.
processes_with() {
  local process
  for process in /proc/[0-9]*; do
    if [[ ${process#/proc/} != "$$" && $({ tr '\0' ' ' <"$process/cmdline"; } 2>/dev/null) == *"$1"* && "$process/root" -ef / ]]; then
      echo "${process#/proc/}"
    fi
  done
}

say "installing"
apt-get update -qq
apt-get install -y -qq --no-install-recommends /packages/first/keldane_*.deb >/dev/null
for program in keldaned keldanectl keldane-menu; do
  "$program" --version >/dev/null || fail "$program does not run"
done
[[ -e /etc/systemd/user/default.target.wants/keldaned.service ]] || fail "the user unit is not enabled"
[[ ! -e /etc/systemd/system/multi-user.target.wants/keldaned.service ]] || fail "the system unit is enabled"
[[ $(readlink -f /usr/lib/*/keldane/plugins/Keldane.plugin/Contents/Info.plist) == /etc/keldane/Keldane.plist ]] ||
  fail "the bundle's information does not lie below /etc"

say "a daemon of one user, without systemd"
useradd --create-home person
user=$(id -u person)
mkdir -p "/run/user/$user"
chown person: "/run/user/$user"
chmod 700 "/run/user/$user"
as_person() { runuser -u person -- env HOME=/home/person XDG_RUNTIME_DIR="/run/user/$user" "$@"; }
data=/home/person/.local/share/keldane
as_person sh -c 'echo "Dear reader," >~/letter.txt'
as_person keldanectl service start
eventually as_person keldanectl status
supervisor=$(as_person keldanectl service status --json | sed 's/.*"process":\([0-9]*\).*/\1/')
as_person keldanectl add /home/person/letter.txt >/dev/null
as_person keldanectl watch --until-done >/dev/null
as_person keldane-menu show /home/person/letter.txt | grep -q "Backed up" || fail "the letter is not backed up"
key=$(sha256sum "$data/key")
daemon_of() { tr -d ' ' <"/proc/$1/task/$1/children"; }
daemon=$(daemon_of "$supervisor")

say "a file manager that has the plug-in loaded"
mkfifo /packages/steps
as_person keldane-menu script </packages/steps >/packages/answers 2>/packages/errors &
exec 9>/packages/steps
plugin_is_loaded() { grep -l '/usr/lib/.*/KeldaneCMM.so' /proc/[0-9]*/maps 2>/dev/null || true; }
examine() {
  local before
  before=$(wc -l </packages/answers)
  printf '%s\n' '{"do":"examine","paths":["/home/person/letter.txt"]}' '{"do":"cleanup"}' >&9
  eventually sh -c "[ \$(wc -l </packages/answers) -ge $((before + 2)) ]"
  tail -n 2 /packages/answers
}
echo '{"do":"load"}' >&9
examine | grep -q "Backed up" || fail "the file manager shows no menu"
host=$(plugin_is_loaded | tr -dc 0-9)
[[ -n $host ]] || fail "the plug-in is not mapped"

say "upgrading"
apt-get install -y -qq --no-install-recommends /packages/second/keldane_*.deb >/dev/null
eventually sh -c "! [ -e /proc/$daemon ]"
eventually as_person keldanectl status
[[ $(as_person keldanectl service status --json) == *"\"process\":$supervisor"* ]] || fail "another process keeps the daemon running"
[[ $(readlink "/proc/$(daemon_of "$supervisor")/exe") == /usr/bin/keldaned ]] || fail "the old daemon goes on"
[[ $(readlink "/proc/$supervisor/exe") == /usr/bin/keldanectl ]] || fail "the old keldanectl goes on"
[[ $(sha256sum "$data/key") == "$key" ]] || fail "the key has changed"
[[ -e /etc/systemd/user/keldaned.service.wants/keldane-power.service ]] || fail "what tells of the power is not enabled"
as_person keldanectl versions /home/person/letter.txt | grep -q 1 || fail "the catalogue is lost"
as_person keldane-menu show /home/person/letter.txt | grep -q "Backed up" || fail "the rule is lost"
examine >/dev/null
kill -0 "$host" || fail "the upgrade ended the file manager"
examine | grep -q "Backed up" || fail "the file manager found no way back to the daemon"

say "a daemon for all users"
as_person keldanectl service stop
keldaned --system  # it goes into the background
sed -i 's|${XDG_RUNTIME_DIR}|/run|' /etc/keldane/Keldane.plist
keldanectl status >/dev/null || fail "root does not reach it"
as_person keldanectl status >/dev/null || fail "the user does not reach it"
[[ -S /run/keldane/keldaned.sock && -e /var/lib/keldane/store.sqlite ]] || fail "it lies elsewhere"

say "examples for developers"
apt-get install -y -qq --no-install-recommends /packages/second/keldane-dev_*.deb g++ pkg-config >/dev/null
examples=/usr/share/doc/keldane-dev/examples
g++ -O0 "$examples/host.cpp" $(pkg-config --cflags --libs keldane-host) -o /packages/host
g++ -O0 "$examples/daemon.cpp" $(pkg-config --cflags --libs keldane-daemon) -o /packages/daemon
mkdir -m 755 /packages/place
/packages/daemon /packages/place/socket &
eventually test -S /packages/place/socket
sed -i 's|/run/keldane/keldaned.sock|/packages/place/socket|' /etc/keldane/Keldane.plist
/packages/host /home/person/letter.txt | grep -q "Known to the example" || fail "the examples do not talk to each other"

say "removing"
as_person keldanectl service start
eventually test -S "/run/user/$user/keldane/keldaned.sock"
apt-get remove -y keldane >/packages/removal 2>&1
grep -q "~/.local/share/keldane" /packages/removal || fail "nobody says where the data is"
# Each process may take a moment to end.
is_gone() { [[ -z $(processes_with "$1") ]]; }
eventually is_gone keldaned
eventually is_gone "service supervise"
[[ $(sha256sum "$data/key") == "$key" && -e /var/lib/keldane/store.sqlite ]] || fail "data is lost"
kill -0 "$host" || fail "the removal ended the file manager"
examine >/dev/null
apt-get purge -y -qq keldane >/dev/null
[[ -e $data/key && -e /var/lib/keldane/key && ! -e /etc/keldane/Keldane.plist ]] || fail "purging took the wrong things"
exec 9>&-
say "all is well"
