"""keldane-power on a system bus of its own, with services that the test controls, and the daemon's reaction."""

import json
import os
import re
import signal
import subprocess
import unittest

import dbus
import dbusmock

from harness import PATIENCE, Case, Keldaned

CTL = os.environ["KELDANECTL"]
POWER = os.environ["KELDANE_POWER"]

UPOWER, DEVICE = "org.freedesktop.UPower", "org.freedesktop.UPower.Device"
DISPLAY = "/org/freedesktop/UPower/devices/DisplayDevice"
NETWORK, NETWORK_PATH = "org.freedesktop.NetworkManager", "/org/freedesktop/NetworkManager"
PROFILES, PROFILES_PATH = "org.freedesktop.UPower.PowerProfiles", "/org/freedesktop/UPower/PowerProfiles"
OLD_PROFILES, OLD_PROFILES_PATH = "net.hadess.PowerProfiles", "/net/hadess/PowerProfiles"

UNKNOWN, YES, NO, GUESS_YES, GUESS_NO = map(dbus.UInt32, range(5))


class Power(Case):
    def setUp(self):
        super().setUp()
        configuration = os.path.join(self.place, "bus.conf")
        with open(configuration, "w", encoding="ascii") as stream:
            stream.write(f"<busconfig><type>system</type><listen>unix:path={self.place}/bus</listen>"
                         "<policy context='default'><allow send_destination='*' eavesdrop='true'/>"
                         "<allow eavesdrop='true'/><allow own='*'/></policy></busconfig>")
        self.bus_command = ["dbus-daemon", "--nofork", "--nopidfile", "--config-file", configuration]
        self.address = f"unix:path={self.place}/bus"
        self.environment["DBUS_SYSTEM_BUS_ADDRESS"] = self.address
        self.files = self.folder(".")
        self.keldaned = Keldaned(self)

    def begin(self, command):
        process = subprocess.Popen(command, env=self.environment, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                   text=True)

        def end():
            if process.poll() is None:
                process.kill()
            process.wait(PATIENCE)
            process.stderr.close()
        self.addCleanup(end)
        return process

    def start_bus(self):
        self.bus = self.begin(self.bus_command)
        self.eventually(self.is_connected, "the bus")
        self.addCleanup(self.connection.close)

    def is_connected(self):
        try:
            self.connection = dbus.bus.BusConnection(self.address)
            return True
        except dbus.exceptions.DBusException:  # there is no socket yet, or nobody listens
            return False

    def service(self, name, path, interface, **properties):
        """Starts a service with one object."""
        process = self.begin(["/usr/bin/python3", "-m", "dbusmock", "--system", name, path, interface])
        self.eventually(lambda: self.connection.name_has_owner(name), name)
        self.connection.get_object(name, path).AddProperties(interface, dbus.Dictionary(properties, signature="sv"),
                                                             dbus_interface=dbusmock.MOCK_IFACE)
        return process

    def set(self, name, path, interface, **properties):
        self.connection.get_object(name, path).UpdateProperties(
            interface, dbus.Dictionary(properties, signature="sv"), dbus_interface=dbusmock.MOCK_IFACE)

    def battery(self, percent, on_battery=True, present=True):
        process = self.service(UPOWER, "/org/freedesktop/UPower", UPOWER, OnBattery=on_battery)
        self.connection.get_object(UPOWER, "/org/freedesktop/UPower").AddObject(
            DISPLAY, DEVICE, dbus.Dictionary({"Percentage": dbus.Double(percent), "IsPresent": present}, signature="sv"),
            dbus.Array([], signature="(ssss)"), dbus_interface=dbusmock.MOCK_IFACE)
        return process

    def power(self, *arguments):
        return self.begin([POWER, "--bundle", self.bundle, *arguments])

    def says(self, process, text):
        self.eventually(lambda: text in process.stderr.readline(), text)

    def seen(self):
        return subprocess.run([POWER, "--show"], env=self.environment, capture_output=True, check=True, text=True,
                              timeout=PATIENCE).stdout

    def ctl(self, *arguments):
        return subprocess.run([CTL, "--bundle", self.bundle, *arguments], env=self.environment, capture_output=True,
                              check=True, text=True, timeout=PATIENCE).stdout

    def state(self):
        return json.loads(self.ctl("status", "--json"))["state"]

    def rests(self, reason):
        self.eventually(lambda: self.state().get("restingBecause") == reason, f"{reason!r} of {self.state()}")

    def test_what_the_services_say_is_understood(self):
        self.start_bus()
        self.assertEqual(re.findall(r"(\S+)$", self.seen(), re.MULTILINE), ["no"] * 3, "without any service")
        self.battery(57.9)
        self.service(NETWORK, NETWORK_PATH, NETWORK, Metered=YES)
        self.service(PROFILES, PROFILES_PATH, PROFILES, ActiveProfile="power-saver")
        self.assertRegex(self.seen(), r"On battery +57 %\nMetered network +yes\nPower-saver mode +yes\n")
        for value, word in ((UNKNOWN, "no"), (NO, "no"), (GUESS_YES, "yes"), (GUESS_NO, "no")):
            self.set(NETWORK, NETWORK_PATH, NETWORK, Metered=value)
            self.assertRegex(self.seen(), f"Metered network +{word}\n")
        self.set(PROFILES, PROFILES_PATH, PROFILES, ActiveProfile="balanced")
        self.set(UPOWER, DISPLAY, DEVICE, IsPresent=False)
        self.assertRegex(self.seen(), r"On battery +no\n(.*\n)Power-saver mode +no\n")

    def test_the_profiles_under_their_old_name(self):
        self.start_bus()
        self.service(OLD_PROFILES, OLD_PROFILES_PATH, OLD_PROFILES, ActiveProfile="power-saver")
        self.assertRegex(self.seen(), r"Power-saver mode +yes\n")

    def test_the_backup_rests_and_goes_on_as_the_services_say(self):
        self.start_bus()
        self.battery(80)
        self.power()
        first, second = self.file("first"), self.file("second")
        self.set(UPOWER, DISPLAY, DEVICE, Percentage=dbus.Double(29))
        self.rests("The battery is at 29 %")
        self.ctl("add", self.files)
        self.eventually(lambda: self.state()["statusString"] == "Resting: The battery is at 29 %; 2 files to go", "rest")
        self.assertRegex(self.ctl("status"), r"(?m)^Resting +The battery is at 29 %$")
        self.ctl("asap", first)
        self.eventually(lambda: self.state()["backedUpFileCount"] == 1, "the preferred file")
        self.assertEqual(self.state()["statusString"], "Resting: The battery is at 29 %; 1 file to go")
        self.set(UPOWER, "/org/freedesktop/UPower", UPOWER, OnBattery=False)
        self.rests(None)
        self.ctl("watch", "--until-done")
        self.assertEqual(json.loads(self.ctl("ls", "--json", second))[0]["state"], "Backed up")

    def test_each_reason_can_be_switched_off(self):
        self.start_bus()
        self.battery(10)
        profiles = self.service(PROFILES, PROFILES_PATH, PROFILES, ActiveProfile="power-saver")
        self.power()
        self.rests("The battery is at 10 %")
        self.ctl("settings", "--rest-below", "10")
        self.rests("The computer saves power")
        self.ctl("settings", "--rest-in-power-saver", "off")
        self.rests(None)
        self.ctl("settings", "--rest-in-power-saver", "on")
        self.rests("The computer saves power")
        profiles.kill()  # a service that disappears reports nothing any more
        self.rests(None)

    def test_who_ends_well_takes_back_what_it_said(self):
        self.start_bus()
        self.battery(10)
        power = self.power()
        self.rests("The battery is at 10 %")
        power.send_signal(signal.SIGTERM)
        self.assertEqual(power.wait(PATIENCE), 0)
        self.rests(None)

    def test_it_outlives_the_bus_and_the_daemon(self):
        power = self.power()
        self.says(power, "The system bus cannot be reached")
        self.start_bus()
        self.battery(10)
        self.rests("The battery is at 10 %")
        self.bus.kill()
        self.bus.wait(PATIENCE)
        self.rests(None)
        self.says(power, "The system bus has gone")
        self.keldaned.kill()
        os.unlink(os.path.join(self.place, "bus"))
        self.start_bus()
        self.battery(20)
        self.says(power, "The backup daemon cannot be told")
        self.keldaned.start()
        self.rests("The battery is at 20 %")
        self.assertIsNone(power.poll())


if __name__ == "__main__":
    unittest.main()
