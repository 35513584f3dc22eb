#!/usr/bin/env python3
"""The frei0r plug-ins inside the real programs, compared with `nimbo render`.

For every plug-in: the same small clip and the same settings through
  ffmpeg -vf frei0r=...        (-filter_complex vstack for ChromaKeyPRO's stacked plug-in)
  melt ... -filter frei0r....  (-transition for the ChromaKeyPRO mixer)
  gst-launch-1.0 ... frei0r-filter-... (frei0r-mixer-... for the mixer)
and `nimbo render` of the same settings; every output decoded to raw BGRA and
compared byte for byte. The clip is raw BGRA throughout, so nothing lossy
stands between the programs. Each plug-in's parameter list as GStreamer
(gst-inspect-1.0) and MLT (melt -query) read it must hold every setting,
dynamic variable and slider `nimbo info --json` lists, and nothing else but
the bridge's own "preset" and "values file". And hostile values through
ffmpeg and melt (NaN, -3, 7, 1e308, a preset that does not exist) still give
every frame.

Exit 0 when everything matches, 1 with a line per mismatch, 77 (skipped) in a
sanitizer build: there the plug-ins need the sanitizer runtime, which the
uninstrumented programs do not load.
"""
import argparse
import ctypes
import json
import os
import shutil
import subprocess
import sys

W, H, FRAMES, FPS = 64, 48, 5, 25
FRAME_BYTES = W * H * 4

# frei0r parameter types
BOOL, DOUBLE, COLOR, STRING = 0, 1, 2, 4

# Per effect: settings (--set) and dynamic variables or sliders (--dyn) off
# their defaults, so the parameter mapping is exercised, not only the defaults.
CASES = {
    # An input smaller than the frame: the bridge scales the host's frame itself.
    "ReScaler": {"set": {"in_w": 24, "in_h": 20}, "dyn": {}},
    "LoPass": {"set": {}, "dyn": {"Resonance Q": 4.0}},
    "TimeBlur2": {"set": {}, "dyn": {}},
    "Fast h-Blur": {"set": {}, "dyn": {}},
    "RGB Displacer": {"set": {}, "dyn": {}},
    "ColorReducer": {"set": {}, "dyn": {}},
    "Glitter": {"set": {}, "dyn": {"Threshold": 120.0}},
    "Retina Killer": {"set": {}, "dyn": {}},
    "ChromaKeyPRO": {"set": {"chroma_rgb": 0x00FF00, "angle": 40.0, "outmode": 0}, "dyn": {}},
    "XtractAlpha": {"set": {}, "dyn": {}},
    "ColorTrafo": {"set": {}, "dyn": {}},
    "ColorTracker": {"set": {"object_color": 0xFF0000}, "dyn": {}},
    "Distorter": {"set": {}, "dyn": {}},
    "LowQ": {"set": {}, "dyn": {"Number of operations per frame": 20.0}},
}

PLUGINS = [(name, "filter") for name in CASES if name != "ChromaKeyPRO"] + [
    ("ChromaKeyPRO", "mixer"), ("ChromaKeyPRO", "stacked")]

failures = []


def fail(text):
    failures.append(text)
    print("FAIL: " + text, flush=True)


def run(cmd, env=None, timeout=120):
    result = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env, timeout=timeout)
    if result.returncode != 0:
        raise RuntimeError("%s failed (%d): %s" % (cmd[0], result.returncode, result.stderr.decode(errors="replace")[-800:]))
    return result.stdout.decode(errors="replace")


def file_name(effect, layout):
    base = "nimbo_" + "".join(c if c.isalnum() else "_" for c in effect.lower())
    return base + ("_stacked" if layout == "stacked" else "")


def plugin_name(effect, layout):
    base = "nimbo " + "".join(c if c.isalnum() else " " for c in effect.lower())
    return base + (" stacked" if layout == "stacked" else "")


class ParamInfo(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char_p), ("type", ctypes.c_int), ("explanation", ctypes.c_char_p)]


class PluginInfo(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char_p), ("author", ctypes.c_char_p), ("plugin_type", ctypes.c_int),
                ("color_model", ctypes.c_int), ("frei0r_version", ctypes.c_int), ("major_version", ctypes.c_int),
                ("minor_version", ctypes.c_int), ("num_params", ctypes.c_int), ("explanation", ctypes.c_char_p)]


def plugin_params(path):
    """(name, type) of each parameter, in order, as the plug-in itself gives them."""
    lib = ctypes.CDLL(path)
    lib.f0r_init()
    info = PluginInfo()
    lib.f0r_get_plugin_info(ctypes.byref(info))
    params = []
    for i in range(info.num_params):
        p = ParamInfo()
        lib.f0r_get_param_info(ctypes.byref(p), i)
        params.append((p.name.decode(), p.type))
    return params


def variable_param(names, name):
    """A variable's parameter name: its name in lower case, with its kind added when a setting has that name."""
    for candidate in (name.lower() + " variable", name.lower() + " slider"):
        if candidate in names:
            return candidate
    return name.lower()


def frei0r_values(effect, info, params):
    """{param index: (type, frei0r value)} for the case's settings and variables."""
    case = CASES[effect]
    index = {name: i for i, (name, _) in enumerate(params)}
    values = {}
    settings = {s["key"]: s for s in info["settings"]}
    for key, target in case["set"].items():
        s = settings[key]
        i = index[key.lower()]
        kind = params[i][1]
        if kind == COLOR:
            values[i] = (COLOR, ((target >> 16) & 255, (target >> 8) & 255, target & 255))
        elif kind == BOOL:
            values[i] = (BOOL, float(target))
        else:
            values[i] = (DOUBLE, (target - s["min"]) / (s["max"] - s["min"]))
    variables = {v["name"]: v for v in info["dynvars"] + info["sliders"]}
    for name, target in case["dyn"].items():
        v = variables[name]
        i = index[variable_param(index, name)]
        values[i] = (DOUBLE, (target - v["min"]) / (v["max"] - v["min"]))
    return values


def nimbo_args(effect):
    case = CASES[effect]
    args = []
    for key, value in case["set"].items():
        args += ["--set", "%s=%s" % (key, value)]
    for name, value in case["dyn"].items():
        args += ["--dyn", "%s=%r" % (name, value)]
    return args


def ffmpeg_token(kind, value):
    """One value as ffmpeg's frei0r filter parses it."""
    if kind == COLOR:
        return "%.9g/%.9g/%.9g" % tuple(c / 255.0 for c in value)
    if kind == BOOL:
        return "y" if value >= 0.5 else "n"
    return "%.17g" % value


def ffmpeg_defaults(path, params):
    """Each parameter's default as ffmpeg's text, read from a fresh instance."""
    lib = ctypes.CDLL(path)
    lib.f0r_construct.restype = ctypes.c_void_p
    inst = lib.f0r_construct(W, H)
    out = []
    for i, (_, kind) in enumerate(params):
        if kind in (BOOL, DOUBLE):
            d = ctypes.c_double()
            lib.f0r_get_param_value(ctypes.c_void_p(inst), ctypes.byref(d), i)
            out.append(("y" if d.value >= 0.5 else "n") if kind == BOOL else "%.17g" % d.value)
        elif kind == COLOR:
            c = (ctypes.c_float * 3)()
            lib.f0r_get_param_value(ctypes.c_void_p(inst), c, i)
            out.append("%.9g/%.9g/%.9g" % (c[0], c[1], c[2]))
        else:
            out.append("")
    lib.f0r_destruct(ctypes.c_void_p(inst))
    return out


def read_frames(path):
    data = open(path, "rb").read()
    return [data[i:i + FRAME_BYTES] for i in range(0, len(data) - FRAME_BYTES + 1, FRAME_BYTES)]


def decode_raw(src, dst):
    run(["ffmpeg", "-v", "error", "-y", "-i", src, "-f", "rawvideo", "-pix_fmt", "bgra", dst])


def compare(label, expected, got, minimum):
    if len(got) < minimum:
        fail("%s: %d frames, expected at least %d" % (label, len(got), minimum))
        return
    for k, frame in enumerate(got[:len(expected)]):
        if frame != expected[k]:
            differing = sum(1 for a, b in zip(frame, expected[k]) if a != b)
            fail("%s: frame %d differs from nimbo render in %d bytes" % (label, k, differing))
            return
    print("ok: %s (%d frames)" % (label, min(len(got), len(expected))), flush=True)


def gst_property(name):
    return "".join(c if (c.isalnum() or c in "-+") else "-" for c in name.lower())


def gst_props(params, values):
    props = []
    for i, (kind, value) in sorted(values.items()):
        name = gst_property(params[i][0])
        if kind == COLOR:
            for channel, c in zip("rgb", value):
                props.append("%s-%s=%.9g" % (name, channel, c / 255.0))
        elif kind == BOOL:
            props.append("%s=%s" % (name, "true" if value >= 0.5 else "false"))
        else:
            props.append("%s=%.17g" % (name, value))
    return props


def mlt_props(params, values):
    props = []
    for i, (kind, value) in sorted(values.items()):
        if kind == COLOR:
            props.append("%d=#%02x%02x%02x" % ((i,) + tuple(value)))
        else:
            props.append("%d=%.17g" % (i, value))
    return props


def hostile(effect, layout, name, params, fg, bg, profile, env, work):
    """NaN, negative and too large numbers, a preset that does not exist: still every frame."""
    numbers = ["nan", "-3", "7", "1e308"]
    tokens, props = [], []
    for i, (_, kind) in enumerate(params):
        if kind == STRING:
            value = "/nonexistent/preset.xml"
        elif kind == COLOR:
            value = "nan/-1/2"
        elif kind == BOOL:
            value = "y"
        else:
            value = numbers[i % len(numbers)]
        tokens.append(value)
        props.append("%d=%s" % (i, "#ff00ff" if kind == COLOR else value))
    if layout == "filter":
        out = os.path.join(work, name + ".hostile.ffmpeg.raw")
        run(["ffmpeg", "-v", "error", "-y", "-i", fg, "-vf",
             "frei0r=filter_name=%s:filter_params=%s" % (name, "|".join(tokens)),
             "-f", "rawvideo", "-pix_fmt", "bgra", out], env=env)
        if len(read_frames(out)) != FRAMES:
            fail("ffmpeg %s with hostile values: %d frames" % (name, len(read_frames(out))))
    out = os.path.join(work, name + ".hostile.melt.nut")
    if layout == "mixer":
        cmd = ["melt", "-silent", "-profile", profile, fg, "-track", bg, "-transition", "frei0r." + name,
               "a_track=0", "b_track=1"] + props
    else:
        cmd = ["melt", "-silent", "-profile", profile, fg, "-filter", "frei0r." + name] + props
    run(cmd + ["-consumer", "avformat:" + out, "vcodec=rawvideo", "pix_fmt=bgra", "an=1"], env=env)
    raw = os.path.join(work, name + ".hostile.melt.raw")
    decode_raw(out, raw)
    if len(read_frames(raw)) < FRAMES - 1:
        fail("melt %s with hostile values: %d frames" % (name, len(read_frames(raw))))
    else:
        print("ok: %s gives every frame with NaN, -3, 7, 1e308 and a missing preset" % name, flush=True)


def check_param_lists(effect, layout, params, info, env):
    """GStreamer and MLT read the same parameters, and they cover the effect's table."""
    expected = set(s["key"].lower() for s in info["settings"] if "min" in s)
    names = [n for n, _ in params]
    expected |= set(variable_param(names, v["name"]) for v in info["dynvars"] + info["sliders"])
    extra = set(names) - expected - {"preset", "values file"}
    # Variables declared only under a switch are parameters too (ChromaKeyPRO's key variables).
    missing = expected - set(names)
    if missing:
        fail("%s: parameters missing for %s" % (file_name(effect, layout), sorted(missing)))
    mixer = layout == "mixer"
    element = ("frei0r-mixer-" if mixer else "frei0r-filter-") + gst_property(plugin_name(effect, layout))
    text = run(["gst-inspect-1.0", element], env=env)
    gst_names = set()
    for name, kind in params:
        base = gst_property(name)
        gst_names |= {base + "-r", base + "-g", base + "-b"} if kind == COLOR else {base}
    listed = set(line.split(":")[0].strip() for line in text.splitlines() if line.startswith("  ") and ":" in line)
    if not gst_names <= listed:
        fail("%s: gst-inspect-1.0 lacks %s" % (element, sorted(gst_names - listed)))
    service = ("transition=" if mixer else "filter=") + "frei0r." + file_name(effect, layout)
    query = run(["melt", "-query", service], env=env)
    # YAML quotes titles that hold a colon.
    titles = [line.split(":", 1)[1].strip().strip('"').lower() for line in query.splitlines()
              if line.strip().startswith("title:")]
    if sorted(titles[1:]) != sorted(names):
        fail("%s: melt -query lists %s, the plug-in %s" % (service, titles[1:], names))
    elif not failures or not failures[-1].startswith(file_name(effect, layout)):
        print("ok: %s parameters (%d) in gst-inspect-1.0 and melt -query; %d beyond the table: %s"
              % (file_name(effect, layout), len(names), len(extra), sorted(extra)), flush=True)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--nimbo", required=True)
    parser.add_argument("--frei0r-dir", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--sanitized", action="store_true")
    parser.add_argument("--only", action="append", default=[])
    args = parser.parse_args()
    if args.sanitized:
        print("skipped: sanitizer build; ffmpeg, melt and gst-launch-1.0 cannot load plug-ins that need the "
              "sanitizer runtime (frei0r_tests covers the plug-ins in-process there)")
        return 77
    for tool in ("ffmpeg", "melt", "gst-launch-1.0", "gst-inspect-1.0"):
        if not shutil.which(tool):
            print("FAIL: %s is not installed (scripts/setup installs it)" % tool)
            return 1

    work = args.work
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    env = dict(os.environ)
    env["FREI0R_PATH"] = args.frei0r_dir
    env["GST_REGISTRY"] = os.path.join(work, "gst-registry.bin")  # a fresh scan of the fresh build
    env["GST_PLUGIN_SYSTEM_PATH"] = env.get("GST_PLUGIN_SYSTEM_PATH", "")
    env.pop("GST_PLUGIN_SYSTEM_PATH")
    env["DISPLAY"] = ""  # ColorTracker moves no real cursor
    env["NIMBO_DESKTOP_SIZE"] = "1920x1080"

    fg, bg = os.path.join(work, "fg.nut"), os.path.join(work, "bg.nut")
    run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=%dx%d:rate=%d" % (W, H, FPS),
         "-frames:v", str(FRAMES), "-pix_fmt", "bgra", "-c:v", "rawvideo", fg])
    run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "smptebars=size=%dx%d:rate=%d" % (W, H, FPS),
         "-frames:v", str(FRAMES), "-pix_fmt", "bgra", "-c:v", "rawvideo", bg])
    fg_raw, bg_raw = os.path.join(work, "fg.raw"), os.path.join(work, "bg.raw")
    decode_raw(fg, fg_raw)
    decode_raw(bg, bg_raw)
    profile = os.path.join(work, "profile")
    with open(profile, "w") as f:
        f.write("description=frei0r test\nframe_rate_num=%d\nframe_rate_den=1\nwidth=%d\nheight=%d\n"
                "progressive=1\nsample_aspect_num=1\nsample_aspect_den=1\ndisplay_aspect_num=%d\n"
                "display_aspect_den=%d\ncolorspace=601\n" % (FPS, W, H, W, H))
    raw_caps = "rawvideoparse width=%d height=%d format=bgra framerate=%d/1" % (W, H, FPS)

    for effect, layout in PLUGINS:
        if args.only and effect not in args.only:
            continue
        name = file_name(effect, layout)
        path = os.path.join(args.frei0r_dir, name + ".so")
        try:
            params = plugin_params(path)
            info = json.loads(run([args.nimbo, "info", effect, "--json"]))
            check_param_lists(effect, layout, params, info, env)
            values = frei0r_values(effect, info, params)
            two = effect == "ChromaKeyPRO"

            ours = os.path.join(work, name + ".nimbo.mkv")
            run([args.nimbo, "render", effect, "-i", fg] + (["-i", bg] if two else []) +
                ["-o", ours, "--keep-alpha", "--quiet"] + nimbo_args(effect) +
                (["--values", os.path.join(work, name + ".nimbo.csv")] if effect == "ColorTracker" else []),
                env=env)
            ours_raw = os.path.join(work, name + ".nimbo.raw")
            decode_raw(ours, ours_raw)
            expected = read_frames(ours_raw)
            if len(expected) != FRAMES:
                fail("%s: nimbo render gave %d frames" % (name, len(expected)))
                continue

            # ffmpeg: a filter, or the stacked plug-in between vstack and crop.
            if layout != "mixer":
                defaults = ffmpeg_defaults(path, params)
                tokens = list(defaults)
                for i, (kind, value) in values.items():
                    tokens[i] = ffmpeg_token(kind, value)
                if effect == "ColorTracker":
                    tokens[[n for n, _ in params].index("values file")] = os.path.join(work, name + ".ffmpeg.csv")
                last = max(list(values) + ([len(params) - 1] if effect == "ColorTracker" else []) + [0])
                f0r = "frei0r=filter_name=%s:filter_params=%s" % (name, "|".join(tokens[:last + 1]).replace(":", "\\:"))
                out = os.path.join(work, name + ".ffmpeg.raw")
                if layout == "stacked":
                    cmd = ["ffmpeg", "-v", "error", "-y", "-i", fg, "-i", bg, "-filter_complex",
                           "[0:v][1:v]vstack," + f0r + ",crop=iw:ih/2:0:0"]
                else:
                    cmd = ["ffmpeg", "-v", "error", "-y", "-i", fg, "-vf", f0r]
                run(cmd + ["-f", "rawvideo", "-pix_fmt", "bgra", out], env=env)
                compare("ffmpeg " + name, expected, read_frames(out), FRAMES)
                if effect == "ColorTracker":
                    ours_csv = open(os.path.join(work, name + ".nimbo.csv")).read().splitlines()
                    theirs_csv = open(os.path.join(work, name + ".ffmpeg.csv")).read().splitlines()
                    if ours_csv != theirs_csv:
                        fail("%s: values CSV differs: %s vs %s" % (name, ours_csv[:3], theirs_csv[:3]))
                    else:
                        print("ok: ffmpeg %s values CSV equals nimbo --values" % name, flush=True)
            if layout == "stacked":
                continue
            hostile(effect, layout, name, params, fg, bg, profile, env, work)

            # melt: a filter, or a transition from the keyed track (a) over the background (b).
            out = os.path.join(work, name + ".melt.nut")
            if layout == "mixer":
                cmd = ["melt", "-silent", "-profile", profile, fg, "-track", bg, "-transition",
                       "frei0r." + name, "a_track=0", "b_track=1"] + mlt_props(params, values)
            else:
                cmd = ["melt", "-silent", "-profile", profile, fg, "-filter", "frei0r." + name] + mlt_props(params, values)
            run(cmd + ["-consumer", "avformat:" + out, "vcodec=rawvideo", "pix_fmt=bgra", "an=1"], env=env)
            melt_raw = os.path.join(work, name + ".melt.raw")
            decode_raw(out, melt_raw)
            compare("melt " + name, expected, read_frames(melt_raw), FRAMES - 1)

            # gst-launch-1.0
            out = os.path.join(work, name + ".gst.raw")
            element = ("frei0r-mixer-" if layout == "mixer" else "frei0r-filter-") + gst_property(plugin_name(effect, layout))
            props = gst_props(params, values)
            if layout == "mixer":
                pipeline = ("%s name=m %s ! video/x-raw,format=BGRA ! filesink location=%s "
                            "filesrc location=%s ! %s ! m.sink_0 filesrc location=%s ! %s ! m.sink_1"
                            % (element, " ".join(props), out, fg_raw, raw_caps, bg_raw, raw_caps))
            else:
                pipeline = ("filesrc location=%s ! %s ! %s %s ! video/x-raw,format=BGRA ! filesink location=%s"
                            % (fg_raw, raw_caps, element, " ".join(props), out))
            run(["gst-launch-1.0", "-q"] + pipeline.split(), env=env)
            compare("gst-launch-1.0 " + name, expected, read_frames(out), FRAMES)
        except (RuntimeError, KeyError, ValueError, subprocess.TimeoutExpired) as e:
            fail("%s: %s" % (name, e))

    if failures:
        print("%d failure(s)" % len(failures))
        return 1
    print("every plug-in gives nimbo render's pictures in ffmpeg, melt and gst-launch-1.0")
    return 0


if __name__ == "__main__":
    sys.exit(main())
