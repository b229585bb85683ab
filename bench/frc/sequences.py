"""Ground-truth test sequences for the frame-rate conversion bench.

A scene is a continuous picture: the floating-point Lanczos-3 reconstruction of photographs (Debian's
python3-skimage sample images, converted to luma and laid side by side into one large canvas at their
own resolution, never enlarged).  A frame at time u samples the scene through the case's motion model,
so a frame between two inputs is known exactly.  Time u counts input frame intervals: motion is set per
input pair, and 30 -> 60 and 60 -> 50 see the same motion per pair.  Frames are 8-bit luma.
"""
import os
from fractions import Fraction

import numpy as np

WIDTH, HEIGHT = 1280, 720
_TAPS = 6  # Lanczos-3: three lobes each side


def _lanczos3(x):
    return np.where(np.abs(x) < 3.0, np.sinc(x) * np.sinc(x / 3.0), 0.0)


def _taps(coords):
    """Source indices and normalised weights (n, 6) for sample positions; pixel centres are integers."""
    idx = np.floor(coords).astype(np.int64)[:, None] - 2 + np.arange(_TAPS)
    w = _lanczos3(coords[:, None] - idx)
    return idx, w / w.sum(axis=1, keepdims=True)


def resample(src, ys, xs):
    """src sampled at every (ys[i], xs[j]), separably: rows first, then columns (float64)."""
    iy, wy = _taps(np.asarray(ys, np.float64))
    ix, wx = _taps(np.asarray(xs, np.float64))
    if iy.min() < 0 or ix.min() < 0 or iy.max() >= src.shape[0] or ix.max() >= src.shape[1]:
        raise ValueError("sample positions reach outside the source picture")
    c0, c1 = ix.min(), ix.max() + 1
    sub = src[:, c0:c1]
    rows = sum(wy[:, k, None] * sub[iy[:, k]] for k in range(_TAPS))
    return sum(wx[None, :, k] * rows[:, ix[:, k] - c0] for k in range(_TAPS))


def _sample_clamped(src, ys, xs):
    """resample() with positions outside the picture taking its edge samples."""
    iy, wy = _taps(np.asarray(ys, np.float64))
    ix, wx = _taps(np.asarray(xs, np.float64))
    iy, ix = np.clip(iy, 0, src.shape[0] - 1), np.clip(ix, 0, src.shape[1] - 1)
    rows = sum(wy[:, k, None] * src[iy[:, k]] for k in range(_TAPS))
    return sum(wx[None, :, k] * rows[:, ix[:, k]] for k in range(_TAPS))


def _photo_dir():
    import skimage  # only for the location of its sample pictures
    return os.path.join(os.path.dirname(skimage.__file__), "data")


def _luma(name):
    from skimage import io
    img = io.imread(os.path.join(_photo_dir(), name)).astype(np.float64)
    if img.ndim == 3:
        img = img[..., 0] * 0.299 + img[..., 1] * 0.587 + img[..., 2] * 0.114
    return img


def _canvas():
    """Two rows of photographs 500 lines high, about 2277 x 1000 luma samples."""
    rows = [["motorcycle_left.png", "astronaut.png", "gravel.png", "camera.png"],
            ["grass.png", "ihc.png", "brick.png", "moon.png", "cell.png"]]
    strips = [np.hstack([_luma(n)[:500] for n in row]) for row in rows]
    width = min(s.shape[1] for s in strips)
    return np.vstack([s[:, :width] for s in strips])


def _sprite():
    """The moving object: the cat photograph with an elliptical matte, soft over about 1.5 pixels."""
    img = _luma("chelsea.png")
    h, w = img.shape
    y, x = np.mgrid[0:h, 0:w]
    r = np.hypot((y - (h - 1) / 2) / (h / 2 - 4), (x - (w - 1) / 2) / (w / 2 - 4))
    alpha = np.clip((1.0 - r) * min(h, w) / 3.0 + 0.5, 0.0, 1.0)
    pad = 8  # beyond the filter's reach: the matte is zero there, the picture repeats its edge
    return np.pad(img, pad, mode="edge"), np.pad(alpha, pad), pad


class Scene:
    """The four cases.  frame(case, u) returns the true 8-bit frame at time u (input frames at whole u)."""

    CASES = ("pan", "occlusion", "zoom", "fastpan")
    MOTION = {  # pixels per input pair, as shown in the report
        "pan": "pan (4.37, 1.21)",
        "occlusion": "background (-2.71, 1.37), object (11.3, -3.4)",
        "zoom": "zoom x1.012 about the centre",
        "fastpan": "pan (42.3, 3.6)",
    }

    def __init__(self):
        self.canvas = _canvas()
        self.sprite, self.matte, self.pad = _sprite()
        self._cache = {}
        self._ys = np.arange(HEIGHT, dtype=np.float64)
        self._xs = np.arange(WIDTH, dtype=np.float64)

    def _pan(self, x0, y0, vx, vy, u):
        return resample(self.canvas, self._ys + y0 + vy * u, self._xs + x0 + vx * u)

    def _zoom(self, u):
        s = 1.012 ** u
        cy, cx = (HEIGHT - 1) / 2, (WIDTH - 1) / 2
        return resample(self.canvas, 480 + (self._ys - cy) / s, 900 + (self._xs - cx) / s)

    def _occlusion(self, u):
        out = self._pan(500, 60, -2.71, 1.37, u)
        oy, ox = 260 - 3.4 * u - self.pad, 150 + 11.3 * u - self.pad  # frame position of the padded sprite
        h, w = self.sprite.shape
        rows = np.nonzero((self._ys - oy >= 3) & (self._ys - oy <= h - 4))[0]
        cols = np.nonzero((self._xs - ox >= 3) & (self._xs - ox <= w - 4))[0]
        ys, xs = self._ys[rows] - oy, self._xs[cols] - ox
        a = np.clip(resample(self.matte, ys, xs), 0.0, 1.0)
        block = out[rows[0]:rows[-1] + 1, cols[0]:cols[-1] + 1]
        block += a * (resample(self.sprite, ys, xs) - block)
        return out

    # ---- the true-motion reference: what motion compensation can reach on these frames

    def _sides(self, case, phase):
        """Per side (A at -phase, B at 1 - phase): the rows and columns of the input frame that the output's
        rows and columns show, under the case's true motion (the background's for occlusion)."""
        ys, xs = self._ys, self._xs
        if case == "zoom":
            cy, cx = (HEIGHT - 1) / 2, (WIDTH - 1) / 2
            return [(cy + (ys - cy) * 1.012 ** t, cx + (xs - cx) * 1.012 ** t) for t in (-phase, 1 - phase)]
        vx, vy = {"pan": (4.37, 1.21), "fastpan": (42.3, 3.6), "occlusion": (-2.71, 1.37)}[case]
        return [(ys - vy * t, xs - vx * t) for t in (-phase, 1 - phase)]

    def _matte_at(self, u, ys, xs):
        """The object's matte at time u, seen at frame rows ys and columns xs (zero away from it)."""
        oy, ox = 260 - 3.4 * u - self.pad, 150 + 11.3 * u - self.pad
        h, w = self.matte.shape
        out = np.zeros((len(ys), len(xs)))
        rows = np.nonzero((ys - oy >= 3) & (ys - oy <= h - 4))[0]
        cols = np.nonzero((xs - ox >= 3) & (xs - ox <= w - 4))[0]
        if len(rows) and len(cols):
            out[np.ix_(rows, cols)] = np.clip(resample(self.matte, ys[rows] - oy, xs[cols] - ox), 0.0, 1.0)
        return out

    def reference(self, case, a, b, n, phase):
        """The output at time n + phase made from the 8-bit inputs a and b with the case's true motion and
        this file's Lanczos-3: each side sampled where the motion says, weights 1 - phase and phase, a side
        more than half a pixel outside the picture (or, for occlusion, covered by the object) dropped."""
        sides = self._sides(case, phase)
        pics = [_sample_clamped(f.astype(np.float64), ys, xs) for f, (ys, xs) in zip((a, b), sides)]
        inside = [((ys >= -0.5) & (ys <= HEIGHT - 0.5))[:, None] & ((xs >= -0.5) & (xs <= WIDTH - 0.5))[None, :]
                  for ys, xs in sides]
        w = [(1.0 - phase) * inside[0], phase * inside[1]]
        if case == "occlusion":  # the background is seen where the object does not cover it
            for i, (ys, xs) in enumerate(sides):
                w[i] = w[i] * (1.0 - self._matte_at(n + i, ys, xs))
        total = w[0] + w[1]
        plain = total < 1e-6
        out = np.where(plain, (1.0 - phase) * pics[0] + phase * pics[1],
                       (w[0] * pics[0] + w[1] * pics[1]) / np.where(plain, 1.0, total))
        if case == "occlusion":  # the object, seen on both sides, over it
            t = n + phase
            obj = [(self._ys - 3.4 * (n + i - t), self._xs + 11.3 * (n + i - t)) for i in (0, 1)]
            both = sum(wt * _sample_clamped(f.astype(np.float64), ys, xs)
                       for wt, f, (ys, xs) in zip((1.0 - phase, phase), (a, b), obj))
            alpha = self._matte_at(t, self._ys, self._xs)
            out += alpha * (both - out)
        return np.clip(np.rint(out), 0, 255).astype(np.uint8)

    def frame(self, case, u):
        key = (case, Fraction(u))
        if key not in self._cache:
            u = float(u)
            if case == "pan":
                f = self._pan(300, 100, 4.37, 1.21, u)
            elif case == "fastpan":
                f = self._pan(40, 80, 42.3, 3.6, u)
            elif case == "zoom":
                f = self._zoom(u)
            elif case == "occlusion":
                f = self._occlusion(u)
            else:
                raise ValueError(case)
            self._cache[key] = np.clip(np.rint(f), 0, 255).astype(np.uint8)
        return self._cache[key]

    def forget(self):
        self._cache.clear()


def output_times(rate_in, rate_out, last_u):
    """Output frame k of an A -> B conversion sits at k/B, i.e. u = k*A/B input intervals.

    Returns (k, pair n, exact phase as a Fraction, phase in Q14 rounded half up) for every output with
    u <= last_u.  For 60 -> 50 the phases cycle 0, 0.2, 0.4, 0.6, 0.8 (Q14 0, 3277, 6554, 9830, 13107);
    for 30 -> 60 they alternate 0 and 1/2 (8192)."""
    out = []
    k = 0
    while Fraction(k * rate_in, rate_out) <= last_u:
        u = Fraction(k * rate_in, rate_out)
        n = u.numerator // u.denominator
        frac = u - n
        q14 = (frac.numerator * 16384 * 2 + frac.denominator) // (2 * frac.denominator)
        out.append((k, n, frac, q14))
        k += 1
    return out
