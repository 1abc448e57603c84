# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""What the tests of the program share: running it, small inputs for it, and reading pictures."""
import json
import os
import stat
import struct
import subprocess
import tempfile
import unittest
import zlib
from pathlib import Path

PROGRAM = os.environ.get("KESTRANE", "build/bin/kestrane")


def grid_obj(cells=4, size=2.0, uvs=True):
    """A flat square of quads in the XZ plane that faces up, with its middle at the origin."""
    lines = []
    for z in range(cells + 1):
        for x in range(cells + 1):
            lines.append(f"v {size * (x / cells - 0.5):.6g} 0 {size * (z / cells - 0.5):.6g}")
            if uvs:
                lines.append(f"vt {x / cells:.6g} {z / cells:.6g}")
    for z in range(cells):
        for x in range(cells):
            a = z * (cells + 1) + x + 1
            corners = (a, a + cells + 1, a + cells + 2, a + 1)
            lines.append("f " + " ".join(f"{c}/{c}" if uvs else str(c) for c in corners))
    return "\n".join(lines) + "\n"


def guides_obj(count=3, size=2.0, points=5):
    """Curves of length 1 or so that stand on the grid and lean along +X."""
    lines = []
    for z in range(count):
        for x in range(count):
            first = len(lines) - (z * count + x) + 1
            for i in range(points):
                t = i / (points - 1)
                lines.append(f"v {size * ((x + 0.5) / count - 0.5) + 0.3 * t * t:.6g} {t:.6g} "
                             f"{size * ((z + 0.5) / count - 0.5):.6g}")
            lines.append("l " + " ".join(str(first + i) for i in range(points)))
    return "\n".join(lines) + "\n"


def write_png(path, width=1, height=1):
    """A black 8-bit RGB picture."""
    def chunk(kind, body):
        return struct.pack(">I", len(body)) + kind + body + struct.pack(">I",
                                                                        zlib.crc32(kind + body))
    Path(path).write_bytes(
        b"\x89PNG\r\n\x1a\n" +
        chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
        chunk(b"IDAT", zlib.compress(bytes((3 * width + 1) * height))) + chunk(b"IEND", b""))


def read_png(path):
    """(width, height, rows of RGB bytes) of an 8-bit RGB file."""
    data = Path(path).read_bytes()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG file"
    at, packed, size = 8, b"", None
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + length]
        assert struct.unpack(">I", data[at + 8 + length:at + 12 + length])[0] == zlib.crc32(
            kind + body), "bad checksum"
        at += 12 + length
        if kind == b"IHDR":
            size = struct.unpack(">IIBBBBB", body)
            assert size[2:4] == (8, 2), size
        elif kind == b"IDAT":
            packed += body
    width, height = size[:2]
    raw = zlib.decompress(packed)
    rows, previous = [], bytearray(3 * width)
    for y in range(height):
        start = y * (3 * width + 1)
        kind, row = raw[start], bytearray(raw[start + 1:start + 1 + 3 * width])
        for i in range(len(row)):
            left = row[i - 3] if i >= 3 else 0
            corner = previous[i - 3] if i >= 3 else 0
            if kind == 1:
                row[i] = (row[i] + left) & 255
            elif kind == 2:
                row[i] = (row[i] + previous[i]) & 255
            elif kind == 3:
                row[i] = (row[i] + (left + previous[i]) // 2) & 255
            elif kind == 4:
                guess = left + previous[i] - corner
                near = min((abs(guess - left), 0, left), (abs(guess - previous[i]), 1, previous[i]),
                           (abs(guess - corner), 2, corner))
                row[i] = (row[i] + near[2]) & 255
        rows.append(bytes(row))
        previous = row
    return width, height, rows


class ProgramTest(unittest.TestCase):
    """Each test runs in a folder of its own that holds grid.obj and guides.obj."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.path = Path(self.folder.name)
        self.write("grid.obj", grid_obj())
        self.write("guides.obj", guides_obj())

    def tearDown(self):
        left = [name for name in os.listdir(self.path) if ".tmp" in name or name.endswith(".spool")]
        self.folder.cleanup()
        self.assertEqual(left, [], "temporary files were left behind")

    def write(self, name, text):
        (self.path / name).write_bytes(text if isinstance(text, bytes) else text.encode())

    def full_device(self):
        """A device on which every write fails for want of room. Root could harm the machine's own,
        so it gets one of the test's."""
        device = self.path / "full"
        try:
            os.mknod(device, 0o600 | stat.S_IFCHR, os.makedev(1, 7))
            open(device, "w").close()
            return device
        except OSError:
            device.unlink(missing_ok=True)
            return "/dev/full"

    def run_program(self, *arguments, code=0, environment=None, **more):
        """Runs the program and checks its exit code; returns the finished process, as text."""
        command = [PROGRAM, *(str(argument) for argument in arguments)]
        done = subprocess.run(command, cwd=self.path, stdout=more.pop("stdout", subprocess.PIPE),
                              stderr=subprocess.PIPE, text=True, timeout=280,
                              env={**os.environ, **(environment or {})}, **more)
        self.assertEqual(done.returncode, code, f"{command}\n{done.stdout}\n{done.stderr}")
        return done

    def as_nobody(self):
        """What makes run_program run without an administrator's rights; skips where it cannot."""
        if os.geteuid() != 0:
            return {}
        self.path.chmod(0o777)
        try:
            subprocess.run([PROGRAM, "--version"], check=True, capture_output=True, user=65534,
                           cwd=self.path)
        except (OSError, subprocess.SubprocessError):
            self.skipTest("nobody may not run the program")
        return {"user": 65534, "group": 65534}

    def json_of(self, *arguments, code=0):
        return json.loads(self.run_program(*arguments, "--json", code=code).stdout)

    def new_groom(self, name="a.groom", *more):
        self.run_program("new", name, "--scalp", "grid.obj", "--guides", "guides.obj", *more)
        return name

    def edit(self, name, change):
        """Rewrites a groom file's JSON."""
        document = json.loads((self.path / name).read_text())
        change(document)
        self.write(name, json.dumps(document))
