# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""Times Blender's particle hair at the work that our benchmarks do.

  blender -b --factory-startup -P bench/peers/blender_hair.py -- [REGEX of names]
140 hairs grow on a sphere of a head's size; each gets interpolated children of 17 points, either
plain or dressed (clump, curl and roughness). Every name stands for one pair with a benchmark of
ours; one JSON line each: name, strands, seconds (the median), runs.

What is timed is an update of the dependency graph, from the change that asks for it to its end:
  first    the number of children changes, so that all are placed on the mesh anew and get paths
  again    the mesh takes another pose (a shape key); children stay placed, and all paths are made
           anew. Nothing is drawn. Blender makes children's paths with all of its threads.
"""
import json
import math
import re
import statistics
import sys
import time

import bpy

PARENTS = 140
RUNS = 5


def grow_head():
    bpy.ops.object.select_all(action="SELECT")
    bpy.ops.object.delete()
    bpy.ops.mesh.primitive_uv_sphere_add(segments=96, ring_count=48, radius=10.0)
    head = bpy.context.object
    head.shape_key_add(name="Basis")
    pose = head.shape_key_add(name="Pose")
    for point in pose.data:
        x, y, z = point.co
        point.co = (x + 1.0 + 0.1 * math.sin(y), y, z + 0.2 * math.cos(y))
    return head, pose


def grow_hair(head, dressed):
    head.modifiers.new("Hair", "PARTICLE_SYSTEM")
    hair = head.particle_systems[0].settings
    hair.type = "HAIR"
    hair.count = PARENTS
    hair.hair_length = 5.0
    hair.display_step = 4  # 2 to the power of 4 segments: 17 points
    hair.display_percentage = 100
    hair.child_type = "INTERPOLATED"
    hair.child_nbr = 1
    if dressed:
        hair.clump_factor = 0.5
        hair.kink = "CURL"
        hair.kink_amplitude = 0.2
        hair.kink_frequency = 3.0
        hair.roughness_1 = 0.05
        hair.roughness_2 = 0.1
    return hair


def update(change):
    """Seconds from the change to the end of the update that it causes."""
    start = time.perf_counter()
    change()
    bpy.context.view_layer.update()
    return time.perf_counter() - start


def tip_of_some_child(head):
    evaluated = head.evaluated_get(bpy.context.evaluated_depsgraph_get())
    hair = evaluated.particle_systems[0]
    child = PARENTS + len(hair.child_particles) // 2
    points = [tuple(hair.co_hair(evaluated, particle_no=child, step=k)) for k in range(17)]
    if len(set(points)) != 17:
        raise RuntimeError("the children have no 17 points")
    return points[-1]


class Groom:
    """One head of hair; its update times at a number of strands, first and again."""

    def __init__(self, dressed):
        self.head, self.pose = grow_head()
        self.hair = grow_hair(self.head, dressed)
        bpy.context.view_layer.update()
        self.turn = 0.0

    def children(self, each):
        self.hair.child_nbr = each

    def move(self):
        self.turn = 0.1 if self.turn == 0.9 else 0.9
        self.pose.value = self.turn

    def measure(self, strands):
        each = round(strands / PARENTS)
        first, again = [], []
        for _ in range(RUNS):
            update(lambda: self.children(1))
            first.append(update(lambda: self.children(each)))
        for _ in range(RUNS):
            before = tip_of_some_child(self.head)
            again.append(update(self.move))
            if tip_of_some_child(self.head) == before:
                raise RuntimeError("the children did not follow their mesh")
        evaluated = self.head.evaluated_get(bpy.context.evaluated_depsgraph_get())
        made = len(evaluated.particle_systems[0].child_particles)
        if made != each * PARENTS:
            raise RuntimeError(f"{made} children in place of {each * PARENTS}")
        update(lambda: self.children(1))
        return made, statistics.median(first), statistics.median(again)


def main():
    chosen = sys.argv[sys.argv.index("--") + 1:] if "--" in sys.argv else []
    wanted = re.compile("|".join(chosen))
    # Our names for the same work: by the form of hair and the strands, those for a first update
    # and those for one more. A groom that evaluates for the first time is measured against both,
    # since placing children well is what Blender's first update spends most of its time on.
    work = {
        False: {100_000: (["interpolateFirst"], ["interpolateShapes", "interpolateMoved"]),
                500_000: ([], ["interpolateMoved"]),
                1_000_000: (["interpolateFirst"], ["interpolateShapes"])},
        True: {100_000: (["defaultGraphFirst"], []),
               500_000: ([], ["scalpMoved", "scalpFollowed"]),
               1_000_000: (["defaultGraphFirst"], [])},
    }
    for dressed, sizes in work.items():
        groom = None
        for strands, (first_names, again_names) in sizes.items():
            rows = [(f"{name}ByBlender/{strands}", "first") for name in first_names]
            rows += [(f"{name}ByBlenderAgain/{strands}", "again") for name in first_names]
            rows += [(f"{name}ByBlender/{strands}", "again") for name in again_names]
            rows = [row for row in rows if wanted.search(row[0])]
            if not rows:
                continue
            groom = groom or Groom(dressed)
            made, first, again = groom.measure(strands)
            for name, which in rows:
                print(json.dumps({"name": name, "strands": made, "runs": RUNS,
                                  "seconds": first if which == "first" else again}), flush=True)


main()
