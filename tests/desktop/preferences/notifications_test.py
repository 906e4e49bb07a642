"""The notifications of the preferences program while it has no window."""

import datetime
import os
import plistlib
import re
import subprocess
import time
import unittest

from desktop import eventually, is_on
from pages_test import PagesCase
from preferences_window import CTL, TITLE


class Notifications(PagesCase):
    """A service of the desktop that records the notifications."""

    SERVICE = """
import gi, sys
from gi.repository import Gio, GLib
node = Gio.DBusNodeInfo.new_for_xml('''<node><interface name="org.freedesktop.Notifications">
<method name="Notify"><arg direction="in" type="s"/><arg direction="in" type="u"/><arg direction="in" type="s"/>
<arg direction="in" type="s"/><arg direction="in" type="s"/><arg direction="in" type="as"/><arg direction="in" type="a{sv}"/>
<arg direction="in" type="i"/><arg direction="out" type="u"/></method>
<method name="GetCapabilities"><arg direction="out" type="as"/></method></interface></node>''')
def called(bus, sender, path, interface, method, arguments, invocation):
    if method == "Notify":
        with open(sys.argv[1], "a") as stream:
            stream.write(arguments[4] + "\\n")
    invocation.return_value(GLib.Variant("(u)", (1,)) if method == "Notify" else GLib.Variant("(as)", ([],)))
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
bus.register_object("/org/freedesktop/Notifications", node.interfaces[0], called, None, None)
Gio.bus_own_name_on_connection(bus, "org.freedesktop.Notifications", 0, lambda *_: print("ready", flush=True), None)
GLib.MainLoop().run()
"""

    def setUp(self):
        super().setUp()
        self.told = os.path.join(self.place, "told")
        service = subprocess.Popen(["/usr/bin/python3", "-c", self.SERVICE, self.told], stdout=subprocess.PIPE, text=True)
        self.addCleanup(service.wait)
        self.addCleanup(service.kill)
        self.addCleanup(service.stdout.close)
        self.assertEqual(service.stdout.readline(), "ready\n")

    def notified(self):
        return self.content(self.told).splitlines() if os.path.exists(self.told) else []

    def kept(self, key):
        """A value that the program has written into the user's preferences."""
        path = os.path.join(self.environment["XDG_CONFIG_HOME"], "com.keldane.preferences.plist")
        with open(path, "rb") as stream:
            return plistlib.load(stream).get(key)

    @staticmethod
    def days_ago(days):
        """A date as property lists have it: in UTC, without a time zone."""
        return datetime.datetime.now(datetime.timezone.utc).replace(tzinfo=None) - datetime.timedelta(days=days)

    def lose_the_backup(self):
        self.back_up(self.letter)
        location = re.search(r"(?m)^Location +(.*)$", self.ctl("repository"))[1]
        os.rename(location, location + ".away")
        subprocess.run([CTL, "--bundle", self.bundle, "repository", "--probe"], env=self.environment, check=False,
                       capture_output=True, timeout=60)

    def test_trouble_is_told_without_a_window_and_once(self):
        self.lose_the_backup()
        self.open("--background")
        eventually(lambda: self.notified() == ["The backup is gone: there is none any more at its place."], self.notified)
        eventually(lambda: self.kept("Told"), "a note of what was told")
        self.program.end()
        self.open("--background")
        self.file("home/Documents/letter.txt", "changed, so that the daemon tries to store it")
        eventually(lambda: "missing" in self.ctl("status") or "gone" in self.ctl("status"), "trouble")
        time.sleep(3)  # no event says that nothing will come
        self.assertEqual(len(self.notified()), 1)
        self.assertTrue(self.program.is_running())

    def test_a_daemon_that_has_been_away_for_days_is_told(self):
        self.keldaned.terminate()
        self.remember(SetupOffered=True, DaemonReached=self.days_ago(4))
        self.open("--background")
        eventually(lambda: self.notified() == ["Nothing is backed up: the backup daemon was last reached 4 days ago."],
                   self.notified, 120)
        self.keldaned.start()
        eventually(lambda: self.kept("DaemonReached") > self.days_ago(1), "a note that it was reached")

    def test_what_is_switched_off_is_not_told(self):
        self.open()
        switch = self.program.find("check box", "The place of the backup is full, missing or wrong")
        self.assertTrue(is_on(switch, "checked"))
        subprocess.run(["xdotool", "windowsize", "--sync", self.window(TITLE), "860", "1000"], check=True, timeout=60)
        self.click(switch)
        eventually(lambda: not is_on(switch, "checked"), "the switch off")
        eventually(lambda: self.kept("TellStorage") is False, "the switch in the user's preferences")
        self.close()
        self.program.process.wait(60)
        self.lose_the_backup()
        self.open("--background")
        time.sleep(5)  # no event says that nothing will come
        self.assertEqual(self.notified(), [])


if __name__ == "__main__":
    unittest.main()
