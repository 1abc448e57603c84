# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""Input that is truncated, mistyped, hostile or not there: one clear sentence and the right exit
code, and nothing written."""
import json
import os
import random
import resource
import subprocess
import unittest
from pathlib import Path

from program import PROGRAM, ProgramTest, grid_obj


class BadInput(ProgramTest):
    def fails(self, code, words, *arguments, **more):
        done = self.run_program(*arguments, code=code, **more)
        self.assertIn(words, done.stderr)
        self.assertEqual(len(done.stderr.strip().splitlines()), 1, done.stderr)

    def test_unreadable_paths(self):
        for path in ("none.obj", ".", "/dev/null/x"):
            self.fails(3, f"cannot read '{path}'", "new", "a.groom", "--scalp", path)
        for path in ("none.groom", "."):
            for command in (["info"], ["evaluate"], ["export"], ["draw"]):
                more = ["out"] if command[0] in ("export", "draw") else []
                self.fails(3, f"cannot read '{path}'", *command, path, *more)
        self.fails(3, "cannot read 'none.json'", "new", "a.groom", "--scalp", "grid.obj", "--graph",
                   "none.json")
        self.fails(3, "cannot read 'none.obj'", "new", "a.groom", "--scalp", "grid.obj", "--guides",
                   "none.obj")
        self.assertFalse((self.path / "a.groom").exists())

    def test_files_without_the_right_to_read(self):
        rights = self.as_nobody()
        self.new_groom("locked.groom")
        self.write("locked.obj", grid_obj())
        for name in ("locked.obj", "locked.groom"):
            (self.path / name).chmod(0)
        self.fails(3, "cannot read 'locked.obj'", "new", "a.groom", "--scalp", "locked.obj",
                   **rights)
        self.fails(3, "cannot read 'locked.groom'", "evaluate", "locked.groom", **rights)

    def test_files_larger_than_the_memory(self):
        if b"__asan_init" in Path(PROGRAM).read_bytes():
            self.skipTest("the address sanitizer ends the program instead")
        with open(self.path / "huge", "wb") as huge:
            try:
                huge.truncate(1 << 42)
            except OSError:
                self.skipTest("no files of this size here")

        def limit_memory():
            resource.setrlimit(resource.RLIMIT_AS, (1 << 33, 1 << 33))
        for command in (["new", "a.groom", "--scalp", "huge"], ["evaluate", "huge"],
                        ["new", "a.groom", "--scalp", "grid.obj", "--guides", "huge"]):
            self.fails(3, "huge", *command, preexec_fn=limit_memory)

    def test_meshes(self):
        cases = {b"": "holds no faces", b"\x00\x01\x02": "binary", b"v 0 0 0\nf 1 1\n": "line 2",
                 b"v nan 0 0\n": "line 1", b"v 1e99 0 0\n": "line 1", b"v 0 0\n": "line 1",
                 b"v 0 0 0\nv 1 0 0\nv 0 0 1\nf 1 2 4\n": "line 4",
                 b"v 0 0 0\nv 1 0 0\nv 0 0 1\nf 0 1 2\n": "line 4", os.urandom(4096): "bad.obj"}
        for text, words in cases.items():
            self.write("bad.obj", text)
            self.fails(3, words, "new", "a.groom", "--scalp", "bad.obj")
        self.write("bad.obj", grid_obj())
        self.fails(3, "holds no lines", "new", "a.groom", "--scalp", "grid.obj", "--guides",
                   "bad.obj")

    def test_graphs(self):
        for text in ("", "[]", "{", "{}", "[" * 300 + "]" * 300, '{"version": 99, "nodes": []}',
                     '{"nodes": [{"name": "a", "type": "Nothing"}], "output": "a"}',
                     '{"nodes": 3, "output": 4}', "\xff\xfe"):
            self.write("g.json", text.encode("latin-1"))
            self.fails(3, "g.json: ", "new", "a.groom", "--scalp", "grid.obj", "--graph", "g.json")

    def test_groom_files(self):
        self.new_groom()
        whole = (self.path / "a.groom").read_bytes()
        for text in (b"", b"{}", b"[]", b"null", b'{"format": 3}', b"[" * 300, b"\xff\xfe\x00",
                     b'{"format": "kestrane.groom", "version": 2}',
                     b'{"format": "kestrane.groom", "upAxis": "X"}',
                     b'{"format": "kestrane.groom", "scalp": {"points": [1, 2], "triangles": []}}',
                     b'{"format": "kestrane.groom", "scalp": {"points": [1, 2, 3], '
                     b'"triangles": [0, 1, 2]}}', whole[:-1], whole[: len(whole) // 2]):
            self.write("bad.groom", text)
            self.fails(3, "bad.groom", "evaluate", "bad.groom")

    def test_mutilated_groom_files(self):
        """Whatever is overwritten, the program ends with one of its own exit codes."""
        self.new_groom()
        self.edit("a.groom", lambda d: d["graph"]["nodes"][2].update(params={"density": 5}))
        whole = (self.path / "a.groom").read_bytes()
        chance = random.Random(5)
        for _ in range(60):
            text = bytearray(whole)
            for _ in range(chance.randrange(1, 4)):
                text[chance.randrange(len(text))] = chance.choice(b'0123456789-{}[]",:eE xn')
            self.write("bad.groom", bytes(text))
            command = ["evaluate", "bad.groom", "--set", "scatter.density=5"]
            done = self.run_any(*command)
            self.assertIn(done.returncode, (0, 1, 2, 3), done.stderr)
            if done.returncode != 0:
                self.assertTrue(done.stderr.strip())

    def run_any(self, *arguments):
        return subprocess.run([PROGRAM, *arguments], cwd=self.path, capture_output=True, text=True,
                              timeout=120)

    def test_grooms_that_are_hard_to_grow(self):
        flat = "v 0 0 0\nv 1 0 0\nv 2 0 0\nf 1 2 3\n"
        self.write("flat.obj", flat)
        self.run_program("new", "flat.groom", "--scalp", "flat.obj")
        self.assertEqual(self.json_of("evaluate", "flat.groom")["stats"]["strands"], 0)
        self.run_program("export", "flat.groom", "flat.usda")
        self.write("huge.obj", "v 0 0 0\nv 3e38 0 0\nv 0 0 3e38\nf 1 2 3\n")
        self.run_program("new", "huge.groom", "--scalp", "huge.obj")
        self.run_program("evaluate", "huge.groom", code=1)
        self.new_groom()

        def turn_around(document):
            for wire in document["graph"]["connections"]:
                if wire["to"] == "length":
                    wire["from"] = "noise"
        self.edit("a.groom", turn_around)
        self.assertIn("cycle", self.run_program("evaluate", "a.groom", code=1).stderr)


if __name__ == "__main__":
    unittest.main()
