#!/usr/bin/env python3
"""Measures the conversion quality of every skelda path and of the peers a
user would choose, all driven through alsa-lib with aplay (the sinc
interpolator, which the plugin does not use, through skelda_convert).

For each path: passband ripple, alias/image rejection, and SNR and THD+N of a
997 Hz tone at -1 dBFS. Draws one frequency-response plot per rate pair as PNG and prints
a Markdown table.

    python3 tools/quality_report.py BUILD_DIR OUT_DIR
"""
import os
import subprocess
import sys
import tempfile
import wave

import numpy as np

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402

SEGMENT_SECONDS = 0.25
TONE_AMPLITUDE = 0.5 * 32767          # -6 dBFS for the stepped sines
THD_AMPLITUDE = 10 ** (-1 / 20) * 32767  # -1 dBFS for the THD+N tone
THD_SECONDS = 1.0
# Not a divisor of any rate, so quantisation error does not fold onto its
# harmonics.
THD_TONE = 997.0

# (label, converter or "sinc", input rate, output rate)
PATHS = [
    ("skelda linear", "skelda", 44100, 48000),
    ("skelda linear", "skelda", 48000, 44100),
    ("skelda FIR x2", "skelda", 24000, 48000),
    ("skelda FIR /2", "skelda", 48000, 24000),
    ("skelda FIR x3", "skelda", 16000, 48000),
    ("skelda FIR /3", "skelda", 48000, 16000),
    ("skelda FIR x6", "skelda", 8000, 48000),
    ("skelda FIR /6", "skelda", 48000, 8000),
    ("skelda sinc", "sinc", 44100, 48000),
    ("skelda sinc", "sinc", 48000, 44100),
    ("skelda sinc", "sinc", 16000, 48000),
    ("skelda sinc", "sinc", 48000, 16000),
    ("skelda sinc", "sinc", 8000, 48000),
    ("skelda sinc", "sinc", 48000, 8000),
]
PEERS = ["speexrate", "samplerate", "linear"]
PEER_PAIRS = [(44100, 48000), (48000, 44100), (16000, 48000), (48000, 16000), (48000, 8000)]
for peer in PEERS:
    for pair in PEER_PAIRS:
        PATHS.append((f"alsa {peer}" if peer == "linear" else peer, peer, *pair))


def tone_frequencies(rate):
    """Stepped-sine grid from 50 Hz to just below the input's Nyquist."""
    nyquist = rate / 2
    return np.concatenate([np.geomspace(50, 0.3 * nyquist, 18, endpoint=False),
                           np.linspace(0.3 * nyquist, 0.98 * nyquist, 40)])


def test_signal(rate):
    """Stepped sines, then the THD+N tone; returns samples and the layout."""
    seg = int(SEGMENT_SECONDS * rate)
    t = np.arange(seg) / rate
    parts, layout = [], []
    for f in tone_frequencies(rate):
        layout.append((f, len(parts) * seg / rate))
        parts.append(TONE_AMPLITUDE * np.sin(2 * np.pi * f * t))
    thd_start = len(parts) * seg / rate
    tt = np.arange(int(THD_SECONDS * rate)) / rate
    parts.append(THD_AMPLITUDE * np.sin(2 * np.pi * THD_TONE * tt))
    parts.append(np.zeros(seg))  # room for the converters' delay
    return np.round(np.concatenate(parts)).astype(np.int16), layout, thd_start


def write_wav(path, samples, rate):
    with wave.open(path, "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(2)
        w.setframerate(rate)
        w.writeframes(samples.tobytes())


def convert(build, plugins, converter, src, in_rate, out_rate, work):
    out = os.path.join(work, "out.raw")
    if converter == "sinc":
        wav = os.path.join(work, "sinc.wav")
        subprocess.run([os.path.join(build, "tools", "skelda_convert"), "-q", "--sinc",
                        "-r", str(out_rate), src, wav], check=True, stdout=subprocess.DEVNULL)
        with wave.open(wav) as w:
            return np.frombuffer(w.readframes(w.getnframes()), dtype=np.int16).astype(float)
    conf = os.path.join(work, "measure.conf")
    with open(conf, "w") as f:
        f.write(f'pcm.measured {{ type rate converter "{converter}" slave {{ pcm {{ type file '
                f'slave.pcm "null" file "{out}" format "raw" }} rate {out_rate} }} }}\n')
    env = dict(os.environ, ALSA_PLUGIN_DIR=plugins,
               ALSA_CONFIG_PATH=f"/usr/share/alsa/alsa.conf:{conf}")
    subprocess.run(["aplay", "-q", "-D", "measured", src], check=True, env=env)
    return np.fromfile(out, dtype=np.int16).astype(float)


def tone_frequency(y, f, rate):
    """The frequency of the strongest component within 1% of f. alsa-lib's
    rate plugin rounds its period sizes, which can shift the pitch of every
    converter by a few hundredths of a percent; fitting at the nominal
    frequency would count that as noise."""
    n = len(y)
    pad = 1 << int(np.ceil(np.log2(n * 8)))
    spectrum = np.abs(np.fft.rfft((y - y.mean()) * np.hanning(n), pad))
    bins = np.fft.rfftfreq(pad, 1 / rate)
    near = np.where(np.abs(bins - f) <= 0.01 * f + 2 * rate / pad)[0]
    k = near[np.argmax(spectrum[near])]
    if 0 < k < len(spectrum) - 1:  # parabolic interpolation of the peak
        a, b, c = np.log(spectrum[k - 1:k + 2] + 1e-30)
        k = k + 0.5 * (a - c) / (a - 2 * b + c)
    return k * rate / pad


def fit_tone(y, f, rate):
    """Least-squares amplitude of the sine near f (with DC) and the residual."""
    f = tone_frequency(y, f, rate)
    t = np.arange(len(y)) / rate
    basis = np.stack([np.sin(2 * np.pi * f * t), np.cos(2 * np.pi * f * t), np.ones_like(t)], 1)
    coef, *_ = np.linalg.lstsq(basis, y, rcond=None)
    fitted = basis @ coef
    return np.hypot(coef[0], coef[1]), y - fitted


def middle(y, start, seconds, rate):
    a = int((start + 0.2 * seconds) * rate)
    b = int((start + 0.8 * seconds) * rate)
    return y[a:b]


def measure(y, layout, thd_start, in_rate, out_rate):
    low = min(in_rate, out_rate)
    freqs, gains, spurs = [], [], []
    for f, start in layout:
        seg = middle(y, start, SEGMENT_SECONDS, out_rate)
        power_in = TONE_AMPLITUDE ** 2 / 2
        if f < 0.49 * out_rate:
            amplitude, residual = fit_tone(seg, f, out_rate)
            gains.append(20 * np.log10(max(amplitude, 1e-9) / TONE_AMPLITUDE))
        else:
            residual = seg - seg.mean()
            gains.append(np.nan)
        spurs.append(10 * np.log10(max(np.mean(residual ** 2), 1e-12) / power_in))
        freqs.append(f)
    freqs, gains, spurs = map(np.array, (freqs, gains, spurs))
    passband = freqs <= 0.4 * low
    ripple = np.nanmax(gains[passband]) - np.nanmin(gains[passband])
    if out_rate < in_rate:   # aliases: tones 20% or more above the output's Nyquist
        stop = freqs >= 0.6 * out_rate
    else:                    # images and noise around passband tones
        stop = passband
    # 48000 -> 44100 has no input tone that far up: no figure.
    rejection = -np.max(spurs[stop]) if stop.any() else np.nan

    seg = middle(y, thd_start, THD_SECONDS, out_rate)
    amplitude, residual = fit_tone(seg, THD_TONE, out_rate)
    signal_power = amplitude ** 2 / 2
    thdn = 10 * np.log10(max(np.mean(residual ** 2), 1e-12) / signal_power)
    # SNR leaves out the harmonics of the tone.
    spectrum = np.abs(np.fft.rfft(residual * np.hanning(len(residual)))) ** 2
    bins = np.fft.rfftfreq(len(residual), 1 / out_rate)
    keep = np.ones_like(bins, dtype=bool)
    for h in range(2, 10):
        keep &= np.abs(bins - THD_TONE * h) > 20
    keep &= bins > 20
    noise_fraction = spectrum[keep].sum() / max(spectrum[bins > 20].sum(), 1e-30)
    snr = -(thdn + 10 * np.log10(max(noise_fraction, 1e-12)))
    return freqs, gains, spurs, ripple, rejection, snr, -thdn


def main():
    build, out_dir = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    os.makedirs(out_dir, exist_ok=True)
    work = tempfile.mkdtemp(prefix="skelda-quality-")
    plugins = os.path.join(work, "plugins")
    os.mkdir(plugins)
    system_dir = subprocess.run(["pkg-config", "--variable=libdir", "alsa"], check=True,
                                capture_output=True, text=True).stdout.strip() + "/alsa-lib"
    for name in os.listdir(system_dir):
        os.symlink(os.path.join(system_dir, name), os.path.join(plugins, name))
    os.symlink(os.path.join(build, "libasound_module_rate_skelda.so"),
               os.path.join(plugins, "libasound_module_rate_skelda.so"))

    rows, curves = [], {}
    signals = {}
    for label, converter, in_rate, out_rate in PATHS:
        if in_rate not in signals:
            samples, layout, thd_start = test_signal(in_rate)
            path = os.path.join(work, f"in_{in_rate}.wav")
            write_wav(path, samples, in_rate)
            signals[in_rate] = (path, layout, thd_start)
        path, layout, thd_start = signals[in_rate]
        y = convert(build, plugins, converter, path, in_rate, out_rate, work)
        freqs, gains, spurs, ripple, rejection, snr, thdn = measure(y, layout, thd_start,
                                                                    in_rate, out_rate)
        rows.append((label, in_rate, out_rate, ripple, rejection, snr, thdn))
        curves.setdefault((in_rate, out_rate), []).append((label, freqs, gains, spurs))

    for (in_rate, out_rate), series in curves.items():
        fig, (top, bottom) = plt.subplots(2, 1, figsize=(9, 7), sharex=True)
        for label, freqs, gains, spurs in series:
            top.plot(freqs, gains, label=label)
            bottom.plot(freqs, spurs, label=label)
        top.set_ylabel("gain (dB)")
        top.set_ylim(-12, 2)
        top.set_title(f"{in_rate} Hz -> {out_rate} Hz: response to -6 dBFS tones")
        bottom.set_ylabel("aliases, images, noise (dB re tone)")
        bottom.set_xlabel("input tone frequency (Hz)")
        for axis in (top, bottom):
            axis.axvline(min(in_rate, out_rate) / 2, color="grey", linestyle=":")
            axis.grid(True, alpha=0.3)
            axis.legend(fontsize=8)
        fig.tight_layout()
        fig.savefig(os.path.join(out_dir, f"response_{in_rate}_{out_rate}.png"), dpi=90)
        plt.close(fig)

    print("| path | rates (Hz) | passband ripple (dB, to 0.4 fs) | alias/image rejection (dB) "
          "| SNR 997 Hz (dB) | THD+N 997 Hz (dB below tone) |")
    print("|---|---|---|---|---|---|")
    for label, in_rate, out_rate, ripple, rejection, snr, thdn in rows:
        rejection = "n/a" if np.isnan(rejection) else f"{rejection:.1f}"
        print(f"| {label} | {in_rate} -> {out_rate} | {ripple:.2f} | {rejection} "
              f"| {snr:.1f} | {thdn:.1f} |")


if __name__ == "__main__":
    main()
