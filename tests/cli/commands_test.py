# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""What each command of the program answers."""
import json
import os
import subprocess
import unittest

from program import PROGRAM, ProgramTest, grid_obj, write_png


class General(ProgramTest):
    def test_version_and_help(self):
        self.assertEqual(self.run_program("--version").stdout.strip(), "0.2.0")
        text = self.run_program("--help").stdout
        for command in ("new", "info", "evaluate", "export", "draw", "operators", "expression",
                        "sample"):
            self.assertIn(command, text)
            self.assertIn("--help", self.run_program(command, "--help").stdout)

    def test_wrong_usage(self):
        for arguments in ([], ["nothing"], ["new"], ["new", "a.groom"], ["info"],
                          ["info", "a", "b"], ["evaluate", "a.groom", "--frame", "x"],
                          ["evaluate", "a.groom", "--view", "sideways"],
                          ["evaluate", "a.groom", "--frame", "nan"],
                          ["evaluate", "a.groom", "--frame", "-inf"],
                          ["evaluate", "a.groom", "--detail", "2"],
                          ["evaluate", "a.groom", "--detail", "nan"], ["operators", "Nothing"],
                          ["draw", "a.groom", "b.png", "--camera", "top"],
                          ["new", "a.groom", "--scalp", "grid.obj", "--up", "X"],
                          ["new", "a.groom", "--scalp", "grid.obj", "--units", "parsec"],
                          ["--threads", "-3", "operators"]):
            done = self.run_program(*arguments, code=2)
            self.assertTrue(done.stderr.strip(), arguments)
            self.assertEqual(done.stdout, "", arguments)

    def test_result_that_nobody_takes(self):
        with open(self.full_device(), "w") as full:
            done = self.run_program("operators", code=4, stdout=full)
        self.assertIn("standard output", done.stderr)
        # A reader that goes away early is no crash.
        reader, writer = os.pipe()
        os.close(reader)
        self.run_program("operators", "--json", code=4, stdout=writer)
        os.close(writer)

    def test_quiet(self):
        self.assertEqual(self.run_program("--quiet", "new", "a.groom", "--scalp", "grid.obj").stderr,
                         "")
        self.assertEqual(self.run_program("evaluate", "a.groom", "--quiet").stderr, "")
        self.assertNotEqual(self.run_program("--quiet", "info", "b.groom", code=3).stderr, "")


class New(ProgramTest):
    def test_keeps_polygons_uvs_and_guides(self):
        self.new_groom("a.groom", "--units", "m", "--up", "Z")
        document = json.loads((self.path / "a.groom").read_text())
        self.assertEqual(document["format"], "kestrane.groom")
        self.assertEqual((document["units"], document["upAxis"]), ("m", "Z"))
        self.assertEqual(document["scalp"]["polygons"], [2] * 16)
        self.assertEqual(len(document["scalp"]["uvs"]), 16 * 2 * 3 * 2)
        guides = document["hierarchy"]
        self.assertEqual([group["name"] for group in guides["groups"]], ["guides"])
        self.assertEqual(len(guides["guides"]), 9)
        for guide in guides["guides"]:
            self.assertGreaterEqual(guide["root"][0], 0, "not rooted")
        self.assertEqual(document["graph"]["output"], "output")

    def test_takes_a_graph(self):
        graph = {"version": 1, "nodes": [{"name": "s", "type": "Scalp"},
                                         {"name": "c", "type": "Scatter"},
                                         {"name": "o", "type": "Output"}],
                 "connections": [{"from": "s", "to": "c", "input": "scalp"},
                                 {"from": "c", "to": "o", "input": "strands"}], "output": "o"}
        self.write("g.json", json.dumps(graph))
        self.run_program("new", "a.groom", "--scalp", "grid.obj", "--graph", "g.json")
        self.assertEqual(self.json_of("info", "a.groom")["wires"], 2)

    def test_a_path_that_is_no_text(self):
        path = b"gr\xffd.obj"
        os.rename(os.fsencode(self.path / "grid.obj"), os.fsencode(self.path) + b"/" + path)
        subprocess.run([PROGRAM, "new", "a.groom", "--scalp", path], cwd=self.path, check=True,
                       capture_output=True)
        source = json.loads((self.path / "a.groom").read_text())["source"]
        self.assertEqual(source, "gr\ufffdd.obj")
        self.run_program("export", "a.groom", "a.usda")
        self.assertIn("gr\ufffdd.obj", (self.path / "a.usda").read_text())

    def test_warns_of_missing_uvs(self):
        self.write("mixed.obj", grid_obj(2).replace("f 1/1 4/4", "f 1 4", 1))
        done = self.run_program("new", "a.groom", "--scalp", "mixed.obj")
        self.assertIn("2 of 16 corners have no UV", done.stderr)


class Info(ProgramTest):
    def test_tells_what_is_there(self):
        info = self.json_of("info", self.new_groom())
        self.assertEqual((info["units"], info["upAxis"]), ("cm", "Y"))
        self.assertAlmostEqual(info["scalp"]["area"], 4.0, places=5)
        self.assertEqual(info["scalp"]["size"], [2.0, 0.0, 2.0])
        self.assertEqual(info["guides"], {"count": 9, "groups": {"guides": 9}})
        self.assertEqual(len(info["nodes"]), 10)
        self.assertEqual(info["wires"], 10)
        self.assertEqual(info["missing"], [])
        text = self.run_program("info", "a.groom").stdout
        for words in ("cm, Y up", "16 polygons", "9 in group 'guides'", "10 nodes, 10 wires"):
            self.assertIn(words, text)

    def test_tells_what_is_missing(self):
        self.write("bare.groom", '{"format": "kestrane.groom"}')
        missing = self.json_of("info", "bare.groom")["missing"]
        self.assertEqual(missing, ["the groom has no scalp", "the groom has no guides",
                                   "the groom has no graph"])
        self.new_groom()
        self.edit("a.groom", lambda d: d["graph"]["nodes"][2].update(
            params={"density": {"texture": "no.png"}}))
        self.assertIn("node 'scatter', parameter 'density': the file 'no.png' is not found",
                      self.json_of("info", "a.groom")["missing"])

    def test_looks_for_images_where_an_evaluation_does(self):
        self.new_groom()
        for folder in ("beside", "elsewhere"):
            (self.path / folder).mkdir()
        os.rename(self.path / "a.groom", self.path / "beside/a.groom")
        write_png(self.path / "beside/plain.png")
        write_png(self.path / "elsewhere/tile.1001.png")

        def missing(name):
            self.edit("beside/a.groom", lambda d: (
                d["graph"]["nodes"][2].update(params={"density": {"texture": name}}),
                d.update(searchPaths=["elsewhere"],
                         maps={"paint": {"kind": "texture", "texture": name}})))
            return self.json_of("info", "beside/a.groom")["missing"]

        for name in ("plain.png", "tile.<UDIM>.png", "tile.1001.png"):
            self.assertEqual(missing(name), [])
            self.run_program("evaluate", "beside/a.groom")
        for name in ("no.png", "no.<UDIM>.png", "../elsewhere"):
            self.assertEqual(missing(name), [
                f"map 'paint': the file '{name}' is not found",
                f"node 'scatter', parameter 'density': the file '{name}' is not found"])
        self.assertEqual(missing("")[0], "map 'paint': it has no image file yet")


class Evaluate(ProgramTest):
    def test_counts(self):
        self.new_groom()
        answer = self.json_of("evaluate", "a.groom")
        self.assertEqual(answer["messages"], [])
        stats = answer["stats"]
        self.assertEqual(stats["guides"], 9)
        self.assertEqual(stats["points"], 17 * stats["strands"])
        self.assertAlmostEqual(stats["strands"], 800, delta=32)  # a density of 200 on an area of 4
        self.assertEqual(stats["view"], "render")
        self.assertIn("melanin", stats["channels"])
        self.assertIn("strands  " + str(stats["strands"]),
                      self.run_program("evaluate", "a.groom").stdout)

    def test_settings_hold_for_the_run_alone(self):
        self.new_groom()
        before = (self.path / "a.groom").read_bytes()
        stats = self.json_of("evaluate", "a.groom", "--set", "scatter.density=50", "--set",
                             "resample.segments=4", "--set", "noise.space=\"world\"")["stats"]
        self.assertAlmostEqual(stats["strands"], 200, delta=32)
        self.assertEqual(stats["points"], 5 * stats["strands"])
        self.assertEqual((self.path / "a.groom").read_bytes(), before)
        expression = "scatter.density={\"expression\": \"100 * u\"}"
        self.assertAlmostEqual(
            self.json_of("evaluate", "a.groom", "--set", expression)["stats"]["strands"], 200,
            delta=60)

    def test_settings_that_cannot_be(self):
        self.new_groom()
        for setting, words in (("density", "expected NODE.PARAM=JSON"), ("=1", "expected NODE"),
                               ("nobody.density=1", "no node 'nobody'"),
                               ("scatter.nothing=1", "Scatter has no parameter 'nothing'"),
                               ("scatter.density=x", "is no JSON"),
                               ("scatter.density=\"many\"", "takes a float, not a string"),
                               ("scatter.seed=1.5", "takes a int, not a float"),
                               ("scatter.layout=\"heap\"", "one of random, uvGrid"),
                               ("length.keep={\"texture\": \"a\", \"guide\": \"b\"}",
                                "exactly one of"),
                               ("scatter.density=" + "[" * 400, "is no JSON")):
            done = self.run_program("evaluate", "a.groom", "--set", setting, code=2)
            self.assertIn(words, done.stderr)

    def test_detail_thins_the_viewport(self):
        self.new_groom()
        dense = ("--set", "scatter.density=10000")
        whole = self.json_of("evaluate", "a.groom", *dense)["stats"]["strands"]
        thin = self.json_of("evaluate", "a.groom", *dense, "--view", "viewport", "--detail",
                            "0.25")["stats"]["strands"]
        self.assertAlmostEqual(thin / whole, 0.25, delta=0.02)

    def test_failures_end_with_1_and_their_words(self):
        self.new_groom()
        for setting, words in (("noise.amplitude={\"expression\": \"1 +\"}", "unexpected end"),
                               ("noise.amplitude={\"attribute\": \"none\"}", "no attribute 'none'"),
                               ("scatter.density=1e12", "more than 50M strands")):
            done = self.run_program("evaluate", "a.groom", "--set", setting, code=1)
            self.assertIn(words, done.stderr)
            messages = self.json_of("evaluate", "a.groom", "--set", setting, code=1)["messages"]
            self.assertTrue(any(words in m["text"] and m["isError"] for m in messages), messages)
        self.write("bare.groom", '{"format": "kestrane.groom"}')
        self.assertIn("the groom has no graph",
                      self.run_program("evaluate", "bare.groom", code=1).stderr)
        self.edit("a.groom", lambda d: d["graph"].update(output="nobody"))
        for more in ((), ("--set", "scatter.density=5"), ("--set", "noone.density=5")):
            self.assertIn("nobody", self.run_program("evaluate", "a.groom", *more, code=1).stderr)
            messages = self.json_of("evaluate", "a.groom", *more, code=1)["messages"]
            self.assertEqual([m["isError"] for m in messages], [True])
            self.assertIn("nobody", messages[0]["text"])
        self.assertIn("the groom has no graph",
                      self.run_program("evaluate", "bare.groom", "--set", "a.b=5", code=1).stderr)


class Operators(ProgramTest):
    def test_catalogue(self):
        catalogue = self.json_of("operators")
        types = [entry["type"] for entry in catalogue]
        self.assertEqual(types, sorted(types))
        for entry in catalogue:
            self.assertEqual(list(entry)[:6], ["type", "version", "category", "description",
                                               "inputs", "output"])
            self.assertEqual(self.json_of("operators", entry["type"]), entry)
            text = self.run_program("operators", entry["type"]).stdout
            for param in entry["params"]:
                self.assertIn("  " + param["name"] + "  ", text)
        overview = self.run_program("operators").stdout
        self.assertEqual(len(overview.splitlines()), len(types))


class Expression(ProgramTest):
    def test_values(self):
        for text, value in (("1 + 2 * 3", "7"), ("[1, 2, 3] * 2", "2 4 6"), ("u + x", "0"),
                            ("1 / 3", "0.333333343"), ("pi", "3.14159274"), ("1 / 0", "0")):
            self.assertEqual(self.run_program("expression", text).stdout, value + "\n")
        self.assertEqual(self.run_program("expression", "--", "-2 ^ 2").stdout, "-4\n")
        self.assertEqual(self.run_program("expression", "--variables", '{"a": 4}', "--",
                                          "-$a").stdout, "-4\n")
        self.assertEqual(self.json_of("expression", "[0, 1, 0]"), {"value": [0.0, 1.0, 0.0]})

    def test_errors_are_the_language_s(self):
        done = self.run_program("expression", "1 +", code=1)
        self.assertIn("expression '1 +': unexpected end at position", done.stderr)
        self.assertEqual(done.stdout, "")
        self.run_program("expression", "", code=1)
        self.run_program("expression", "(" * 5000, code=1)
        self.run_program("expression", "1", "--variables", "[1]", code=2)
        self.run_program("expression", "1", "--variables", "{", code=2)


class Threads(ProgramTest):
    def test_same_bytes_at_every_thread_count(self):
        self.new_groom()
        outputs = []
        for threads in (1, 2, 8):
            self.run_program("export", "a.groom", f"{threads}.usda", "--threads", threads,
                             "--set", "scatter.density=3000")
            outputs.append((self.path / f"{threads}.usda").read_bytes())
        self.assertGreater(len(outputs[0]), 1000000)
        self.assertTrue(outputs[0] == outputs[1] == outputs[2])

    @unittest.skipUnless((os.cpu_count() or 1) > 1, "one core has one thread anyway")
    def test_limit_comes_from_the_environment_or_the_option(self):
        self.new_groom()

        def threads(limit, *more):
            """The most threads that a run of the program was seen to have."""
            running = subprocess.Popen(
                [PROGRAM, "evaluate", "a.groom", "--quiet", "--set", "scatter.density=100000",
                 *more], cwd=self.path, stdout=subprocess.DEVNULL,
                env={**os.environ, "KESTRANE_THREADS": limit})
            most = 0
            while running.poll() is None:
                try:
                    most = max(most, len(os.listdir(f"/proc/{running.pid}/task")))
                except OSError:
                    pass  # it has just ended
            self.assertEqual(running.returncode, 0)
            return most

        alone = threads("0", "--threads", "1")
        self.assertEqual(threads("1"), alone)
        self.assertGreater(threads("0"), alone)
        self.assertGreater(threads("1", "--threads", "0"), alone)


class Sample(ProgramTest):
    def test_is_a_whole_groom(self):
        self.run_program("sample", "s.groom")
        info = self.json_of("info", "s.groom")
        self.assertEqual(info["missing"], [])
        self.assertGreaterEqual(info["guides"]["count"], 100)
        self.assertTrue(info["scalp"]["uvs"])
        self.assertEqual([node["name"] for node in info["nodes"]],
                         ["scalp", "guides", "scatter", "interpolate", "length", "noise", "color",
                          "width", "resample", "output"])
        done = self.run_program("evaluate", "s.groom", "--json", "--set",
                                "scatter.density={\"expression\": \"4 * map(\\\"hair\\\")\"}")
        answer = json.loads(done.stdout)
        self.assertEqual(answer["messages"], [])
        self.assertGreater(answer["stats"]["strands"], 1000)
        for target in (self.full_device(), "none/s.groom"):
            self.run_program("sample", target, code=4)


if __name__ == "__main__":
    unittest.main()
