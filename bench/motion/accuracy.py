#!/usr/bin/python3
"""Motion-vector accuracy on photographs moved by known translations.

Run: /usr/bin/python3 bench/motion/accuracy.py [--framedsp build/tools/framedsp] [--out DIR] [--png]
It needs Debian's python3-numpy and python3-skimage (its sample photographs are the pictures).

Each case is one photograph at its own resolution (luma, never enlarged) and one motion.  Frame A is
the photograph's window at an origin; frame B the same window moved by the motion v, rendered by the
floating-point Lanczos-3 reconstruction of the photograph (bench/frc/sequences.py), so B(p + v) = A(p)
up to the 8-bit rounding.  `framedsp vectors A B --field F` estimates both fields (4 levels, 8x8
final blocks, the library's default search settings: reach 15 pixels); the forward truth is v, the
backward truth -v.

A block is right when both components of its vector are within a quarter pixel of the truth.  The
percentage counts every block except
  - blocks the field flags DSP_MV_FLAT (no texture: any vector matches them as well as the true
    one), shown in the "flat" column, and
  - blocks whose true match reaches outside the other picture (content that enters or leaves the
    picture; a fractional match reads the interpolation filter's two samples before and three
    after), shown in the "edge" column with their own percentage.
"all" is the percentage over every block, flat and edge blocks included.
"""
import argparse
import os
import struct
import subprocess
import sys
import tempfile

try:
    import numpy as np
except ImportError as e:
    sys.exit("accuracy: %s for %s: apt-get install python3-numpy python3-skimage" % (e, sys.executable))

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "frc"))
from sequences import _luma, resample  # noqa: E402

BLOCK = 8
MV_FLAT = 0x08
MARGIN = 16  # pixels kept around the window: the motion plus the filter's reach

# Photograph, frame width and height (multiples of 16, so every pyramid level keeps even sizes).
PHOTOS = (
    ("camera.png", 480, 480),           # sky, coat
    ("astronaut.png", 480, 480),        # flat background
    ("coffee.png", 560, 368),           # table, wall
    ("rocket.jpg", 608, 384),           # sky
    ("motorcycle_left.png", 704, 464),  # walls, floor
    ("chelsea.png", 416, 256),
    ("hubble_deep_field.jpg", 960, 832),  # dark sky, noise
    ("retina.jpg", 1280, 720),
)
# Motions in pixels (x right, y down): whole pixels, then quarter pixels, of several sizes and directions.
MOTIONS = ((1, 0), (-3, 2), (0, -6), (9, -5), (0.25, -0.5), (-1.75, 0.25), (2.75, 1.25), (-4.5, -3.75),
           (7.5, 4.75), (-12.25, 6.5))


def frames(photo, w, h, vx, vy):
    img = _luma(photo)
    assert img.shape[0] >= h + 2 * MARGIN and img.shape[1] >= w + 2 * MARGIN, photo
    y0, x0 = (img.shape[0] - h) // 2, (img.shape[1] - w) // 2
    a = img[y0:y0 + h, x0:x0 + w]
    b = resample(img, np.arange(h) + y0 - vy, np.arange(w) + x0 - vx)
    to8 = lambda f: np.clip(np.rint(f), 0, 255).astype(np.uint8)  # noqa: E731
    return to8(a), to8(b)


def read_field(path):
    data = open(path, "rb").read()
    (nbytes, w, h, bw, bh, cols, rows, flags, bad_f, bad_b, scene, _) = struct.unpack_from("<12I", data)
    e = np.frombuffer(data[48:nbytes], dtype=[("x", "<i2"), ("y", "<i2"), ("cost", "<u2"), ("flags", "<u2")])
    n = cols * rows
    return cols, rows, e[:n].reshape(rows, cols), e[n:2 * n].reshape(rows, cols)


def score(entries, w, h, tx, ty):
    """(right counted, counted, right edge, edge, flat, right all, all) of one direction."""
    rows, cols = entries.shape
    bx, by = np.arange(cols) * BLOCK, np.arange(rows) * BLOCK
    bw, bh = np.minimum(BLOCK, w - bx), np.minimum(BLOCK, h - by)
    # The true match of a block lies inside the picture, with the filter's reach for a fraction.
    def reach(t):
        return (np.floor(t) - 2, np.floor(t) + 3) if t != np.floor(t) else (t, t)
    (lx, hx), (ly, hy) = reach(tx), reach(ty)
    in_x = (bx + lx >= 0) & (bx + bw - 1 + hx <= w - 1)
    in_y = (by + ly >= 0) & (by + bh - 1 + hy <= h - 1)
    inside = in_y[:, None] & in_x[None, :]
    right = (np.abs(entries["x"] - 4 * tx) <= 1) & (np.abs(entries["y"] - 4 * ty) <= 1)
    flat = (entries["flags"] & MV_FLAT) != 0
    counted, edge = inside & ~flat, ~inside & ~flat
    return (int((right & counted).sum()), int(counted.sum()), int((right & edge).sum()), int(edge.sum()),
            int(flat.sum()), int(right.sum()), right.size)


def pct(a, b):
    return "%6.2f" % (100.0 * a / b) if b else "     -"


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--framedsp", default="build/tools/framedsp")
    ap.add_argument("--out", default=None, help="directory for the frames, fields and PNGs (default: a temporary one)")
    ap.add_argument("--png", action="store_true", help="keep a PNG of each forward field")
    ap.add_argument("--only", default="", help="run the photographs whose names contain this")
    args = ap.parse_args()
    out = args.out or tempfile.mkdtemp(prefix="mv-accuracy-")
    os.makedirs(out, exist_ok=True)

    print("%-22s %9s %14s | %-33s | %-33s" % ("photograph", "size", "motion", "forward", "backward"))
    print("%-22s %9s %14s | %6s %6s %6s %5s %6s | %6s %6s %6s %5s %6s" %
          ("", "", "", "right", "all", "edge", "#edge", "flat", "right", "all", "edge", "#edge", "flat"))
    totals = np.zeros((2, 7), np.int64)
    worst = [100.0, 100.0]
    for photo, w, h in PHOTOS:
        if args.only not in photo:
            continue
        for vx, vy in MOTIONS:
            a, b = frames(photo, w, h, vx, vy)
            stem = os.path.join(out, "%s_%g_%g" % (photo.split(".")[0], vx, vy))
            a.tofile(stem + ".a.raw")
            b.tofile(stem + ".b.raw")
            png = stem + ".png" if args.png else os.path.join(out, "last.png")
            cmd = [args.framedsp, "vectors", stem + ".a.raw", stem + ".b.raw", png, "-s", "%dx%d" % (w, h),
                   "-pix_fmt", "gray", "--field", stem + ".field", "-y"]
            p = subprocess.run(cmd, capture_output=True, text=True)
            if p.returncode != 0:
                sys.exit("accuracy: %s failed:\n%s%s" % (" ".join(cmd), p.stdout, p.stderr))
            _, _, fwd, bwd = read_field(stem + ".field")
            cells = []
            for d, (entries, t) in enumerate(((fwd, (vx, vy)), (bwd, (-vx, -vy)))):
                s = score(entries, w, h, *t)
                totals[d] += s
                worst[d] = min(worst[d], 100.0 * s[0] / s[1])
                cells.append("%s %s %s %5d %s" % (pct(s[0], s[1]), pct(s[5], s[6]), pct(s[2], s[3]), s[3],
                                                  pct(s[4], s[6])))
            print("%-22s %4dx%-4d %14s | %s | %s" % (photo, w, h, "(%g, %g)" % (vx, vy), cells[0], cells[1]),
                  flush=True)
    for d, name in enumerate(("forward", "backward")):
        t = totals[d]
        print("%-8s right %s %% of %d counted blocks (worst case %.2f %%); all blocks %s %%; edge blocks %s %%; "
              "flat %s %%" % (name, pct(t[0], t[1]).strip(), t[1], worst[d], pct(t[5], t[6]).strip(),
                              pct(t[2], t[3]).strip(), pct(t[4], t[6]).strip()))
    if not args.out:
        for f in os.listdir(out):
            os.remove(os.path.join(out, f))
        os.rmdir(out)


if __name__ == "__main__":
    main()
