#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Measures what a listener meets from each rate converter: every converter
runs inside alsa-lib's `rate` plugin, driven by aplay into a `type file` PCM
over `null`, and the file it writes is analysed. The engine's sinc
interpolator, which no plugin uses, runs through skelda_convert instead and
is marked "offline", as is sox's very high quality rate effect.

Measurements (one Markdown table each, a row per rate pair, a column per
converter):
  1. THD+N of -1 dBFS tones at 997 Hz, 6000 Hz (0.3 x the lower rate where
     6 kHz is past 0.45 of it) and 0.4 x the lower rate: the tone's
     frequency, amplitude, phase and DC are least-squares fitted
     (Gauss-Newton from the FFT peak) and everything else counts as
     distortion and noise, over the whole output band; the first and last
     50 ms of each tone are left out.
  2. Period sizes forced with `aplay --period-size=N`: the output frame count
     against what the period sizes imply, THD+N of 997 Hz, its worst short
     window, and the windows on the output period boundaries against their
     neighbours, which show a seam between periods.
  3. Passband: largest deviation from 0 dB of -6 dBFS stepped sines up to
     0.45 x the lower rate. Image/alias rejection: the strongest image or
     alias, relative to the tone, among the components that an ideal
     converter removes (those at or above 0.55 x the lower rate before the
     output's sampling folds them): the aliases of tones at or above
     0.55 x the lower rate and the images of the passband tones, up to the
     output's Nyquist frequency.
  4. Group delay: cross-correlation of a band-limited pulse with the
     output, to a sixteenth of an output sample.
An "ideal, 16-bit" row runs the same analysis on the exact output rounded
to 16 bits: the floor of each measurement. An "ideal from the 16-bit input"
row converts the very 16-bit input the converters get with a converter far
better than the job asks (in double precision) and rounds once: what any
converter can reach from that input, whose own rounding noise lies in the
passband.

The same measurements run again on 24-bit material: S32 streams (24-bit
samples in the top bits) into an S32 device, with an "ideal from the 24-bit
input" row. The report ends with skelda_hq's targets, pair by pair, and the
list of misses: for 16-bit streams THD+N within 1.2 dB of samplerate_best at
997 Hz and at 0.4 x the lower rate, images and aliases 100 dB down; for
24-bit material 144 dB at 997 Hz, 140 dB at every tone, images and aliases
140 dB down; at both depths the passband flat within 0.1 dB to 0.45 x the
lower rate.

Each pair and depth is one job of a pool of two processes (render, convert
with every converter, analyse, plot): out_dir/response_<in>_<out>.png and
response24_<in>_<out>.png, every converter over each other.

    python3 tools/quality_report.py BUILD_DIR OUT_DIR
"""
import concurrent.futures
import ctypes
import math
import os

# One thread per process: the pool's two processes are all the cores the
# report takes.
for _name in ("OPENBLAS_NUM_THREADS", "OMP_NUM_THREADS", "MKL_NUM_THREADS"):
    os.environ.setdefault(_name, "1")
import re
import shutil
import subprocess
import sys
import tempfile
import time
import wave

import numpy as np
import scipy.signal

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

# (label, converter name for alsa-lib, or "sinc" for skelda_convert --sinc)
CONVERTERS = [
    ("skelda_hq", "skelda_hq"),
    ("samplerate_best", "samplerate_best"),
    ("samplerate", "samplerate"),
    ("speexrate", "speexrate"),
    ("lavrate", "lavrate"),
    ("skelda", "skelda"),
    ("alsa linear", "linear"),
    ("skelda sinc (offline)", "sinc"),
]
# The pairs of the earlier reports, then the highest and lowest rates
# alsa-lib opens; every pair at both depths.
PAIRS = [(44100, 48000), (48000, 44100), (32000, 48000), (22050, 48000),
         (96000, 44100), (48000, 16000), (16000, 48000), (8000, 48000), (48000, 8000),
         (11025, 44100), (88200, 48000), (44100, 192000), (192000, 44100),
         (44100, 352800), (352800, 44100), (48000, 384000), (384000, 48000),
         (44100, 705600), (705600, 44100), (48000, 768000), (768000, 48000),
         (8000, 768000), (768000, 8000), (192000, 768000), (768000, 192000),
         (4000, 48000), (48000, 4000), (5512, 44100), (44100, 5512)]
# Period-size runs: pairs of the earlier reports, a factor-2 FIR pair, and
# two of the far ratios at one period size.
PERIOD_RUNS = [(pair, period) for pair in PAIRS[:6] + [(48000, 24000)]
               for period in (1024, 1000, 441)] + \
    [((44100, 705600), 1000), ((768000, 8000), 4800)]
PERIOD_CONVERTERS = ["skelda_hq", "skelda", "alsa linear"]

THD_LEVEL = 10 ** (-1 / 20)   # -1 dBFS, of full scale
STEP_LEVEL = 0.5               # -6 dBFS stepped sines
PULSE_LEVEL = 0.5
THD_SECONDS = 0.6        # each THD+N tone; 0.5 s of it is analysed
STEP_SECONDS = 0.2       # each stepped sine; 0.1 s of it is analysed ...
STEP_OUTPUT_SAMPLES = 2048  # ... or this many output samples, if longer
PULSE_SECONDS = 0.2      # the group-delay pulse sits in the middle of this
PERIOD_RUN_SECONDS = 1.0
EDGE_SECONDS = 0.05      # left out at both ends of every tone (warm-up)
FADE_SECONDS = 0.002
SEAM_WINDOW_SECONDS = 0.002  # at most a third of an output period
SEAM_MARGIN_DB = 6.0     # windows on period boundaries this much worse: a seam
PASS_EDGE = 0.45         # x the lower rate
STOP_EDGE = 0.55
HQ_ENTRY = "_snd_pcm_rate_skelda_hq_open"
IDEAL = "ideal, 16-bit (floor)"
IDEAL_INPUT = "ideal from the 16-bit input"

# 24-bit material: S32 streams (24-bit samples in the top bits) from aplay
# into an S32 device, against the converters that keep more than 16 bits
# through alsa-lib, those that announce S16 only (alsa-lib hands them the
# top 16 bits), and sox's very high quality rate effect on the files
# (offline).
CONVERTERS_24 = [
    ("skelda_hq", "skelda_hq"),
    ("samplerate_best", "samplerate_best"),
    ("samplerate_medium", "samplerate_medium"),
    ("samplerate", "samplerate"),
    ("speexrate", "speexrate"),
    ("lavrate", "lavrate"),
    ("sox rate -v (offline)", "sox"),
]
PAIRS_24 = PAIRS
PERIOD_RUNS_24 = [((44100, 48000), 1024), ((48000, 44100), 1000), ((16000, 48000), 441),
                  ((44100, 705600), 1000), ((768000, 8000), 4800)]
PERIOD_CONVERTERS_24 = ["skelda_hq", "samplerate_best"]
IDEAL_24 = "ideal from the 24-bit input"

# skelda_hq's targets. 16-bit streams: THD+N within this many dB of the
# reference converter at 997 Hz and at 0.4 x the lower rate. 24-bit
# material in S32: THD+N at least the first figure at 997 Hz and the second
# at every tone. Both: images and aliases at least REJECTION_TARGET dB
# down, the passband within PASSBAND_TARGET_DB of 0 dB to 0.45 x the lower
# rate.
REFERENCE = "samplerate_best"
THDN_MARGIN_16 = 1.2
THDN_TARGET_24 = (144.0, 140.0)
REJECTION_TARGET = {16: 100.0, 24: 140.0}
PASSBAND_TARGET_DB = 0.1


class Depth:
    """The material's depth: 16-bit samples, or 24-bit ones carried in S32
    (full scale 2^31, the input rounded to multiples of 2^8)."""

    def __init__(self, bits):
        self.bits = bits
        self.width = 2 if bits == 16 else 4           # bytes per sample, files and streams
        self.full = 32767.0 if bits == 16 else 8388607.0 * 256
        self.quantum = 1.0 if bits == 16 else 256.0   # the input's rounding step
        self.dtype = np.int16 if bits == 16 else np.int32
        self.alsa_format = "S16_LE" if bits == 16 else "S32_LE"
        self.plot_floor = -138 if bits == 16 else -178


D16, D24 = Depth(16), Depth(24)


def log(message):
    print(message, file=sys.stderr, flush=True)


# ---------------------------------------------------------------- signals

def fade(tau, length):
    """Raised-cosine ramps of FADE_SECONDS at both ends of a segment."""
    ramp = np.minimum(np.minimum(tau, length - tau) / FADE_SECONDS, 1.0)
    return 0.5 - 0.5 * np.cos(np.pi * np.clip(ramp, 0.0, 1.0))


def pulse(t, cutoff):
    """A band-limited pulse: sinc with its first zero at 1/(2 cutoff),
    Hann-windowed to +-5 ms, peak 1 at t = 0."""
    half = 0.005
    w = np.where(np.abs(t) < half, 0.5 + 0.5 * np.cos(np.pi * t / half), 0.0)
    return np.sinc(2 * cutoff * t) * w


def pair_tones(in_rate, out_rate):
    low = min(in_rate, out_rate)
    # 6 kHz where the passband reaches it, else 0.3 of the lower rate; the
    # tones near a round fraction of the rates are a little off it (see
    # below).
    thd = [997.0, 6000.382 if 6000 < PASS_EDGE * low else np.floor(0.3 * low) + 0.382,
           np.floor(0.4 * low) + 0.382]
    passband = list(np.geomspace(50, 0.1 * low, 7, endpoint=False)) + \
        list(np.linspace(0.1 * low, PASS_EDGE * low, 22))
    transition = [0.46 * low, 0.47 * low, 0.48 * low, 0.49 * low]
    stop = []
    if STOP_EDGE * low < 0.49 * in_rate:      # aliases (downsampling only)
        stop = list(np.linspace(STOP_EDGE * low, 0.49 * in_rate, 10))
    # Stepped sines a little off round fractions of the rates: the 16-bit
    # rounding error of a tone whose period is a few samples is periodic
    # too, and its lines would pass for images.
    def off_round(freqs):
        return [np.floor(f) + 0.382 for f in freqs]
    return thd, off_round(passband), off_round(transition), off_round(stop)


def pair_layout(in_rate, out_rate, depth=D16):
    """Pulse, THD+N tones, stepped sines: a list of (kind, frequency,
    start s, length s, amplitude), each a whole number of input frames."""
    thd, passband, transition, stop = pair_tones(in_rate, out_rate)
    low = min(in_rate, out_rate)
    layout = [("pulse", 0.4 * low, 0.0, round(PULSE_SECONDS * in_rate) / in_rate,
               PULSE_LEVEL * depth.full)]
    at = layout[0][3]
    # Into low output rates the stepped sines last longer, so that an image
    # or alias 100 dB (16-bit) or 140 dB (24-bit) down stands clear of the
    # output's noise in the few bins it falls in.
    step = max(STEP_SECONDS, 2 * EDGE_SECONDS + STEP_OUTPUT_SAMPLES / out_rate)
    segments = [("thd", f, THD_SECONDS, THD_LEVEL * depth.full) for f in thd] + \
        [("pass", f, step, STEP_LEVEL * depth.full) for f in passband] + \
        [("transition", f, step, STEP_LEVEL * depth.full) for f in transition] + \
        [("stop", f, step, STEP_LEVEL * depth.full) for f in stop]
    for kind, f, seconds, amplitude in segments:
        length = round(seconds * in_rate) / in_rate
        layout.append((kind, f, at, length, amplitude))
        at += length
    return layout


def render(layout, rate, keep_below=None, depth=D16):
    """The layout sampled at `rate` and rounded to the depth, with 0.2 s of
    silence after it. keep_below: drop tones at or above this frequency (an
    ideal converter's output)."""
    total = layout[-1][2] + layout[-1][3] + 0.2
    t = np.arange(int(round(total * rate))) / rate
    x = np.zeros(len(t))
    for kind, f, start, length, amplitude in layout:
        inside = (t >= start - 1e-12) & (t < start + length - 1e-12)
        tau = t[inside] - start
        if kind == "pulse":
            x[inside] += amplitude * pulse(tau - length / 2, f)
        elif keep_below is None or f < keep_below:
            x[inside] += amplitude * np.sin(2 * np.pi * f * tau) * fade(tau, length)
    return (np.round(x / depth.quantum) * depth.quantum).astype(depth.dtype)


def ideal_convert(x, in_rate, out_rate, depth=D16):
    """x converted in double precision by a filter far better than the job
    asks: a Kaiser-windowed sinc 64 lower-rate samples a side (beta 12:
    flat within 1e-6 to 0.47, 120 dB down from 0.53 of the lower rate),
    then rounded to 16 bits; for 24-bit material 160 samples a side (beta
    22: 180 dB down from 0.53), kept at S32 precision, as a converter with
    S32 output can. Its output lines up with the input (no delay)."""
    g = math.gcd(in_rate, out_rate)
    up, down = out_rate // g, in_rate // g
    low = min(in_rate, out_rate)
    per_low = up * in_rate / low          # filter samples per lower-rate sample
    half = int((64 if depth.bits == 16 else 160) * per_low)
    t = np.arange(-half, half + 1) / per_low
    h = np.sinc(t) * np.kaiser(2 * half + 1, 12.0 if depth.bits == 16 else 22.0)
    y = scipy.signal.resample_poly(x.astype(float), up, down, window=h / h.sum())
    top = np.iinfo(depth.dtype).max
    return np.clip(np.round(y), -top - 1, top)


def write_wav(path, samples, rate):
    with wave.open(path, "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(samples.dtype.itemsize)
        w.setframerate(rate)
        w.writeframes(samples.tobytes())


# ------------------------------------------------------------- conversion

class Runner:
    def __init__(self, build, work):
        self.build, self.work = build, work
        self.plugins = os.path.join(work, "plugins")
        os.mkdir(self.plugins)
        system_dir = subprocess.run(["pkg-config", "--variable=libdir", "alsa"], check=True,
                                    capture_output=True, text=True).stdout.strip() + "/alsa-lib"
        for name in os.listdir(system_dir):
            os.symlink(os.path.join(system_dir, name), os.path.join(self.plugins, name))
        for module in ("skelda", "skelda_hq"):
            name = f"libasound_module_rate_{module}.so"
            if os.path.exists(os.path.join(build, name)):
                os.symlink(os.path.join(build, name), os.path.join(self.plugins, name))

    def convert(self, converter, src, out_rate, period=None, depth=D16):
        """Output samples and, through aplay, the (client, slave) period
        sizes; None and the reason when the converter refuses. With 24-bit
        material the stream and the device are S32."""
        job = tempfile.mkdtemp(dir=self.work, prefix="job")
        try:
            if converter == "sox":
                out = os.path.join(job, "out.raw")
                run = subprocess.run(["sox", "-D", src, "-t", "s32", out, "rate", "-v", str(out_rate)],
                                     capture_output=True, text=True)
                if run.returncode != 0:
                    return None, None, run.stderr.strip().splitlines()[-1:]
                return np.fromfile(out, dtype=np.int32).astype(float), None, None
            if converter == "sinc":
                wav = os.path.join(job, "out.wav")
                run = subprocess.run([os.path.join(self.build, "tools", "skelda_convert"), "-q",
                                      "--sinc", "-r", str(out_rate), src, wav],
                                     capture_output=True, text=True)
                if run.returncode != 0:
                    return None, None, run.stderr.strip().splitlines()[-1:]
                with wave.open(wav) as w:
                    y = np.frombuffer(w.readframes(w.getnframes()), dtype=np.int16)
                return y.astype(float), None, None
            out = os.path.join(job, "out.raw")
            conf = os.path.join(job, "measure.conf")
            with open(conf, "w") as f:
                f.write(f'pcm.measured {{ type rate converter "{converter}" slave {{ pcm {{ '
                        f'type file slave.pcm "null" file "{out}" format "raw" }} '
                        f'rate {out_rate} format {depth.alsa_format} }} }}\n')
            env = dict(os.environ, ALSA_PLUGIN_DIR=self.plugins,
                       ALSA_CONFIG_PATH=f"/usr/share/alsa/alsa.conf:{conf}")
            cmd = ["aplay", "-v", "-D", "measured"]
            if period:
                cmd.append(f"--period-size={period}")
            run = subprocess.run(cmd + [src], capture_output=True, text=True, env=env)
            if run.returncode != 0 or not os.path.exists(out):
                return None, None, run.stderr.strip().splitlines()[-1:]
            # aplay -v dumps the client's setup, then the slave's.
            sizes = [int(v) for v in re.findall(r"period_size\s*:\s*(\d+)",
                                                run.stdout + run.stderr)]
            periods = (sizes[0], sizes[1]) if len(sizes) >= 2 else None
            return np.fromfile(out, dtype=depth.dtype).astype(float), periods, None
        finally:
            shutil.rmtree(job, ignore_errors=True)


def hq_available(build):
    path = os.path.join(build, "libasound_module_rate_skelda_hq.so")
    if not os.path.exists(path):
        return False
    try:
        return hasattr(ctypes.CDLL(path), HQ_ENTRY)
    except OSError:
        return False


def supports(converter, in_rate, out_rate):
    # The plain skelda module announces 8000-48000 Hz only.
    if converter == "skelda":
        return all(8000 <= r <= 48000 for r in (in_rate, out_rate))
    # skelda_convert's sinc interpolator takes ratios from 1/8 to 8.
    if converter == "sinc":
        return max(in_rate, out_rate) <= 8 * min(in_rate, out_rate)
    return True


# --------------------------------------------------------------- analysis

def peak_frequency(y, rate, f, tolerance):
    """The strongest FFT peak within `tolerance` Hz of f, refined by a
    parabola through the log magnitudes."""
    n = len(y)
    pad = 1 << int(np.ceil(np.log2(n * 4)))
    magnitudes = np.abs(np.fft.rfft((y - y.mean()) * np.hanning(n), pad))
    bins = np.fft.rfftfreq(pad, 1 / rate)
    near = np.where(np.abs(bins - f) <= tolerance + 2 * rate / pad)[0]
    k = near[np.argmax(magnitudes[near])]
    if 0 < k < len(magnitudes) - 1:
        a, b, c = np.log(magnitudes[k - 1:k + 2] + 1e-30)
        k = k + 0.5 * (a - c) / (a - 2 * b + c)
    return k * rate / pad


def fit_sine(y, rate, f, tolerance=None):
    """Least-squares fit of a sin + b cos + d with the frequency free:
    starts at the FFT peak near f and takes Gauss-Newton steps on all four
    parameters. Returns frequency, amplitude and the residual."""
    if tolerance is None:
        tolerance = 0.01 * f
    f = peak_frequency(y, rate, f, tolerance)
    n = len(y)
    t = (np.arange(n) - (n - 1) / 2) / rate     # centred: better conditioned
    w = 2 * np.pi * f
    s, c = np.sin(w * t), np.cos(w * t)
    ones = np.ones(n)
    coef = np.linalg.lstsq(np.stack([s, c, ones], 1), y, rcond=None)[0]
    for _ in range(8):
        a, b, d = coef
        model = a * s + b * c + d
        jacobian = np.stack([s, c, ones, t * (a * c - b * s)], 1)
        step = np.linalg.lstsq(jacobian, y - model, rcond=None)[0]
        coef = coef + step[:3]
        w += step[3]
        s, c = np.sin(w * t), np.cos(w * t)
        if abs(step[3]) < 1e-9 * w:
            break
    coef = np.linalg.lstsq(np.stack([s, c, ones], 1), y, rcond=None)[0]
    residual = y - (coef[0] * s + coef[1] * c + coef[2])
    return w / (2 * np.pi), math.hypot(coef[0], coef[1]), residual


def thdn_db(amplitude, residual):
    return 10 * np.log10(max(np.mean(residual ** 2), 1e-20) / (amplitude ** 2 / 2))


def line_amplitudes(x, rate, depth=D16):
    """Sine amplitudes seen through a 4-term Blackman-Harris window
    (sidelobes at -92 dB), or for 24-bit material a Kaiser window of beta 40
    (sidelobes below -300 dB, main lobe 13 bins either way), zero-padded
    four times."""
    n = len(x)
    k = np.arange(n) / n
    if depth.bits == 16:
        w = (0.35875 - 0.48829 * np.cos(2 * np.pi * k) + 0.14128 * np.cos(4 * np.pi * k)
             - 0.01168 * np.cos(6 * np.pi * k))
    else:
        w = np.kaiser(n, 40.0)
    pad = 1 << int(np.ceil(np.log2(n * 4)))
    return (np.fft.rfftfreq(pad, 1 / rate),
            2 * np.abs(np.fft.rfft((x - x.mean()) * w, pad)) / w.sum())


def fold(f, rate):
    f = np.mod(f, rate)
    return np.minimum(f, rate - f)


def strongest_spur(x, rate, in_rate, f, scale, tone_out, low, depth=D16):
    """The strongest image or alias of an input tone f: components at
    k in_rate +- f (k >= 1, up to the output's Nyquist frequency and at
    least the first six; and f itself when it is at or above the stopband
    edge) as the output's sampling folds them. `scale` maps input
    frequencies to the output's nominal frequency axis."""
    bins, magnitudes = line_amplitudes(x, rate, depth)
    step = bins[1]
    # The frequencies are known to well under a bin: search one bin either
    # way (a line a main lobe away leaks below the window's sidelobes).
    near = rate / len(x) + 1.0
    lobe = (4 if depth.bits == 16 else 13) * rate / len(x) + 5.0  # main lobe + slack
    candidates = [f] if f >= STOP_EDGE * low else []
    for k in range(1, max(7, int(np.ceil((0.5 * rate / scale + f) / in_rate)) + 1)):
        candidates += [k * in_rate - f, k * in_rate + f]
    best = None        # every image folds onto the tone itself: nothing to tell
    for cand in candidates:
        g = fold(cand * scale, rate)
        if g < 20 + lobe or (tone_out is not None and abs(g - tone_out) < lobe):
            continue
        first = max(int(np.ceil((g - near) / step)), 0)
        last = min(int(np.floor((g + near) / step)), len(magnitudes) - 1)
        if first <= last:
            best = max(best or 0.0, magnitudes[first:last + 1].max())
    return best


def output_span(start, length, delay, scale, out_rate, n):
    """Output sample range of input seconds [start + edge, start + length -
    edge], shifted by the converter's delay."""
    eff = out_rate / scale   # output frames per input second
    a = int(round((start + EDGE_SECONDS + delay) * eff))
    b = int(round((start + length - EDGE_SECONDS + delay) * eff))
    return max(a, 0), min(b, n)


def measure_delay(y, out_rate, scale, layout_pulse):
    """Group delay in seconds: where the pulse's cross-correlation with the
    output peaks, to 1/16 output sample."""
    _, cutoff, start, length, amplitude = layout_pulse
    eff = out_rate / scale   # output frames per input second
    n = int(length * eff)
    seg = y[:n]
    t = np.arange(n) / eff - (start + length / 2)
    ref = amplitude * pulse(t, cutoff)
    size = 1 << int(np.ceil(np.log2(2 * n)))
    cross = np.fft.rfft(seg, size) * np.conj(np.fft.rfft(ref, size))
    up = 16
    corr = np.fft.irfft(cross, size * up)
    corr = np.concatenate([corr[-(size * up) // 2:], corr[:(size * up) // 2]])
    k = int(np.argmax(corr))
    if 0 < k < len(corr) - 1:
        a, b, c = corr[k - 1:k + 2]
        k = k + 0.5 * (a - c) / (a - 2 * b + c)
    lag = (k - (size * up) // 2) / up
    return lag / eff


def analyse_pair_run(y, layout, in_rate, out_rate, depth=D16):
    low = min(in_rate, out_rate)
    thd_rows = [entry for entry in layout if entry[0] == "thd"]
    # The 997 Hz tone gives the stream's real ratio (alsa-lib's period
    # rounding can move it by hundredths of a percent).
    kind, f997, start, length, amplitude = thd_rows[0]
    a, b = output_span(start, length, 0.0, 1.0, out_rate, len(y))
    fitted, _, _ = fit_sine(y[a:b], out_rate, f997)
    scale = fitted / f997
    delay = measure_delay(y, out_rate, scale, layout[0])
    result = {"delay_ms": 1000 * delay, "thdn": [], "gain": [], "spur": []}
    for kind, f, start, length, amplitude in layout[1:]:
        a, b = output_span(start, length, delay, scale, out_rate, len(y))
        seg = y[a:b]
        tone_out = f * scale if f * scale < 0.5 * out_rate else None
        if tone_out is not None:
            fo, amp, residual = fit_sine(seg, out_rate, tone_out, 0.002 * tone_out + 2)
        else:
            fo, amp, residual = None, 0.0, seg - seg.mean()
        if kind == "thd":
            result["thdn"].append((f, thdn_db(amp, residual)))
            continue
        gain = 20 * np.log10(max(amp, 1e-9) / amplitude) if tone_out is not None else np.nan
        spur = strongest_spur(residual, out_rate, in_rate, f, scale, fo, low, depth)
        result["gain"].append((kind, f, gain))
        # An output of digital silence gives no floor: shown as -200 dB.
        level = np.nan if spur is None else 20 * np.log10(max(spur, 1e-10 * amplitude) / amplitude)
        result["spur"].append((kind, f, level))
    gains = [(abs(g), f) for kind, f, g in result["gain"] if kind == "pass"]
    result["passband_dev"] = max(gains)
    # Components an ideal converter removes: images of passband tones,
    # aliases of stopband tones.
    stop = [(s, kind, f) for kind, f, s in result["spur"]
            if kind in ("pass", "stop") and not np.isnan(s)]
    worst = max(stop) if stop else (np.nan, None, None)
    result["rejection"] = -worst[0]
    result["rejection_at"] = worst[1:]    # the tone whose image or alias it is
    return result


def analyse_period_run(y, in_rate, out_rate, n_in, out_period):
    """THD+N of the 997 Hz tone over the whole run, and over short windows
    each fitted on its own (amplitude, phase and DC at the run's frequency):
    the worst window anywhere, and the median over the output period
    boundaries of the window centred on the boundary against the windows
    just before and after it. A seam (a click, a gap, a jump of phase where
    one period meets the next) makes the centred window worse than its
    neighbours; a converter whose error merely varies along the period
    does not."""
    a = int(EDGE_SECONDS * out_rate)
    b = min(int((n_in / in_rate - EDGE_SECONDS) * out_rate), len(y))
    seg = y[a:b]
    f, amp, residual = fit_sine(seg, out_rate, 997.0)
    signal = amp ** 2 / 2
    window = int(round(SEAM_WINDOW_SECONDS * out_rate))
    if out_period:
        window = max(16, min(window, out_period // 3))
    t = np.arange(len(seg)) / out_rate
    basis = np.stack([np.sin(2 * np.pi * f * t), np.cos(2 * np.pi * f * t), np.ones(len(t))], 1)

    def local_db(start):
        inside = slice(start, start + window)
        coef = np.linalg.lstsq(basis[inside], seg[inside], rcond=None)[0]
        local = seg[inside] - basis[inside] @ coef
        return 10 * np.log10(max(np.mean(local ** 2), 1e-20) / signal)

    worst = max(local_db(i) for i in range(0, len(seg) - window + 1, max(1, window // 2)))
    seam = None
    if out_period:
        across, beside = [], []
        # Boundaries lie before output frames that are multiples of the period.
        for boundary in range(a + (-a) % out_period, b, out_period):
            centre = boundary - a - window // 2
            if centre - window < 0 or centre + 2 * window > len(seg):
                continue
            across.append(local_db(centre))
            beside.append(0.5 * (local_db(centre - window) + local_db(centre + window)))
        if across:
            seam = (float(np.median(across)), float(np.median(beside)))
    return thdn_db(amp, residual), worst, seam


# ------------------------------------------------------------------ plots

# Colour, line style and width per converter: skelda's linear path and
# alsa-lib's give the same curves, so one is drawn dashed over the other.
STYLES = {"skelda_hq": ("tab:red", "-", 2.2), "skelda": ("tab:orange", "-", 3.0),
          "speexrate": ("tab:blue", "-", 1.4), "samplerate": ("tab:green", "-", 1.4),
          "samplerate_medium": ("tab:olive", "-", 1.4), "samplerate_best": ("tab:brown", "-", 1.6),
          "lavrate": ("mediumvioletred", "-.", 1.4),
          "sox rate -v (offline)": ("tab:pink", "--", 1.4),
          "alsa linear": ("black", "--", 1.2),
          "skelda sinc (offline)": ("tab:purple", ":", 1.8),
          IDEAL_INPUT: ("tab:cyan", "-", 1.0), IDEAL: ("darkgrey", "-", 1.0),
          IDEAL_24: ("tab:cyan", "-", 1.0)}


def mark_edge(axis, x, text, top):
    axis.axvline(x, color="dimgrey", linestyle=":", linewidth=1.2)
    axis.text(x, top, f" {text} ", fontsize=8, ha="left" if text.startswith("0.55") else "right",
              va="top", color="dimgrey", zorder=4,
              bbox=dict(boxstyle="square,pad=0.1", facecolor="white", edgecolor="none", alpha=0.8))


def plot_pair(in_rate, out_rate, results, path, depth=D16):
    """Gain of the stepped sines (whole and zoomed to +-0.5 dB) against the
    input tone's frequency, and the strongest image or alias of each tone,
    every converter over each other; the 0.45 and 0.55 x lower rate edges
    and skelda_hq's rejection target marked."""
    low = min(in_rate, out_rate)
    fig, (wide, zoom, spur) = plt.subplots(3, 1, figsize=(11, 11),
                                           height_ratios=[1, 1, 1.3])
    for label, result in results:
        colour, style, width = STYLES.get(label, (None, "-", 1.4))
        look = dict(color=colour, linestyle=style, linewidth=width, marker=".",
                    markersize=4, label=label, zorder=3 if label == "skelda_hq" else 2)
        gains = [(f, g) for kind, f, g in result["gain"] if kind in ("pass", "transition")]
        fx = np.array([f for f, g in gains]) / 1000
        gy = np.array([g for f, g in gains])
        wide.plot(fx, gy, **look)
        zoom.plot(fx, gy, **dict(look, label="_"))
        # A gap in the line where the tones jump from the passband to the
        # stopband.
        sx = [f / 1000 for kind, f, level in result["spur"]]
        sy = [level for kind, f, level in result["spur"]]
        stop_from = [i for i, (kind, f, level) in enumerate(result["spur"]) if kind == "stop"]
        if stop_from and stop_from[0] > 0:
            sx.insert(stop_from[0], np.nan)
            sy.insert(stop_from[0], np.nan)
        sx, sy = np.array(sx), np.array(sy)
        spur.plot(sx, np.maximum(sy, depth.plot_floor), **dict(look, label="_"))
    material = "16-bit (S16 in and out)" if depth.bits == 16 else "24-bit material in S32 streams"
    direction = "up" if out_rate > in_rate else "down"
    fig.suptitle(f"{in_rate} Hz -> {out_rate} Hz ({direction} {max(in_rate, out_rate) / low:.4g}x) "
                 f"through alsa-lib's rate plugin, {material}", fontsize=13)
    wide.set_title("gain of -6 dBFS sines")
    wide.set_ylim(-10, 1)
    zoom.set_title("the same, zoomed to +-0.5 dB")
    zoom.set_ylim(-0.5, 0.5)
    for axis in (wide, zoom):
        axis.set_xlim(0, 0.5 * low / 1000)
        axis.set_ylabel("gain (dB)")
        axis.set_xlabel("input tone frequency (kHz)")
        mark_edge(axis, PASS_EDGE * low / 1000, "0.45 x lower rate", axis.get_ylim()[1])
    target = REJECTION_TARGET[depth.bits]
    aliases = STOP_EDGE * low < 0.49 * in_rate
    spur.set_title("strongest image of each tone below 0.45 x lower rate (images land from 0.55 x "
                   "lower rate up)\n" + ("and alias of each tone from 0.55 x lower rate, " if aliases else "")
                   + f"dB re the tone ({depth.plot_floor}: nothing measurable)", fontsize=10)
    spur.set_ylabel("image or alias (dB re tone)")
    spur.set_ylim(depth.plot_floor - 2, 5)
    spur.axhline(-target, color="tab:red", linestyle="--", linewidth=0.9, alpha=0.7)
    spur.text(0.005, -target, f"skelda_hq's target: {target:.0f} dB down",
              transform=spur.get_yaxis_transform(), fontsize=8, va="bottom", color="tab:red",
              zorder=4, bbox=dict(boxstyle="square,pad=0.1", facecolor="white", edgecolor="none",
                                  alpha=0.8))
    if in_rate >= 6 * low:
        # Far reductions: a log axis keeps the passband's tones apart.
        spur.set_xscale("log")
        spur.set_xlim(0.04, 0.5 * in_rate / 1000)
        spur.set_xlabel("input tone frequency (kHz, log scale)")
    else:
        spur.set_xlim(0, 0.5 * in_rate / 1000)
        spur.set_xlabel("input tone frequency (kHz)")
    mark_edge(spur, PASS_EDGE * low / 1000, "0.45 x lower rate", 3)
    if STOP_EDGE * low < 0.5 * in_rate:
        mark_edge(spur, STOP_EDGE * low / 1000, "0.55 x lower rate", 3)
    for axis in (wide, zoom, spur):
        axis.grid(True, alpha=0.3, which="both")
    fig.legend(loc="upper right", bbox_to_anchor=(0.99, 0.95), fontsize=9, title="converter")
    fig.tight_layout(rect=(0, 0, 0.80, 0.96))
    fig.savefig(path, dpi=90)
    plt.close(fig)


# ----------------------------------------------------------------- tables

def pair_name(pair):
    return f"{pair[0]} -> {pair[1]}"


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    lines += ["| " + " | ".join(row) + " |" for row in rows]
    return "\n".join(lines)


def cell(value, fmt):
    if value is None or (isinstance(value, float) and np.isnan(value)):
        return "-"
    return fmt.format(value)


def source_revision():
    """The commit measured, and whether the library's sources differ from it."""
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    try:
        head = subprocess.run(["git", "-C", root, "rev-parse", "--short", "HEAD"], check=True,
                              capture_output=True, text=True).stdout.strip()
        dirty = subprocess.run(["git", "-C", root, "status", "--porcelain", "--", "src",
                                "rsmpl", "util", "include", "CMakeLists.txt"], check=True,
                               capture_output=True, text=True).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return "unknown"
    return head + (" with uncommitted changes to the library" if dirty else "")


# ------------------------------------------------------------------ jobs
# Each runs in one of the pool's processes and hands back only figures.

def measure_pair(runner, converters, pair, depth, plot_path):
    """One pair at one depth: renders the stepped signal, converts it with
    every converter that takes the rates, analyses each output and the
    ideal ones, and draws the response plot. Returns {label: analysis},
    the refusals, and the seconds it took."""
    begun = time.monotonic()
    layout = pair_layout(*pair, depth)
    x = render(layout, pair[0], depth=depth)
    src = os.path.join(runner.work, f"pair_{depth.bits}_{pair[0]}_{pair[1]}.wav")
    write_wav(src, x, pair[0])
    results, notes = {}, []
    if depth.bits == 16:
        ideal = render(layout, pair[1], keep_below=0.5 * pair[1]).astype(float)
        results[IDEAL] = analyse_pair_run(ideal, layout, *pair)
        results[IDEAL_INPUT] = analyse_pair_run(ideal_convert(x, *pair), layout, *pair)
        ideals = [IDEAL_INPUT, IDEAL]
    else:
        results[IDEAL_24] = analyse_pair_run(ideal_convert(x, *pair, D24), layout, *pair, D24)
        ideals = [IDEAL_24]
    for label, name in converters:
        if not supports(name, *pair):
            continue
        y, _, error = runner.convert(name, src, pair[1], None, depth)
        if y is None:
            notes.append(f"{label} refused {pair_name(pair)}: {' '.join(error or ['no output'])}")
            continue
        try:
            results[label] = analyse_pair_run(y, layout, *pair, depth)
        except (ValueError, IndexError, np.linalg.LinAlgError) as e:
            notes.append(f"{label} {pair_name(pair)}: no usable output ({e})")
    os.remove(src)
    order = [label for label, _ in converters] + ideals
    plot_pair(*pair, [(label, results[label]) for label in order if label in results],
              plot_path, depth)
    return results, notes, time.monotonic() - begun


def measure_period(runner, converters, pair, period, depth):
    """A second of 997 Hz with forced client periods through each
    converter: {label: (periods, frames, expected frames, THD+N, worst
    window, seam)} and the refusals."""
    n_in = int(PERIOD_RUN_SECONDS * pair[0])
    tone = THD_LEVEL * depth.full * np.sin(2 * np.pi * 997.0 * np.arange(n_in) / pair[0])
    src = os.path.join(runner.work, f"tone_{depth.bits}_{pair[0]}_{pair[1]}_{period}.wav")
    write_wav(src, (np.round(tone / depth.quantum) * depth.quantum).astype(depth.dtype), pair[0])
    results, notes = {}, []
    for label, name in converters:
        if not supports(name, *pair):
            continue
        y, periods, error = runner.convert(name, src, pair[1], period, depth)
        if y is None:
            notes.append(f"{label} refused {pair_name(pair)} at period {period}: "
                         f"{' '.join(error or ['no output'])}")
            continue
        thdn, worst, seam = analyse_period_run(y, *pair, n_in, periods[1] if periods else None)
        expected = None
        if periods:
            # aplay pads the last period with silence.
            expected = -(-n_in // periods[0]) * periods[1]
        results[label] = (periods, len(y), expected, thdn, worst, seam)
    os.remove(src)
    return results, notes


# ----------------------------------------------------------------- tables

def tone_names(pair):
    """What each THD+N tone is, for the pair's rows."""
    thd = pair_tones(*pair)[0]
    middle = "6 kHz" if thd[1] > 6000 else f"0.3 x lower ({thd[1]:.0f} Hz)"
    return ["997 Hz", middle, f"0.4 x lower ({thd[2]:.0f} Hz)"]


def thdn_table(labels, pairs, results):
    header = ["pair", "tone"] + labels
    rows = []
    for pair in pairs:
        for i, tone in enumerate(tone_names(pair)):
            row = [pair_name(pair) if i == 0 else "", tone]
            for label in labels:
                r = results.get((label, pair))
                row.append(cell(-r["thdn"][i][1] if r else None, "{:.1f}"))
            rows.append(row)
    return table(header, rows)


def period_table(labels, runs, results):
    rows = []
    for label in labels:
        for pair, period in runs:
            r = results.get((label, pair, period))
            if r is None:
                rows.append([label, pair_name(pair), str(period)] + ["-"] * 6)
                continue
            periods, frames, expected, thdn, worst, seam = r
            ok = "" if expected is None else (" ok" if frames == expected else " MISMATCH")
            verdict = "?" if seam is None else ("yes" if seam[0] - seam[1] >= SEAM_MARGIN_DB else "no")
            rows.append([label, pair_name(pair), str(period),
                         f"{periods[0]} -> {periods[1]}" if periods else "?",
                         f"{frames} / {cell(expected, '{}')}{ok}", f"{-thdn:.1f}", f"{-worst:.1f}",
                         "-" if seam is None else f"{-seam[0]:.1f} / {-seam[1]:.1f}", verdict])
    return table(["converter", "pair", "--period-size", "periods (frames in -> out)",
                  "frames (got / expected)", "THD+N 997 Hz (dB below)", "worst window (dB below)",
                  "boundary / beside windows (dB below)", "seam"], rows)


def rejection_cell(r):
    if r is None:
        return "-"
    # -200 dB stands for an output of digital silence.
    return "silent" if r["rejection"] >= 199 else cell(r["rejection"], "{:.1f}")


def response_tables(labels, pairs, results):
    """Passband, rejection and delay, one table each, a row per pair."""
    header = ["pair"] + labels

    def deviation(r):
        if r is None:
            return "-"
        dev, f = r["passband_dev"]
        return f"{dev:.3f} ({f / 1000:.1f} kHz)" if dev >= 0.01 else f"{dev:.3f}"

    def rows(fmt):
        return [[pair_name(p)] + [fmt(results.get((label, p))) for label in labels] for p in pairs]

    out = ["### Passband: largest deviation from 0 dB up to 0.45 x the lower rate (dB, "
           "and the tone where it occurs; -6 dBFS stepped sines)", ""]
    out += [table(header, rows(deviation)), ""]
    out += ["### Image/alias rejection (dB below the tone, worst case): the strongest image "
            "of tones up to 0.45 x the lower rate (up to the output's Nyquist frequency) and "
            "the strongest alias of tones from 0.55 x the lower rate up to the input's "
            "Nyquist. \"silent\": every such output rounded to digital zero.", ""]
    out += [table(header, rows(rejection_cell)), ""]
    out += ["### Group delay (ms; cross-correlation of a band-limited pulse with the output)", ""]
    out += [table(header, rows(lambda r: cell(r["delay_ms"] if r else None, "{:.3f}"))), ""]
    return out


def verdict(ok):
    return "pass" if ok else "**MISS**"


def targets(pairs, results, depth):
    """skelda_hq against its targets at each pair: the table's rows and the
    misses, one line each."""
    rows, misses = [], []
    target = REJECTION_TARGET[depth.bits]
    where = f"{depth.bits}-bit"
    for pair in pairs:
        r = results.get(("skelda_hq", pair))
        if r is None:
            rows.append([pair_name(pair)] + ["not measured"] * (4 if depth.bits == 16 else 5))
            misses.append(f"{where} {pair_name(pair)}: skelda_hq gave no measurable output")
            continue
        names = tone_names(pair)
        thd = [-v for f, v in r["thdn"]]
        row = [pair_name(pair)]
        if depth.bits == 16:
            ref = results.get((REFERENCE, pair))
            for i in (0, 2):
                if ref is None:
                    row.append(f"{thd[i]:.1f} (no {REFERENCE})")
                    continue
                refv = -ref["thdn"][i][1]
                ok = thd[i] >= refv - THDN_MARGIN_16
                row.append(f"{thd[i]:.1f} / {refv:.1f} ({thd[i] - refv:+.1f}) {verdict(ok)}")
                if not ok:
                    misses.append(f"{where} {pair_name(pair)}, THD+N at {names[i]}: {thd[i]:.1f} dB, "
                                  f"{refv - thd[i]:.1f} dB below {REFERENCE}'s {refv:.1f} "
                                  f"(target: within {THDN_MARGIN_16} dB)")
        else:
            for i in range(3):
                need = THDN_TARGET_24[0] if i == 0 else THDN_TARGET_24[1]
                ok = thd[i] >= need
                row.append(f"{thd[i]:.1f} {verdict(ok)}")
                if not ok:
                    misses.append(f"{where} {pair_name(pair)}, THD+N at {names[i]}: {thd[i]:.1f} dB "
                                  f"(target: {need:.0f} dB)")
        rejection = r["rejection"]
        ok = not np.isnan(rejection) and rejection >= target
        row.append(f"{rejection_cell(r)} {verdict(ok)}")
        if not ok:
            kind, f = r["rejection_at"]
            what = "image" if kind == "pass" else "alias"
            misses.append(f"{where} {pair_name(pair)}, images/aliases: {rejection_cell(r)} dB down, "
                          f"the {what} of the {f:.0f} Hz tone ({f / min(pair):.3f} x lower rate) "
                          f"(target: {target:.0f} dB)")
        dev, f = r["passband_dev"]
        ok = dev <= PASSBAND_TARGET_DB
        row.append(f"{dev:.3f} {verdict(ok)}")
        if not ok:
            misses.append(f"{where} {pair_name(pair)}, passband: {dev:.3f} dB off at "
                          f"{f:.0f} Hz (target: within {PASSBAND_TARGET_DB} dB to 0.45 x lower rate)")
        rows.append(row)
    if depth.bits == 16:
        header = ["pair", f"THD+N 997 Hz: skelda_hq / {REFERENCE} (difference)",
                  f"THD+N 0.4 x lower rate: skelda_hq / {REFERENCE} (difference)",
                  f"images/aliases (>= {target:.0f} dB)",
                  f"passband deviation (<= {PASSBAND_TARGET_DB} dB)"]
    else:
        header = ["pair", f"THD+N 997 Hz (>= {THDN_TARGET_24[0]:.0f} dB)",
                  f"THD+N 6 kHz or 0.3 x lower (>= {THDN_TARGET_24[1]:.0f} dB)",
                  f"THD+N 0.4 x lower (>= {THDN_TARGET_24[1]:.0f} dB)",
                  f"images/aliases (>= {target:.0f} dB)",
                  f"passband deviation (<= {PASSBAND_TARGET_DB} dB)"]
    return table(header, rows), misses


def main():
    begun = time.monotonic()
    build, out_dir = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    os.makedirs(out_dir, exist_ok=True)
    work = tempfile.mkdtemp(prefix="skelda-quality-")
    notes = []
    converters, converters_24 = list(CONVERTERS), list(CONVERTERS_24)
    if not hq_available(build):
        log("skelda_hq not built")
        notes.append(f"skelda_hq not built (no {HQ_ENTRY} in {build}): its rows are missing.")
        converters = [c for c in converters if c[0] != "skelda_hq"]
        converters_24 = [c for c in converters_24 if c[0] != "skelda_hq"]
    runner = Runner(build, work)
    results, results_24, period_results, period_results_24 = {}, {}, {}, {}
    refusals = {16: [], 24: []}
    slowest = (0.0, "")
    try:
        with concurrent.futures.ProcessPoolExecutor(max(1, min(2, os.cpu_count() or 1))) as pool:
            # The longest jobs (the highest rates, 24-bit) first, so that
            # the two processes end together.
            work_list = [(D16, pair, converters, results, "response") for pair in PAIRS] + \
                [(D24, pair, converters_24, results_24, "response24") for pair in PAIRS_24]
            work_list.sort(key=lambda w: -(w[1][0] + w[1][1]) * (1.2 if w[0].bits == 24 else 1.0))
            jobs = {}
            for depth, pair, convs, into, prefix in work_list:
                plot = os.path.join(out_dir, f"{prefix}_{pair[0]}_{pair[1]}.png")
                jobs[pool.submit(measure_pair, runner, convs, pair, depth, plot)] = (depth, pair, into)
            period_jobs = {}
            for depth, runs, names, convs, into in (
                    (D16, PERIOD_RUNS, PERIOD_CONVERTERS, converters, period_results),
                    (D24, PERIOD_RUNS_24, PERIOD_CONVERTERS_24, converters_24, period_results_24)):
                chosen = [c for c in convs if c[0] in names]
                for pair, period in runs:
                    future = pool.submit(measure_period, runner, chosen, pair, period, depth)
                    period_jobs[future] = (depth, pair, period, into)
            for done, future in enumerate(concurrent.futures.as_completed(jobs), 1):
                depth, pair, into = jobs[future]
                measured, refused, seconds = future.result()
                into.update({(label, pair): r for label, r in measured.items()})
                refusals[depth.bits] += refused
                slowest = max(slowest, (seconds, f"{pair_name(pair)} ({depth.bits}-bit)"))
                log(f"[{done}/{len(jobs)}] {pair_name(pair)} ({depth.bits}-bit): {seconds:.0f} s")
            for future, (depth, pair, period, into) in period_jobs.items():
                measured, refused = future.result()
                into.update({(label, pair, period): r for label, r in measured.items()})
                refusals[depth.bits] += refused
    finally:
        shutil.rmtree(work, ignore_errors=True)
    for line in refusals[16] + refusals[24]:
        log(line)

    labels = [label for label, _ in converters] + [IDEAL_INPUT, IDEAL]
    labels_24 = [label for label, _ in converters_24] + [IDEAL_24]

    out = ["# Conversion quality through alsa-lib", ""]
    out += [f"Every converter runs in alsa-lib's `rate` plugin, driven by aplay into a "
            f"`file` PCM over `null` (\"skelda sinc (offline)\" through skelda_convert "
            f"--sinc, \"sox rate -v (offline)\" through sox on the files instead). "
            f"Sources: {source_revision()}; build: {os.path.basename(build)}.", ""]
    out += [f"Note: {n}" for n in notes] + ([""] if notes else [])

    out += ["## 16-bit material", "",
            f"16-bit streams into a 16-bit device. \"-\": the converter refused the rates "
            f"(plain skelda announces 8000-48000 Hz only, skelda_convert's sinc interpolator "
            f"takes ratios up to 8). \"{IDEAL}\": the exact output "
            f"rounded to 16 bits, put through the same analysis. \"{IDEAL_INPUT}\": the "
            f"16-bit input the converters get, converted in double precision (Kaiser-windowed "
            f"sinc, 120 dB down from 0.53 of the lower rate) and rounded once: the input's "
            f"own rounding noise in the passband plus one more rounding, the best any "
            f"converter can do from it.", ""]
    out += ["### THD+N (dB below the tone, whole output band; -1 dBFS tones, fitted frequency, "
            "0.5 s without the first and last 50 ms)", ""]
    out += [thdn_table(labels, PAIRS, results), ""]
    out += ["### Forced period sizes (`aplay --period-size=N`): 1 s of 997 Hz at -1 dBFS", "",
            "Frames: output file frames / periods played x output period size "
            "(aplay pads the last period with silence). Windows: THD+N of "
            f"{SEAM_WINDOW_SECONDS * 1000:.0f} ms windows (at most a third of an output "
            "period), each fitted on its own at the run's frequency: the worst anywhere "
            "(hop half a window), and the median over the output period boundaries of the "
            "window centred on the boundary / the windows just before and after it. Seam: "
            f"the centred window {SEAM_MARGIN_DB:.0f} dB or more worse than its "
            "neighbours.", ""]
    out += [period_table([label for label in PERIOD_CONVERTERS if label in labels],
                         PERIOD_RUNS, period_results), ""]
    out += response_tables(labels, PAIRS, results)

    out += ["## 24-bit material", "",
            "-1 dBFS tones and -6 dBFS stepped sines rounded to 24 bits, in S32 streams "
            "(aplay on 32-bit WAV files) into an S32 device; alsa-lib hands each converter "
            "the nearest format it announces (speexrate: S16, so its input loses "
            f"8 bits). \"{IDEAL_24}\": that very input converted in double precision "
            "(Kaiser-windowed sinc, 180 dB down from 0.53 of the lower rate) and kept at S32 "
            "precision: the input's own rounding noise in the passband, the best any "
            "converter with S32 output can do from it (about 145 dB for a -1 dBFS tone). "
            "Images and aliases are measured through a Kaiser window of beta 40 (sidelobes "
            "below -300 dB).", ""]
    out += ["### THD+N (dB below the tone, whole output band)", ""]
    out += [thdn_table(labels_24, PAIRS_24, results_24), ""]
    out += ["### Forced period sizes, 24-bit 997 Hz at -1 dBFS", ""]
    out += [period_table([label for label in PERIOD_CONVERTERS_24 if label in labels_24],
                         PERIOD_RUNS_24, period_results_24), ""]
    out += response_tables(labels_24, PAIRS_24, results_24)

    if refusals[16] or refusals[24]:
        out += ["## Refused", ""]
        out += [f"- {depth}-bit: {line}" for depth in (16, 24) for line in refusals[depth]] + [""]

    out += ["## skelda_hq against its targets", "",
            f"16-bit streams (S16 in and out): THD+N within {THDN_MARGIN_16} dB of "
            f"{REFERENCE} (figures: skelda_hq / {REFERENCE}, dB below the tone) at 997 Hz and "
            f"at 0.4 x the lower rate, images and aliases at least "
            f"{REJECTION_TARGET[16]:.0f} dB down. 24-bit material in S32: THD+N at least "
            f"{THDN_TARGET_24[0]:.0f} dB at 997 Hz and {THDN_TARGET_24[1]:.0f} dB at every "
            f"tone up to 0.4 x the lower rate, images and aliases at least "
            f"{REJECTION_TARGET[24]:.0f} dB down. Both: the passband within "
            f"{PASSBAND_TARGET_DB} dB of 0 dB up to 0.45 x the lower rate.", ""]
    all_misses = []
    for title, pairs, res, depth in (("16-bit", PAIRS, results, D16),
                                     ("24-bit in S32", PAIRS_24, results_24, D24)):
        rows, misses = targets(pairs, res, depth)
        out += [f"### {title}", "", rows, ""]
        all_misses += misses
    out += ["### Misses", ""]
    out += [f"- {m}" for m in all_misses] if all_misses else ["none"]
    out += [""]

    plots = [f"response_{p[0]}_{p[1]}.png" for p in PAIRS] + \
        [f"response24_{p[0]}_{p[1]}.png" for p in PAIRS_24]
    out += [f"Response plots: {', '.join(plots)}.", "",
            f"Measured in {time.monotonic() - begun:.0f} s (slowest job: {slowest[1]}, "
            f"{slowest[0]:.0f} s).", ""]
    text = "\n".join(out)
    with open(os.path.join(out_dir, "table.md"), "w") as f:
        f.write(text)
    print(text)


if __name__ == "__main__":
    main()
