#!/usr/bin/python3
"""Frame-rate conversion quality bench: luma PSNR against ground truth, and time per output frame.

Run it with `make bench-frc` (builds the CLI, installs the Python modules and ffmpeg when missing), or
directly: /usr/bin/python3 bench/frc/frc_bench.py [--framedsp build/tools/framedsp] [--out DIR].
It needs Debian's python3-numpy and python3-skimage (the photographs); ffmpeg is optional.

The contract of `framedsp convert-rate`, as this bench calls it:

    framedsp convert-rate --from A --to B -s WxH -pix_fmt gray -i IN.raw -y OUT.raw [--sampling S]

  - IN.raw holds N frames of W x H 8-bit gray samples back to back, no header, no padding, at A frames
    a second; OUT.raw receives the clip at B frames a second in the same layout.  A and B are whole
    numbers (30 -> 60, 60 -> 50, 24 -> 60, ...).
  - Output frame k is the picture at time k/B, input frame n the one at n/A; so output frame 0 is input
    frame 0 (byte for byte), and an output at u = k*A/B falls between inputs n = floor(u) and n + 1 at
    phase u - n, in Q14: round(16384 * (u - n)), halves up (60 -> 50: 3277, 6554, 9830, 13107).
    An output on an input's time is that input, byte for byte.
  - The clip holds the outputs k = 0 .. floor((N - 1) * B / A): none past the last input's time.
  - -y overwrites OUT.raw.  --sampling selects the motion-compensation filter: 6tap (the default),
    4tap, bilinear, nearest.  Exit status 0 on success, 1 on runtime errors (a library call answering
    not-implemented says "not implemented" on stderr), 2 on bad usage (an unknown command included).

Each case is rendered at every time the conversions need (60 -> 50: the frames used of the 300 Hz
grid the two rates share); the inputs are its frames at whole input times.  30 -> 60 scores the
outputs up to input 12 (phase 1/2), 60 -> 50 those up to input 20 (phases 0.2, 0.4, 0.6, 0.8); each
clip holds one input more, since minterpolate stops a pair before the end.
Outputs on an input's time (phase 0) are only checked for exactness; the tables cover the others.

The column 'true motion' is not a method but the yardstick of the others: the inputs moved by the case's
true motion with this bench's own Lanczos-3 in floating point (sequences.Scene.reference).  With constant
motion every output of a phase sees the same sub-pixel offsets, so the phases differ even with perfect
vectors; the report gives that spread and framedsp's distance to it, phase by phase.

minterpolate's timing, as checked by probe_minterpolate() on flat frames whose level encodes their
time (ffmpeg 5.1): output k is the picture at k/B, output 0 is input 0, and the last output is the one
at or before input N - 2.  Its outputs are therefore scored by index, like every other method.
"""
import argparse
import os
import platform
import resource
import shutil
import subprocess
import sys
import time

try:
    import numpy as np
    import skimage  # noqa: F401  (its sample photographs are the scenes)
except ImportError as e:
    sys.exit("bench-frc: %s for %s: apt-get install python3-numpy python3-skimage" % (e, sys.executable))

sys.dont_write_bytecode = True  # nothing written into the source tree
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from sequences import HEIGHT, WIDTH, Scene, output_times  # noqa: E402

RATES = ((30, 60, 12), (60, 50, 20))  # from, to, time (in inputs) of the last scored output
PHASES = ("0.2", "0.4", "0.5", "0.6", "0.8")
SPEED = "<= 16 ms per interpolated 1280x720 frame (CPU time of the whole run, one thread)"
STREAM = "<= 10 ms per output frame when streaming (the same runs, every output counted)"
TARGETS = dict(mean6=40.0, mean4=38.0, case=35.0, over_mi=1.0, spread=1.0, ms=16.0, stream_ms=10.0)


def psnr(a, b):
    mse = np.mean((a.astype(np.float64) - b.astype(np.float64)) ** 2)
    return float("inf") if mse == 0 else 10.0 * np.log10(255.0 ** 2 / mse)


def timed(cmd):
    """Runs cmd; returns (process, wall seconds, CPU seconds of the child)."""
    r0 = resource.getrusage(resource.RUSAGE_CHILDREN)
    t0 = time.perf_counter()
    p = subprocess.run(cmd, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    wall = time.perf_counter() - t0
    r1 = resource.getrusage(resource.RUSAGE_CHILDREN)
    return p, wall, (r1.ru_utime - r0.ru_utime) + (r1.ru_stime - r0.ru_stime)


def read_clip(path, w=WIDTH, h=HEIGHT):
    data = np.fromfile(path, np.uint8)
    return data[:data.size // (w * h) * w * h].reshape(-1, h, w)


# ---- methods: each returns dict(frames, wall, cpu [, io_wall, io_cpu]) in seconds, or a string saying
#      why it did not run

def repeat(inputs, times, **_):
    t0, c0 = time.perf_counter(), time.process_time()
    out = [inputs[n] if q <= 8192 else inputs[n + 1] for _, n, _, q in times]  # a tie takes the earlier
    return dict(frames=out, wall=time.perf_counter() - t0, cpu=time.process_time() - c0)


def blend(inputs, times, **_):
    t0, c0 = time.perf_counter(), time.process_time()
    out = []
    for _, n, _, q in times:
        a, b = inputs[n].astype(np.uint32), inputs[min(n + 1, len(inputs) - 1)].astype(np.uint32)
        out.append((((16384 - q) * a + q * b + 8192) >> 14).astype(np.uint8))
    return dict(frames=out, wall=time.perf_counter() - t0, cpu=time.process_time() - c0)


def true_motion(inputs, times, scene, case, **_):
    """Not a method: the case's true motion applied to the inputs with the bench's own Lanczos-3 in floating
    point, the weights of the phase, one side at the borders and under the object.  Its scores are what
    motion compensation with perfect vectors reaches on these frames, phase by phase."""
    t0, c0 = time.perf_counter(), time.process_time()
    out = [inputs[n] if q == 0 else scene.reference(case, inputs[n], inputs[n + 1], n, float(frac))
           for _, n, frac, q in times]
    return dict(frames=out, wall=time.perf_counter() - t0, cpu=time.process_time() - c0)


def ffmpeg_cmd(src, dst, rate_in, vf, w=WIDTH, h=HEIGHT):
    return ["ffmpeg", "-hide_banner", "-loglevel", "error", "-nostdin", "-threads", "1",
            "-f", "rawvideo", "-pix_fmt", "gray", "-s", "%dx%d" % (w, h), "-r", str(rate_in), "-i", src,
            "-filter_threads", "1", "-vf", vf, "-fps_mode", "passthrough", "-threads", "1",
            "-f", "rawvideo", "-pix_fmt", "gray", "-y", dst]


def minterpolate(inputs, times, rate_in, rate_out, src, work, **_):
    if not shutil.which("ffmpeg"):
        return "SKIPPED (ffmpeg not installed)"
    dst = os.path.join(work, "minterpolate.raw")
    p, wall, cpu = timed(ffmpeg_cmd(src, dst, rate_in, "minterpolate=fps=%d" % rate_out))
    if p.returncode:
        return "failed: " + p.stderr.strip()[-300:]
    out = read_clip(dst)
    # ffmpeg's own reading and writing, timed with a filter that only picks frames
    _, base_wall, base_cpu = timed(ffmpeg_cmd(src, dst, rate_in, "fps=%d" % rate_out))
    scale = len(out) / max(len(read_clip(dst)), 1)
    return dict(frames=list(out), wall=wall, cpu=cpu, io_wall=base_wall * scale, io_cpu=base_cpu * scale)


def framedsp(inputs, times, rate_in, rate_out, src, work, exe, extra=(), **_):
    if not exe or not os.path.exists(exe):
        return "not available yet"
    dst = os.path.join(work, "framedsp.raw")
    cmd = [exe, "convert-rate", "--from", str(rate_in), "--to", str(rate_out),
           "-s", "%dx%d" % (WIDTH, HEIGHT), "-pix_fmt", "gray", "-i", src, "-y", dst] + list(extra) + EXTRA
    p, wall, cpu = timed(cmd)
    if p.returncode:
        err = p.stderr.lower()
        if "unknown command" in err or "not implemented" in err or "0x80004001" in err:
            return "not available yet"
        return "failed (exit %d): %s" % (p.returncode, p.stderr.strip()[-300:])
    return dict(frames=list(read_clip(dst)), wall=wall, cpu=cpu)


EXTRA = []  # options added to every framedsp run (--framedsp-options)
METHODS = [("repeat", repeat, {}), ("blend", blend, {}), ("minterpolate", minterpolate, {}),
           ("framedsp", framedsp, {}), ("framedsp-4tap", framedsp, {"extra": ("--sampling", "4tap")}),
           ("true motion", true_motion, {})]


def probe_minterpolate(work):
    """Flat frames at level 16 + 24 n: each output's level tells the time minterpolate gave it."""
    lines = []
    for rate_in, rate_out, _ in RATES:
        n_in = 10
        clip = np.repeat((16 + 24 * np.arange(n_in, dtype=np.uint8))[:, None, None], 64 * 64, 1)
        src, dst = os.path.join(work, "probe_in.raw"), os.path.join(work, "probe_out.raw")
        clip.astype(np.uint8).tofile(src)
        p, _, _ = timed(ffmpeg_cmd(src, dst, rate_in, "minterpolate=fps=%d" % rate_out, 64, 64))
        if p.returncode:
            lines.append("%d -> %d: ffmpeg failed: %s" % (rate_in, rate_out, p.stderr.strip()[-200:]))
            continue
        got = [(f.mean() - 16) / 24 for f in read_clip(dst, 64, 64)]
        err = max(abs(u - k * rate_in / rate_out) for k, u in enumerate(got))
        last = got[-1] if got else float("nan")
        lines.append("%d -> %d: %d outputs from %d inputs, output k at u = k*%d/%d (largest error %.3f "
                     "input intervals), output 0 at u = %.2f, last at u = %.2f%s"
                     % (rate_in, rate_out, len(got), n_in, rate_in, rate_out, err, got[0] if got else 0, last,
                        "" if err < 0.05 else "  ** NOT ALIGNED: minterpolate's scores are suspect **"))
    return lines


def run_case(scene, case, exe, work, scores, exact0, clocks, notes, use):
    for rate_in, rate_out, last_u in RATES:
        times = output_times(rate_in, rate_out, last_u)
        inputs = [scene.frame(case, n) for n in range(last_u + 2)]
        src = os.path.join(work, "in.raw")
        np.stack(inputs).tofile(src)
        truth = [scene.frame(case, n + frac) for _, n, frac, _ in times]
        for name, fn, kw in METHODS:
            if name not in use:
                continue
            r = fn(inputs, times, rate_in=rate_in, rate_out=rate_out, src=src, work=work, exe=exe,
                   scene=scene, case=case, **kw)
            if isinstance(r, str):
                notes.setdefault(name, r)
                continue
            out = r["frames"]
            promised = (len(inputs) - 1) * rate_out // rate_in + 1
            if fn is framedsp and len(out) != promised:
                notes.setdefault(name + " count", "%d outputs from %d inputs at %d -> %d; the contract says %d"
                                 % (len(out), len(inputs), rate_in, rate_out, promised))
            c = clocks.setdefault(name, dict(wall=0.0, cpu=0.0, io_wall=0.0, io_cpu=0.0,
                                             outputs=0, interpolated=0))
            for key in ("wall", "cpu", "io_wall", "io_cpu"):
                c[key] += r.get(key, 0.0)
            c["outputs"] += len(out)
            c["interpolated"] += sum(k * rate_in % rate_out != 0 for k in range(len(out)))
            if len(out) < len(times):
                notes.setdefault(name + " short", "%s %d->%d: %d outputs, %d scored"
                                 % (case, rate_in, rate_out, len(out), len(times)))
            for (k, n, frac, q), t in zip(times, truth):
                if k >= len(out):
                    break
                value = psnr(out[k], t)
                if frac == 0:
                    e = exact0.setdefault(name, [0, 0])
                    e[0] += value == float("inf"); e[1] += 1
                else:
                    scores.setdefault((name, case, "%g" % float(frac)), []).append(min(value, 99.0))
        print("  %s %d -> %d: %d outputs scored" % (case, rate_in, rate_out, len(times)), flush=True)


def mean(xs):
    return sum(xs) / len(xs) if xs else None


def fmt(x, digits=2):
    return "-" if x is None else "%.*f" % (digits, x)


def summarise(scores, cases, methods):
    """(method, case, phase) -> (mean, lowest frame) dB; case None is the mean over cases, phase 'all' the
    mean of the phase means (each phase weighs the same), 'spread' the largest minus the smallest."""
    s = {}
    for m in methods:
        for c in cases:
            for p in PHASES:
                if scores.get((m, c, p)):
                    s[(m, c, p)] = (mean(scores[(m, c, p)]), min(scores[(m, c, p)]))
        for p in PHASES:
            got = [s[(m, c, p)] for c in cases if (m, c, p) in s]
            if got and len(got) == len(cases):
                s[(m, None, p)] = (mean([g[0] for g in got]), min(g[1] for g in got))
        for c in cases + [None]:
            got = [s[(m, c, p)] for p in PHASES if (m, c, p) in s]
            if len(got) == len(PHASES):
                means = [g[0] for g in got]
                s[(m, c, "all")] = (mean(means), min(g[1] for g in got))
                s[(m, c, "spread")] = (max(means) - min(means), None)
    return s


def quality_table(s, cases, methods):
    rows = ["| case | phase | " + " | ".join(methods) + " |", "|" + "---|" * (len(methods) + 2)]
    for c in cases + [None]:
        for p in PHASES + ("all", "spread"):
            cells = []
            for m in methods:
                v = s.get((m, c, p))
                if v is None or p == "spread":
                    cells.append(fmt(v and v[0]))
                else:
                    cells.append("%s / %s" % (fmt(v[0]), fmt(v[1])))
            rows.append("| %s | %s | %s |" % (c or "**mean over cases**", p, " | ".join(cells)))
    return rows


def timing_table(clocks):
    rows = ["| method | outputs | interpolated | wall ms / output | CPU ms / output "
            "| CPU ms / interpolated |", "|---|---|---|---|---|---|"]
    for name, c in clocks.items():
        n, ni = c["outputs"], max(c["interpolated"], 1)
        rows.append("| %s | %d | %d | %.1f | %.1f | %.1f |"
                    % (name, n, ni, 1e3 * c["wall"] / n, 1e3 * c["cpu"] / n, 1e3 * c["cpu"] / ni))
        if c["io_wall"]:
            wall, cpu = c["wall"] - c["io_wall"], c["cpu"] - c["io_cpu"]
            rows.append("| %s less ffmpeg's reading and writing | %d | %d | %.1f | %.1f | %.1f |"
                        % (name, n, ni, 1e3 * wall / n, 1e3 * cpu / n, 1e3 * cpu / ni))
    return rows


def target_lines(s, clocks, cases, have):
    def line(ok, text, value):
        return "%-4s  %s: %s" % ("n/a" if ok is None else ("PASS" if ok else "FAIL"), text, value)

    def db(method, case, phase="all"):
        return s.get((method, case, phase), (None,))[0]

    texts = ["mean over cases >= 40 dB (6-tap default)", "mean over cases >= 38 dB (4-tap)",
             "every case >= 35 dB", "every case >= minterpolate + 1 dB", "phase spread <= 1 dB", SPEED, STREAM]
    fd, mi = "framedsp", "minterpolate"
    if fd not in have:
        return [line(None, t, "framedsp not available yet") for t in texts]
    m6, m4, spread = db(fd, None), db("framedsp-4tap", None), db(fd, None, "spread")
    worst = min(cases, key=lambda c: db(fd, c) or 0)
    out = [line(m6 is not None and m6 >= TARGETS["mean6"], texts[0], fmt(m6) + " dB"),
           line(None, texts[1], "not measured") if m4 is None else
           line(m4 >= TARGETS["mean4"], texts[1], fmt(m4) + " dB"),
           line((db(fd, worst) or 0) >= TARGETS["case"], texts[2],
                "lowest %s %s dB" % (worst, fmt(db(fd, worst))))]
    if mi in have:
        gaps = {c: (db(fd, c) or 0) - (db(mi, c) or 0) for c in cases}
        c = min(gaps, key=gaps.get)
        out.append(line(gaps[c] >= TARGETS["over_mi"], texts[3],
                        "smallest margin %s %+.2f dB" % (c, gaps[c])))
    else:
        out.append(line(None, texts[3], "minterpolate not measured"))
    out.append(line(spread is not None and spread <= TARGETS["spread"], texts[4], fmt(spread) + " dB"))
    ref = db("true motion", None, "spread")
    if ref is not None:
        loss = [db("true motion", None, p) - db(fd, None, p) for p in PHASES]
        out.append(line(None, "  the same spread with perfect vectors (true motion)", fmt(ref) + " dB"))
        out.append(line(None, "  framedsp minus perfect vectors, phase by phase",
                        " / ".join("%s %+.2f" % (p, -l) for p, l in zip(PHASES, loss)) +
                        " dB (spread %.2f dB)" % (max(loss) - min(loss))))
    c = clocks[fd]
    ms_cpu, ms_wall = (1e3 * c[k] / max(c["interpolated"], 1) for k in ("cpu", "wall"))
    out.append(line(ms_cpu <= TARGETS["ms"], texts[5], "%.1f ms CPU, %.1f ms wall" % (ms_cpu, ms_wall)))
    per_out = 1e3 * c["cpu"] / max(c["outputs"], 1)
    out.append(line(per_out <= TARGETS["stream_ms"], texts[6], "%.1f ms CPU" % per_out))
    return out


def machine_state():
    model = ""
    try:
        with open("/proc/cpuinfo") as f:
            model = next((l.split(":", 1)[1].strip() for l in f if l.startswith("model name")), "")
    except OSError:
        pass
    ff = "not installed"
    if shutil.which("ffmpeg"):
        ff = subprocess.run(["ffmpeg", "-version"], capture_output=True, text=True).stdout
        ff = ff.split(" Copyright")[0]
    return "%s, %d cores; %s; numpy %s; %s" % (model, os.cpu_count(), platform.platform(), np.__version__, ff)


def report(start, loads, cases, have, scores, exact0, clocks, notes, probe):
    summary = summarise(scores, cases, have)
    motion = "; ".join("%s: %s" % (c, Scene.MOTION[c]) for c in cases)
    rep = ["# Frame-rate conversion: luma PSNR against ground truth, %s" % start, "",
           "Machine: %s." % machine_state(),
           "Load average (1, 5, 15 min): %.2f %.2f %.2f at the start, %.2f %.2f %.2f at the end." % loads, "",
           "Cases (motion per input pair): %s." % motion,
           "1280x720 8-bit luma.  Phase 0.5 from 30 -> 60, phases 0.2 .. 0.8 from 60 -> 50.  Cells: mean / min"
           " dB over the frames of that phase; 'all' weighs each phase the same.", ""]
    rep += quality_table(summary, cases, have)
    rep += ["", "Outputs on an input's time (phase 0), byte-exact: " +
            ", ".join("%s %d of %d" % (m, e[0], e[1]) for m, e in exact0.items()) + "."]
    rep += ["", "## Time per output frame", ""] + timing_table(clocks)
    rep += ["", "repeat, blend and true motion are numpy references; the others are whole runs of the command "
            "(reading, converting, writing; phase-0 copies included), one thread.  'interpolated' counts the "
            "outputs off the inputs' times; the speed target divides the run's CPU time by them."]
    if probe:
        rep += ["", "## minterpolate's timing (flat frames whose level encodes the time)", ""]
        rep += ["- " + line for line in probe]
    rep += ["", "## Notes", ""] + (["- %s: %s" % kv for kv in notes.items()] or ["- none"])
    rep += ["", "## Targets for framedsp convert-rate", "", "```"]
    rep += target_lines(summary, clocks, cases, have) + ["```"]
    return "\n".join(rep) + "\n"


def main():
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    names = [m[0] for m in METHODS]
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--framedsp", default=os.path.join(root, "build", "tools", "framedsp"), help="the CLI")
    ap.add_argument("--out", default=os.path.join(root, "build", "bench-frc"), help="report folder")
    ap.add_argument("--cases", default=",".join(Scene.CASES),
                    help="comma-separated, of " + ",".join(Scene.CASES))
    ap.add_argument("--methods", default=",".join(names), help="comma-separated, of " + ",".join(names))
    ap.add_argument("--keep", action="store_true", help="keep the last clips under OUT/work")
    ap.add_argument("--framedsp-options", default="",
                    help="options added to every framedsp run, e.g. '--no-occlusion'")
    args = ap.parse_args()
    EXTRA.extend(args.framedsp_options.split())
    cases, use = args.cases.split(","), args.methods.split(",")
    work = os.path.join(args.out, "work")
    os.makedirs(work, exist_ok=True)

    load0, start = os.getloadavg(), time.strftime("%Y-%m-%d %H:%M")
    print("frame-rate conversion bench: %s, %s" % (", ".join(cases), ", ".join(use)), flush=True)
    probe = probe_minterpolate(work) if shutil.which("ffmpeg") and "minterpolate" in use else []
    for l in probe:
        print("  minterpolate timing: " + l)
    scene = Scene()
    scores, exact0, clocks, notes = {}, {}, {}, {}
    for case in cases:
        run_case(scene, case, args.framedsp, work, scores, exact0, clocks, notes, use)
        scene.forget()
    load1 = os.getloadavg()

    text = report(start, (load0 + load1), cases, [m for m in names if m in clocks],
                  scores, exact0, clocks, notes, probe)
    for name, why in notes.items():
        print("%s: %s" % (name, why))
    print("\n" + text)
    path = os.path.join(args.out, "report.md")
    with open(path, "w") as f:
        f.write(text)
    print("written to " + path)
    if not args.keep:
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
