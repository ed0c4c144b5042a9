"""The krboxlibrary Python module on copies of the example libraries."""
import functools
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

import krboxlibrary as kb

EXAMPLES = (os.environ.get("KRBOX_EXAMPLES")
            or os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples"))
KRBOX = os.environ.get("KRBOX_BIN")

TREE = """Robot Basics
  [-] Motions
    [-] Walk / Turn
      [+] Full Speed
        [ ] Walk Forward
      [+] 50% Speed
    [+] Postures
      [B] Stand Up
      [B] Sit Down
      [ ] Crouch
    [+] Dances
      [+] Party
        [B] Robot Dance
  [-] Sensing
    [-] Touch
      [+] Head: Front / Rear
      [+] Hands
        [ ] Tactile Hand
    [+] Look: Up?
  [+] Sounds
    [+] Music
    [-] Voices
      [+] Greetings & Goodbyes
        [ ] Say Hello
        [B] Wave: Goodbye
  [+] Misc.
    [+] Tests
      [ ] Wait 1/2 s
      [ ] Blink Eyes
      [+] Legacy Blink
"""
HELLO = os.path.join(EXAMPLES, "Robot Basics/Sounds/Voices/Greetings & Goodbyes/Say Hello")
POSTURES = ["Motions/Postures/Stand Up", "Motions/Postures/Sit Down", "Motions/Postures/Crouch"]


def tree(library):
    """What `krbox tree` prints; a path has one "/" a level (file names escape theirs)."""
    def line(n):
        mark = ("[B]" if n.behavior else "[ ]") if n.is_box else ("[-]" if n.expanded else "[+]")
        return "  " * (n.path.count("/") + 1) + mark + " " + n.name
    return "\n".join([library.title] + [line(n) for n in library.walk()]) + "\n"


def finder(library):
    return lambda *names: functools.reduce(lambda n, name: n and n.child(name), names, library.root)


class ModuleTest(unittest.TestCase):
    def setUp(self):
        temp = tempfile.TemporaryDirectory()
        self.addCleanup(temp.cleanup)
        self.path = functools.partial(os.path.join, temp.name)
        shutil.copytree(os.path.join(EXAMPLES, "Robot Basics"), self.path("Robot Basics"))
        shutil.copy(os.path.join(EXAMPLES, "Robot Basics.lbf"), temp.name)

    def test_open_and_read(self):
        for path in (self.path("Robot Basics"), os.fsencode(self.path("Robot Basics.lbf")),
                     pathlib.Path(self.path("Robot Basics.lbf"))):
            with self.subTest(path=path), kb.Library(path, read_only=True) as library:
                at = finder(library)
                crouch, motions = at("Motions", "Postures", "Crouch"), at("Motions")
                self.assertEqual(tree(library), TREE)
                self.assertIs(crouch.library, library)
                for got, expected in [
                    (library.path, os.fsdecode(path)),
                    ([p[:2] for p in library.problems],
                     [("UnreadableBoxFile", "Misc./Tests/Legacy Blink")]),
                    ((crouch.name, crouch.path, crouch.index), ("Crouch", POSTURES[2], 2)),
                    (crouch.tooltip.splitlines()[1:], ["tags:", "posture; crouch; rest"]),
                    ((crouch.tags, crouch.bitmaps),
                     (["posture", "crouch", "rest"], ["media/images/box/movement/crouch.png"])),
                    ((motions.tooltip, motions.tags, motions.is_box), (None, [], False)),
                    ([n.name for n in motions], ["Walk / Turn", "Postures", "Dances"]),
                    ((crouch.parent.parent, library.root.parent, at("No")), (motions, None, None)),
                    ({crouch, library.find("crouch")[0]}, {crouch}),
                    (repr(crouch), "<krboxlibrary.Node 'Motions/Postures/Crouch' box>")]:
                    self.assertEqual(got, expected)
            self.assertRaisesRegex(kb.Error, "^the library is closed$", lambda: crouch.name)

    def test_edits_save_and_read_back(self):
        for name in ("Robot Basics", "Robot Basics.lbf"):
            library = kb.Library(self.path(name))
            at = finder(library)
            for edit, names, attribute, expected in [
                (lambda: library.root.new_folder("Gestures", 0, False), ["Gestures"], "index", 0),
                (lambda: at("Gestures").add_box_file(HELLO + "/box.bxd", [HELLO + "/hello.wav"]),
                 ["Gestures", "Say Hello"], "path", "Gestures/Say Hello"),
                (lambda: at("Sounds").rename("A/B"), ["A/B"], "path", "A%2fB"),
                (lambda: at("Motions", "Postures", "Crouch").move(at("Gestures"), 0),
                 ["Gestures", "Crouch"], "index", 0),
                (lambda: at("Misc.").remove(), ["Misc."], "name", None),
                (lambda: setattr(at("Gestures", "Crouch"), "tooltip", "Low.\ntags:\nlow; knee"),
                 ["Gestures", "Crouch"], "tags", ["low", "knee"]),
                (lambda: setattr(at("Gestures", "Say Hello"), "bitmaps", ["a.png", "b.png"]),
                 ["Gestures", "Say Hello"], "bitmaps", ["a.png", "b.png"]),
                (lambda: setattr(at("Motions"), "expanded", False), ["Motions"], "expanded",
                 False)]:
                with self.subTest(name=name, names=names):
                    edit()
                    self.assertEqual(at(*names) and getattr(at(*names), attribute), expected)
            library.save()
            again = kb.Library(self.path(name))
            self.assertEqual(tree(again), tree(library))
            self.assertEqual(finder(again)("Gestures", "Crouch").tags, ["low", "knee"])
            if KRBOX:
                printed = subprocess.run([KRBOX, "tree", self.path(name)], capture_output=True,
                                         check=True, text=True).stdout
                self.assertEqual(printed, tree(library))
            library.save_to(self.path(name + ".copy"))
            self.assertEqual(tree(kb.Library(self.path(name + ".copy"))), tree(library))
            self.assertTrue(os.path.isfile(self.path(name + ".copy/Gestures/Say Hello/hello.wav")))

    def test_refusals(self):
        library = kb.Library(self.path("Robot Basics"))
        at = finder(library)
        motions, crouch, removed = at("Motions"), at("Motions", "Postures", "Crouch"), at("Misc.")
        removed.remove()
        top, missing = self.path("Robot Basics"), self.path("no")
        inside = os.path.join(top, "x")

        def conflict():
            crouch.tooltip = "ours"
            pathlib.Path(top, "Motions/Postures/Crouch/box.bxd").write_text("theirs")
            library.save()
        cases = [
            (lambda: kb.Library(missing), kb.Error,
             f'cannot open "{missing}": no such file or directory'),
            (lambda: crouch.new_folder("Low"), kb.Error, "“Crouch” is a box, not a folder"),
            (lambda: library.root.new_folder("lbfinfo"), kb.Error,
             "\"lbfinfo\" cannot name a node: that name is kept for the library's own files"),
            (lambda: motions.move(at("Motions", "Postures")), kb.Error,
             "“Motions” cannot move into itself or below itself"),
            (lambda: setattr(motions, "tooltip", ""), kb.Error, "“Motions” is a folder, not a box"),
            (lambda: motions.new_folder("Low", 9), kb.Error, "no position 9 in “Motions”: 0 to 3"),
            (lambda: removed.children, kb.Error, "the node was removed from its library"),
            (lambda: library.export_behaviors(missing), FileNotFoundError,
             f'no directory "{missing}"'),
            (lambda: library.save_to(inside), kb.Error,
             f"{inside}: the project at {top} cannot be saved into itself or around itself"),
            (lambda: library.save_to(missing, "rar"), ValueError,
             'format must be "dir" or "zip", not "rar"'),
            (lambda: kb.Library(top, read_only=True).save(), kb.Error,
             "the library was opened read-only"),
            (conflict, kb.ConflictError, f"{top}: changed by another writer since read, so "
             "nothing was saved: Motions/Postures/Crouch/box.bxd")]
        with self.assertLogs("krboxlibrary") as logs:
            for call, error, message in cases:
                with self.subTest(message=message), self.assertRaises(error) as raised:
                    call()
                self.assertEqual(str(raised.exception), message)
        self.assertEqual(logs.output[0], "WARNING:krboxlibrary:Could not load the box library "
                         f'found at "{missing}": no such file or directory.')
        self.assertEqual(repr(removed), "<krboxlibrary.Node (removed)>")

    def test_find_export_and_new(self):
        library = kb.Library(self.path("Robot Basics.lbf"), read_only=True)
        for query, paths in [("tag:posture", POSTURES), ("tag:knees", []),
                             ("ROBOT dánce", ["Motions/Dances/Party/Robot Dance"]),
                             ("", [n.path for n in library.walk()])]:
            self.assertEqual([n.path for n in library.find(query)], paths, query)
        out = self.path("out")
        os.mkdir(out)
        library.export_behaviors(pathlib.Path(out))
        exported = [os.path.relpath(d, out) for d, _, f in os.walk(out) if "behavior.bxd" in f]
        self.assertEqual(sorted(exported), sorted(POSTURES[:2] + [
            "Motions/Dances/Party/Robot Dance",
            "Sounds/Voices/Greetings & Goodbyes/Wave%3a Goodbye"]))
        new = kb.Library()
        self.assertEqual((new.path, len(new.root)), (None, 0))
        new.root.new_folder("Gestures").new_folder("Nods", expanded=False)
        new.save_to(self.path("new.lbf"), format="zip")
        self.assertEqual(tree(kb.Library(self.path("new.lbf"))),
                         "new\n  [-] Gestures\n    [+] Nods\n")
