#!/usr/bin/env python3
"""Designs the filters that stretch and shrink thin rasters.

    scripts/resampling_filters.py           writes the taps and the plot
    scripts/resampling_filters.py --check   1 if either differs from what is committed

The taps go to zel/dnxhd/formatters/resampling_taps.h, the frequency responses to
docs/dnxhd-resampling.svg. docs/dnxhd-formatters.md tells what was chosen and why.
"""
import cmath
import math
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
HEADER = ROOT / "zel/dnxhd/formatters/resampling_taps.h"
PLOT = ROOT / "docs/dnxhd-resampling.svg"

ONE = 2048  # the sum of a phase's taps


def bessel_i0(x):
    total, term, k = 1.0, 1.0, 1
    while term > 1e-12 * total:
        term *= (x / (2 * k)) ** 2
        total += term
        k += 1
    return total


def whole(taps):
    """Taps as integers with the sum ONE: those with the largest remainders are rounded up."""
    scale = ONE / sum(taps)
    exact = [t * scale for t in taps]
    out = [math.floor(t) for t in exact]
    order = sorted(range(len(out)), key=lambda i: (out[i] - exact[i], i))
    for i in order[: ONE - sum(out)]:
        out[i] += 1
    return out


class Filter:
    """`centre` is the place of the first sample in its own step: 1/2 where samples stand in the
    middle, 1/4 for chroma, which stands on every other luma sample."""

    def __init__(self, name, advance, phases, taps, centre, shape):
        self.name, self.advance, self.taps = name, advance, taps
        self.places = [(j + centre) * advance / phases - centre for j in range(phases)]
        self.rows = []  # (first input sample, taps)
        for at in self.places:
            first = math.floor(at) - taps // 2 + 1
            self.rows.append((first, whole([shape(first + i - at) for i in range(taps)])))
        self.edge = max(0, -min(first for first, _ in self.rows))

    def response(self, frequency):
        """Magnitude at a frequency, of 1 for the input's rate, as the mean over the phases of what
        is in phase with the ideal sample."""
        total = 0
        for at, (first, taps) in zip(self.places, self.rows):
            total += sum(
                t * cmath.exp(2j * math.pi * frequency * (first + i - at)) for i, t in enumerate(taps)
            )
        return abs(total) / len(self.rows) / ONE


def kaiser_sinc(cutoff, half_width, beta):
    def shape(x):
        if abs(x) >= half_width:
            return 0.0
        sinc = cutoff if x == 0 else math.sin(math.pi * cutoff * x) / (math.pi * x)
        return sinc * bessel_i0(beta * math.sqrt(1 - (x / half_width) ** 2)) / bessel_i0(beta)

    return shape


def catmull_rom(x):
    x = abs(x)
    if x < 1:
        return 1.5 * x**3 - 2.5 * x**2 + 1
    return -0.5 * x**3 + 2.5 * x**2 - 4 * x + 2 if x < 2 else 0.0


def tent(half_width):
    return lambda x: max(0.0, half_width - abs(x))


def filters():
    shrink = kaiser_sinc(0.72, 12, 4.5)
    expand = kaiser_sinc(0.93, 8, 4.5)
    luma, chroma = 1 / 2, 1 / 4
    made = [
        Filter("ShrinkLuma", 4, 3, 24, luma, shrink),
        Filter("ShrinkChroma", 4, 3, 24, chroma, shrink),
        Filter("ExpandLuma", 3, 4, 16, luma, expand),
        Filter("ExpandChroma", 3, 4, 16, chroma, expand),
        Filter("Draft3To4", 3, 4, 4, luma, catmull_rom),
        Filter("Draft3To2", 3, 2, 4, luma, catmull_rom),
        Filter("Draft3To1", 3, 1, 6, luma, tent(3)),
        Filter("Draft2To1", 2, 1, 4, luma, tent(2)),
        Filter("Draft4To1", 4, 1, 8, luma, tent(4)),
    ]
    # The one filter of the draft form that is fixed: newest sample first it is 0, 498, 1499, 51 and
    # 0, 51, 1499, 498.
    fixed = next(f for f in made if f.name == "Draft3To2")
    fixed.rows = [(-1, [51, 1499, 498, 0]), (1, [498, 1499, 51, 0])]
    fixed.edge = 1
    return made


def header(made):
    lines = [
        "#pragma once",
        "",
        "#include <array>",
        "#include <cstdint>",
        "",
        '#include "zel/dnxhd/formatters/filter_description.h"',
        "",
        "// Written by scripts/resampling_filters.py, which a test runs again. The taps of a phase sum up",
        f"// to {ONE}; they are in the order of the samples.",
        "",
        "namespace zel::dnxhd {",
        "",
        "// clang-format off",
        "",
    ]
    for f in made:
        count = len(f.rows) * f.taps
        lines.append(f"inline constexpr std::array<int16_t, {count}> k{f.name}Taps = {{")
        for _, taps in f.rows:
            lines.append("    " + ", ".join(str(t) for t in taps) + ",")
        lines += ["};", f"inline constexpr FilterDescription k{f.name} = {{"]
        lines.append(f"    .phaseCount = {len(f.rows)},")
        phases = ", ".join(
            f"{{{first + f.edge}, {f.taps}, {i * f.taps}}}" for i, (first, _) in enumerate(f.rows)
        )
        lines.append(f"    .phases = {{{{{phases}}}}},")
        lines.append(f"    .advance = {f.advance},")
        lines.append(f"    .edge = {f.edge},")
        lines += [f"    .taps = k{f.name}Taps.data(),", "};", ""]
    lines += ["// clang-format on", "", "}  // namespace zel::dnxhd", ""]
    return "\n".join(lines)


def decibels(value):
    return 20 * math.log10(max(value, 1e-5))


# One panel a use. The rate is that of the input; the grey line is the narrower raster's limit.
PANELS = [
    ("Shrinking, 4 to 3", ["ShrinkLuma", "ShrinkChroma"], 0.375),
    ("Stretching, 3 to 4", ["ExpandLuma", "ExpandChroma", "Draft3To4"], 0.5),
    ("Previews", ["Draft3To2", "Draft3To1", "Draft2To1", "Draft4To1"], None),
]
COLOURS = ["#1f77b4", "#d62728", "#2ca02c", "#9467bd"]


def plot(made):
    by_name = {f.name: f for f in made}
    width, height, left, top, gap = 300, 240, 50, 30, 70
    out = [
        '<svg xmlns="http://www.w3.org/2000/svg" font-family="sans-serif" font-size="11" '
        f'viewBox="0 0 {left + len(PANELS) * (width + gap)} {top + height + 50}">',
        '<rect width="100%" height="100%" fill="white"/>',
    ]
    floor = -70.0
    for p, (title, names, limit) in enumerate(PANELS):
        x0 = left + p * (width + gap)

        def xy(frequency, level):
            return x0 + width * frequency, top + height * (6 - level) / (6 - floor)

        out.append(f'<text x="{x0}" y="{top - 12}" font-size="13">{title}</text>')
        for level in range(0, int(floor) - 1, -10):
            _, y = xy(0, level)
            out.append(f'<path d="M{x0} {y:.1f}h{width}" stroke="#ddd"/>')
            out.append(f'<text x="{x0 - 6}" y="{y + 4:.1f}" text-anchor="end">{level} dB</text>')
        for tenth in range(0, 11, 2):
            x, _ = xy(tenth / 10, floor)
            out.append(f'<path d="M{x:.1f} {top}v{height}" stroke="#eee"/>')
            out.append(
                f'<text x="{x:.1f}" y="{top + height + 16}" text-anchor="middle">{tenth / 10:g}</text>'
            )
        if limit:
            x, _ = xy(limit, 0)
            out.append(f'<path d="M{x:.1f} {top}v{height}" stroke="#999" stroke-dasharray="4 3"/>')
        for i, name in enumerate(names):
            points = []
            for step in range(0, 401):
                frequency = step / 400
                level = max(floor, decibels(by_name[name].response(frequency)))
                points.append("{:.1f},{:.1f}".format(*xy(frequency, level)))
            out.append(
                f'<polyline points="{" ".join(points)}" fill="none" stroke="{COLOURS[i]}" '
                'stroke-width="1.3"/>'
            )
            out.append(
                f'<text x="{x0 + width - 90}" y="{top + 16 + 14 * i}" fill="{COLOURS[i]}">{name}</text>'
            )
        out.append(
            f'<text x="{x0 + width / 2}" y="{top + height + 34}" text-anchor="middle">'
            "frequency, of the input's sampling rate</text>"
        )
    out += ["</svg>", ""]
    return "\n".join(out)


def main():
    made = filters()
    wanted = {HEADER: header(made), PLOT: plot(made)}
    if "--table" in sys.argv:
        for f in made:
            levels = [f"{decibels(f.response(x / 40)):7.2f}" for x in range(0, 41, 2)]
            print(f"{f.name:13}", *levels)
        return 0
    if "--check" in sys.argv:
        stale = [p for p, text in wanted.items() if not p.exists() or p.read_text() != text]
        for path in stale:
            print(f"{path.relative_to(ROOT)} is not what scripts/resampling_filters.py writes")
        return 1 if stale else 0
    for path, text in wanted.items():
        path.write_text(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
