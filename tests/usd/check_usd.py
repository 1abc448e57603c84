#!/usr/bin/env python3
# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0
"""Opens USD layers with Pixar's own library and holds them against what they should contain.

    check_usd.py LAYER.usda [SUMMARY.json]
    check_usd.py FOLDER

Of a folder, every .usda is checked, with the .json of the same name where there is one. Needs the
module pxr (the package usd-core); without it the exit code is 77, which CTest takes for skipped.

A summary is an object; each key is compared if it is there:

    defaultPrim, upAxis, metersPerUnit, framesPerSecond, doc
    channels   the names of the primvars beside the writer's own
    frames     a list of objects, one per time sample: time, counts, points, widths, ids, extent,
               uvs, colors, channels (an object from name to values)

Numbers are compared exactly, as 32-bit floats; "nan", "inf" and "-inf" stand for themselves. An
extent must also be, but for the last digits, the one that the library computes.
"""

import json
import math
import pathlib
import struct
import sys

try:
    from pxr import Sdf, Usd, UsdGeom, UsdUtils
except ImportError:
    print("skipped: the module pxr (usd-core) is not there")
    sys.exit(77)

OWN_PRIMVARS = {"strandId", "st", "displayColor"}


class Check:
    """Gathers the faults of one layer."""

    def __init__(self, path):
        self.path = path
        self.faults = []

    def fault(self, text):
        self.faults.append(text)

    def equal(self, what, found, wanted):
        if found != wanted:
            self.fault(f"{what} is {shown(found)}, not {shown(wanted)}")


def shown(value):
    text = repr(value)
    return text if len(text) < 200 else text[:200] + " ..."


def as_float(value):
    """A number of the summary as the 32-bit float that the layer holds."""
    value = float(value)
    if math.isnan(value) or math.isinf(value):
        return value
    return struct.unpack("f", struct.pack("f", value))[0]


def same_numbers(found, wanted):
    """Whether two flat lists hold the same 32-bit floats; not-a-number equals itself."""
    if len(found) != len(wanted):
        return False
    for a, b in zip(found, wanted):
        b = as_float(b)
        if a != b and not (math.isnan(a) and math.isnan(b)):
            return False
    return True


def flat(values):
    """A list of numbers or tuples as a flat list of floats."""
    if values is None:
        return []
    if len(values) and hasattr(values[0], "__len__") and not isinstance(values[0], str):
        return [float(x) for value in values for x in value]
    return [float(value) for value in values]


def check_compliance(check, stage, path):
    """The library's own rules for a layer."""
    try:
        from pxr import UsdValidation

        registry = UsdValidation.ValidationRegistry()
        context = UsdValidation.ValidationContext(registry.GetOrLoadAllValidators())
        for error in context.Validate(stage):
            check.fault(f"validation: {error.GetErrorAsString()}")
        return "UsdValidation"
    except (ImportError, AttributeError):
        checker = UsdUtils.ComplianceChecker()
        checker.CheckCompliance(str(path))
        for text in checker.GetErrors() + checker.GetFailedChecks() + checker.GetWarnings():
            check.fault(f"compliance: {text}")
        return "UsdUtils.ComplianceChecker"


def check_stage(check, stage, summary):
    prim = stage.GetDefaultPrim()
    if not prim or prim.GetTypeName() != "Xform":
        check.fault("the default prim is no Xform")
        return None
    if Usd.ModelAPI(prim).GetKind() != "component":
        check.fault("the default prim is no component")
    found = {
        "defaultPrim": prim.GetName(),
        "upAxis": str(UsdGeom.GetStageUpAxis(stage)),
        "metersPerUnit": UsdGeom.GetStageMetersPerUnit(stage),
        "framesPerSecond": stage.GetFramesPerSecond(),
        "doc": stage.GetRootLayer().documentation,
    }
    for key, value in found.items():
        if key in summary:
            check.equal(key, value, summary[key])
    check.equal("timeCodesPerSecond", stage.GetTimeCodesPerSecond(), stage.GetFramesPerSecond())
    curves = UsdGeom.BasisCurves(prim.GetChild("strands"))
    if not curves:
        check.fault("there are no curves named strands")
        return None
    check.equal("the curves' type", curves.GetTypeAttr().Get(), "linear")
    check.equal("the curves' wrap", curves.GetWrapAttr().Get(), "nonperiodic")
    return curves


def check_frame(check, curves, frame, time):
    """The arrays fit each other, and the summary's values where there are some."""
    where = f"at {time}: "
    counts = list(curves.GetCurveVertexCountsAttr().Get(time))
    points = curves.GetPointsAttr().Get(time)
    widths = curves.GetWidthsAttr().Get(time)
    if any(count < 2 for count in counts):
        check.fault(where + "a curve has fewer than two points")
    check.equal(where + "the number of points", len(points), sum(counts))
    check.equal(where + "the number of widths", len(widths), len(points))
    check.equal("the widths' interpolation", curves.GetWidthsInterpolation(), "vertex")
    primvars = UsdGeom.PrimvarsAPI(curves)
    sizes = {"uniform": len(counts), "vertex": len(points)}
    for primvar in primvars.GetPrimvarsWithAuthoredValues():
        values = primvar.Get(time)
        wanted = sizes[primvar.GetInterpolation()]
        check.equal(where + primvar.GetName() + "'s size", len(values), wanted)

    def primvar(name):
        return primvars.GetPrimvar(name).Get(time)

    for key, values in (("counts", counts), ("ids", primvar("strandId"))):
        if key in frame and list(values) != frame[key]:
            check.fault(where + f"{key} are {shown(list(values))}, not {shown(frame[key])}")
    arrays = [("points", points, frame.get("points")), ("widths", widths, frame.get("widths"))]
    for key, name in (("uvs", "st"), ("colors", "displayColor")):
        if key in frame:
            arrays.append((key, primvar(name), frame[key]))
    for name, wanted in frame.get("channels", {}).items():
        arrays.append((name, primvar(name), wanted))
    for key, values, wanted in arrays:
        if wanted is not None and not same_numbers(flat(values), flat(wanted)):
            check.fault(where + f"{key} are {shown(flat(values))}, not {shown(flat(wanted))}")

    extent = flat(curves.GetExtentAttr().Get(time))
    check.equal(where + "the extent's size", len(extent), 6)
    if "extent" in frame and not same_numbers(extent, flat(frame["extent"])):
        check.fault(where + f"the extent is {shown(extent)}, not {shown(frame['extent'])}")
    if all(math.isfinite(x) for x in flat(points) + flat(widths)):
        computed = flat(UsdGeom.Boundable.ComputeExtentFromPlugins(curves, time))
        size = max([1.0] + [abs(x) for x in computed])
        if any(abs(a - b) > 1e-6 * size for a, b in zip(extent, computed)):
            check.fault(where + f"the extent is {extent}; of the points it is {computed}")


def check_layer(path, summary):
    check = Check(path)
    layer = Sdf.Layer.FindOrOpen(str(path))
    if not layer:
        check.fault("cannot be opened")
        return check
    stage = Usd.Stage.Open(layer)
    rules = check_compliance(check, stage, path)
    curves = check_stage(check, stage, summary)
    samples = 0
    if curves:
        times = curves.GetPointsAttr().GetTimeSamples()
        samples = len(times)
        if "frames" in summary:
            check.equal("the times", list(times), [frame["time"] for frame in summary["frames"]])
        if times:
            check.equal("startTimeCode", stage.GetStartTimeCode(), times[0])
            check.equal("endTimeCode", stage.GetEndTimeCode(), times[-1])
        elif stage.HasAuthoredTimeCodeRange():
            check.fault("has a time range but no frame")
        frames = summary.get("frames", [{}] * len(times))
        for time, frame in zip(times, frames):
            check_frame(check, curves, frame, time)
        if "channels" in summary and times:
            names = {
                primvar.GetPrimvarName()
                for primvar in UsdGeom.PrimvarsAPI(curves).GetPrimvarsWithAuthoredValues()
            }
            check.equal("channels", sorted(names - OWN_PRIMVARS), sorted(summary["channels"]))
    print(f"{path}: {samples} frames, by {rules}: {'ok' if not check.faults else 'FAULTY'}")
    for text in check.faults:
        print("  " + text)
    return check


def main(arguments):
    if len(arguments) not in (1, 2):
        print(__doc__)
        return 2
    target = pathlib.Path(arguments[0])
    if target.is_dir():
        pairs = [(path, path.with_suffix(".json")) for path in sorted(target.glob("*.usda"))]
    else:
        pairs = [(target, pathlib.Path(arguments[1]) if len(arguments) == 2 else None)]
    if not pairs:
        print(f"no layers in {target}")
        return 1
    faulty = 0
    for path, summary in pairs:
        known = json.loads(summary.read_text()) if summary and summary.exists() else {}
        faulty += 1 if check_layer(path, known).faults else 0
    return 1 if faulty else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
