"""The bytes on the wire, as a peer sees them that shares no code with the system."""

import unittest

from harness import Case
from recording_daemon import ENABLED, MARKER, PRIORITY_OFFER, REQUEST, node

LOOK_UP = "dictionaryForPath:withDirSizes:"


def look_up(path):
    return [8, "@", LOOK_UP, 2, "@", path, "c", 0]


class Wire(Case):
    def test_every_frame_is_a_marked_request_with_a_binary_property_list(self):
        daemon = self.daemon(ENABLED)
        self.menu("choose", "asap", self.file("a.txt"))
        frames = daemon.wait_for(8)
        for frame in frames:
            self.assertEqual(frame.marker, MARKER)
            self.assertEqual(frame.kind, REQUEST)
            self.assertTrue(frame.payload.startswith(b"bplist00"))
            self.assertEqual(len(frame.value), 4 + 2 * frame.value[3])

    def test_a_file_is_four_look_ups_and_one_type_then_one_look_up_for_its_status(self):
        daemon = self.daemon(ENABLED | PRIORITY_OFFER)
        path = self.file("a.txt")
        self.show(path)
        self.assertEqual([frame.value for frame in daemon.frames],
                         [look_up(path), look_up(path), [4, "I", "getFileTypeToggle:", 1, "@", ".txt"], look_up(path),
                          look_up(path), look_up(path)])

    def test_a_folder_is_three_look_ups_and_one_for_its_status(self):
        daemon = self.daemon(ENABLED)
        path = self.folder("d")
        self.show(path)
        self.assertEqual([frame.value for frame in daemon.frames], [look_up(path)] * 4)

    def test_what_does_not_exist_is_asked_about_like_a_folder(self):
        daemon = self.daemon(ENABLED)
        path = self.place + "/files/none"
        self.show(path)
        self.assertEqual([frame.value for frame in daemon.frames], [look_up(path)] * 4)

    def test_several_are_asked_about_in_their_order_and_have_no_status_of_their_own(self):
        daemon = self.daemon(ENABLED)
        paths = [self.file("b.txt"), self.folder("d"), self.file("a.txt")]
        self.show(*paths)
        asked = [frame.arguments[0] for frame in daemon.frames if frame.selector == LOOK_UP]
        self.assertEqual(asked, [paths[0]] * 4 + [paths[1]] * 3 + [paths[2]] * 4)

    def test_the_folder_sizes_are_declined_with_a_number_and_not_with_a_boolean(self):
        daemon = self.daemon(ENABLED)
        self.show(self.folder("d"))
        self.assertIs(type(daemon.frames[0].value[7]), int)

    def commands(self, command, *paths):
        """The frames that a choice adds to those of its examination."""
        daemon = self.daemon(ENABLED)
        self.show(*paths)
        examination = len(daemon.frames)
        answer = self.menu("choose", command, *paths)
        self.assertEqual(answer["selected"], 0)
        return [frame.value for frame in daemon.wait_until_left()[2 * examination:]]

    def test_back_up(self):
        path = self.file("a.txt")
        self.assertEqual(self.commands("backup", path), [[0, "v", "addFileToBackup:", 1, "@", path]])

    def test_exclude(self):
        path = self.file("a.txt")
        self.assertEqual(self.commands("exclude", path), [[0, "v", "removeFileFromBackup:", 1, "@", path]])

    def test_as_soon_as_possible_adds_and_then_prefers(self):
        path = self.file("a.txt")
        self.assertEqual(self.commands("asap", path), [[0, "v", "addFileToBackup:", 1, "@", path],
                                                       [0, "v", "setPriorityBackup:", 1, "@", path]])

    def test_types_that_no_menu_shows_are_carried_out(self):
        path = self.file("a.txt")
        self.assertEqual(self.commands("type-backup", path),
                         [[0, "v", "setFileTypeToggle:toggle:", 2, "@", ".txt", "I", 6]])

    def test_types_that_are_excluded(self):
        path = self.file("noextension")
        self.assertEqual(self.commands("type-exclude", path),
                         [[0, "v", "setFileTypeToggle:toggle:", 2, "@", ".", "I", 7]])

    def test_three_files_are_three_commands_in_their_order(self):
        paths = [self.file(name) for name in ("c", "a", "b")]
        self.assertEqual(self.commands("backup", *paths),
                         [[0, "v", "addFileToBackup:", 1, "@", path] for path in paths])

    def test_items_that_do_nothing_send_nothing(self):
        daemon = self.daemon(ENABLED)
        path = self.file("a.txt")
        for command in ("'r2d2'", "'r2d3'", "r2d4", "r2dA", "0x12345678", "7"):
            self.menu("choose", command, path)
        daemon.wait_for(36)
        self.assertEqual(set(daemon.selectors()), {LOOK_UP, "getFileTypeToggle:"})

    def test_names_arrive_as_they_are(self):
        names = ["with blank", "50%", "a:b", "new\nline", "quote\"'", "emoji 😀", "ÄÖÜ", "x" * 200, "%41", "#?&"]
        daemon = self.daemon(ENABLED)
        paths = [self.file(name) for name in names]
        self.assertIsNotNone(self.show(*paths))
        asked = [frame.arguments[0] for frame in daemon.frames if frame.selector == LOOK_UP]
        self.assertEqual(asked[::4], paths)

    def test_one_cycle_is_one_connection(self):
        daemon = self.daemon(ENABLED)
        self.menu("choose", "backup", self.file("a"), self.file("b"))
        self.assertEqual(daemon.connections, 1)


if __name__ == "__main__":
    unittest.main()
